#include "platform/foundation/ProcessSearch.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <memory>

#include "Utilities/FileDescriptor.h"

namespace tarvo {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

bool isNumber(const char* name) {
  return std::isdigit(static_cast<unsigned char>(name[0])) != 0;
}

/// The first `most` bytes of a file of a process; empty text where it cannot be read.
std::string startOf(const std::string& path, std::size_t most) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string text(most, '\0');
  const ssize_t length = file.isOpen() ? ::read(file.get(), text.data(), text.size()) : 0;
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

std::string nameOf(const std::string& folder) {
  std::string name = startOf(folder + "/comm", 64);
  // The kernel ends the name with a line end.
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

}  // namespace

std::string commandOfProcess(pid_t pid) {
  std::string command = startOf("/proc/" + std::to_string(pid) + "/cmdline", 200);
  // Each argument ends with a zero byte.
  if (command.ends_with('\0')) command.pop_back();
  std::ranges::replace(command, '\0', ' ');
  return command;
}

std::vector<FoundProcess> processesWhere(
    std::size_t most, const std::function<bool(const std::string& folder)>& holds) {
  std::vector<FoundProcess> found;
  const Directory processes(::opendir("/proc"));
  while (const dirent* entry = processes ? ::readdir(processes.get()) : nullptr) {
    if (found.size() == most) break;
    if (!isNumber(entry->d_name)) continue;
    const std::string folder = std::string("/proc/") + entry->d_name;
    if (holds(folder))
      found.push_back({static_cast<pid_t>(std::atol(entry->d_name)), nameOf(folder)});
  }
  return found;
}

bool anyDescriptor(const std::string& folder,
                   const std::function<bool(int list, const char* name)>& matches) {
  const Directory descriptors(::opendir((folder + "/fd").c_str()));
  while (const dirent* entry = descriptors ? ::readdir(descriptors.get()) : nullptr)
    if (isNumber(entry->d_name) && matches(::dirfd(descriptors.get()), entry->d_name)) return true;
  return false;
}

}  // namespace tarvo
