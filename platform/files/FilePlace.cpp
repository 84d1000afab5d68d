#include "platform/files/FilePlace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <system_error>
#include <utility>

#include "Utilities/Format.h"

namespace tarvo {
namespace {

/// A link is what it is, not where it leads: that may be the device itself.
std::optional<struct stat> attributesOf(int folder, const std::string& name) {
  struct stat attributes {};
  if (::fstatat(folder, name.c_str(), &attributes, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return attributes;
}

std::size_t hashOfName(const std::string& name) {
  return std::hash<std::string>()("name " + name);
}

std::size_t hashOfFile(const struct stat& attributes) {
  return std::hash<std::string>()("file " + std::to_string(attributes.st_dev) + " " +
                                  std::to_string(attributes.st_ino));
}

}  // namespace

void RunFiles::add(int folder, const std::string& name) {
  hashes_.insert(hashOfName(name));
  if (const auto attributes = attributesOf(folder, name)) hashes_.insert(hashOfFile(*attributes));
}

bool RunFiles::has(int folder, const std::string& name) const {
  if (hashes_.contains(hashOfName(name))) return true;
  const auto attributes = attributesOf(folder, name);
  return attributes && hashes_.contains(hashOfFile(*attributes));
}

std::optional<FileSystemSize> fileSystemSizeOf(const std::string& path) {
  struct statvfs found {};
  // Without blocks it counts none.
  if (::statvfs(path.c_str(), &found) != 0 || found.f_blocks == 0) return std::nullopt;
  return FileSystemSize{.whole = std::uint64_t{found.f_blocks} * found.f_frsize,
                        .free = std::uint64_t{found.f_bavail} * found.f_frsize};
}

std::string errorText(int error) {
  return std::generic_category().message(error);
}

bool FilePlace::fail(Status status, std::string why) {
  result_.status = status;
  result_.why = std::move(why);
  return false;
}

bool FilePlace::failToWrite(const std::string& what, int error) {
  if (error == ENOSPC || error == EDQUOT) result_.room = Room::kNone;
  return fail(status::kIOError, what + ": " + errorText(error));
}

bool FilePlace::hasRoom(std::uint64_t bytes) {
  const auto found = fileSystemSizeOf(request_.folder);
  if (!found || bytes <= found->free) return true;
  result_.room = Room::kTooLittle;
  return fail(status::kIOError, formatted("it needs %llu bytes of room, and %llu are free",
                                          static_cast<unsigned long long>(bytes),
                                          static_cast<unsigned long long>(found->free)));
}

bool FilePlace::isOfRun(const std::string& name) const {
  return request_.run && request_.run->has(folder(), name);
}

bool FilePlace::isThere(std::uint64_t size, std::optional<std::time_t> date) const {
  constexpr std::time_t kCoarseness = 2;
  if (!date) return false;
  for (unsigned number = 1; number <= kMostOfOneName; ++number) {
    const std::string name = numberedFileName(name_, number);
    const auto found = attributesOf(folder(), name);
    if (!found) return false;
    const bool isSame = S_ISREG(found->st_mode) &&
                        static_cast<std::uint64_t>(found->st_size) == size &&
                        std::abs(found->st_mtime - *date) <= kCoarseness;
    if (!isSame || isOfRun(name)) continue;
    if (request_.run) request_.run->add(folder(), name);
    return true;
  }
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
    return failToWrite("the folder cannot be opened", errno);
  }
  // Asked again at the end; here it saves the transfer.
  if (request_.existing == ExistingFile::kRefuse && attributesOf(folder(), name_) &&
      !isOfRun(name_)) {
    return fail(status::kDuplicateFile, "there is a file of that name");
  }
  return true;
}

int FilePlace::putAs(PartFile& part, const std::string& name, std::optional<std::time_t> modified,
                     std::optional<mode_t> permissions) {
  const bool isOfRun = FilePlace::isOfRun(name);
  const bool replace = request_.existing == ExistingFile::kOverwrite && !isOfRun;
  const int error = part.putInPlace(name, replace, modified, permissions);
  if (error != EEXIST || isOfRun || request_.existing != ExistingFile::kKeepOthers) return error;
  result_.wasThere = part.hasContentOf(name);
  return result_.wasThere ? 0 : error;
}

void FilePlace::put(PartFile& part, std::optional<std::time_t> modified,
                    std::optional<mode_t> permissions) {
  int error = EEXIST;
  for (unsigned number = 1; number <= kMostOfOneName && error == EEXIST; ++number) {
    const std::string name = numberedFileName(name_, number);
    result_.path = request_.folder + "/" + name;
    error = putAs(part, name, modified, permissions);
    if (error == 0 && request_.run) request_.run->add(folder(), name);
    if (request_.existing == ExistingFile::kRefuse && !isOfRun(name)) break;
  }
  if (error == EEXIST) {
    fail(status::kDuplicateFile, "there is a file of that name");
  } else if (error != 0) {
    failToWrite("the file cannot be given its name", error);
  }
}

}  // namespace tarvo
