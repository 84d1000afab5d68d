#include "simulator/usb/UsbTransfer.h"

#include <algorithm>
#include <cerrno>

namespace tarvo::simulator {

SetupPacket setupFrom(std::span<const std::byte> bytes) {
  SetupPacket setup;
  setup.requestType = static_cast<std::uint8_t>(littleEndian(bytes, 0, 1));
  setup.request = static_cast<std::uint8_t>(littleEndian(bytes, 1, 1));
  setup.value = static_cast<std::uint16_t>(littleEndian(bytes, 2, 2));
  setup.index = static_cast<std::uint16_t>(littleEndian(bytes, 4, 2));
  setup.length = static_cast<std::uint16_t>(littleEndian(bytes, 6, 2));
  return setup;
}

void UsbTransfer::control(VirtualUSBDevice& device, const SetupPacket& setup,
                          std::span<std::byte> data) {
  if (device.isDeaf()) return;
  const auto moved = data.first(std::min<std::size_t>(setup.length, data.size()));
  const auto answer =
      device.control(setup, setup.fromDevice() ? std::span<std::byte>() : std::span(moved));
  if (!answer) {
    finish(-EPIPE);
    return;
  }
  length_ = setup.fromDevice() ? std::min(answer->size(), moved.size()) : moved.size();
  if (setup.fromDevice()) std::copy_n(answer->begin(), length_, moved.begin());
  finish(0);
}

void UsbTransfer::out(VirtualUSBDevice& device, std::uint8_t endpoint,
                      std::span<const std::byte> data, bool zeroPacket) {
  const auto* target = device.descriptors().endpoint(endpoint);
  if (target == nullptr) {
    finish(-ENOENT);
    return;
  }
  const bool exact = !data.empty() && data.size() % target->packetSize == 0;
  auto result = device.out(endpoint, data, !exact);
  if (exact && zeroPacket && result == OutResult::kAccepted) {
    result = device.out(endpoint, {}, true);
  }
  if (result == OutResult::kAccepted) {
    length_ = data.size();
    finish(0);
  } else {
    finish(result == OutResult::kStalled ? -EPIPE : -ESHUTDOWN);
  }
}

void UsbTransfer::in(VirtualUSBDevice& device, std::uint8_t endpoint, std::span<std::byte> room) {
  const auto result = device.in(endpoint, room.subspan(length_));
  length_ += result.length;
  switch (result.state) {
    case InResult::State::kWaiting:
      break;
    case InResult::State::kShort:
    case InResult::State::kFull:
      finish(0);
      break;
    case InResult::State::kStalled:
      finish(-EPIPE);
      break;
    case InResult::State::kOverflow:
      finish(-EOVERFLOW);
      break;
    case InResult::State::kGone:
      finish(-ESHUTDOWN);
      break;
  }
}

}  // namespace tarvo::simulator
