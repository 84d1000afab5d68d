// Control groups of their own for the applications that the agent starts, where the user's systemd
// manager gives them: the limits of the agent's unit hold for the agent alone then, its end is not
// theirs, and by the name of the group each is known as what it is.
//
//   ApplicationScopes scopes(sessionBus, log);
//   scopes.add(task->processIdentifier(), "com.tarvo.Relay");
//   // a moment later it runs in app-tarvo-com.tarvo.Relay-4711.scope
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"

namespace tarvo {

/// Name of the scope of a process: app-LAUNCHER-ID-RANDOM.scope, with the number of the process as
/// what makes it unique ("Desktop Environment Integration" of systemd; escapes of systemd.unit(5)).
std::string scopeOfApplication(std::string_view identifier, pid_t pid);

/// Main thread only.
class ApplicationScopes {
 public:
  /// `bus` must outlive the object.
  ApplicationScopes(BusConnection& bus, LogSink log) : bus_(bus), log_(std::move(log)) {}

  /// Has the running child `pid` moved into a scope of its own, without waiting for it. Without a
  /// bus or a manager on it the child stays where it is, in silence; what the manager refuses is
  /// logged.
  void add(pid_t pid, std::string_view identifier);

 private:
  BusConnection& bus_;
  LogSink log_;
};

}  // namespace tarvo
