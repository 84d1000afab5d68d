#include "simulator/usb/UsbDescriptors.h"

#include <algorithm>
#include <utility>

namespace tarvo::simulator {
namespace {

// String descriptor indexes.
constexpr std::uint8_t kManufacturer = 1;
constexpr std::uint8_t kName = 2;
constexpr std::uint8_t kSerial = 3;

constexpr char16_t kEnglish = 0x0409;

}  // namespace

UsbDescriptors::UsbDescriptors(UsbIdentity identity, InterfaceDescription interface)
    : identity_(std::move(identity)), interface_(std::move(interface)) {}

const EndpointDescription* UsbDescriptors::endpoint(std::uint8_t address) const {
  const auto found = std::find_if(interface_.endpoints.begin(), interface_.endpoints.end(),
                                  [&](const auto& each) { return each.address == address; });
  return found == interface_.endpoints.end() ? nullptr : &*found;
}

// Field by field in the order of USB 2.0, table 9-8.
Bytes UsbDescriptors::device() const {
  ByteWriter writer;
  writer.u8(18);
  writer.u8(1);
  writer.u16(0x0200);
  writer.u8(0);  // class, subclass and protocol stand on the interface
  writer.u8(0);
  writer.u8(0);
  writer.u8(64);
  writer.u16(identity_.vendor);
  writer.u16(identity_.product);
  writer.u16(identity_.release);
  writer.u8(textIndex(identity_.manufacturer, kManufacturer));
  writer.u8(textIndex(identity_.name, kName));
  writer.u8(textIndex(identity_.serial, kSerial));
  writer.u8(1);
  return writer.take();
}

// Configuration, interface and endpoints in one (USB 2.0, tables 9-10, 9-12 and 9-13), as a device
// answers them to one request.
Bytes UsbDescriptors::configuration() const {
  ByteWriter writer;
  writer.u8(9);
  writer.u8(2);
  writer.u16(static_cast<std::uint16_t>(9 + 9 + 7 * interface_.endpoints.size()));
  writer.u8(1);  // interfaces
  writer.u8(1);  // configuration value
  writer.u8(0);
  writer.u8(0xC0);  // self-powered
  writer.u8(50);    // 100 mA
  writer.u8(9);
  writer.u8(4);
  writer.u8(0);
  writer.u8(0);
  writer.u8(static_cast<std::uint8_t>(interface_.endpoints.size()));
  writer.u8(interface_.interfaceClass);
  writer.u8(interface_.interfaceSubclass);
  writer.u8(interface_.interfaceProtocol);
  writer.u8(0);
  for (const auto& endpoint : interface_.endpoints) {
    writer.u8(7);
    writer.u8(5);
    writer.u8(endpoint.address);
    writer.u8(endpoint.attributes);
    writer.u16(endpoint.packetSize);
    writer.u8(endpoint.interval);
  }
  return writer.take();
}

Bytes UsbDescriptors::text(std::uint8_t index) const {
  std::u16string units;
  if (index == 0) units = {kEnglish};
  if (index == kManufacturer) units = utf16(identity_.manufacturer);
  if (index == kName) units = utf16(identity_.name);
  if (index == kSerial) units = utf16(identity_.serial);
  if (units.empty()) return {};
  // The length byte counts two bytes a unit and two of header.
  units.resize(std::min<std::size_t>(units.size(), 126));
  ByteWriter writer;
  writer.u8(static_cast<std::uint8_t>(2 + 2 * units.size()));
  writer.u8(3);
  for (auto unit : units)
    writer.u16(unit);
  return writer.take();
}

Bytes UsbDescriptors::node() const {
  auto bytes = device();
  const auto rest = configuration();
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
}

}  // namespace tarvo::simulator
