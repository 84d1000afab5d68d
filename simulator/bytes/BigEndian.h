// Numbers of SCSI (SPC-4, 3.4) and of USB/IP, the highest byte first, written apart from the
// product's code for the same reason as ByteWriter.
//
//   const auto block = bigEndian(command, 2, 4);
//   putBigEndian(header, 0, 2, length);
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

/// The number of `size` bytes at `offset`; bytes beyond the end read as zero.
inline std::uint64_t bigEndian(std::span<const std::byte> bytes, std::size_t offset,
                               std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = offset; i < offset + size; ++i)
    value = value << 8 | (i < bytes.size() ? std::to_integer<std::uint64_t>(bytes[i]) : 0);
  return value;
}

/// Writes the low `size` bytes of `value` at `offset`, which must lie within `bytes`.
inline void putBigEndian(Bytes& bytes, std::size_t offset, std::size_t size, std::uint64_t value) {
  for (std::size_t i = 0; i < size; ++i)
    bytes.at(offset + i) = static_cast<std::byte>(value >> (8 * (size - 1 - i)));
}

/// Appends the low `size` bytes of `value`.
inline void appendBigEndian(Bytes& bytes, std::size_t size, std::uint64_t value) {
  bytes.resize(bytes.size() + size);
  putBigEndian(bytes, bytes.size() - size, size, value);
}

inline std::uint8_t byteAt(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint8_t>(bigEndian(bytes, offset, 1));
}

}  // namespace tarvo::simulator
