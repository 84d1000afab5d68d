// tarvoctl: everything that a Tarvo device can do, from a shell.
#include <clocale>
#include <csignal>
#include <cstdio>
#include <optional>

#include "tools/CommandLine.h"
#include "tools/access/ToolContext.h"

namespace {

using namespace tarvo::tools;

/// What the command line says of it. A signal ends transactions that are running.
tarvo::SessionOptions sessionOptions(const GlobalOptions& given, Output& output,
                                     const tarvo::StopSignals& interrupt) {
  tarvo::SessionOptions options;
  options.stopBy(interrupt).name("tarvoctl").quiet(given.quiet || output.isJSON());
  options.whileWaiting(
      [&output] { output.message("The device is still at it; Ctrl-C ends the wait."); });
  if (given.timeout) options.timeout(*given.timeout);
  if (given.configFile) options.preferences(*given.configFile);
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  // For the words of the C library's errors.
  std::setlocale(LC_ALL, "");
  // A reader that leaves is met where it is written to, so that a session on a device is closed.
  std::signal(SIGPIPE, SIG_IGN);
  const CommandLine line = readCommandLine(argc, argv, stdout, stderr);
  if (line.exitCode) return *line.exitCode;
  const tarvo::StopSignals interrupt;
  Output output(stdout, stderr, line.options);
  std::optional<tarvo::Session> session;
  const SessionSource source = [&]() -> tarvo::Session& {
    return session ? *session : session.emplace(sessionOptions(line.options, output, interrupt));
  };
  ToolContext context{line.options, output, source, interrupt, stdin, "/dev/tty"};
  return runCommand(context, line.command);
}
