#include "simulator/testbed/UsbfsUrb.h"

#include <algorithm>
#include <cerrno>

namespace tarvo::simulator {
namespace {

constexpr std::size_t kSetupSize = 8;
/// URBs larger than this are refused, as the kernel refuses what goes beyond its memory limit.
constexpr int kMaximumUrb = 16 * 1024 * 1024;

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
  Bytes data(bytes.begin() + kSetupSize,
             bytes.begin() + static_cast<std::ptrdiff_t>(kSetupSize + room));
  transfer_.control(device, setup, data);
  if (setup.fromDevice() && transfer_.length() > 0) {
    update(out_.get(), kSetupSize, std::span(data).first(transfer_.length()));
  }
}

void UsbfsUrb::startOut(VirtualUSBDevice& device) {
  transfer_.out(device, fields_.endpoint, bytesOf(out_, size()),
                (fields_.flags & USBDEVFS_URB_ZERO_PACKET) != 0);
}

void UsbfsUrb::progress(VirtualUSBDevice& device) {
  // Not cleared: only what the device has filled goes to the program.
  if (!in_) in_ = std::make_unique_for_overwrite<std::byte[]>(size());
  transfer_.in(device, fields_.endpoint, std::span(in_.get(), size()));
}

void UsbfsUrb::giveBack(UMockdevIoctlData* argument) {
  fields_.status = transfer_.status();
  fields_.actual_length = static_cast<int>(transfer_.length());
  store(record_, fields_);
  const auto length = transfer_.length();
  if (isIn() && length > 0) {
    const auto buffer = resolve(record_.get(), offsetof(Fields, buffer), length);
    if (buffer) update(buffer.get(), 0, std::span(in_.get(), length));
  }
  const auto pointer = resolve(argument, 0, sizeof(void*));
  if (pointer) umockdev_ioctl_data_set_ptr(pointer.get(), 0, record_.get());
}

}  // namespace tarvo::simulator
