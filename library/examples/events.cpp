// Tells what the camera reports by itself, until it goes or Ctrl-C is pressed.
#include <iostream>

#include "tarvo/Device.h"

namespace {

void watch() {
  const tarvo::StopSignals stop;
  tarvo::Session session(tarvo::SessionOptions().stopBy(stop));
  auto camera = session.openCamera();
  bool isThere = true;
  const auto events = camera.onEvent([&](const tarvo::DeviceEvent& event) {
    isThere = !event.isGone();
    if (isThere) std::cout << event << std::endl;
  });
  std::cout << "watching " << camera.info() << std::endl;
  while (isThere && !stop.isSet())
    session.wait();
  std::cout << (isThere ? "stopped" : "it has gone") << '\n';
}

}  // namespace

int main() {
  try {
    watch();
  } catch (const tarvo::Error& error) {
    std::cerr << error << '\n';
    return 1;
  }
}
