#include "relay/ImportProgram.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

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

int importInTerminal(const Arrival& arrival) {
  auto words = importWords(importProgram(), arrival, false);
  std::vector<char*> arguments;
  for (auto& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  ::execv(arguments[0], arguments.data());
  std::perror(arguments[0]);
  constexpr int kNotStarted = 127;
  return kNotStarted;
}

}  // namespace tarvo::relay
