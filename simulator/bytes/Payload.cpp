#include "simulator/bytes/Payload.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace tarvo::simulator {
namespace {

constexpr std::size_t kRow = 256;

/// Row r holds 0 ^ r, 1 ^ r, ... 255 ^ r: the pattern is made of whole rows, one for each value of
/// the offset's second byte, so that copying them costs no more than memory does.
const std::array<std::array<std::byte, kRow>, kRow>& patternRows() {
  static const auto rows = [] {
    std::array<std::array<std::byte, kRow>, kRow> made{};
    for (std::size_t row = 0; row < kRow; ++row) {
      for (std::size_t i = 0; i < kRow; ++i)
        made[row][i] = static_cast<std::byte>(i ^ row);
    }
    return made;
  }();
  return rows;
}

}  // namespace

void BytesPayload::read(std::uint64_t offset, std::span<std::byte> room) const {
  if (!room.empty()) std::memcpy(room.data(), bytes_.data() + offset, room.size());
}

void PatternPayload::read(std::uint64_t offset, std::span<std::byte> room) const {
  const auto& rows = patternRows();
  while (!room.empty()) {
    const auto column = static_cast<std::size_t>(offset % kRow);
    const auto row = static_cast<std::uint8_t>((offset / kRow) ^ (std::uint64_t{handle_} * 37));
    const auto count = std::min(room.size(), kRow - column);
    std::memcpy(room.data(), rows[row].data() + column, count);
    room = room.subspan(count);
    offset += count;
  }
}

void JoinedPayload::read(std::uint64_t offset, std::span<std::byte> room) const {
  std::size_t fromHead = 0;
  if (offset < head_.size()) {
    fromHead = std::min<std::size_t>(room.size(), head_.size() - offset);
    std::memcpy(room.data(), head_.data() + offset, fromHead);
  }
  if (fromHead < room.size()) {
    body_->read(offset + fromHead - head_.size(), room.subspan(fromHead));
  }
}

Bytes allBytes(const Payload& payload) {
  Bytes bytes(static_cast<std::size_t>(payload.size()));
  payload.read(0, bytes);
  return bytes;
}

}  // namespace tarvo::simulator
