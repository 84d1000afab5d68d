// Lists what is connected.
#include <iostream>

#include "tarvo/Session.h"

int main() {
  try {
    tarvo::Session session;
    for (const auto& info : session.devices())
      std::cout << info << '\n';
  } catch (const tarvo::Error& error) {
    std::cerr << error << '\n';
    return 1;
  }
}
