#include "import/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "import/CaptureDate.h"
#include "import/Fingerprint.h"
#include "platform/files/FileNames.h"
#include "platform/files/PartFile.h"

namespace tarvo::importing {
namespace fs = std::filesystem;

namespace {

bool haveSameContent(const std::string& one, const std::string& other) {
  std::error_code error;
  const auto size = fs::file_size(one, error);
  if (error || size != fs::file_size(other, error) || error) return false;
  const auto first = openFile(one);
  const auto second = openFile(other);
  if (!first.isOpen() || !second.isOpen()) return false;
  const auto fingerprint = fingerprintOf(first.get());
  return fingerprint && fingerprint == fingerprintOf(second.get());
}

}  // namespace

FileDescriptor openFile(const std::string& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  struct stat attributes {};
  if (file.isOpen() && ::fstat(file.get(), &attributes) == 0 && S_ISREG(attributes.st_mode))
    return file;
  if (file.isOpen()) errno = EINVAL;
  return {};
}

std::vector<std::byte> beginningOf(int descriptor) {
  std::vector<std::byte> bytes(kMostOfHeader);
  const ssize_t length = ::pread(descriptor, bytes.data(), bytes.size(), 0);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return bytes;
}

unsigned freeNumber(const std::string& folder, const std::vector<std::string>& names) {
  unsigned number = 1;
  const auto isTaken = [&](const std::string& name) {
    struct stat attributes {};
    const std::string path = folder + "/" + numberedFileName(name, number);
    return ::lstat(path.c_str(), &attributes) == 0;
  };
  while (number < kMostOfOneName && std::ranges::any_of(names, isTaken))
    ++number;
  return number;
}

std::optional<std::string> twinOf(const std::string& path, const Place& place, unsigned number) {
  for (unsigned earlier = 1; earlier < number; ++earlier) {
    std::string other = place.folder + "/" + numberedFileName(place.name, earlier);
    if (haveSameContent(path, other)) return other;
  }
  return std::nullopt;
}

Moved moveTo(const std::string& path, const Place& place) {
  std::error_code made;
  fs::create_directories(place.folder, made);
  if (made) return {.path = path, .error = made.value()};
  for (unsigned number = 1; number <= kMostOfOneName; ++number) {
    const std::string target = place.folder + "/" + numberedFileName(place.name, number);
    if (target == path) return {.path = path};
    const int error = renameIfFree(AT_FDCWD, path, AT_FDCWD, target);
    if (error == 0) return {.path = target};
    if (error != EEXIST) return {.path = path, .error = error};
    if (!haveSameContent(path, target)) continue;
    ::unlink(path.c_str());
    return {.path = target, .wasThere = true};
  }
  return {.path = path, .error = EEXIST};
}

int flushFile(int descriptor) {
  return ::fsync(descriptor) == 0 ? 0 : errno;
}

int flushFolder(const std::string& path) {
  const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder.isOpen() && ::fsync(folder.get()) == 0 ? 0 : errno;
}

}  // namespace tarvo::importing
