// Finds the processes that hold something, so that what is busy can be explained.
//
//   const auto holders = processesWhere(3, [&](const std::string& folder) {
//     return anyDescriptor(folder, [&](int list, const char* name) { ... });
//   });
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tarvo {

/// A process as a person is told of it.
struct FoundProcess {
  pid_t pid = 0;
  std::string name;  ///< of its program, 15 characters at most (proc(5), comm)
};

/// The first `most` processes for whose folder ("/proc/12") `holds` is true, in the order of /proc.
/// Any thread; the walk is over every process of the machine, so it is for failures alone.
std::vector<FoundProcess> processesWhere(
    std::size_t most, const std::function<bool(const std::string& folder)>& holds);

/// How a process was started: its program and arguments, separated by blanks, of at most 200 bytes;
/// empty text where it has gone. It is the process's own word (proc(5), cmdline), for people alone.
std::string commandOfProcess(pid_t pid);

/// Whether `matches` is true of an open descriptor of the process of that folder: the entry NAME of
/// the open folder `list`. False for a process whose descriptors this user may not see.
bool anyDescriptor(const std::string& folder,
                   const std::function<bool(int list, const char* name)>& matches);

}  // namespace tarvo
