// Files by which the maker's devices are told things: the id of the default collection, where the
// device has no property for it ("PREFGUID.TXT" on its inner store), and the shoebox.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// Main thread only.
class CollectionIDFile {
 public:
  /// Both are lent.
  CollectionIDFile(PTPTransactions& device, const MakerConstants& maker)
      : device_(device), maker_(maker) {}

  /// The text of the first such file; none without one, for one that cannot be read, and for one
  /// that is no ASCII.
  std::optional<std::string> defaultCollectionIDFromFile();
  /// Puts a file with that id in place of the first that is there. None and empty take the file
  /// away: the status of deleting it. Otherwise that of sending. -50 for an id that is no ASCII,
  /// before anything is deleted.
  [[nodiscard]] Status storeDefaultCollectionIDInFile(
      const std::optional<std::string>& collectionID);

 private:
  /// Handle of the first such file, in `*handle`, which is 0 without one; the status of finding
  /// out.
  [[nodiscard]] Status find(std::uint32_t* handle);
  std::string fileName() const;
  std::uint16_t format() const;
  bool isViewer() const;

  PTPTransactions& device_;
  const MakerConstants& maker_;
};

// The shoebox of a device: its file, and pictures that are added to it.

/// Format of the shoebox file; its information is stale once a picture was added.
inline constexpr std::uint16_t kShoeboxFormat = 0xB00C;

/// Main thread only. `operations` may be null. Statuses are those of fillInObjInfo() and of
/// sending.
class Shoebox {
 public:
  /// Both are lent.
  Shoebox(PTPTransactions& device, const MakerConstants& maker) : device_(device), maker_(maker) {}

  /// Sends a file as "tarvodsb.sbx", in parts where the device takes them; nobody learns its
  /// handle.
  [[nodiscard]] Status sendContents(const std::string& path, const CodeList* operations);
  /// The same from memory as a whole; `resultHandle` may be null.
  [[nodiscard]] Status sendWhole(const std::string& path, const CodeList* operations,
                                 std::uint32_t* resultHandle);
  /// Sends a picture as "sbximg.jpg". -43 where it cannot be read. An empty path is a failed
  /// assertion.
  [[nodiscard]] Status addImage(const std::string& path, const CodeList* operations);

 private:
  PTPTransactions& device_;
  const MakerConstants& maker_;
};

}  // namespace tarvo
