#include "simulator/host/UsbPort.h"

#include <algorithm>
#include <sstream>

#include "simulator/bytes/JsonNode.h"

namespace tarvo::simulator {

std::string UsbPort::name() const {
  return std::to_string(bus) + "-" + path;
}

UsbPort UsbPort::parse(const std::string& text) {
  const auto fail = [&] {
    throw DescriptionError("port \"" + text +
                           "\": BUS-PORT is expected, for example 1-4 or 1-4.2 (bus 1 to 255, "
                           "ports 1 to 15)");
  };
  const auto dash = text.find('-');
  if (dash == std::string::npos) fail();
  UsbPort port;
  const auto bus = parseNumber(text.substr(0, dash), 255);
  if (!bus || *bus == 0) fail();
  port.bus = static_cast<unsigned>(*bus);
  port.path = text.substr(dash + 1);
  std::istringstream parts(port.path);
  std::string part;
  unsigned count = 0;
  while (std::getline(parts, part, '.')) {
    const auto number = parseNumber(part, 15);
    if (!number || *number == 0 || ++count > 6) fail();
  }
  if (count == 0 || port.path.back() == '.') fail();
  return port;
}

std::uint32_t UsbPort::locationID() const {
  std::uint32_t location = bus << 24;
  unsigned shift = 20;
  std::size_t start = 0;
  while (start < path.size()) {
    const auto end = std::min(path.find('.', start), path.size());
    location |= static_cast<std::uint32_t>(std::stoul(path.substr(start, end - start))) << shift;
    shift -= 4;
    start = end + 1;
  }
  return location;
}

}  // namespace tarvo::simulator
