// The agent's name on the session bus: who owns it is the user's one agent.
//
//   AgentName name(bus, log, [&] { loop.quit(); });
//   name.claim();
//   if (name.isTaken()) return 1;
#pragma once

#include <functional>

#include "Utilities/LogSink.h"
#include "platform/foundation/BusConnection.h"

namespace tarvo {

inline constexpr const char* kAgentBusName = "com.tarvo.Agent";

/// Main thread only. While the bus is away nobody owns the name; it is claimed anew on every
/// connection.
class AgentName {
 public:
  /// `taken` is called when another process owns the name on a bus that is there; that is logged.
  /// `bus` must outlive the object.
  AgentName(BusConnection& bus, LogSink log, std::function<void()> taken);
  ~AgentName();
  AgentName(const AgentName&) = delete;
  AgentName& operator=(const AgentName&) = delete;

  /// Claims the name on the connection that is there, and on those that come. Waits for the bus's
  /// answer, two seconds at most.
  void claim();
  /// Whether another process owned the name when it was claimed last.
  bool isTaken() const { return taken_; }

 private:
  void claimOn(GDBusConnection* connection);

  BusConnection& bus_;
  LogSink log_;
  std::function<void()> whenTaken_;
  bool taken_ = false;
};

}  // namespace tarvo
