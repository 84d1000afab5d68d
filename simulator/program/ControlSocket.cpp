#include "simulator/program/ControlSocket.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <glib-unix.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "simulator/testbed/TestbedProcess.h"

namespace tarvo::simulator {
namespace {

constexpr std::size_t kLongestLine = std::size_t{16} * 1024 * 1024;

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("the socket path is too long: " + path);
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto address = addressOf(path);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return socket;
}

/// Neither side may hold the other one up for long.
void limitWaiting(const FileDescriptor& socket, int seconds) {
  const timeval limit{seconds, 0};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

std::string readLine(const FileDescriptor& socket) {
  std::string line;
  std::array<char, 4096> part{};
  while (line.size() < kLongestLine) {
    const auto count = ::recv(socket.get(), part.data(), part.size(), 0);
    if (count <= 0) break;
    line.append(part.data(), static_cast<std::size_t>(count));
    if (line.back() == '\n') break;
  }
  return line;
}

bool writeLine(const FileDescriptor& socket, const nlohmann::json& json) {
  const auto line = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  std::size_t sent = 0;
  while (sent < line.size()) {
    const auto count = ::send(socket.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

std::string defaultSocketPath() {
  if (const char* path = std::getenv("TARVO_SIMULATOR_SOCKET")) return path;
  if (const char* folder = std::getenv("XDG_RUNTIME_DIR"); folder != nullptr && *folder != '\0') {
    return std::string(folder) + "/tarvo-simulator.sock";
  }
  return "/tmp/tarvo-simulator-" + std::to_string(::geteuid()) + ".sock";
}

nlohmann::json ask(const std::string& path, const nlohmann::json& request) {
  const auto socket = connectTo(path);
  if (!socket.isOpen()) {
    throw std::runtime_error("no simulator answers at " + path + " (tarvo-simulator serve)");
  }
  limitWaiting(socket, 30);
  if (!writeLine(socket, request)) throw std::runtime_error("the simulator went away");
  auto answer = nlohmann::json::parse(readLine(socket), nullptr, false);
  if (!answer.is_object()) throw std::runtime_error("the simulator went away");
  if (!answer.value("ok", false)) throw std::runtime_error(answer.value("error", "refused"));
  return answer;
}

ControlSocket::ControlSocket(std::string path, Handler handler)
    : path_(std::move(path)), handler_(std::move(handler)) {
  if (connectTo(path_).isOpen()) {
    throw std::runtime_error("another simulator serves at " + path_);
  }
  // Nobody answers, so it is a leftover of a server that was killed.
  ::unlink(path_.c_str());
  listener_ = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto address = addressOf(path_);
  // The mode must be right from the start: a chmod afterwards would leave a moment for others.
  const auto before = ::umask(0177);
  const int bound =
      ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::umask(before);
  if (bound != 0 || ::listen(listener_.get(), 8) != 0) {
    throw std::runtime_error("cannot serve at " + path_ + ": " + std::strerror(errno));
  }
  source_ = g_unix_fd_add(
      listener_.get(), G_IO_IN,
      [](gint, GIOCondition, gpointer self) -> gboolean {
        static_cast<ControlSocket*>(self)->serveOne();
        return G_SOURCE_CONTINUE;
      },
      this);
}

ControlSocket::~ControlSocket() {
  if (source_ != 0) g_source_remove(source_);
  ::unlink(path_.c_str());
}

void ControlSocket::serveOne() {
  const FileDescriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!client.isOpen()) return;
  limitWaiting(client, 2);
  writeLine(client, answer(readLine(client)));
}

nlohmann::json ControlSocket::answer(const std::string& line) const {
  try {
    auto result = handler_(nlohmann::json::parse(line));
    result["ok"] = true;
    return result;
  } catch (const std::exception& error) {
    return {{"ok", false}, {"error", error.what()}};
  }
}

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
