#include "platform/imagecapture/ptp/Container.h"

#include <algorithm>

#include "Utilities/Format.h"

namespace tarvo::ptp {
namespace {

void encodeUInt16(std::uint16_t value, std::span<std::byte> bytes) {
  bytes[0] = static_cast<std::byte>(value & 0xFF);
  bytes[1] = static_cast<std::byte>(value >> 8);
}

void encodeUInt32(std::uint32_t value, std::span<std::byte> bytes) {
  encodeUInt16(static_cast<std::uint16_t>(value & 0xFFFF), bytes);
  encodeUInt16(static_cast<std::uint16_t>(value >> 16), bytes.subspan(2));
}

}  // namespace

std::uint16_t decodeUInt16(std::span<const std::byte> bytes) {
  return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[0]) |
                                    std::to_integer<unsigned>(bytes[1]) << 8);
}

std::uint32_t decodeUInt32(std::span<const std::byte> bytes) {
  return decodeUInt16(bytes) | static_cast<std::uint32_t>(decodeUInt16(bytes.subspan(2))) << 16;
}

void encodeHeader(const ContainerHeader& header, std::span<std::byte> bytes) {
  encodeUInt32(header.length, bytes);
  encodeUInt16(header.type, bytes.subspan(4));
  encodeUInt16(header.code, bytes.subspan(6));
  encodeUInt32(header.transactionID, bytes.subspan(8));
}

std::optional<ContainerHeader> decodeHeader(std::span<const std::byte> bytes) {
  if (bytes.size() < kContainerHeaderSize) return std::nullopt;
  const ContainerHeader header{decodeUInt32(bytes), decodeUInt16(bytes.subspan(4)),
                               decodeUInt16(bytes.subspan(6)), decodeUInt32(bytes.subspan(8))};
  // 0xFFFFFFFF, for a length that is not known yet, passes: it is for the caller to know where that
  // may be.
  if (header.length < kContainerHeaderSize) return std::nullopt;
  return header;
}

CommandBlock encodeCommand(const Transaction& transaction, std::uint32_t transactionID) {
  // The caller has refused more than five already; the array must be safe by itself.
  const std::size_t count = std::min<std::size_t>(transaction.parameterCount, kMaximumParameters);
  CommandBlock block;
  block.size = kContainerHeaderSize + 4 * count;
  const std::span<std::byte> bytes(block.bytes);
  encodeHeader(
      {static_cast<std::uint32_t>(block.size), kCommandBlock, transaction.operation, transactionID},
      bytes);
  for (std::size_t i = 0; i < count; ++i)
    encodeUInt32(transaction.parameters.at(i), bytes.subspan(kContainerHeaderSize + 4 * i));
  return block;
}

Outcome decodeResponse(std::span<const std::byte> bytes, std::uint32_t transactionID,
                       Transaction& transaction) {
  const auto header = decodeHeader(bytes);
  if (!header || header->type != kResponseBlock)
    return broken("a response was due, the device sent " + inHex(bytes));
  // The only thing that tells an answer from one to the question before.
  if (header->transactionID != transactionID)
    return broken(formatted("the response is for transaction %u instead of %u",
                            header->transactionID, transactionID));
  // A response is one short transfer: its length is known to the byte, so any other is a lie. Some
  // devices add a byte to it that belongs to no parameter.
  if (header->length != bytes.size() || header->length > kMaximumBlockSize)
    return broken(
        formatted("the response says %u bytes and has %zu", header->length, bytes.size()));

  transaction.responseCode = header->code;
  transaction.responseParameterCount = (header->length - kContainerHeaderSize) / 4;
  for (std::size_t i = 0; i < transaction.responseParameterCount; ++i)
    transaction.responseParameters.at(i) =
        decodeUInt32(bytes.subspan(kContainerHeaderSize + 4 * i));
  return {};
}

std::array<std::byte, 6> encodeCancelRequest(std::uint32_t transactionID) {
  std::array<std::byte, 6> payload{};
  encodeUInt16(kCancellationCode, payload);
  encodeUInt32(transactionID, std::span(payload).subspan(2));
  return payload;
}

std::optional<DeviceStatus> decodeDeviceStatus(std::span<const std::byte> bytes) {
  // USB still-image class, Get Device Status: length, code, and what it has to say about it.
  if (bytes.size() < 4) return std::nullopt;
  DeviceStatus status;
  status.code = decodeUInt16(bytes.subspan(2));
  // The device's own length, as far as it is there.
  const std::size_t length = std::min<std::size_t>(decodeUInt16(bytes), bytes.size());
  // An endpoint is a number of four bytes of which the address is the lowest.
  for (std::size_t at = 4; at + 4 <= length && status.haltedCount < 4; at += 4)
    status.haltedEndpoints.at(status.haltedCount++) = std::to_integer<std::uint8_t>(bytes[at]);
  return status;
}

std::string inHex(std::span<const std::byte> bytes) {
  constexpr std::size_t kShown = 16;
  if (bytes.empty()) return "nothing";
  std::string text = formatted("%zu bytes:", bytes.size());
  for (std::byte value : bytes.first(std::min(bytes.size(), kShown)))
    text += formatted(" %02x", std::to_integer<unsigned>(value));
  if (bytes.size() > kShown) text += " ...";
  return text;
}

namespace {

constexpr std::size_t kMostParameters = std::tuple_size_v<decltype(Event::parameters)>;
constexpr std::size_t kLongestEvent = kContainerHeaderSize + 4 * kMostParameters;

Event decodeEvent(std::span<const std::byte> container) {
  Event event;
  event.code = decodeUInt16(container.subspan(6));
  event.transactionID = decodeUInt32(container.subspan(8));
  event.parameterCount = static_cast<unsigned>((container.size() - kContainerHeaderSize) / 4);
  for (unsigned i = 0; i < event.parameterCount; ++i)
    event.parameters.at(i) =
        decodeUInt32(container.subspan(kContainerHeaderSize + std::size_t{4} * i));
  return event;
}

}  // namespace

std::vector<Event> EventAssembler::take(std::span<const std::byte> packet) {
  pending_.insert(pending_.end(), packet.begin(), packet.end());
  std::vector<Event> events;
  while (true) {
    const auto length = frontLength();
    // Out of step: there is no mark to find the next beginning by, so what is there goes.
    if (!length) pending_.clear();
    if (!length || *length == 0) break;
    events.push_back(decodeEvent(std::span(pending_).first(*length)));
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(*length));
  }
  // A short packet ends an event (USB 2.0, 5.7.3); what is left of it never becomes one.
  if (packet.size() < packetSize_) pending_.clear();
  return events;
}

std::optional<std::size_t> EventAssembler::frontLength() const {
  // Looked at as soon as it is there: devices fill packets up with zeros, which are no beginning.
  const std::span<const std::byte> bytes(pending_);
  if (bytes.size() < 4) return 0;
  const std::size_t length = decodeUInt32(bytes);
  // A device that sends nonsense must not make us collect 4 GiB for one event.
  if (length < kContainerHeaderSize || length > kLongestEvent || length % 4 != 0)
    return std::nullopt;
  if (bytes.size() >= 6 && decodeUInt16(bytes.subspan(4)) != kEventBlock) return std::nullopt;
  return bytes.size() < length ? 0 : length;
}

}  // namespace tarvo::ptp
