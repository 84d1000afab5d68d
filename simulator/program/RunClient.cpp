#include "simulator/program/RunClient.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "simulator/program/ControlSocket.h"
#include "simulator/testbed/TestbedProcess.h"

namespace tarvo::simulator {
namespace {

bool isOurs(const std::string& name, const FileDescriptor& other) {
  struct stat own {};
  struct stat theirs {};
  return ::stat(("/proc/self/ns/" + name).c_str(), &own) == 0 &&
         ::fstat(other.get(), &theirs) == 0 && own.st_ino == theirs.st_ino;
}

std::string namespaceOf(long pid, const std::string& name) {
  return "/proc/" + std::to_string(pid) + "/ns/" + name;
}

/// Joining a mount namespace puts a process at that namespace's own root, which is not the server's
/// where that runs under chroot. So the server's root is taken over too.
void takeRoot(const FileDescriptor& root) {
  if (::fchdir(root.get()) != 0 || ::chroot(".") != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot enter the testbed's root");
  }
}

void joinNamespaces(long pid) {
  // Kept, as joining a mount namespace also changes the working folder to its root.
  const auto folder = std::filesystem::current_path();
  const FileDescriptor root(
      ::open(("/proc/" + std::to_string(pid) + "/root").c_str(), O_PATH | O_CLOEXEC));
  bool joinedMounts = false;
  // The user namespace first: it gives the right to join the others.
  for (const std::string name : {"user", "mnt", "net"}) {
    const FileDescriptor other(::open(namespaceOf(pid, name).c_str(), O_RDONLY | O_CLOEXEC));
    if (!other.isOpen() || isOurs(name, other)) continue;
    if (::setns(other.get(), 0) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot enter the testbed");
    }
    joinedMounts = joinedMounts || name == "mnt";
  }
  if (joinedMounts) takeRoot(root);
  std::filesystem::current_path(folder);
}

[[noreturn]] void become(const std::vector<std::string>& command) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (auto& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  ::execvp(arguments[0], arguments.data());
  throw std::system_error(errno, std::generic_category(), "cannot start " + command.front());
}

}  // namespace

void runClient(const std::string& socket, const std::vector<std::string>& command) {
  const auto answer = ask(socket, {{"command", "client"}});
  joinNamespaces(answer.at("pid").get<long>());
  for (const auto& [key, value] : answer.at("environment").items()) {
    ::setenv(key.c_str(), value.get<std::string>().c_str(), 1);
  }
  runInSlot(answer.at("slot").get<unsigned>(), command);
}

void runInSlot(unsigned slot, const std::vector<std::string>& command) {
  takeDescriptorsForClient(slot);
  become(command);
}

}  // namespace tarvo::simulator
