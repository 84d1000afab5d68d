// Where a file that is fetched from a device goes on this host: its folder, its name, and what
// becomes of a file that is there.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <unordered_set>

#include "Utilities/ByteBuffer.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/Status.h"
#include "platform/files/FileNames.h"
#include "platform/files/PartFile.h"

namespace tarvo {

/// What to do where the file is there already.
enum class ExistingFile : std::uint8_t {
  kRefuse,      ///< the result is kDuplicateFile
  kOverwrite,   ///< replaced once the new one is whole
  kKeepBoth,    ///< the new one gets the first free name of "NAME (2).EXT", "NAME (3).EXT" ...
  kKeepOthers,  ///< the same, unless one of these names has the same content: that is kept alone
};

/// What one run over many objects has put into a folder, and what it has found there for them: none
/// of it gives way to another object of the run, or passes for it.
class RunFiles {
 public:
  /// `folder` is the descriptor of the open directory.
  void add(int folder, const std::string& name);
  bool has(int folder, const std::string& name) const;

 private:
  /// Of names, and of files: a file system may take two names for one.
  std::unordered_set<std::size_t> hashes_;
};

struct FetchRequest {
  std::string folder = ".";           ///< must exist; nothing is written outside it
  std::optional<std::string> name{};  ///< in place of the object's own
  ExistingFile existing = ExistingFile::kRefuse;
  mode_t mostPermissions = 0777;  ///< of a source that has any, the others are taken away
  /// Lent; a file of the run is neither replaced nor a reason to refuse: the next one is numbered.
  RunFiles* run = nullptr;
  ProgressCallback progress{};  ///< true cancels
  ContentCallback content{};    ///< of what comes over USB, and not of what was there before
  /// Tells whose object it is, so that a part is only continued with the same device: its serial
  /// number. Where it is empty, no part is kept.
  std::string device{};
};

/// Whether what was to be written has room.
enum class Room : std::uint8_t {
  kEnough,
  kTooLittle,  ///< found before anything was transferred
  kNone,       ///< the file system, or the user's share of it, was full while it was written
};

struct [[nodiscard]] FetchResult {
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
  bool wasThere = false;      ///< kKeepOthers: `path` is the file that was there
  Room room = Room::kEnough;  ///< with -36
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
  [[nodiscard]] bool prepare(const std::string& deviceName);
  const std::string& name() const { return name_; }
  /// Whether the file is there: a regular one of that name, numbered or not, with that size and,
  /// within the two seconds of coarse file systems, that date. It is one of the run then, and none
  /// that was of the run before is taken. What has no date is never known to be there.
  bool isThere(std::uint64_t size, std::optional<std::time_t> date) const;
  /// Whether so many bytes more can be written, as far as the file system tells. False: kIOError.
  bool hasRoom(std::uint64_t bytes);
  /// Of the folder, lent.
  int folder() const { return folder_.get(); }
  /// Gives the whole file the name, or the next one that is free, as the request says; `modified`
  /// and `permissions` as for PartFile::putInPlace().
  void put(PartFile& part, std::optional<std::time_t> modified,
           std::optional<mode_t> permissions = std::nullopt);
  /// Leaves the failure in the result. False.
  bool fail(Status status, std::string why);
  /// The same for what this host refused, by its errno: kIOError.
  bool failToWrite(const std::string& what, int error);

 private:
  [[nodiscard]] bool openFolder();
  bool isOfRun(const std::string& name) const;
  /// 0, or an errno: EEXIST for a name that is taken.
  [[nodiscard]] int putAs(PartFile& part, const std::string& name,
                          std::optional<std::time_t> modified, std::optional<mode_t> permissions);

  const FetchRequest& request_;
  FetchResult& result_;
  std::string name_;
  FileDescriptor folder_;
};

/// What a file system holds, in bytes.
struct FileSystemSize {
  std::uint64_t whole = 0;
  std::uint64_t free = 0;  ///< for this user
};
/// Of the one that holds `path`; none where it does not tell.
std::optional<FileSystemSize> fileSystemSizeOf(const std::string& path);

/// An errno in words.
std::string errorText(int error);

}  // namespace tarvo
