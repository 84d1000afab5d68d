#include "simulator/usbip/UsbipMessages.h"

#include <linux/usb/ch9.h>

#include <algorithm>

#include "simulator/UsbTransfer.h"

namespace tarvo::simulator::usbip {
namespace {

constexpr std::uint32_t kSubmitAnswer = 3;
constexpr std::uint32_t kUnlinkAnswer = 4;
constexpr std::size_t kPathSize = 256;
constexpr std::size_t kSetupOffset = 40;

std::uint32_t bigEndian(std::span<const std::byte> bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (const auto byte : bytes.subspan(offset, size))
    value = value << 8 | static_cast<std::uint32_t>(byte);
  return value;
}

/// Writes big-endian numbers one after the other.
class Writer {
 public:
  explicit Writer(Bytes& bytes) : bytes_(bytes) {}
  void number(std::uint32_t value, std::size_t size) {
    while (size-- > 0)
      bytes_.push_back(static_cast<std::byte>(value >> (8 * size)));
  }
  /// Cut, and filled up with zeros, to `size` bytes of which the last is zero.
  void text(const std::string& text, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
      number(i < text.size() && i + 1 < size ? static_cast<unsigned char>(text[i]) : 0, 1);
  }

 private:
  Bytes& bytes_;
};

/// struct usbip_usb_device.
void writeDevice(Writer& writer, const HostedDevice& device) {
  const auto& usb = device.description.usb;
  writer.text("/sys/devices/tarvo/" + device.id, kPathSize);
  writer.text(device.id, kBusIdSize);
  writer.number(device.port.bus, 4);
  writer.number(deviceNumber(device) & 0xFFFF, 4);
  writer.number(speedNumber(usb.speed), 4);
  writer.number(usb.vendor, 2);
  writer.number(usb.product, 2);
  writer.number(usb.release, 2);
  // Class, subclass and protocol are the interface's affair; one configuration with one interface.
  for (const auto value : {0, 0, 0, 1, 1, 1})
    writer.number(static_cast<std::uint32_t>(value), 1);
}

std::array<std::byte, kHeaderSize> answerHeader(std::uint32_t command, std::uint32_t sequence,
                                                int status, std::uint32_t length) {
  Bytes bytes;
  Writer writer(bytes);
  // Device, direction and endpoint are zero in answers.
  for (const auto value :
       {command, sequence, 0U, 0U, 0U, static_cast<std::uint32_t>(status), length})
    writer.number(value, 4);
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
  Writer writer(bytes);
  writer.number(kVersion, 2);
  writer.number(code & 0x7FFF, 2);
  writer.number(static_cast<std::uint32_t>(status), 4);
  return bytes;
}

Bytes deviceList(std::span<const HostedDevice* const> devices) {
  auto bytes = answerTo(kDeviceListRequest, OperationStatus::kOK);
  Writer writer(bytes);
  writer.number(static_cast<std::uint32_t>(devices.size()), 4);
  for (const auto* device : devices) {
    writeDevice(writer, *device);
    const auto& interface = device->device->descriptors().interface();
    writer.number(interface.interfaceClass, 1);
    writer.number(interface.interfaceSubclass, 1);
    writer.number(interface.interfaceProtocol, 1);
    writer.number(0, 1);
  }
  return bytes;
}

Bytes importedDevice(const HostedDevice& device) {
  Bytes bytes;
  Writer writer(bytes);
  writeDevice(writer, device);
  return bytes;
}

Request Request::read(std::span<const std::byte> bytes) {
  Request request;
  request.command = bigEndian(bytes, 0, 4);
  request.sequence = bigEndian(bytes, 4, 4);
  request.isIn = bigEndian(bytes, 12, 4) != 0;
  request.endpoint = bigEndian(bytes, 16, 4);
  if (request.command == kUnlink) {
    request.unlinked = bigEndian(bytes, 20, 4);
    return request;
  }
  request.flags = bigEndian(bytes, 20, 4);
  request.length = bigEndian(bytes, 24, 4);
  request.packets = bigEndian(bytes, 32, 4);
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
