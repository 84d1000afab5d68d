// The id of the default collection of a device that has no property for it: a text file
// "PREFGUID.TXT" on the device's inner store.
#pragma once

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
  Status storeDefaultCollectionIDInFile(const std::optional<std::string>& collectionID);

 private:
  /// Handle of the first such file, in `*handle`, which is 0 without one; the status of finding
  /// out.
  Status find(std::uint32_t* handle);
  std::string fileName() const;
  std::uint16_t format() const;
  bool isViewer() const;

  PTPTransactions& device_;
  const MakerConstants& maker_;
};

}  // namespace tarvo
