#include "simulator/usbip/UsbipConnection.h"

#include <glib.h>
#include <linux/usb/ch9.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <set>
#include <system_error>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/usb/UsbTransfer.h"

namespace tarvo::simulator {
namespace {

/// As for URBs of usbfs: more is refused.
constexpr std::uint32_t kMaximumTransfer = 16 * 1024 * 1024;
/// Requests that may wait at once: the kernel's drivers have a few each.
constexpr std::size_t kMaximumWaiting = 256;

}  // namespace

void UsbipConnection::Wake::tell() const {
  const std::uint64_t one = 1;
  // It fails only where it has been told already, 2^64 - 2 times.
  [[maybe_unused]] const auto written = ::write(event.get(), &one, sizeof one);
}

UsbipConnection::UsbipConnection(FileDescriptor socket, std::shared_ptr<VirtualUSBDevice> device,
                                 std::function<void()> vanished)
    : socket_(std::move(socket)),
      device_(std::move(device)),
      vanished_(std::move(vanished)),
      wake_(std::make_shared<Wake>()) {
  wake_->event = FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake_->event.isOpen()) throw std::system_error(errno, std::generic_category(), "eventfd");
  device_->onActivity([wake = std::weak_ptr<Wake>(wake_)] {
    if (const auto alive = wake.lock()) alive->tell();
  });
  thread_ = std::jthread([this] {
    try {
      serve();
    } catch (const std::exception& error) {
      g_warning("USB/IP: %s", error.what());
    }
    // The importer sees the end now, and the owner when it looks.
    ::shutdown(socket_.get(), SHUT_RDWR);
    ended_ = true;
    if (device_->isGone()) vanished_();
  });
}

UsbipConnection::~UsbipConnection() {
  // Ends every read and write of the thread.
  ::shutdown(socket_.get(), SHUT_RDWR);
  wake_->tell();
}

void UsbipConnection::serve() {
  while (pump() && wait()) {
  }
}

int UsbipConnection::patience() const {
  std::optional<std::chrono::steady_clock::time_point> first;
  for (const auto& request : waiting_) {
    const auto due = device_->due(request.endpoint);
    if (due && (!first || *due < *first)) first = due;
  }
  if (!first) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*first - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
}

bool UsbipConnection::wait() {
  pollfd files[] = {{socket_.get(), POLLIN, 0}, {wake_->event.get(), POLLIN, 0}};
  if (::poll(files, std::size(files), patience()) < 0) return errno == EINTR;
  if (files[1].revents != 0) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto taken = ::read(wake_->event.get(), &count, sizeof count);
  }
  return files[0].revents == 0 || readRequest();
}

bool UsbipConnection::readRequest() {
  std::array<std::byte, usbip::kHeaderSize> header{};
  if (!receive(header)) return false;
  const auto request = usbip::Request::read(header);
  if (request.command == usbip::kSubmit) return submit(request);
  if (request.command == usbip::kUnlink) return unlink(request);
  g_warning("USB/IP: a request of the unknown kind 0x%X", request.command);
  return false;
}

bool UsbipConnection::submit(const usbip::Request& request) {
  const bool isochronous = request.packets != 0 && request.packets != 0xFFFFFFFF;
  if (isochronous || request.length > kMaximumTransfer || waiting_.size() >= kMaximumWaiting) {
    g_warning("USB/IP: a request that no device here can have (%u bytes)", request.length);
    return false;
  }
  std::vector<std::byte> data(request.length);
  if (!request.isIn && !receive(data)) return false;
  if (request.endpoint == 0) return submitControl(request, data);
  if (request.isIn && device_->descriptors().endpoint(request.address()) != nullptr) {
    waiting_.push_back({request.sequence, request.address(), std::move(data), {}});
    return true;
  }
  UsbTransfer transfer;
  if (request.isIn) {
    transfer.finish(-ENOENT);
  } else {
    transfer.out(*device_, request.address(), data, (request.flags & usbip::kURBZeroPacket) != 0);
  }
  return answer(request.sequence, transfer, {});
}

bool UsbipConnection::submitControl(const usbip::Request& request, std::span<std::byte> data) {
  UsbTransfer transfer;
  transfer.control(*device_, request.setup, data);
  if (!transfer.isDone()) {
    waiting_.push_back({request.sequence, 0, {}, {}});
    return true;
  }
  return answer(request.sequence, transfer,
                request.setup.fromDevice() ? data : std::span<std::byte>());
}

bool UsbipConnection::unlink(const usbip::Request& request) {
  const auto found = std::ranges::find(waiting_, request.unlinked, &Waiting::sequence);
  const bool waited = found != waiting_.end();
  if (waited) waiting_.erase(found);
  return send(usbip::unlinked(request.sequence, waited ? -ECONNRESET : 0));
}

bool UsbipConnection::pump() {
  // Each endpoint serves its requests in order: one that waits holds back those behind it.
  std::set<std::uint8_t> held;
  for (auto next = waiting_.begin(); next != waiting_.end();) {
    const auto request = next++;
    if (held.contains(request->endpoint) || request->endpoint == 0) continue;
    request->transfer.in(*device_, request->endpoint, request->room);
    if (!request->transfer.isDone()) {
      held.insert(request->endpoint);
      continue;
    }
    if (!answer(request->sequence, request->transfer, request->room)) return false;
    waiting_.erase(request);
  }
  return !device_->isGone();
}

bool UsbipConnection::answer(std::uint32_t sequence, const UsbTransfer& transfer,
                             std::span<const std::byte> data) {
  const auto length = transfer.length();
  return send(usbip::submitted(sequence, transfer.status(), static_cast<std::uint32_t>(length))) &&
         (data.empty() || send(data.first(length)));
}

bool UsbipConnection::receive(std::span<std::byte> bytes) {
  while (!bytes.empty()) {
    const auto count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

bool UsbipConnection::send(std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace tarvo::simulator

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
    appendBigEndian(bytes, 1, interface.kind.code);
    appendBigEndian(bytes, 1, interface.kind.subclass);
    appendBigEndian(bytes, 1, interface.kind.protocol);
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
