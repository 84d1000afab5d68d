#include "platform/imagecapture/ptp/InterfaceHolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Utilities/Format.h"
#include "platform/foundation/ProcessSearch.h"

namespace tarvo::ptp {
namespace {

/// The same file, or the same device under two nodes.
bool isSame(const struct stat& a, const struct stat& b) {
  // A container may have a node of its own for the same device.
  if (a.st_dev == b.st_dev && a.st_ino == b.st_ino) return true;
  return S_ISCHR(a.st_mode) && S_ISCHR(b.st_mode) && a.st_rdev == b.st_rdev;
}

bool hasOpen(const std::string& process, const struct stat& node) {
  return anyDescriptor(process, [&](int list, const char* name) {
    struct stat file {};
    return ::fstatat(list, name, &file, 0) == 0 && isSame(file, node);
  });
}

}  // namespace

std::string processHolding(int node) {
  constexpr std::size_t kMost = 8;
  struct stat ours {};
  if (::fstat(node, &ours) != 0) return {};
  const std::string self = "/proc/" + std::to_string(::getpid());
  std::string holders;
  for (const FoundProcess& holder : processesWhere(kMost, [&](const std::string& process) {
         return process != self && hasOpen(process, ours);
       })) {
    if (!holders.empty()) holders += " or ";
    holders += formatted("process %s (pid %d)", holder.name.c_str(), holder.pid);
  }
  return holders;
}

}  // namespace tarvo::ptp
