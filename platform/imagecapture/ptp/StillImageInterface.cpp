#include "platform/imagecapture/ptp/StillImageInterface.h"

#include <bit>
#include <span>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::ptp {
namespace {

constexpr unsigned kPacketSizeBits = 0x07FF;  // Above them: transactions per microframe.
constexpr std::uint16_t kSmallestBulkPacket = 8;
constexpr std::uint16_t kLargestBulkPacket = 1024;

bool isIn(const libusb_endpoint_descriptor& endpoint) {
  return (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
}

std::uint8_t transferType(const libusb_endpoint_descriptor& endpoint) {
  return endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
}

std::uint16_t packetSize(const libusb_endpoint_descriptor& endpoint) {
  return static_cast<std::uint16_t>(endpoint.wMaxPacketSize & kPacketSizeBits);
}

bool isBulkPacketSize(std::uint16_t size) {
  return size >= kSmallestBulkPacket && size <= kLargestBulkPacket && std::has_single_bit(size);
}

/// Takes each kind's first endpoint.
void take(StillImageEndpoints& endpoints, const libusb_endpoint_descriptor& endpoint) {
  const bool bulk = transferType(endpoint) == LIBUSB_TRANSFER_TYPE_BULK;
  const bool interrupt = transferType(endpoint) == LIBUSB_TRANSFER_TYPE_INTERRUPT;
  if (bulk && isIn(endpoint) && endpoints.bulkIn == 0) {
    endpoints.bulkIn = endpoint.bEndpointAddress;
    endpoints.bulkInPacketSize = packetSize(endpoint);
  } else if (bulk && !isIn(endpoint) && endpoints.bulkOut == 0) {
    endpoints.bulkOut = endpoint.bEndpointAddress;
    endpoints.bulkOutPacketSize = packetSize(endpoint);
  } else if (interrupt && isIn(endpoint) && endpoints.interruptIn == 0 &&
             packetSize(endpoint) > 0) {
    endpoints.interruptIn = endpoint.bEndpointAddress;
    endpoints.interruptPacketSize = packetSize(endpoint);
  }
}

}  // namespace

std::optional<StillImageEndpoints> stillImageEndpoints(const libusb_interface_descriptor& interface,
                                                       std::string* why) {
  if (interface.bInterfaceClass != kStillImageClass ||
      interface.bInterfaceSubClass != kStillImageSubclass) {
    *why = formatted("interface %u is of class %u/%u, no still-image interface",
                     interface.bInterfaceNumber, interface.bInterfaceClass,
                     interface.bInterfaceSubClass);
    return std::nullopt;
  }
  StillImageEndpoints endpoints;
  endpoints.interfaceNumber = interface.bInterfaceNumber;
  for (const auto& endpoint : std::span(interface.endpoint, interface.bNumEndpoints))
    take(endpoints, endpoint);
  // A device without an interrupt endpoint has no events; without bulk there is nothing to say.
  if (endpoints.bulkIn == 0 || endpoints.bulkOut == 0) {
    *why = formatted("interface %u lacks a bulk endpoint", interface.bInterfaceNumber);
    return std::nullopt;
  }
  // Sizes of transfers are reckoned in packets: 0 would divide by zero, and odd ones overflow.
  if (!isBulkPacketSize(endpoints.bulkInPacketSize) ||
      !isBulkPacketSize(endpoints.bulkOutPacketSize)) {
    *why = formatted("interface %u has bulk packets of %u and %u bytes", interface.bInterfaceNumber,
                     endpoints.bulkInPacketSize, endpoints.bulkOutPacketSize);
    return std::nullopt;
  }
  return endpoints;
}

std::optional<StillImageEndpoints> stillImageEndpoints(
    const libusb_config_descriptor& configuration, std::uint8_t number, std::string* why) {
  for (const auto& interface : std::span(configuration.interface, configuration.bNumInterfaces)) {
    // The kernel has selected setting 0, and no still-image interface has another.
    if (interface.num_altsetting > 0 && interface.altsetting[0].bInterfaceNumber == number)
      return stillImageEndpoints(interface.altsetting[0], why);
  }
  *why = formatted("the device has no interface %u", number);
  return std::nullopt;
}

}  // namespace tarvo::ptp
