// Binary USB descriptors (USB 2.0, chapter 9) of a virtual device: what GET_DESCRIPTOR answers, and
// what the kernel shows of it in sysfs and in the device node.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

struct EndpointDescription {
  std::uint8_t address = 0;        ///< number, and 0x80 for the direction to the host
  std::uint8_t attributes = 2;     ///< 2 bulk, 3 interrupt
  std::uint16_t packetSize = 512;  ///< wMaxPacketSize, in bytes
  std::uint8_t interval = 0;       ///< bInterval; of an interrupt endpoint
};

/// The one interface of a device.
struct InterfaceDescription {
  std::uint8_t interfaceClass = 0;
  std::uint8_t interfaceSubclass = 0;
  std::uint8_t interfaceProtocol = 0;
  std::vector<EndpointDescription> endpoints;
};

/// A device with one configuration and one interface. Constant after construction.
class UsbDescriptors {
 public:
  UsbDescriptors(UsbIdentity identity, InterfaceDescription interface);

  const UsbIdentity& identity() const { return identity_; }
  const InterfaceDescription& interface() const { return interface_; }
  /// Null when there is none of that address.
  const EndpointDescription* endpoint(std::uint8_t address) const;

  Bytes device() const;         ///< 18 bytes (9.6.1)
  Bytes configuration() const;  ///< with interface and endpoints behind it
  /// String descriptor (9.6.7). Index 0 gives the languages; an index without a text gives nothing,
  /// and the device stalls the request.
  Bytes text(std::uint8_t index) const;
  /// What usbfs gives to a reader of the node: device, then configuration.
  Bytes node() const;

 private:
  /// A device without a text has index 0 in its place.
  std::uint8_t textIndex(const std::string& text, std::uint8_t index) const {
    return text.empty() ? 0 : index;
  }

  UsbIdentity identity_;
  InterfaceDescription interface_;
};

}  // namespace tarvo::simulator
