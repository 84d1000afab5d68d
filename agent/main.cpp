// tarvo-agent: waits for the maker's devices and starts the Relay application.
#include <clocale>

#include "agent/AgentCommandLine.h"

int main(int argc, char** argv) {
  // For the words of the C library's errors.
  std::setlocale(LC_ALL, "");
  const auto commandLine = tarvo::readAgentCommandLine(argc, argv, TARVO_VERSION);
  if (commandLine.exitStatus) return *commandLine.exitStatus;
  return tarvo::AgentProcess(commandLine.options).run();
}
