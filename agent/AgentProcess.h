// The agent as a process: owns every platform service and the state of every room, in the order in
// which they need each other, and runs the main loop. The only place that knows which platform the
// agent stands on; everything below it is handed its services.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Utilities/LogSink.h"
#include "agent/AgentStatus.h"
#include "platform/desktop/BusConnection.h"

namespace tarvo {

/// Exit statuses of tarvo-agent.
inline constexpr int kExitNormal = 0;
inline constexpr int kExitNameRefused = 1;  ///< the service unit tries again a few times
inline constexpr int kExitUsage = 2;        ///< and not at all

struct AgentOptions {
  std::string version;  ///< as it is logged at the start
  /// Preferences file to read in place of the user's own; those of the system still lie below it.
  std::optional<std::string> configFile;
};

/// Main thread only. One in a process, which it prepares: SIGPIPE is ignored from run() on, and
/// SIGTERM and SIGINT end the main loop.
class AgentProcess {
 public:
  explicit AgentProcess(AgentOptions options);
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  /// Owns the agent's name, arms the Listener and runs until SIGTERM or SIGINT. The exit status of
  /// the process: kExitNameRefused when the name cannot be owned on a bus that is there, now or
  /// later; kExitUsage when the preferences file that was asked for cannot be read, which is
  /// explained on standard error; otherwise kExitNormal, also when the Listener cannot be made,
  /// which is logged. Children that are still running are left alone.
  int run();

 private:
  struct Base;
  struct Devices;

  /// False when the name is refused. Without a bus it is true.
  [[nodiscard]] bool ownName();
  /// Makes what reaches devices. False, with the cause logged, when there is no Listener after it.
  [[nodiscard]] bool armListener();
  /// The defaults until the Listener is there.
  AgentStatus::Values statusNow() const;

  AgentOptions options_;
  std::unique_ptr<Base> base_;        ///< log, preferences, main loop, session bus
  std::unique_ptr<Devices> devices_;  ///< what reaches devices, made once the name is owned
};

// The agent's name on the session bus: who owns it is the user's one agent. Nothing may be launched
// before it is known that no other process owns the name, or two agents would start two Relays.
//
//   AgentName name(bus, log, [&] { loop.quit(); });
//   name.claim();
//   if (name.isRefused()) return 1;

inline constexpr const char* kAgentBusName = "com.tarvo.Agent";

/// Main thread only. While the bus is away nobody owns the name; it is claimed anew on every
/// connection, and given back by the bus itself when the connection ends. The claim never queues
/// behind another owner.
class AgentName {
 public:
  /// `refused` is called when the name cannot be owned on a bus that is there: another process owns
  /// it, or the bus denies it to this user; that is logged, with the number and the command of the
  /// other process, which the bus is asked for. It may be called inside claim(), and at
  /// any time later when a bus comes. `bus` must outlive the object.
  AgentName(BusConnection& bus, LogSink log, std::function<void()> refused);
  ~AgentName();
  AgentName(const AgentName&) = delete;
  AgentName& operator=(const AgentName&) = delete;

  /// Claims the name on the connection that is there, and on those that come. Waits for the bus's
  /// answers, two seconds at most for each; a bus that gives none is logged, and the name counts as
  /// free, so that a broken bus does not keep the agent from its work.
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
