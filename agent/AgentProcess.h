// The agent as a process: owns every platform service and the state of every room, in the order in
// which they need each other, and runs the main loop.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "agent/AgentStatus.h"

namespace tarvo {

/// Exit statuses of tarvo-agent.
inline constexpr int kExitNormal = 0;
inline constexpr int kExitNameTaken = 1;
inline constexpr int kExitUsage = 2;

struct AgentOptions {
  std::string version;
  /// Preferences file to read in place of the user's own.
  std::optional<std::string> configFile;
};

/// Main thread only. One in a process.
class AgentProcess {
 public:
  explicit AgentProcess(AgentOptions options);
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  /// Owns the agent's name, arms the Listener and runs until SIGTERM or SIGINT. The exit status of
  /// the process: kExitNameTaken when another agent owns the name, kExitUsage when the preferences
  /// file that was asked for cannot be read.
  int run();

 private:
  struct Base;
  struct Devices;

  bool ownName();
  bool armListener();
  AgentStatus::Values statusNow() const;

  AgentOptions options_;
  std::unique_ptr<Base> base_;        ///< log, preferences, main loop, session bus
  std::unique_ptr<Devices> devices_;  ///< what reaches devices, made once the name is owned
};

}  // namespace tarvo
