// The place of a virtual device among buses and ports.
#pragma once

#include <cstdint>
#include <string>

namespace tarvo::simulator {

/// Where a device is plugged in: bus number and port path, for example 1 and "4.2".
struct UsbPort {
  unsigned bus = 1;
  std::string path;          ///< port numbers from the root hub on, a dot between them
  std::string name() const;  ///< "1-4.2"
  /// Bus number in the top byte, then one port number a nibble from the top down.
  std::uint32_t locationID() const;
  /// Reads "BUS-PORT"; raises DescriptionError for anything else (bus 1 to 255, ports 1 to 15).
  static UsbPort parse(const std::string& text);
};

}  // namespace tarvo::simulator
