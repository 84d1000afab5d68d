#include "platform/imagecapture/ptp/InterfaceHolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdlib>
#include <memory>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"

namespace tarvo::ptp {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// The same file, or the same device under two nodes.
bool isSame(const struct stat& a, const struct stat& b) {
  // A container may have a node of its own for the same device.
  if (a.st_dev == b.st_dev && a.st_ino == b.st_ino) return true;
  return S_ISCHR(a.st_mode) && S_ISCHR(b.st_mode) && a.st_rdev == b.st_rdev;
}

bool hasOpen(const std::string& process, const struct stat& node) {
  // Of another user's process this fails, which makes it one that holds nothing.
  const Directory descriptors(::opendir(("/proc/" + process + "/fd").c_str()));
  if (!descriptors) return false;
  while (const dirent* entry = ::readdir(descriptors.get())) {
    struct stat file {};
    if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0 &&
        ::fstatat(::dirfd(descriptors.get()), entry->d_name, &file, 0) == 0 && isSame(file, node))
      return true;
  }
  return false;
}

std::string nameOf(const std::string& process) {
  const FileDescriptor file(::open(("/proc/" + process + "/comm").c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 64> text{};
  const ssize_t length = file.isOpen() ? ::read(file.get(), text.data(), text.size()) : 0;
  std::string name(text.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  // The kernel ends the name with a line end (proc(5)); 15 characters of it are kept.
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

}  // namespace

std::string processHolding(int node) {
  struct stat ours {};
  // Only after a failure to claim, so the walk over all processes is no matter.
  const Directory processes(::opendir("/proc"));
  if (!processes || ::fstat(node, &ours) != 0) return {};
  const std::string self = std::to_string(::getpid());
  std::string holders;
  while (const dirent* entry = ::readdir(processes.get())) {
    const std::string process = entry->d_name;
    if (std::isdigit(static_cast<unsigned char>(process[0])) == 0 || process == self ||
        !hasOpen(process, ours))
      continue;
    if (!holders.empty()) holders += " or ";
    holders += formatted("process %s (pid %s)", nameOf(process).c_str(), process.c_str());
  }
  return holders;
}

}  // namespace tarvo::ptp
