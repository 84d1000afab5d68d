// The reader of PTP data sets: a cursor over a byte buffer that scans PTP-encoded values (ISO
// 15740, clause "Datasets"; strings and arrays as its annex on data formats has them).
//
//   auto set = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder, length, false);
//   const std::uint16_t version = set.scanUInt16();
//   const std::string model = set.scanString();
//
// Everything in a data set comes from a device, so nothing in it is trusted. A read that goes past
// the end raises NSRangeException; a count that cannot fit in the bytes that are left raises it at
// once, before anything is allocated for it. The two operations without a bounds test, scanUInt64
// and skip, never touch memory outside the buffer either: bytes beyond it read as zero.
//
// A data set is used by one thread at a time.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

using XTUInt128 = std::array<std::uint8_t, 16>;

/// 32 lower-case hexadecimal digits in byte order; empty text when all bytes are zero.
/// Zero is "no value" to the devices, hence the empty text.
std::string XTUInt128AsHexString(const XTUInt128& value);

/// Reads exactly 32 hexadecimal digits of either case into `digest`. False for any other text; the
/// bytes before the first wrong digit are written all the same. A missing argument is a failed
/// assertion that names it.
bool XTHexStringAsUInt128(std::optional<std::string_view> hexString, XTUInt128* digest);

// The reader of PTP data sets: a cursor over a byte buffer that scans PTP-encoded values (ISO
// 15740, clause "Datasets"; strings and arrays as its annex on data formats has them).
//
//   auto set = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder, length, false);
//   const std::uint16_t version = set.scanUInt16();
//   const std::string model = set.scanString();
//
// Everything in a data set comes from a device, so nothing in it is trusted. A read that goes past
// the end raises NSRangeException; a count that cannot fit in the bytes that are left raises it at
// once, before anything is allocated for it. The two operations without a bounds test, scanUInt64
// and skip, never touch memory outside the buffer either: bytes beyond it read as zero.
//
// A data set is used by one thread at a time.

/// The byte order of PTP: little-endian, which is the host's. Any other value means that every
/// multi-byte value is byte-reversed on the way in and out.
inline constexpr std::int32_t kPTPByteOrder = 1;
static_assert(std::endian::native == std::endian::little, "byte order 1 is the host's order");

/// PTP datatype codes (ISO 15740, "Datatype codes").
enum PTPDataCode : std::uint16_t {
  kPTPInt8 = 0x0001,
  kPTPUInt8 = 0x0002,
  kPTPInt16 = 0x0003,
  kPTPUInt16 = 0x0004,
  kPTPInt32 = 0x0005,
  kPTPUInt32 = 0x0006,
  kPTPInt64 = 0x0007,
  kPTPUInt64 = 0x0008,
  kPTPInt128 = 0x0009,
  kPTPUInt128 = 0x000A,
  kPTPArrayOfInt8 = 0x4001,
  kPTPArrayOfUInt8 = 0x4002,
  kPTPArrayOfInt16 = 0x4003,
  kPTPArrayOfUInt16 = 0x4004,
  kPTPArrayOfInt32 = 0x4005,
  kPTPArrayOfUInt32 = 0x4006,
  kPTPArrayOfInt64 = 0x4007,
  kPTPArrayOfUInt64 = 0x4008,
  kPTPArrayOfInt128 = 0x4009,
  kPTPArrayOfUInt128 = 0x400A,
  kPTPString = 0xFFFF,
};

/// Moved, never copied: initWithData() makes a copy where one is meant. What was moved from is
/// empty.
class XTPTPDataSet {
 public:
  /// Empty: no buffer, position 0, byte order 0.
  XTPTPDataSet() = default;
  XTPTPDataSet(XTPTPDataSet&& other) noexcept;
  XTPTPDataSet& operator=(XTPTPDataSet&& other) noexcept;
  virtual ~XTPTPDataSet();

  /// Wraps `length` bytes without copying them. With `freeWhenDone` the buffer must come from
  /// malloc and belongs to the data set; without it the caller keeps it alive and frees it.
  static XTPTPDataSet ptpDataSetWithBytesNoCpy(const void* bytes, std::int32_t byteOrder,
                                               std::uint32_t length, bool freeWhenDone);
  static XTPTPDataSet initWithBytesNoCpy(const void* bytes, std::int32_t byteOrder,
                                         std::uint32_t length, bool freeWhenDone);
  /// Wraps bytes that `owner` keeps alive (a transaction record, say) without copying them. At most
  /// the first 4 GiB - 1 are readable.
  static XTPTPDataSet ptpDataSetWithBytesNoCpy(std::span<const std::byte> bytes,
                                               std::int32_t byteOrder,
                                               std::shared_ptr<const void> owner = nullptr);
  /// A copy of `data`, owned, with byte order 0: callers that want little-endian set it.
  /// Raises NSMallocException.
  static XTPTPDataSet initWithData(std::span<const std::byte> data);

  /// A copy of the bytes before the position (for a writer: everything written), at most the
  /// buffer.
  std::vector<std::byte> data() const;
  /// The `length()` bytes from the start, without copying; valid until the data set is changed or
  /// destroyed.
  std::span<const std::byte> bytes() const;
  /// Null for an empty data set.
  const std::byte* buffer() const { return buffer_; }
  /// Readable bytes; for a writer, the bytes written so far.
  virtual std::uint32_t length() const { return bufferSize_; }
  bool isEmpty() const { return buffer_ == nullptr || bufferSize_ == 0; }
  /// Whether the buffer is the data set's own.
  bool freeBufferWhenDone() const { return freeBufferWhenDone_; }

  /// Where the next value is read, in bytes from the start. It may lie beyond the end; scanning
  /// there raises.
  std::uint32_t position() const { return position_; }
  void setPosition(std::uint32_t position) { position_ = position; }
  /// Moves the cursor without a bounds test, modulo 2^32.
  void skip(std::uint32_t count) { position_ += count; }
  std::int32_t byteOrder() const { return byteOrder_; }
  void setByteOrder(std::int32_t byteOrder) { byteOrder_ = byteOrder; }

  /// "XTPTPDataSet of %d bytes with position at %d".
  std::string description() const;

  /// Copies `length` bytes from `location` on to `destination`. Raises NSRangeException when they
  /// are not all there.
  void getBytes(void* destination, std::uint32_t location, std::uint32_t length) const {
    if (std::uint64_t{location} + length > bufferSize_) raiseOutOfBounds(location, length);
    if (length != 0) std::memcpy(destination, buffer_ + location, length);
  }

  /// Raises NSRangeException unless `count` bytes follow the position: asked before memory is made
  /// for a count that a device sent.
  void requireBytes(std::uint64_t count) const {
    if (position_ + count > bufferSize_) raiseOutOfBounds(position_, count);
  }

  // Each scanner reads at the position and moves it behind what it has read. All raise
  // NSRangeException on a short buffer, except scanUInt64.

  /// PTP's UINT8 and INT8.
  std::uint8_t scanByte() { return scanScalar<std::uint8_t>(); }
  /// `length` raw bytes, for which `destination` has room.
  void scanBytes(void* destination, std::uint32_t length);
  std::uint16_t scanUInt16() { return scanScalar<std::uint16_t>(); }
  std::int16_t scanSInt16() { return scanScalar<std::int16_t>(); }
  std::uint32_t scanUInt32() { return scanScalar<std::uint32_t>(); }
  std::int32_t scanSInt32() { return scanScalar<std::int32_t>(); }
  /// Has no bounds test: what lies beyond the buffer reads as zero (docs/oddities.md).
  std::uint64_t scanUInt64();
  std::int64_t scanSInt64() { return scanScalar<std::int64_t>(); }
  void scanUInt128(XTUInt128& value);
  /// A counted array of 16 bytes, never reversed. Another count gives zeros and is traced, 16 bytes
  /// that are not all there give zeros; the position moves by the count in every case, at most to
  /// 2^32 - 1.
  void scanUInt128FromUInt8Array(XTUInt128& value);
  /// The same as canonical text in upper case. 16 zero bytes give a text of zeros.
  std::optional<std::string> scanGUID();
  /// A PTP string as UTF-8; unpaired surrogates become U+FFFD. It may hold zero characters: only
  /// the last zero unit ends it.
  std::string scanString();

  /// Arrays are a UINT32 count and the elements (ISO 15740, "Arrays"). An empty one is no failure.
  std::vector<std::uint8_t> scanByteArray() { return scanArray<std::uint8_t>(); }
  std::vector<std::uint16_t> scanUInt16Array() { return scanArray<std::uint16_t>(); }
  std::vector<std::int16_t> scanSInt16Array() { return scanArray<std::int16_t>(); }
  std::vector<std::uint32_t> scanUInt32Array() { return scanArray<std::uint32_t>(); }
  std::vector<std::int32_t> scanSInt32Array() { return scanArray<std::int32_t>(); }
  std::vector<std::uint64_t> scanUInt64Array() { return scanArray<std::uint64_t>(); }
  std::vector<std::int64_t> scanSInt64Array() { return scanArray<std::int64_t>(); }

  /// The value of a PTP datatype code as a JSON number, array or string. A code without a reader
  /// (INT64 and the 128-bit ones included) is a failed assertion, "Unexpected datatype %d".
  PropertyDictionary scan(std::uint16_t dataCode);

  /// Bytes of one element: 8 for the 128-bit codes (docs/oddities.md); 0 for arrays, strings and
  /// unknown codes.
  static std::uint32_t sizeForDataCode(std::uint16_t dataCode);

 protected:
  /// What traces call the object's class.
  virtual const char* className() const { return "XTPTPDataSet"; }

  bool isHostOrder() const { return byteOrder_ == kPTPByteOrder; }
  /// `value` with its bytes the other way round.
  template <typename T>
  static T reversed(T value);
  /// `value` between the host's byte order and the data set's.
  template <typename T>
  T ordered(T value) const {
    return isHostOrder() ? value : reversed(value);
  }

  std::uint32_t position_ = 0;
  std::int32_t byteOrder_ = 0;
  std::byte* buffer_ = nullptr;  // written to by a writer alone, which owns it
  /// The reader's length, or the writer's capacity; 0 when buffer_ is null.
  std::uint32_t bufferSize_ = 0;
  bool freeBufferWhenDone_ = false;

 private:
  template <typename T>
  T scanScalar();
  template <typename T>
  std::vector<T> scanArray();
  [[noreturn]] void raiseOutOfBounds(std::uint32_t location, std::uint64_t length) const;
  void swap(XTPTPDataSet& other) noexcept;

  /// Keeps borrowed bytes alive, where the caller asked for it.
  std::shared_ptr<const void> owner_;
};

template <typename T>
T XTPTPDataSet::reversed(T value) {
  auto bits = static_cast<std::make_unsigned_t<T>>(value);
  if constexpr (sizeof(T) == 2) bits = __builtin_bswap16(bits);
  if constexpr (sizeof(T) == 4) bits = __builtin_bswap32(bits);
  if constexpr (sizeof(T) == 8) bits = __builtin_bswap64(bits);
  return static_cast<T>(bits);
}

template <typename T>
T XTPTPDataSet::scanScalar() {
  T value;
  getBytes(&value, position_, sizeof value);
  position_ += sizeof value;
  return ordered(value);
}

}  // namespace tarvo
