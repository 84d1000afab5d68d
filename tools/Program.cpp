#include "tools/Program.h"

#include <clocale>
#include <csignal>
#include <cstdio>
#include <optional>

#include "tools/CommandLine.h"

namespace tarvo::tools {

namespace {

/// What the command line says of it. A signal ends transactions that are running.
SessionOptions sessionOptions(const GlobalOptions& given, Output& output,
                              const StopSignals& interrupt) {
  SessionOptions options;
  options.stopBy(interrupt).name("tarvoctl").quiet(given.quiet || output.isJSON());
  options.whileWaiting(
      [&output] { output.message("The device is still at it; Ctrl-C ends the wait."); });
  if (given.timeout) options.timeout(*given.timeout);
  if (given.configFile) options.preferences(*given.configFile);
  return options;
}

}  // namespace

int runProgram(int argc, char** argv, ImportRun* import) {
  // For the words of the C library's errors.
  std::setlocale(LC_ALL, "");
  // A reader that leaves is met where it is written to, so that a session on a device is closed.
  std::signal(SIGPIPE, SIG_IGN);
  const CommandLine line = readCommandLine(argc, argv, stdout, stderr);
  if (line.exitCode) return *line.exitCode;
  const StopSignals interrupt;
  Output output(stdout, stderr, line.options);
  std::optional<Session> session;
  const SessionSource source = [&]() -> Session& {
    return session ? *session : session.emplace(sessionOptions(line.options, output, interrupt));
  };
  ToolContext context{line.options, output, source, interrupt, stdin, "/dev/tty", argv, import};
  return runCommand(context, line.command);
}

}  // namespace tarvo::tools
