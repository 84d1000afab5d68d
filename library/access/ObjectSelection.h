// Which objects are meant, by what a person wrote: names and patterns.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "tarvo/Objects.h"

namespace tarvo::library {

/// Names, and patterns with "*", "?" and "[...]" (glob(7)); one with a slash is compared with the
/// whole path. A name means the first object that has it. One run over the objects of a device;
/// main thread only.
class Operands {
 public:
  enum class Meant : std::uint8_t {
    kNot,
    kNearly,  ///< but for case, by a name that may still find its own: see keep()
    kYes,
  };

  Operands(const std::vector<std::string>& texts, bool ignoresCase, bool findsFolders);

  /// Whether each is a name that has its object.
  bool areComplete() const;
  Meant take(std::string_view name, const std::string& path, bool isFolder);
  /// What take() has just called kNearly; none where it is visited for another reason.
  void keep(std::optional<ObjectInfo> object);
  /// At the end: what was kept and is meant after all, and what nothing has.
  void finish(const std::function<void(const ObjectInfo&)>& give,
              const std::function<void(const std::string&)>& unmatched) const;

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  struct Operand {
    std::string text;
    bool isPattern = false;
    bool wasMatched = false;
    std::size_t kept = kNone;  ///< place of what it means but for case
  };

  Meant match(const Operand& operand, std::string_view name, const std::string& path) const;

  std::vector<Operand> operands_;
  bool ignoresCase_;
  bool findsFolders_;
  std::vector<std::optional<ObjectInfo>> kept_;
};

// Where an object lies: the names of the folders above it, asked of the device no more than needed.

/// Main thread only.
class ObjectPaths {
 public:
  /// `device` is lent.
  explicit ObjectPaths(PTPTransactions& device) : device_(device) {}

  /// "DCIM/100TARVO/TARV0001.JPG". A folder that cannot be read, or that lies in itself, is left
  /// out.
  std::string pathOf(const XTExtendedObjectInfo& info);

 private:
  /// With a slash at its end; empty for the root.
  std::string folderPath(std::uint32_t handle, int depth);

  PTPTransactions& device_;
  std::map<std::uint32_t, std::string> folders_;
};

}  // namespace tarvo::library
