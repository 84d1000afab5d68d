#include "simulator/usb/PacketQueue.h"

#include <algorithm>
#include <cstring>

namespace tarvo::simulator {

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
  const auto left = transfer.payload->size() - transfer.offset;
  auto length = static_cast<std::size_t>(std::min<std::uint64_t>(left, room.size()));
  // The bus never splits a packet: what does not fit whole is not sent.
  const bool cut = length < left;
  if (cut) length -= length % packetSize_;
  if (length > 0) transfer.payload->read(transfer.offset, room.first(length));
  transfer.offset += length;
  if (!cut) return finishFront(room, length);
  return {length == room.size() ? State::kFull : State::kOverflow, length};
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
