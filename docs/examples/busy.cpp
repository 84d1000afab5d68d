// Takes part in busy and done as the wireless utility does.
//
//   busy COMMAND [ARGUMENT...]   runs the command, busy for as long as it runs
//   busy --watch                 prints what the Relay application's side says
//
// c++ busy.cpp -o busy $(pkg-config --cflags --libs gio-2.0)
// docs/wireless.md tells what each name means.
#include <gio/gio.h>

#include <cstring>
#include <iostream>

namespace {

constexpr const char* kPlace = "/com/tarvo/DistributedNotification";
constexpr const char* kInterface = "com.tarvo.DistributedNotification";

void say(GDBusConnection* bus, const char* name) {
  g_dbus_connection_emit_signal(bus, nullptr, kPlace, kInterface, name, nullptr, nullptr);
  g_dbus_connection_flush_sync(bus, nullptr, nullptr);
}

int run(GDBusConnection* bus, char** command) {
  say(bus, "kWRLABusyNotification");
  gint status = 0;
  const bool isStarted =
      g_spawn_sync(nullptr, command, nullptr,
                   GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_CHILD_INHERITS_STDIN), nullptr,
                   nullptr, nullptr, nullptr, &status, nullptr) != FALSE;
  // Also after a failure: nobody else can say so for us.
  say(bus, "kWRLADoneNotification");
  return isStarted && g_spawn_check_wait_status(status, nullptr) != FALSE ? 0 : 1;
}

void heard(GDBusConnection*, const char*, const char*, const char*, const char* name, GVariant*,
           gpointer) {
  if (std::strcmp(name, "kRLABusyNotification") == 0)
    std::cout << "the Relay works on a device" << std::endl;
  if (std::strcmp(name, "kRLADoneNotification") == 0)
    std::cout << "the Relay has finished" << std::endl;
}

void watch(GDBusConnection* bus) {
  g_dbus_connection_signal_subscribe(bus, nullptr, kInterface, nullptr, kPlace, nullptr,
                                     G_DBUS_SIGNAL_FLAGS_NONE, heard, nullptr, nullptr);
  // The bus has the subscription once it has answered a call that came after it.
  GVariant* answer = g_dbus_connection_call_sync(
      bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
      nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (answer != nullptr) g_variant_unref(answer);
  std::cout << "listening" << std::endl;
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

}  // namespace

int main(int argc, char** argv) {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (argc < 2 || bus == nullptr) {
    std::cerr << (bus == nullptr ? "no session bus\n" : "usage: busy COMMAND... | --watch\n");
    return 2;
  }
  if (std::strcmp(argv[1], "--watch") == 0) watch(bus);
  return run(bus, argv + 1);
}
