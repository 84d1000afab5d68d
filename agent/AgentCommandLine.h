// The command line of tarvo-agent: what main() does before there is an agent.
//
//   const auto commandLine = readAgentCommandLine(argc, argv, "1.0");
//   if (commandLine.exitStatus) return *commandLine.exitStatus;
//   return AgentProcess(commandLine.options).run();
#pragma once

#include <optional>

#include "agent/AgentProcess.h"

namespace tarvo {

struct AgentCommandLine {
  /// Meaningful only without an exit status.
  AgentOptions options;
  /// The status to exit with at once; absent when the agent shall run.
  std::optional<int> exitStatus;
};

/// Reads the arguments. What `--help` and `--version` say goes to standard output and gives
/// kExitNormal. Bad usage (an unknown option, `--config` without a file, an argument that is no
/// option) is explained on standard error and gives kExitUsage. Whether the file of `--config` can
/// be read is found out by AgentProcess::run().
AgentCommandLine readAgentCommandLine(int argc, char** argv, const char* version);

}  // namespace tarvo
