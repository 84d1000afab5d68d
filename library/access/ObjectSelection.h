// Which objects of a camera are meant: handles, names, patterns, or all of them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/operations/ObjectListing.h"

namespace tarvo::library {

class OpenedDevice;

/// What becomes of each part of a selection. All must be set.
struct SelectionVisitor {
  /// An object with its path on the device; `isNamed`: an operand means it.
  std::function<void(std::uint32_t handle, const ObjectInfoPointer& info, const std::string& path,
                     bool isNamed)>
      onObject;
  /// An object that cannot be read.
  std::function<void(std::uint32_t handle, Status status, const std::string& why)> onUnreadable;
  /// A name or pattern that nothing has.
  std::function<void(const std::string& operand)> onUnmatched;
  std::function<bool()> goesOn;
};

/// `operands` are handles (decimal or 0x...), names, or patterns with "*", "?" and "[...]"
/// (glob(7)); one with a slash is compared with the whole path. A name means the first object that
/// has it; a name that is a number is written as a pattern ("[1]23"). None, with `all`: every
/// object that is no folder. Each object is visited as soon as it is known, and once. Folders are
/// visited only where their handle or exact name is given. Raises an error where the device
/// cannot list its objects.
void visitSelection(OpenedDevice& device, const std::vector<std::string>& operands, bool all,
                    const SelectionVisitor& visitor);

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

/// How many UTF-16 units a name has, which a PTP string counts.
std::size_t nameLength(const std::string& name);
/// Names of so many units and more cannot be told to a device.
inline constexpr std::size_t kNameLimit = 255;

}  // namespace tarvo::library
