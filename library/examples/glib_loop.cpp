// Tells what comes and goes, from the main loop of a GLib program: nothing is polled or dispatched.
#include <glib-unix.h>

#include <iostream>

#include "tarvo/Session.h"

namespace {

void tell(tarvo::Presence presence, const tarvo::DeviceInfo& info) {
  std::cout << (presence == tarvo::Presence::kCame ? "came: " : "went: ") << info << std::endl;
}

gboolean quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

}  // namespace

int main() {
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGTERM, quit, loop);
  g_unix_signal_add(SIGINT, quit, loop);
  int failed = 0;
  try {
    tarvo::Session session(tarvo::SessionOptions().mainContext(g_main_context_default()));
    const auto watch = session.onDevice(tell);
    std::cout << "watching" << std::endl;
    g_main_loop_run(loop);
  } catch (const tarvo::Error& error) {
    std::cerr << error << '\n';
    failed = 1;
  }
  g_main_loop_unref(loop);
  return failed;
}
