#include "simulator/testbed/TestbedProcess.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "simulator/testbed/Testbed.h"

namespace tarvo::simulator {
namespace {

constexpr const char* kPreload = "libumockdev-preload.so.0";
constexpr std::size_t kLongestTemporaryFolder = 48;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

namespace fs = std::filesystem;

/// File name of a library that this program has loaded, by a part of its path; or nothing. The
/// loader finds it by name: the path in the memory map is not one of ours once the namespace has
/// changed under chroot.
std::string loadedLibrary(const char* name) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    if (line.find(name) != std::string::npos) return line.substr(line.rfind('/') + 1);
  }
  return {};
}

/// The sanitizer's runtime, which must stand first in LD_PRELOAD.
std::string sanitizerRuntime() {
  auto path = loadedLibrary("/libasan.so");
  return path.empty() ? loadedLibrary("/libtsan.so") : path;
}

void writeText(const char* path, const std::string& text) {
  const FileDescriptor file(::open(path, O_WRONLY | O_CLOEXEC));
  if (!file.isOpen() ||
      ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    fail(std::string("cannot write ") + path);
  }
}

void enterUserNamespace() {
  const auto user = ::geteuid();
  const auto group = ::getegid();
  if (::unshare(CLONE_NEWUSER) != 0) {
    fail("this system lets only root have namespaces; run as root, or allow user namespaces");
  }
  writeText("/proc/self/setgroups", "deny");
  writeText("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
  writeText("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
}

/// A network of our own has its own limit for waiting datagrams: umockdev gives up when a listener
/// has more than that many events unread. Without it the testbed works, as long as listeners read.
void enterNetworkNamespace() {
  if (::unshare(CLONE_NEWNET) != 0) return;
  std::ofstream("/proc/sys/net/unix/max_dgram_qlen") << 512;
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq loopback{};
  std::strncpy(loopback.ifr_name, "lo", sizeof loopback.ifr_name - 1);
  loopback.ifr_flags = IFF_UP;
  ::ioctl(socket.get(), SIOCSIFFLAGS, &loopback);
}

/// Shows everything of `from` in `to` as well: folders and files by bind mounts, links as links.
void bindEntries(const fs::path& from, const fs::path& to) {
  for (const auto& entry : fs::directory_iterator(from)) {
    const auto twin = to / entry.path().filename();
    if (entry.is_symlink()) {
      fs::copy_symlink(entry.path(), twin);
      continue;
    }
    if (entry.is_directory()) {
      fs::create_directory(twin);
    } else {
      std::ofstream(twin).flush();
    }
    ::mount(entry.path().c_str(), twin.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
  }
}

/// A folder cannot be made in /run without the whole machine seeing it, so /run is covered by a
/// file system of our own that shows what was there.
bool coverRun() {
  std::string pattern = fs::temp_directory_path() / "tarvo-run-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) return false;
  bool covered = false;
  if (::mount("tarvo-simulator", pattern.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") ==
      0) {
    bindEntries("/run", pattern);
    fs::create_directory(pattern + "/udev");
    covered = ::mount(pattern.c_str(), "/run", nullptr, MS_MOVE, nullptr) == 0;
    if (!covered) ::umount2(pattern.c_str(), MNT_DETACH);
  }
  ::rmdir(pattern.c_str());
  return covered;
}

/// Programs take /run/udev/control as the sign that udev runs. In the testbed umockdev sends what
/// udev would, so the sign is there; and what the machine's own udev knows of a device that happens
/// to have the number of a virtual one is not. Where the system refuses, clients say that udev is
/// missing and work all the same.
void showUdev() {
  std::error_code error;
  if (!fs::exists("/run/udev", error) && !coverRun()) return;
  if (::mount("tarvo-simulator", "/run/udev", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0) {
    std::ofstream("/run/udev/control").flush();
  }
}

}  // namespace

std::string preloadValue() {
  const auto sanitizer = sanitizerRuntime();
  return sanitizer.empty() ? kPreload : sanitizer + ":" + kPreload;
}

void TestbedProcess::enter(char** argv) {
  if (loadedLibrary("/libumockdev-preload.so").empty()) {
    if (std::getenv("TARVO_SIMULATOR_PRELOADED") != nullptr) {
      errno = ENOENT;
      fail(std::string(kPreload) + " cannot be loaded (package umockdev)");
    }
    ::setenv("LD_PRELOAD", preloadValue().c_str(), 1);
    ::setenv("TARVO_SIMULATOR_PRELOADED", "1", 1);
    ::execv("/proc/self/exe", argv);
    fail("cannot start anew");
  }
  ::unsetenv("TARVO_SIMULATOR_PRELOADED");
  // The paths of the testbed's sockets must fit into a socket address.
  const char* folder = std::getenv("TMPDIR");
  if (folder != nullptr && std::strlen(folder) > kLongestTemporaryFolder) ::unsetenv("TMPDIR");
  if (::geteuid() != 0) enterUserNamespace();
  if (::unshare(CLONE_NEWNS) != 0) fail("cannot have a mount namespace");
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    fail("cannot make the mounts private");
  }
  showUdev();
  // The nodes are message queues, which are not to be seen outside.
  if (::unshare(CLONE_NEWIPC) != 0) fail("cannot have an IPC namespace");
  enterNetworkNamespace();
}

std::map<std::string, std::string> TestbedProcess::environment(const Testbed& testbed) {
  return {{"UMOCKDEV_DIR", testbed.root().string()}, {"LD_PRELOAD", preloadValue()}};
}

void takeDescriptorsForClient(unsigned slot) {
  // Far enough apart that no two clients reach the same number, and around before the limit.
  const unsigned count = 16 * (slot % 40);
  if (count == 0) return;
  const int first = ::open("/dev/null", O_RDONLY);
  if (first < 0) fail("cannot take descriptors");
  // Duplicates: the preload keeps a list of what is opened below /dev, and it is short.
  for (unsigned i = 1; i < count; ++i) {
    if (::dup(first) < 0) fail("cannot take descriptors");
  }
}

}  // namespace tarvo::simulator
