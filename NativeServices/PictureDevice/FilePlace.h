// Where a file that is fetched from a device goes on this host: its folder, its name, and what
// becomes of a file that is there.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/DataPhases.h"
#include "NativeServices/PictureDevice/HostFileNames.h"
#include "NativeServices/PictureDevice/PartFile.h"
#include "Utilities/FileDescriptor.h"
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
  /// be written; 0x2007 for one of which less came than was announced; -490 when cancelled; -1302
  /// for a folder; -9905 for information that cannot be read; otherwise that of the device.
  Status status = status::kOK;
  std::string why{};          ///< more than the status says, a clause; may be empty
  std::string path{};         ///< of the file that was made, or would have been
  std::uint64_t size = 0;     ///< bytes of the object
  std::uint64_t resumed = 0;  ///< how many of them were there from an earlier attempt
  std::string part{};         ///< path of what a failure has left to be gone on with; mostly empty
  std::uint64_t kept = 0;     ///< bytes of it
};

/// One file on its way to its place. Nothing is written outside the folder of the request.
class FilePlace {
 public:
  /// What fails is left in `result`. Both are lent.
  FilePlace(const FetchRequest& request, FetchResult& result)
      : request_(request), result_(result) {}

  /// Takes the name of the request, or what is left of the device's own, and opens the folder.
  /// False: kFileNotFound without a name, kIOError without the folder, kDuplicateFile for a file
  /// that is there and shall stay.
  bool prepare(const std::string& deviceName);
  const std::string& name() const { return name_; }
  /// Of the folder, lent.
  int folder() const { return folder_.get(); }
  /// Gives the whole file the name, or the next one that is free, as the request says; `modified`
  /// and `permissions` as for PartFile::putInPlace().
  void put(PartFile& part, std::optional<std::time_t> modified,
           std::optional<mode_t> permissions = std::nullopt);
  /// Leaves the failure in the result. False.
  bool fail(Status status, std::string why);

 private:
  bool openFolder();

  const FetchRequest& request_;
  FetchResult& result_;
  std::string name_;
  FileDescriptor folder_;
};

/// An errno in words.
std::string errorText(int error);

}  // namespace tarvo
