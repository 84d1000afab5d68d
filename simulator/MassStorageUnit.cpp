#include "simulator/MassStorageUnit.h"

namespace tarvo::simulator {
namespace {

InterfaceDescription bulkOnlyInterface(UsbSpeed speed) {
  const std::uint16_t packet = speed == UsbSpeed::kHigh ? 512 : 64;
  InterfaceDescription interface;
  interface.interfaceClass = 8;
  interface.interfaceSubclass = 6;   // transparent SCSI
  interface.interfaceProtocol = 80;  // bulk-only
  interface.endpoints = {{0x81, 2, packet, 0}, {0x02, 2, packet, 0}};
  return interface;
}

constexpr std::uint8_t kGetMaxLUN = 0xFE;

}  // namespace

MassStorageUnit::MassStorageUnit(const DeviceDescription& description)
    : VirtualUSBDevice(UsbDescriptors(description.usb, bulkOnlyInterface(description.usb.speed))) {}

std::optional<Bytes> MassStorageUnit::classRequest(const SetupPacket& setup,
                                                   std::span<const std::byte>) {
  if (setup.request == kGetMaxLUN) return Bytes(1);
  return std::nullopt;
}

void MassStorageUnit::receive(std::uint8_t endpoint, std::span<const std::byte>, bool) {
  halt(endpoint);
}

InResult MassStorageUnit::send(std::uint8_t endpoint, std::span<std::byte>) {
  halt(endpoint);
  return {InResult::State::kStalled, 0};
}

}  // namespace tarvo::simulator
