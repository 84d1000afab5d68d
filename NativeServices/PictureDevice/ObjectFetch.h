// Downloading objects of a PTP device to files of their own, as a user wants it: whole or not at
// all, never over an existing file unasked, and going on where a cut download stopped.
//
//   ObjectFetch fetch(device);
//   const auto result = fetch.toFile(handle, {.folder = "pictures"});
//   if (result.status != status::kOK) explain(result.status, result.why);
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/DataPhases.h"
#include "NativeServices/PictureDevice/HostFileNames.h"
#include "NativeServices/PictureDevice/PTPTransactions.h"
#include "Utilities/Status.h"

namespace tarvo {

/// What to do where the file is there already.
enum class ExistingFile : std::uint8_t {
  kRefuse,     ///< the result is kDuplicateFile
  kOverwrite,  ///< replaced once the new one is whole
  kKeepBoth,   ///< the new one gets the first free name of "NAME (2).EXT", "NAME (3).EXT" ...
};

struct FetchRequest {
  std::string folder = ".";           ///< must exist; nothing is written outside it
  std::optional<std::string> name{};  ///< in place of the object's own
  ExistingFile existing = ExistingFile::kRefuse;
  ProgressCallback progress{};  ///< true cancels
  /// Tells whose object it is, so that a part is only continued with the same device: its serial
  /// number. Where it is empty, no part is kept.
  std::string device{};
};

struct FetchResult {
  /// 0; -43 for a name that is no file name; -48 for a file that is there; -36 for one that cannot
  /// be written or came short; -490 when cancelled; -1302 for a folder; -9905 for information that
  /// cannot be read; otherwise that of the device.
  Status status = status::kOK;
  std::string why{};          ///< more than the status says, a clause; may be empty
  std::string path{};         ///< of the file that was made, or would have been
  std::uint64_t size = 0;     ///< bytes of the object
  std::uint64_t resumed = 0;  ///< how many of them were there from an earlier attempt
};

/// Main thread only.
///
/// An object goes by one streamed GetObject. Its bytes lie in a hidden file beside the final name
/// until they are whole and as many as announced; a failure removes that file, unless the object is
/// larger than 2 MiB and the device has GetPartialObject: then it stays and the next attempt goes
/// on behind it, piece by piece. A device that refuses such a piece costs the part, so that the
/// attempt after that begins anew. The file gets the object's modification date.
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
