// A D-Bus daemon of the test's own.
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/foundation/GlibPtr.h"

namespace tarvo::test {

class PrivateBus {
 public:
  /// Listens at `address`, or at one of the daemon's choice.
  explicit PrivateBus(const std::string& address = "unix:tmpdir=/tmp") {
    const auto flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                     G_SUBPROCESS_FLAGS_STDERR_SILENCE);
    daemon_.reset(g_subprocess_new(flags, nullptr, "dbus-daemon", "--session", "--nofork",
                                   "--nopidfile", "--print-address",
                                   ("--address=" + address).c_str(), nullptr));
    if (!daemon_) return;
    const GObjectPtr<GDataInputStream> output(
        g_data_input_stream_new(g_subprocess_get_stdout_pipe(daemon_.get())));
    address_ = takeText(g_data_input_stream_read_line(output.get(), nullptr, nullptr, nullptr));
  }
  ~PrivateBus() {
    if (!daemon_) return;
    g_subprocess_force_exit(daemon_.get());
    g_subprocess_wait(daemon_.get(), nullptr, nullptr);
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return address_; }

  /// A connection of its own, as another process would have one; null when the bus is not there.
  GObjectPtr<GDBusConnection> connect() const {
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return GObjectPtr<GDBusConnection>(
        g_dbus_connection_new_for_address_sync(address_.c_str(), flags, nullptr, nullptr, nullptr));
  }

 private:
  GObjectPtr<GSubprocess> daemon_;
  std::string address_;
};

/// Iterates the default main context until `condition` holds, for 10 seconds at most. Whether it
/// holds.
inline bool iterateUntil(const std::function<bool()>& condition) {
  const gint64 deadline = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
  // A timer, so that an iteration that waits comes back to look at the deadline.
  const guint tick = g_timeout_add(
      20, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  while (!condition() && g_get_monotonic_time() < deadline)
    g_main_context_iteration(nullptr, TRUE);
  g_source_remove(tick);
  return condition();
}

}  // namespace tarvo::test
