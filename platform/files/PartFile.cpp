#include "platform/files/PartFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>

#include "Utilities/Format.h"
#include "platform/files/FileNames.h"

namespace tarvo {
namespace {

constexpr mode_t kOwnerAlone = 0600;
constexpr std::string_view kEnding = ".part";

int errorOf(int result) {
  return result == 0 ? 0 : errno;
}

/// FNV-1a: tells objects apart, and is not meant to withstand anybody.
std::uint64_t fingerprint(std::string_view text) {
  constexpr std::uint64_t kOffsetBasis = 0xCBF29CE484222325;
  constexpr std::uint64_t kPrime = 0x100000001B3;
  std::uint64_t hash = kOffsetBasis;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= kPrime;
  }
  return hash;
}

std::uint64_t randomNumber() {
  std::random_device random;
  return std::uint64_t{random()} << 32U | random();
}

/// What a new file may be, by the file mode creation mask; that of most systems where the kernel
/// does not tell (proc_pid_status(5)): to ask umask(2) would change it for all threads.
mode_t permissionsOfNewFiles() {
  constexpr mode_t kReadAndWrite = 0666;
  constexpr mode_t kUsualMask = 0022;
  std::ifstream lines("/proc/self/status");
  for (std::string line; std::getline(lines, line);) {
    unsigned mask = 0;
    if (std::sscanf(line.c_str(), "Umask: %o", &mask) == 1) return kReadAndWrite & ~mask;
  }
  return kReadAndWrite & ~kUsualMask;
}

}  // namespace

std::string PartFile::nameFor(std::string_view name, std::string_view identity) {
  const std::uint64_t number = identity.empty() ? randomNumber() : fingerprint(identity);
  const std::string tail = formatted(".%016llx.part", static_cast<unsigned long long>(number));
  std::string start = "." + std::string(name);
  // Cut within a character where need be: nobody reads it.
  start.resize(std::min(start.size(), kMaximumFileName - tail.size()));
  return start + tail;
}

std::optional<std::string> PartFile::objectOf(std::string_view name) {
  constexpr std::string_view kShape = ".0123456789abcdef.part";
  if (!name.starts_with('.') || name.size() <= kShape.size()) return std::nullopt;
  const std::size_t size = name.size() - kShape.size();
  const std::string_view tail = name.substr(size);
  constexpr std::size_t kEnd = kShape.size() - kEnding.size();
  const bool isPart =
      tail.front() == '.' && tail.ends_with(kEnding) &&
      tail.substr(1, kEnd - 1).find_first_not_of("0123456789abcdef") == std::string_view::npos;
  return isPart ? std::optional<std::string>(name.substr(1, size - 1)) : std::nullopt;
}

std::vector<std::string> PartFile::leftSince(const std::string& folder, std::time_t date) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat attributes {};
    if (!objectOf(entry->path().filename().native())) continue;
    if (::lstat(entry->path().c_str(), &attributes) != 0 || !S_ISREG(attributes.st_mode)) continue;
    if (attributes.st_mtime < date) names.push_back(entry->path().filename());
  }
  std::ranges::sort(names);
  return names;
}

PartFile::~PartFile() {
  // Never a file that could not be opened: it is somebody else's.
  if (file_.isOpen() && !isKept_) ::unlinkat(folder_, name_.c_str(), 0);
}

int PartFile::open(Opening opening) {
  const int exclusive = opening == Opening::kNew ? O_EXCL : 0;
  FileDescriptor file(::openat(folder_, name_.c_str(),
                               O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | exclusive, kOwnerAlone));
  if (!file.isOpen()) return errno;
  // Two that write to one part would leave neither whole. Some file systems know no locks.
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return EBUSY;
  struct stat attributes {};
  if (::fstat(file.get(), &attributes) != 0) return errno;
  // In a folder that others may write to, somebody can have laid it there.
  const bool isOurs =
      S_ISREG(attributes.st_mode) && attributes.st_uid == ::geteuid() && attributes.st_nlink == 1;
  if (!isOurs) return EPERM;
  file_ = std::move(file);
  return 0;
}

std::uint64_t PartFile::size() const {
  struct stat attributes {};
  return ::fstat(file_.get(), &attributes) == 0 ? static_cast<std::uint64_t>(attributes.st_size)
                                                : 0;
}

bool PartFile::hasContentOf(const std::string& name) const {
  constexpr std::size_t kComparedPiece = 65536;
  const FileDescriptor other(
      ::openat(folder_, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat attributes {};
  if (!other.isOpen() || ::fstat(other.get(), &attributes) != 0 || !S_ISREG(attributes.st_mode))
    return false;
  if (static_cast<std::uint64_t>(attributes.st_size) != size()) return false;
  std::vector<char> own(kComparedPiece);
  std::vector<char> others(kComparedPiece);
  for (off_t at = 0; at < attributes.st_size;) {
    const ssize_t length = ::pread(file_.get(), own.data(), kComparedPiece, at);
    if (length <= 0 || ::pread(other.get(), others.data(), kComparedPiece, at) != length)
      return false;
    if (!std::equal(own.begin(), own.begin() + length, others.begin())) return false;
    at += length;
  }
  return true;
}

int PartFile::truncate(std::uint64_t size) {
  return errorOf(::ftruncate(file_.get(), static_cast<off_t>(size)));
}

int PartFile::putInPlace(const std::string& name, bool replace, std::optional<std::time_t> modified,
                         std::optional<mode_t> permissions) {
  if (modified) {
    const timespec times[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
                              {.tv_sec = *modified, .tv_nsec = 0}};
    ::futimens(file_.get(), times);  // a date that the file system cannot hold is no failure
  }
  // Some file systems have no permissions to change.
  const mode_t mode = permissions ? *permissions : permissionsOfNewFiles();
  if (::fchmod(file_.get(), mode) != 0 && errno != EPERM) return errno;
  const int error = rename(name, replace);
  if (error == 0) keep();
  return error;
}

int PartFile::rename(const std::string& name, bool replace) const {
  // In one step, so that there is never a time without the old file or the new one.
  if (replace) return errorOf(::renameat(folder_, name_.c_str(), folder_, name.c_str()));
  return renameIfFree(folder_, name_, folder_, name);
}

int renameIfFree(int folder, const std::string& name, int newFolder, const std::string& newName) {
  const int error =
      errorOf(::renameat2(folder, name.c_str(), newFolder, newName.c_str(), RENAME_NOREPLACE));
  if (error != EINVAL) return error;
  // A file system that cannot keep the name by itself: somebody may take it in between.
  struct stat attributes {};
  if (::fstatat(newFolder, newName.c_str(), &attributes, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return errorOf(::renameat(folder, name.c_str(), newFolder, newName.c_str()));
}

}  // namespace tarvo
