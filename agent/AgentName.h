// The agent's name on the session bus: who owns it is the user's one agent. Nothing may be launched
// before it is known that no other process owns the name, or two agents would start two Relays.
//
//   AgentName name(bus, log, [&] { loop.quit(); });
//   name.claim();
//   if (name.isRefused()) return 1;
#pragma once

#include <functional>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"

namespace tarvo {

inline constexpr const char* kAgentBusName = "com.tarvo.Agent";

/// Main thread only. While the bus is away nobody owns the name; it is claimed anew on every
/// connection, and given back by the bus itself when the connection ends. The claim never queues
/// behind another owner.
class AgentName {
 public:
  /// `refused` is called when the name cannot be owned on a bus that is there: another process owns
  /// it, or the bus denies it to this user; that is logged. It may be called inside claim(), and at
  /// any time later when a bus comes. `bus` must outlive the object.
  AgentName(BusConnection& bus, LogSink log, std::function<void()> refused);
  ~AgentName();
  AgentName(const AgentName&) = delete;
  AgentName& operator=(const AgentName&) = delete;

  /// Claims the name on the connection that is there, and on those that come. Waits for the bus's
  /// answer, two seconds at most; a bus that gives none is logged, and the name counts as free, so
  /// that a broken bus does not keep the agent from its work.
  void claim();
  /// Whether the name was refused when it was claimed last.
  bool isRefused() const { return refused_; }

 private:
  /// One claim; sets `refused_` for this connection alone.
  void claimOn(GDBusConnection* connection);
  void refused(const std::string& why);

  BusConnection& bus_;
  LogSink log_;
  std::function<void()> whenRefused_;
  bool refused_ = false;
};

}  // namespace tarvo
