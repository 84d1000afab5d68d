#include "simulator/usb/VirtualUSBDevice.h"
#include "simulator/description/DeviceDescription.h"

#include <algorithm>
#include <cstring>
#include <utility>

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

InterfaceDescription interfaceOf(UsbSpeed speed, InterfaceClass kind,
                                 const std::vector<EndpointDescription>& others) {
  const std::uint16_t packet = speed == UsbSpeed::kHigh ? 512 : 64;
  InterfaceDescription interface {
    kind, {
      {VirtualUSBDevice::kBulkIn, 2, packet, 0}, {
        VirtualUSBDevice::kBulkOut, 2, packet, 0
      }
    }
  };
  interface.endpoints.insert(interface.endpoints.end(), others.begin(), others.end());
  return interface;
}

}  // namespace

VirtualUSBDevice::VirtualUSBDevice(const DeviceDescription& description, InterfaceClass kind,
                                   const std::vector<EndpointDescription>& others)
    : faults_(description.faults),
      descriptors_(description.usb, interfaceOf(description.usb.speed, kind, others)) {}

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

bool VirtualUSBDevice::isDeaf() const {
  const std::lock_guard guard(mutex_);
  return strikes(Fault::kDeaf);
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

std::string VirtualUSBDevice::setFault(std::string_view name, std::string_view value) {
  const std::lock_guard guard(mutex_);
  return faults_.set(name, value);
}

std::vector<std::string> VirtualUSBDevice::violations() const {
  const std::lock_guard guard(mutex_);
  return violations_.list();
}

void VirtualUSBDevice::forgetViolations() {
  const std::lock_guard guard(mutex_);
  violations_.clear();
}

namespace {

// String descriptor indexes.
constexpr std::uint8_t kManufacturer = 1;
constexpr std::uint8_t kName = 2;
constexpr std::uint8_t kSerial = 3;

constexpr char16_t kEnglish = 0x0409;

}  // namespace

UsbDescriptors::UsbDescriptors(UsbIdentity identity, InterfaceDescription interface)
    : identity_(std::move(identity)), interface_(std::move(interface)) {}

const EndpointDescription* UsbDescriptors::endpoint(std::uint8_t address) const {
  const auto found = std::find_if(interface_.endpoints.begin(), interface_.endpoints.end(),
                                  [&](const auto& each) { return each.address == address; });
  return found == interface_.endpoints.end() ? nullptr : &*found;
}

// Field by field in the order of USB 2.0, table 9-8.
Bytes UsbDescriptors::device() const {
  ByteWriter writer;
  writer.u8(18);
  writer.u8(1);
  writer.u16(0x0200);
  writer.u8(0);  // class, subclass and protocol stand on the interface
  writer.u8(0);
  writer.u8(0);
  writer.u8(64);
  writer.u16(identity_.vendor);
  writer.u16(identity_.product);
  writer.u16(identity_.release);
  writer.u8(textIndex(identity_.manufacturer, kManufacturer));
  writer.u8(textIndex(identity_.name, kName));
  writer.u8(textIndex(identity_.serial, kSerial));
  writer.u8(1);
  return writer.take();
}

// Configuration, interface and endpoints in one (USB 2.0, tables 9-10, 9-12 and 9-13), as a device
// answers them to one request.
Bytes UsbDescriptors::configuration() const {
  ByteWriter writer;
  writer.u8(9);
  writer.u8(2);
  writer.u16(static_cast<std::uint16_t>(9 + 9 + 7 * interface_.endpoints.size()));
  writer.u8(1);  // interfaces
  writer.u8(1);  // configuration value
  writer.u8(0);
  writer.u8(0xC0);  // self-powered
  writer.u8(50);    // 100 mA
  writer.u8(9);
  writer.u8(4);
  writer.u8(0);
  writer.u8(0);
  writer.u8(static_cast<std::uint8_t>(interface_.endpoints.size()));
  writer.u8(interface_.kind.code);
  writer.u8(interface_.kind.subclass);
  writer.u8(interface_.kind.protocol);
  writer.u8(0);
  for (const auto& endpoint : interface_.endpoints) {
    writer.u8(7);
    writer.u8(5);
    writer.u8(endpoint.address);
    writer.u8(endpoint.attributes);
    writer.u16(endpoint.packetSize);
    writer.u8(endpoint.interval);
  }
  return writer.take();
}

Bytes UsbDescriptors::text(std::uint8_t index) const {
  std::u16string units;
  if (index == 0) units = {kEnglish};
  if (index == kManufacturer) units = utf16(identity_.manufacturer);
  if (index == kName) units = utf16(identity_.name);
  if (index == kSerial) units = utf16(identity_.serial);
  if (units.empty()) return {};
  // The length byte counts two bytes a unit and two of header.
  units.resize(std::min<std::size_t>(units.size(), 126));
  ByteWriter writer;
  writer.u8(static_cast<std::uint8_t>(2 + 2 * units.size()));
  writer.u8(3);
  for (auto unit : units)
    writer.u16(unit);
  return writer.take();
}

Bytes UsbDescriptors::node() const {
  auto bytes = device();
  const auto rest = configuration();
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
}

using State = InResult::State;

// One transfer of the host may take several of the device's: where nothing separates two (no
// zero-length packet), the bus runs them together, and so does this.
InResult PacketQueue::fill(std::span<std::byte> room) {
  InResult total;
  while (!transfers_.empty() && transfers_.front().notBefore <= std::chrono::steady_clock::now()) {
    const auto part = fillFromFront(room.subspan(total.length));
    total = {part.state, total.length + part.length};
    if (part.state != State::kWaiting) return total;
  }
  if (total.length == room.size() && !room.empty()) total.state = State::kFull;
  return total;
}

InResult PacketQueue::fillFromFront(std::span<std::byte> room) {
  auto& transfer = transfers_.front();
  if (transfer.overflows) {
    transfers_.pop_front();
    return {State::kOverflow, 0};
  }
  if (transfer.pause.count() > 0) {
    room = room.first(std::min<std::size_t>(room.size(), packetSize_));
    transfer.notBefore = std::chrono::steady_clock::now() + transfer.pause;
  }
  const auto left = transfer.payload->size() - transfer.offset;
  auto length = static_cast<std::size_t>(std::min<std::uint64_t>(left, room.size()));
  // The bus never splits a packet: what does not fit whole is not sent.
  const bool cut = length < left;
  if (cut) length -= length % packetSize_;
  if (length > 0) transfer.payload->read(transfer.offset, room.first(length));
  transfer.offset += length;
  if (!cut) return finishFront(room, length);
  if (length < room.size()) return {State::kOverflow, length};
  return {transfer.pause.count() > 0 ? State::kWaiting : State::kFull, length};
}

// A copy is taken of the transfer, which goes from the queue in three of the four ends.
InResult PacketQueue::finishFront(std::span<std::byte> room, std::size_t length) {
  const auto transfer = transfers_.front();
  if (transfer.thenGone) {
    transfers_.pop_front();
    return {State::kGone, length};
  }
  const bool exact = transfer.payload->size() % packetSize_ == 0;
  // The zero-length packet needs a transfer of its own when this one is full.
  if (exact && transfer.zeroLengthPacket && length > 0 && length == room.size()) {
    return {State::kFull, length};
  }
  transfers_.pop_front();
  // The host cannot know that the transfer has ended, and goes on waiting for the next packet.
  if (exact && !transfer.zeroLengthPacket) {
    return {length == room.size() && length > 0 ? State::kFull : State::kWaiting, length};
  }
  return {State::kShort, length};
}

}  // namespace tarvo::simulator
