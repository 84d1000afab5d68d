// Tarvo Relay: shows what is new on a device, and imports it.
#include <gtk/gtk.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "relay/Arrival.h"
#include "relay/ImportProgram.h"
#include "relay/window/RelayApplication.h"

int main(int argc, char** argv) {
  using namespace tarvo::relay;
  std::setlocale(LC_ALL, "");
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
  // Without a display GTK would end the process.
  if (line.isBatch || gtk_init_check() == FALSE) return importInTerminal(line.arrival);
  // A child that has ended takes no more commands; the agent's pipe never takes a word.
  std::signal(SIGPIPE, SIG_IGN);
  return RelayApplication::create()->run(argc, argv);
}
