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

// Little-endian decoding of what a host sends, written apart from the product's codec for the same
// reason as ByteWriter.
//
//   ByteReader reader(bytes);
//   const auto storage = reader.u32();
//   const auto name = reader.text();
//   if (reader.failed()) ...

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

// Numbers of SCSI (SPC-4, 3.4) and of USB/IP, the highest byte first, written apart from the
// product's code for the same reason as ByteWriter.
//
//   const auto block = bigEndian(command, 2, 4);
//   putBigEndian(header, 0, 2, length);

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
