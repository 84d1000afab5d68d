// Little-endian decoding of what a host sends, written apart from the product's codec for the same
// reason as ByteWriter.
//
//   ByteReader reader(bytes);
//   const auto storage = reader.u32();
//   const auto name = reader.text();
//   if (reader.failed()) ...
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

/// A cursor over bytes, which must outlive it. What lies beyond the end reads as zero or as nothing
/// and is remembered in failed().
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

  std::uint16_t u16() { return static_cast<std::uint16_t>(integer(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(integer(4)); }
  /// A PTP string without its terminator; a terminator that is missing fails.
  std::u16string text();
  /// The next `size` bytes; fewer fail, and give none.
  Bytes bytes(std::size_t size);
  /// A PTP array of u32: a count (u32), then the elements.
  std::vector<std::uint32_t> u32Array();
  /// Passes over a PTP array: a count (u32), then elements of `elementSize` bytes.
  void skipArray(std::size_t elementSize);

  bool failed() const { return failed_; }
  std::span<const std::byte> rest() const { return bytes_.subspan(position_); }

 private:
  std::uint64_t integer(std::size_t size);
  /// Whether `size` more bytes are there; the cursor goes to the end where they are not.
  bool has(std::uint64_t size);

  std::span<const std::byte> bytes_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

/// Whether `rest` is what may follow a data set of `size` bytes from a host: nothing, or one zero
/// byte where the container would otherwise be a multiple of 64 bytes long.
bool isPadding(std::span<const std::byte> rest, std::size_t size);

}  // namespace tarvo::simulator
