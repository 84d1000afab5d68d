#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {
namespace {

// Standard requests (USB 2.0, table 9-4).
enum StandardRequest : std::uint8_t {
  kGetStatus = 0,
  kClearFeature = 1,
  kGetDescriptor = 6,
  kGetConfiguration = 8,
  kSetConfiguration = 9,
  kGetInterface = 10,
  kSetInterface = 11,
};

constexpr std::uint8_t kTypeMask = 0x60;
constexpr std::uint8_t kTypeStandard = 0x00;
constexpr std::uint8_t kTypeClass = 0x20;

}  // namespace

std::optional<Bytes> VirtualUSBDevice::control(const SetupPacket& setup,
                                               std::span<const std::byte> data) {
  const std::lock_guard guard(mutex_);
  std::optional<Bytes> answer;
  if ((setup.requestType & kTypeMask) == kTypeStandard) answer = standardRequest(setup);
  if ((setup.requestType & kTypeMask) == kTypeClass) answer = classRequest(setup, data);
  // A device never sends more than it was asked for; hosts ask for 9 bytes of a configuration
  // first.
  if (answer && answer->size() > setup.length) answer->resize(setup.length);
  return answer;
}

std::optional<Bytes> VirtualUSBDevice::standardRequest(const SetupPacket& setup) {
  switch (setup.request) {
    case kGetDescriptor: {
      auto bytes = descriptor(setup);
      if (bytes.empty()) return std::nullopt;
      return bytes;
    }
    case kGetConfiguration:
      return Bytes{std::byte{1}};
    case kGetInterface:
      return Bytes{std::byte{0}};
    case kGetStatus:
      return Bytes(2);
    // Only the endpoint halt is a feature of these devices.
    case kClearFeature:
      halted_.erase(static_cast<std::uint8_t>(setup.index));
      return Bytes{};
    // There is one of each, so every choice is taken.
    case kSetConfiguration:
    case kSetInterface:
      return Bytes{};
    default:
      return std::nullopt;
  }
}

Bytes VirtualUSBDevice::descriptor(const SetupPacket& setup) const {
  switch (setup.value >> 8) {
    case 1:
      return descriptors_.device();
    case 2:
      return descriptors_.configuration();
    case 3:
      return descriptors_.text(static_cast<std::uint8_t>(setup.value));
    default:
      return {};
  }
}

OutResult VirtualUSBDevice::out(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) {
  const std::lock_guard guard(mutex_);
  if (gone_) return OutResult::kGone;
  if (halted_.contains(endpoint)) return OutResult::kStalled;
  // What was received may halt the endpoint at once, or make the device go.
  receive(endpoint, data, ends);
  if (gone_) return OutResult::kGone;
  return halted_.contains(endpoint) ? OutResult::kStalled : OutResult::kAccepted;
}

InResult VirtualUSBDevice::in(std::uint8_t endpoint, std::span<std::byte> room) {
  const std::lock_guard guard(mutex_);
  if (gone_) return {InResult::State::kGone, 0};
  if (halted_.contains(endpoint)) return {InResult::State::kStalled, 0};
  return send(endpoint, room);
}

void VirtualUSBDevice::clearHalt(std::uint8_t endpoint) {
  const std::lock_guard guard(mutex_);
  halted_.erase(endpoint);
}

void VirtualUSBDevice::reset() {
  const std::lock_guard guard(mutex_);
  halted_.clear();
  forgetEverything();
}

std::optional<std::chrono::steady_clock::time_point> VirtualUSBDevice::due(
    std::uint8_t endpoint) const {
  const std::lock_guard guard(mutex_);
  return nextDue(endpoint);
}

bool VirtualUSBDevice::isGone() const {
  const std::lock_guard guard(mutex_);
  return gone_;
}

}  // namespace tarvo::simulator
