// tarvoctl: everything that a Tarvo device can do, from a shell.
#include <clocale>
#include <csignal>
#include <cstdio>

#include "tools/CommandLine.h"
#include "tools/access/ToolSession.h"

int main(int argc, char** argv) {
  using namespace tarvo::tools;
  // For the words of the C library's errors.
  std::setlocale(LC_ALL, "");
  // A reader that leaves is met where it is written to, so that a session on a device is closed.
  std::signal(SIGPIPE, SIG_IGN);
  const CommandLine line = readCommandLine(argc, argv, stdout, stderr);
  if (line.exitCode) return *line.exitCode;
  const tarvo::StopSignals interrupt;
  Output output(stdout, stderr, line.options);
  ToolSession session(line.options, output, interrupt);
  ToolContext context{line.options, output, session, interrupt, stdin, "/dev/tty"};
  return runCommand(context, line.command);
}
