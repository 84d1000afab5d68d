// Tells what comes and goes, from a loop of one's own around poll(2), until a line is typed.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "tarvo/Session.h"

namespace {

void tell(tarvo::Presence presence, const tarvo::DeviceInfo& info) {
  std::cout << (presence == tarvo::Presence::kCame ? "came: " : "went: ") << info << std::endl;
}

}  // namespace

int main() {
  try {
    tarvo::Session session;
    const auto watch = session.onDevice(tell);
    std::cout << "watching" << std::endl;
    pollfd sources[] = {{session.fd(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    while (poll(sources, 2, -1) >= 0 || errno == EINTR) {
      session.dispatch();
      if (sources[1].revents != 0) break;
    }
  } catch (const tarvo::Error& error) {
    std::cerr << error << '\n';
    return 1;
  }
}
