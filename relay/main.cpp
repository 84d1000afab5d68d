// Tarvo Relay: shows what is new on a device, and imports it.
//
// The window is a module that is loaded where there is a display: without one, and on a machine
// without the toolkit, this is a small program that imports in the terminal.
#include <dlfcn.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "relay/Arrival.h"
#include "relay/ImportProgram.h"
#include "relay/WindowModule.h"

namespace {

using tarvo::relay::WindowMain;

bool hasDisplay() {
  for (const char* const name : {"WAYLAND_DISPLAY", "DISPLAY"})
    if (const char* const value = std::getenv(name); value != nullptr && *value != '\0')
      return true;
  return false;
}

/// Null where the module is not there, or cannot be loaded, which is said.
WindowMain windowMain() {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path module =
      fs::read_symlink("/proc/self/exe", ignored).parent_path() / tarvo::relay::kWindowModule;
  // It stays for as long as the process does.
  void* const loaded = ::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const found = loaded ? ::dlsym(loaded, tarvo::relay::kWindowMain) : nullptr;
  if (found == nullptr) std::fprintf(stderr, "tarvo-relay: no window: %s\n", ::dlerror());
  return reinterpret_cast<WindowMain>(found);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tarvo::relay;
  std::setlocale(LC_ALL, "");
  // A child that has ended takes no more commands; the agent's pipe never takes a word.
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  const auto line = readCommandLine(words);
  if (line.mistake) {
    std::fprintf(stderr, "tarvo-relay: %s\n\n%s", line.mistake->c_str(), kHelp);
    return 2;
  }
  if (line.showsHelp || line.showsVersion) {
    std::fputs(line.showsHelp ? kHelp : "tarvo-relay " TARVO_VERSION "\n", stdout);
    return 0;
  }
  if (!line.isBatch && hasDisplay()) {
    const WindowMain window = windowMain();
    const int status = window ? window(argc, argv) : kNoDisplay;
    if (status != kNoDisplay) return status;
  }
  return importInTerminal(line.arrival);
}
