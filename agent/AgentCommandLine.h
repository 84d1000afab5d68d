// The command line of tarvo-agent.
#pragma once

#include <optional>

#include "agent/AgentProcess.h"

namespace tarvo {

struct AgentCommandLine {
  AgentOptions options;
  /// The status to exit with at once; absent when the agent shall run.
  std::optional<int> exitStatus;
};

/// Reads the arguments. What `--help` and `--version` say goes to standard output; bad usage is
/// explained on standard error and gives kExitUsage.
AgentCommandLine readAgentCommandLine(int argc, char** argv, const char* version);

}  // namespace tarvo
