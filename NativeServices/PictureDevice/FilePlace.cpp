#include "NativeServices/PictureDevice/FilePlace.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tarvo {

std::string errorText(int error) {
  return std::generic_category().message(error);
}

bool FilePlace::fail(Status status, std::string why) {
  result_.status = status;
  result_.why = std::move(why);
  return false;
}

// What the device calls an object is not trusted; what the caller asked for must be a name.
bool FilePlace::prepare(const std::string& deviceName) {
  auto name = request_.name ? request_.name : safeFileName(deviceName);
  if (name && !isFileName(*name)) name.reset();  // a caller's own is taken as it stands
  if (!name) return fail(status::kFileNotFound, "its name cannot be the name of a file");
  name_ = *name;
  result_.path = request_.folder + "/" + name_;
  return openFolder();
}

bool FilePlace::openFolder() {
  folder_ = FileDescriptor(::open(request_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_.isOpen()) {
    return fail(status::kIOError, "the folder cannot be opened: " + errorText(errno));
  }
  // Asked again at the end; here it saves the transfer.
  struct stat attributes {};
  if (request_.existing == ExistingFile::kRefuse &&
      ::fstatat(folder_.get(), name_.c_str(), &attributes, AT_SYMLINK_NOFOLLOW) == 0) {
    return fail(status::kDuplicateFile, "there is a file of that name");
  }
  return true;
}

void FilePlace::put(PartFile& part, std::optional<std::time_t> modified,
                    std::optional<mode_t> permissions) {
  constexpr unsigned kMostOfOneName = 100'000;
  const bool replace = request_.existing == ExistingFile::kOverwrite;
  // Bounded, should somebody make the next name each time.
  const unsigned most = request_.existing == ExistingFile::kKeepBoth ? kMostOfOneName : 1;
  int error = EEXIST;
  for (unsigned number = 1; number <= most && error == EEXIST; ++number) {
    const std::string name = numberedFileName(name_, number);
    error = part.putInPlace(name, replace, modified, permissions);
    result_.path = request_.folder + "/" + name;
  }
  if (error == EEXIST) {
    fail(status::kDuplicateFile, "there is a file of that name");
  } else if (error != 0) {
    fail(status::kIOError, "the file cannot be given its name: " + errorText(error));
  }
}

}  // namespace tarvo
