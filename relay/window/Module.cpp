// The module's entry.
#include <gtk/gtk.h>

#include "relay/WindowModule.h"
#include "relay/window/RelayApplication.h"

extern "C" __attribute__((visibility("default"))) int tarvoRelayWindow(int argc, char** argv) {
  // Without a display the application would end the process.
  if (gtk_init_check() == FALSE) return tarvo::relay::kNoDisplay;
  return tarvo::relay::RelayApplication::create()->run(argc, argv);
}
