// A message bus of the test's own: a dbus-daemon on a socket in a private folder.
//
//   PrivateBus bus;
//   bus.start();
//   BusConnection connection("session bus", bus.address(), loop, log);
#pragma once

#include <fcntl.h>
#include <gio/gio.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/foundation/GlibPtr.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {

class PrivateBus {
 public:
  /// The socket is `socket`, or one in a folder of its own; it is made by start().
  explicit PrivateBus(const std::string& socket = "")
      : socket_(socket.empty() ? folder_.path("run/bus") : socket) {}
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus() { stop(); }

  const std::string& socketPath() const { return socket_; }
  std::string runFolder() const { return std::filesystem::path(socket_).parent_path(); }
  std::string address() const { return "unix:path=" + socket_; }

  /// Starts the daemon and waits until it answers. Nobody may own the name `denied`.
  void start(const std::string& denied = "") {
    std::filesystem::create_directories(runFolder());
    const std::string addressOption = "--address=" + address();
    const std::string configuration =
        denied.empty() ? "--session" : "--config-file=" + configurationDenying(denied);
    const char* arguments[] = {"dbus-daemon", configuration.c_str(), "--nofork",
                               "--nopidfile", addressOption.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error = ::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr,
                                     const_cast<char* const*>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("dbus-daemon cannot be started");
    if (!waitUntil([this] { return connect() != nullptr; })) {
      throw std::runtime_error("dbus-daemon does not answer");
    }
  }

  /// Ends the daemon; its socket is taken away as by a daemon that ends by itself.
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
    pid_ = 0;
    std::error_code ignored;
    std::filesystem::remove(socket_, ignored);
  }

  /// A connection of another process's kind; null when the bus does not answer.
  GObjectPtr<GDBusConnection> connect() const {
    constexpr auto kFlags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return GObjectPtr<GDBusConnection>(g_dbus_connection_new_for_address_sync(
        address().c_str(), kFlags, nullptr, nullptr, nullptr));
  }

 private:
  std::string configurationDenying(const std::string& name) const {
    return folder_.write("bus.conf",
                         "<busconfig><include>/usr/share/dbus-1/session.conf</include>"
                         "<policy context=\"mandatory\"><deny own=\"" +
                             name + "\"/></policy></busconfig>");
  }

  TemporaryFolder folder_;
  std::string socket_;
  pid_t pid_ = 0;
};

/// A bus that is there from the start.
struct RunningBus : PrivateBus {
  explicit RunningBus(const std::string& socket = "") : PrivateBus(socket) { start(); }
};

}  // namespace tarvo::test
