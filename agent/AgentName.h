// The agent's name on the session bus: who owns it is the user's one agent. Nothing may be launched
// before it is known that no other process owns the name, or two agents would start two Relays.
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
/// connection, and given back by the bus itself when the connection ends. The claim never queues
/// behind another owner.
class AgentName {
 public:
  /// `taken` is called when another process owns the name on a bus that is there; that is logged.
  /// It may be called inside claim(), and at any time later when a bus comes. `bus` must outlive
  /// the object.
  AgentName(BusConnection& bus, LogSink log, std::function<void()> taken);
  ~AgentName();
  AgentName(const AgentName&) = delete;
  AgentName& operator=(const AgentName&) = delete;

  /// Claims the name on the connection that is there, and on those that come. Waits for the bus's
  /// answer, two seconds at most; a bus that gives none is logged, and the name counts as free, so
  /// that a broken bus does not keep the agent from its work.
  void claim();
  /// Whether another process owned the name when it was claimed last.
  bool isTaken() const { return taken_; }

 private:
  /// One claim; sets `taken_` for this connection alone.
  void claimOn(GDBusConnection* connection);

  BusConnection& bus_;
  LogSink log_;
  std::function<void()> whenTaken_;
  bool taken_ = false;
};

}  // namespace tarvo
