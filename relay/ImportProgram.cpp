#include "relay/ImportProgram.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/foundation/GlibPtr.h"

namespace tarvo::relay {

std::string importProgram() {
  namespace fs = std::filesystem;
  if (const char* const given = std::getenv("TARVO_TARVOCTL"); given != nullptr && *given != '\0')
    return given;
  std::error_code ignored;
  const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  // Installed: PREFIX/lib/tarvo/Tarvo Relay.app/Contents/Library; as built: BUILD/relay.
  for (const char* const place : {"../../../../../bin/tarvoctl", "../tools/tarvoctl"}) {
    const fs::path program = (here / place).lexically_normal();
    if (::access(program.c_str(), X_OK) == 0) return program;
  }
  return TARVO_INSTALLED_TOOL;
}

std::vector<std::string> importWords(const std::string& program, const Arrival& arrival,
                                     bool isConversation) {
  std::vector<std::string> words = {program};
  const std::string device = deviceArgument(arrival);
  // In one word: it may begin with "-".
  if (!device.empty()) words.push_back("--device=" + device);
  words.emplace_back("import");
  if (isConversation) words.emplace_back("--progress=json");
  return words;
}

void endWithParent(void* parent) {
  std::signal(SIGINT, SIG_DFL);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != GPOINTER_TO_INT(parent)) ::_exit(1);
}

int importInTerminal(const Arrival& arrival) {
  // The agent gives a standard error that takes no writes: what is said goes where the rest does.
  const int flags = ::fcntl(STDERR_FILENO, F_GETFL);
  if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY) ::dup2(STDOUT_FILENO, STDERR_FILENO);
  auto words = importWords(importProgram(), arrival, false);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (auto& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  // Ctrl-C is for the import, which ends in order.
  std::signal(SIGINT, SIG_IGN);
  GErrorHolder error;
  gint status = 0;
  if (g_spawn_sync(nullptr, arguments.data(), nullptr, G_SPAWN_CHILD_INHERITS_STDIN, endWithParent,
                   GINT_TO_POINTER(::getpid()), nullptr, nullptr, &status, error.out()) == FALSE) {
    std::fprintf(stderr, "tarvo-relay: %s\n", error.message().c_str());
    constexpr int kNotStarted = 127;
    return kNotStarted;
  }
  constexpr int kOfSignal = 128;
  return WIFEXITED(status) ? WEXITSTATUS(status) : kOfSignal + WTERMSIG(status);
}

}  // namespace tarvo::relay
