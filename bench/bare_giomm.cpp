// The least that a desktop program with a bus connection does: the measure for the agent's start.
#include <giomm.h>

#include <iostream>

int main() {
  Gio::init();
  const auto loop = Glib::MainLoop::create();
  const auto bus = Gio::DBus::Connection::get_sync(Gio::DBus::BusType::SESSION);
  std::cout << "connected" << std::endl;
  loop->run();
}
