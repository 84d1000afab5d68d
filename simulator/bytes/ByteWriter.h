// Little-endian encoding of what a device sends, written apart from the product's codec, so that a
// mistake in one of them does not hide behind the same mistake in the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::simulator {

using Bytes = std::vector<std::byte>;

/// Gathers bytes at the end of a buffer:
///
///   ByteWriter writer;
///   writer.u16(0x3801);
///   writer.text("TARV0001.JPG");
///   const Bytes bytes = writer.take();
///
/// PTP (ISO 15740, chapter 5) and USB descriptors (USB 2.0, 8.1) are both little-endian.
class ByteWriter {
 public:
  void u8(std::uint8_t value) { integer(value, 1); }
  void u16(std::uint16_t value) { integer(value, 2); }
  void u32(std::uint32_t value) { integer(value, 4); }
  void u64(std::uint64_t value) { integer(value, 8); }
  /// The low `size` bytes of `value`, the lowest first.
  void integer(std::uint64_t value, std::size_t size);
  /// The bytes as they stand.
  void raw(std::span<const std::byte> bytes);

  /// A PTP string: count of UTF-16 units with the terminator (u8), the units, the terminator. Empty
  /// text is the single byte 0; text beyond 254 units is cut.
  void text(std::string_view utf8);
  /// The same for raw units, which need not be valid UTF-16. 255 units are sent without the
  /// terminator, which their count leaves no room for: a device may break the rule.
  void text(const std::u16string& units);
  /// PTP arrays: a count (u32), then the elements.
  void u16Array(std::span<const std::uint16_t> values);
  void u32Array(std::span<const std::uint32_t> values);

  std::size_t size() const { return bytes_.size(); }
  /// Hands the bytes over; the writer is empty afterwards.
  Bytes take() { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

/// UTF-16 units of UTF-8 text, without a terminator; nothing at all when it does not decode.
std::u16string utf16(std::string_view utf8);
/// UTF-8 text of units; U+FFFD in place of each unpaired surrogate.
std::string utf8(const std::u16string& units);

/// The little-endian number of `size` bytes at `offset`; bytes beyond the end read as zero.
std::uint64_t littleEndian(std::span<const std::byte> bytes, std::size_t offset, std::size_t size);

}  // namespace tarvo::simulator
