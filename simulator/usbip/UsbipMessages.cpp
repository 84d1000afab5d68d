#include "simulator/usbip/UsbipMessages.h"

#include <linux/usb/ch9.h>

#include <algorithm>

#include "simulator/bytes/BigEndian.h"
#include "simulator/usb/UsbTransfer.h"

namespace tarvo::simulator::usbip {
namespace {

constexpr std::uint32_t kSubmitAnswer = 3;
constexpr std::uint32_t kUnlinkAnswer = 4;
constexpr std::size_t kPathSize = 256;
constexpr std::size_t kSetupOffset = 40;

std::uint32_t number(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bigEndian(bytes, offset, 4));
}

/// Cut, and filled up with zeros, to `size` bytes of which the last is zero.
void appendText(Bytes& bytes, const std::string& text, std::size_t size) {
  const auto kept = std::as_bytes(std::span(text)).first(std::min(text.size(), size - 1));
  bytes.insert(bytes.end(), kept.begin(), kept.end());
  bytes.resize(bytes.size() + size - kept.size());
}

/// struct usbip_usb_device.
void appendDevice(Bytes& bytes, const HostedDevice& device) {
  const auto& usb = device.description.usb;
  appendText(bytes, "/sys/devices/tarvo/" + device.id, kPathSize);
  appendText(bytes, device.id, kBusIdSize);
  appendBigEndian(bytes, 4, device.port.bus);
  appendBigEndian(bytes, 4, deviceNumber(device) & 0xFFFF);
  appendBigEndian(bytes, 4, speedNumber(usb.speed));
  appendBigEndian(bytes, 2, usb.vendor);
  appendBigEndian(bytes, 2, usb.product);
  appendBigEndian(bytes, 2, usb.release);
  // Class, subclass and protocol are the interface's affair; one configuration with one interface.
  for (const auto value : {0, 0, 0, 1, 1, 1})
    appendBigEndian(bytes, 1, static_cast<std::uint32_t>(value));
}

std::array<std::byte, kHeaderSize> answerHeader(std::uint32_t command, std::uint32_t sequence,
                                                int status, std::uint32_t length) {
  Bytes bytes;
  // Device, direction and endpoint are zero in answers.
  for (const auto value :
       {command, sequence, 0U, 0U, 0U, static_cast<std::uint32_t>(status), length})
    appendBigEndian(bytes, 4, value);
  std::array<std::byte, kHeaderSize> header{};
  std::ranges::copy(bytes, header.begin());
  return header;
}

}  // namespace

Operation Operation::read(std::span<const std::byte> bytes) {
  return {static_cast<std::uint16_t>(bigEndian(bytes, 0, 2)),
          static_cast<std::uint16_t>(bigEndian(bytes, 2, 2))};
}

Bytes answerTo(std::uint16_t code, OperationStatus status) {
  Bytes bytes;
  appendBigEndian(bytes, 2, kVersion);
  appendBigEndian(bytes, 2, code & 0x7FFF);
  appendBigEndian(bytes, 4, static_cast<std::uint32_t>(status));
  return bytes;
}

Bytes deviceList(std::span<const HostedDevice* const> devices) {
  auto bytes = answerTo(kDeviceListRequest, OperationStatus::kOK);
  appendBigEndian(bytes, 4, static_cast<std::uint32_t>(devices.size()));
  for (const auto* device : devices) {
    appendDevice(bytes, *device);
    const auto& interface = device->device->descriptors().interface();
    appendBigEndian(bytes, 1, interface.interfaceClass);
    appendBigEndian(bytes, 1, interface.interfaceSubclass);
    appendBigEndian(bytes, 1, interface.interfaceProtocol);
    appendBigEndian(bytes, 1, 0);
  }
  return bytes;
}

Bytes importedDevice(const HostedDevice& device) {
  Bytes bytes;
  appendDevice(bytes, device);
  return bytes;
}

Request Request::read(std::span<const std::byte> bytes) {
  Request request;
  request.command = number(bytes, 0);
  request.sequence = number(bytes, 4);
  request.isIn = number(bytes, 12) != 0;
  request.endpoint = number(bytes, 16);
  if (request.command == kUnlink) {
    request.unlinked = number(bytes, 20);
    return request;
  }
  request.flags = number(bytes, 20);
  request.length = number(bytes, 24);
  request.packets = number(bytes, 32);
  request.setup = setupFrom(bytes.subspan(kSetupOffset));
  return request;
}

std::array<std::byte, kHeaderSize> submitted(std::uint32_t sequence, int status,
                                             std::uint32_t length) {
  return answerHeader(kSubmitAnswer, sequence, status, length);
}

std::array<std::byte, kHeaderSize> unlinked(std::uint32_t sequence, int status) {
  return answerHeader(kUnlinkAnswer, sequence, status, 0);
}

unsigned speedNumber(UsbSpeed speed) {
  return speed == UsbSpeed::kHigh ? USB_SPEED_HIGH : USB_SPEED_FULL;
}

// The first port number serves as the device's: an importer asks only that it names one device.
std::uint32_t deviceNumber(const HostedDevice& device) {
  return device.port.bus << 16 | (device.port.locationID() >> 20 & 0xF);
}

}  // namespace tarvo::simulator::usbip
