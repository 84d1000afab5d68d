#include "platform/diskarbitration/VolumeUsers.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <fstream>
#include <string_view>

#include "Utilities/Format.h"
#include "platform/foundation/ProcessSearch.h"

namespace tarvo {
namespace {

using MountPoints = std::vector<std::string>;

/// No process of a desktop comes near it; one that does is not looked at to the end.
constexpr int kMostFiles = 65536;

bool isBelow(std::string_view path, const MountPoints& mountPoints) {
  return std::ranges::any_of(mountPoints, [&](const std::string& mountPoint) {
    return path.starts_with(mountPoint) &&
           (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
  });
}

/// By the text of the link alone: following it could wait for a device that has gone.
bool leadsBelow(int folder, const char* link, const MountPoints& mountPoints) {
  std::array<char, PATH_MAX> path;
  const ssize_t length = ::readlinkat(folder, link, path.data(), path.size());
  return length > 0 && isBelow({path.data(), static_cast<std::size_t>(length)}, mountPoints);
}

bool mapsFileBelow(const std::string& process, const MountPoints& mountPoints) {
  std::ifstream maps(process + "/maps");
  std::string line;
  // No field before the path has a slash in it (proc(5), /proc/PID/maps).
  for (int count = 0; count < kMostFiles && std::getline(maps, line); ++count) {
    const auto path = line.find('/');
    if (path != std::string::npos && isBelow(std::string_view(line).substr(path), mountPoints))
      return true;
  }
  return false;
}

bool uses(const std::string& process, const MountPoints& mountPoints) {
  for (const char* link : {"/cwd", "/root", "/exe"})
    if (leadsBelow(AT_FDCWD, (process + link).c_str(), mountPoints)) return true;
  int count = 0;
  return anyDescriptor(process,
                       [&](int list, const char* name) {
                         return ++count < kMostFiles && leadsBelow(list, name, mountPoints);
                       }) ||
         mapsFileBelow(process, mountPoints);
}

}  // namespace

std::string processesUsing(const MountPoints& mountPoints) {
  constexpr std::size_t kMostNamed = 3;
  std::vector<std::string> users;
  for (const FoundProcess& user :
       processesWhere(kMostNamed, [&](const auto& process) { return uses(process, mountPoints); }))
    users.push_back(formatted("%s (pid %d)", user.name.c_str(), user.pid));
  std::string text;
  for (const std::string& user : users)
    text += (text.empty() ? "" : ", ") + user;
  return text;
}

}  // namespace tarvo
