// Counts the pictures of everything that is connected: a card and a camera are the same here.
#include <iostream>

#include "tarvo/Device.h"

namespace {

void count(tarvo::Device device) {
  std::uint64_t pictures = 0;
  std::uint64_t bytes = 0;
  device.visit(tarvo::ObjectChoice().others(tarvo::ObjectChoice::Others::kPictures),
               [&](const tarvo::ObjectInfo& picture) {
                 ++pictures;
                 bytes += picture.size();
                 return true;
               });
  std::cout << device.info().name() << ": " << pictures << " pictures, " << bytes << " bytes\n";
}

}  // namespace

int main() {
  try {
    tarvo::Session session;
    for (const auto& info : session.devices())
      count(session.open(info));
  } catch (const tarvo::Error& error) {
    std::cerr << error << '\n';
    return 1;
  }
}
