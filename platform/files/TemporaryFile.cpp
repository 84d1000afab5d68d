#include "platform/files/TemporaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace tarvo {

TemporaryFile::TemporaryFile(const std::string& folder) : path_(folder + "/.tarvo-XXXXXX") {
  file_ = FileDescriptor(::mkostemp(path_.data(), O_CLOEXEC));
}

TemporaryFile::~TemporaryFile() {
  if (file_.isOpen()) ::unlink(path_.c_str());
}

Status TemporaryFile::rename(const std::string& path) {
  constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
  ::fchmod(file_.get(), kMode);
  int failed = ::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE);
  // Not every file system can do it in one step.
  if (failed != 0 && errno == EINVAL) {
    if (exists(path)) return status::kDuplicateFile;
    failed = ::rename(path_.c_str(), path.c_str());
  }
  if (failed != 0) return errno == EEXIST ? status::kDuplicateFile : status::kIOError;
  file_ = FileDescriptor();
  return status::kOK;
}

bool TemporaryFile::exists(const std::string& path) {
  struct ::stat found {};
  return ::lstat(path.c_str(), &found) == 0;
}

}  // namespace tarvo
