#include "platform/imagecapture/ptp/EventAssembler.h"

#include "platform/imagecapture/ptp/Container.h"

namespace tarvo::ptp {
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
    if (!length) pending_.clear();
    if (!length || *length == 0) break;
    events.push_back(decodeEvent(std::span(pending_).first(*length)));
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(*length));
  }
  if (packet.size() < packetSize_) pending_.clear();
  return events;
}

std::optional<std::size_t> EventAssembler::frontLength() const {
  // Looked at as soon as it is there: devices fill packets up with zeros, which are no beginning.
  const std::span<const std::byte> bytes(pending_);
  if (bytes.size() < 4) return 0;
  const std::size_t length = decodeUInt32(bytes);
  if (length < kContainerHeaderSize || length > kLongestEvent || length % 4 != 0)
    return std::nullopt;
  if (bytes.size() >= 6 && decodeUInt16(bytes.subspan(4)) != kEventBlock) return std::nullopt;
  return bytes.size() < length ? 0 : length;
}

}  // namespace tarvo::ptp
