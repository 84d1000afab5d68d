// The command line of tarvoctl: what is to be done, and with which options.
#pragma once

#include <cstdio>
#include <optional>

#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

struct CommandLine {
  GlobalOptions options{};
  Command command{};  ///< meaningful only without an exit code
  /// The status to exit with at once; absent when there is a command to run.
  std::optional<int> exitCode{};
};

/// Reads the arguments. What --help and --version say goes to `out` and gives kDone; bad usage is
/// explained on `err`, or, with --json, on `out`, and gives kBadUsage. Nothing of the platform is
/// touched.
CommandLine readCommandLine(int argc, const char* const* argv, std::FILE* out, std::FILE* err);

/// Runs a command to its end: what it raises is said on its output, and becomes the exit status.
int runCommand(ToolContext& context, const Command& command);

/// All of it, with the surroundings of this process; gives the exit status. `import` does that
/// command, and is null where another program does.
int runProgram(int argc, char** argv, ImportRun* import = nullptr);

}  // namespace tarvo::tools
