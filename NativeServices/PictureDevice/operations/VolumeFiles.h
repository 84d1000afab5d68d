// Copying files off a mounted volume.
//
//   VolumeCopy copy;
//   const auto result = copy.toFile(source.get(), "TARV0001.JPG", {.folder = "pictures"});
//   if (result.status != status::kOK) explain(result.status, result.why);
#pragma once

#include <string>

#include "platform/files/FileCopy.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

/// Whether nobody may change the file, whatever its permissions (FS_IMMUTABLE_FL, as statx(2) tells
/// it). `directory` and `path` as for openat(2), links followed; an empty path means the descriptor
/// itself. False where it cannot be told.
bool isImmutable(int directory, const char* path);

/// Main thread only. One is kept for many files.
///
/// The copy lies in a hidden file beside its name until it is whole, and goes when it does not
/// become so. It gets the dates and the permissions of the source (no set-id bits; only reading
/// where the source is immutable) and, as the attribute "user.tarvo.hfstype", the type that goes
/// with the extension. Linux has no creation date that could be set: that of the copy is its own.
class VolumeCopy {
 public:
  /// `source` is an open regular file, lent, `sourceName` what it is called on the volume. Statuses
  /// of the result: as FilePlace::prepare() and FilePlace::put(); -36 for what cannot be read or
  /// written, and for a source that ends early; -490 when the progress callback cancelled.
  FetchResult toFile(int source, const std::string& sourceName, const FetchRequest& request);

 private:
  bool copyContent(int source, PartFile& part, FilePlace& place, const FetchRequest& request,
                   const FetchResult& result);

  FileCopy copy_;
};

}  // namespace tarvo
