// Downloading objects of a PTP device to files of their own, as a user wants it: whole or not at
// all, never over an existing file unasked, and going on where a cut download stopped.
//
//   ObjectFetch fetch(device);
//   const auto result = fetch.toFile(handle, {.folder = "pictures"});
//   if (result.status != status::kOK) explain(result.status, result.why);
#pragma once

#include <cstdint>

#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

/// Main thread only.
///
/// An object goes by one streamed GetObject. Its bytes lie in a hidden file beside the final name
/// until they are whole and as many as announced; a failure removes that file, unless the object is
/// larger than 2 MiB and the device has GetPartialObject: then it stays and the next attempt goes
/// on behind it, piece by piece, however short the pieces are. A device that refuses such a piece,
/// or sends nothing of it, costs the part, so that the attempt after that begins anew. The file
/// gets the object's modification date.
class ObjectFetch {
 public:
  /// `device` is lent.
  explicit ObjectFetch(PTPTransactions& device) : device_(device) {}

  FetchResult toFile(std::uint32_t handle, const FetchRequest& request);

 private:
  PTPTransactions& device_;
  SparePieces spare_;
};

}  // namespace tarvo
