#include "simulator/testbed/UsbfsUrb.h"

#include <algorithm>
#include <cerrno>

namespace tarvo::simulator {
namespace {

constexpr std::size_t kSetupSize = 8;
/// URBs larger than this are refused, as the kernel refuses what goes beyond its memory limit.
constexpr int kMaximumUrb = 16 * 1024 * 1024;

SetupPacket setupFrom(std::span<const std::byte> bytes) {
  SetupPacket setup;
  setup.requestType = static_cast<std::uint8_t>(bytes[0]);
  setup.request = static_cast<std::uint8_t>(bytes[1]);
  setup.value = static_cast<std::uint16_t>(littleEndian(bytes, 2, 2));
  setup.index = static_cast<std::uint16_t>(littleEndian(bytes, 4, 2));
  setup.length = static_cast<std::uint16_t>(littleEndian(bytes, 6, 2));
  return setup;
}

int errorOf(OutResult result) {
  switch (result) {
    case OutResult::kAccepted:
      return 0;
    case OutResult::kStalled:
      return -EPIPE;
    case OutResult::kGone:
      break;
  }
  return -ESHUTDOWN;
}

}  // namespace

long UsbfsUrb::take(UMockdevIoctlData* argument, const VirtualUSBDevice& device) {
  record_ = resolve(argument, 0, sizeof(Fields));
  if (!record_) return -EFAULT;
  fields_ = load<Fields>(record_);
  if (fields_.buffer_length < 0 || fields_.buffer_length > kMaximumUrb) return -EINVAL;
  if (!isControl() && device.descriptors().endpoint(fields_.endpoint) == nullptr) return -ENOENT;
  // What the program sends is read now; where it receives is touched only when there is something.
  if (!isIn()) out_ = resolve(record_.get(), offsetof(Fields, buffer), size());
  return 0;
}

void UsbfsUrb::start(VirtualUSBDevice& device) {
  if (isControl()) {
    startControl(device);
  } else if (!isIn()) {
    startOut(device);
  }
}

// usbfs has setup packet and data in one buffer.
void UsbfsUrb::startControl(VirtualUSBDevice& device) {
  if (!out_ || size() < kSetupSize) {
    finish(-EINVAL);
    return;
  }
  const auto bytes = bytesOf(out_, size());
  const auto setup = setupFrom(bytes);
  const auto room = std::min<std::size_t>(setup.length, size() - kSetupSize);
  const auto sent = setup.fromDevice() ? std::span<std::byte>() : bytes.subspan(kSetupSize, room);
  auto answer = device.control(setup, sent);
  if (!answer) {
    finish(-EPIPE);
    return;
  }
  length_ = setup.fromDevice() ? std::min(answer->size(), room) : room;
  if (setup.fromDevice() && length_ > 0) {
    update(out_.get(), kSetupSize, std::span(*answer).first(length_));
  }
  finish(0);
}

void UsbfsUrb::startOut(VirtualUSBDevice& device) {
  const auto bytes = bytesOf(out_, size());
  const auto* target = device.descriptors().endpoint(fields_.endpoint);
  // A short packet ends the transfer; an exact multiple goes on, unless the program asked usbfs for
  // a zero-length packet behind it.
  const bool exact = size() > 0 && size() % target->packetSize == 0;
  auto result = device.out(fields_.endpoint, bytes, !exact);
  if (exact && (fields_.flags & USBDEVFS_URB_ZERO_PACKET) != 0 && result == OutResult::kAccepted) {
    result = device.out(fields_.endpoint, {}, true);
  }
  length_ = result == OutResult::kAccepted ? size() : 0;
  finish(errorOf(result));
}

void UsbfsUrb::progress(VirtualUSBDevice& device) {
  // Not cleared: only what the device has filled goes to the program.
  if (!in_) in_ = std::make_unique_for_overwrite<std::byte[]>(size());
  const auto result = device.in(fields_.endpoint, std::span(in_.get(), size()).subspan(length_));
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

void UsbfsUrb::giveBack(UMockdevIoctlData* argument) {
  fields_.actual_length = static_cast<int>(length_);
  store(record_, fields_);
  if (isIn() && length_ > 0) {
    const auto buffer = resolve(record_.get(), offsetof(Fields, buffer), length_);
    if (buffer) update(buffer.get(), 0, std::span(in_.get(), length_));
  }
  const auto pointer = resolve(argument, 0, sizeof(void*));
  if (pointer) umockdev_ioctl_data_set_ptr(pointer.get(), 0, record_.get());
}

}  // namespace tarvo::simulator
