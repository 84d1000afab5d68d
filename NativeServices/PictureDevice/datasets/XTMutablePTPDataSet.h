// The writer of PTP data sets: a buffer of its own to which PTP-encoded values are appended.
//
//   auto set = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder, 0);
//   set.storeUInt16(0x3801);
//   set.storeString("ab");               // 03 61 00 62 00 00 00
//   set.adjustToAvoidModulo64PayloadSize();
//   send(set.bytes());
//
// The position is the number of bytes written. The buffer grows by what is needed and no more, so
// a caller that knows the size preallocates it. Growing raises NSMallocException when there is no
// memory, or when the data set would pass 4 GiB - 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"

namespace tarvo {

/// True when a data container with this payload would be a multiple of 64 bytes long, its header of
/// 12 bytes included. No container that the host sends may be; a byte of padding avoids it.
constexpr bool isModulo64PayloadSize(std::uint64_t payloadSize) {
  return (payloadSize + 12) % 64 == 0;
}

/// The same bytes, with one zero byte more where their number is a modulo-64 payload size (which is
/// traced). Give the buffer away (std::move) to have it back without a copy.
std::vector<std::byte> dataAdjustedToAvoidModulo64PayloadSize(std::vector<std::byte> objectData);

/// Owns its buffer always. It can be read back with the scanners from position 0 on, but the
/// position is then the place of the next write as well.
class XTMutablePTPDataSet : public XTPTPDataSet {
 public:
  /// Empty, byte order 0.
  XTMutablePTPDataSet() = default;
  XTMutablePTPDataSet(XTMutablePTPDataSet&&) noexcept = default;
  XTMutablePTPDataSet& operator=(XTMutablePTPDataSet&&) noexcept = default;
  ~XTMutablePTPDataSet() override = default;

  /// Empty, with room for `preallocate` bytes.
  static XTMutablePTPDataSet dataSetWithByteOrder(std::int32_t byteOrder,
                                                  std::uint32_t preallocate = 0);
  static XTMutablePTPDataSet initWithByteOrder(std::int32_t byteOrder,
                                               std::uint32_t preallocate = 0);

  /// The bytes written so far, not the capacity.
  std::uint32_t length() const override { return position_; }

  /// Scalars, in the byte order of the data set.
  void storeByte(std::uint8_t value) { storeScalar(value); }
  void storeUInt16(std::uint16_t value) { storeScalar(value); }
  void storeSInt16(std::int16_t value) { storeScalar(value); }
  void storeUInt32(std::uint32_t value) { storeScalar(value); }
  void storeSInt32(std::int32_t value) { storeScalar(value); }
  void storeUInt64(std::uint64_t value) { storeScalar(value); }
  void storeSInt64(std::int64_t value) { storeScalar(value); }
  /// Appends only the first 4 bytes of the ordered value (docs/oddities.md): 128-bit fields travel
  /// as UInt8 arrays.
  void storeUInt128(XTUInt128 value);
  /// The count 16 and the bytes as they stand.
  void storeUInt128ToUInt8Array(const XTUInt128& value);
  /// The GUID's 16 bytes as a UInt8 array; a text that is no GUID is traced and stored as an empty
  /// array. A missing text is a failed assertion.
  void storeGUID(std::optional<std::string_view> _val);
  /// A PTP string of at most 255 UTF-16 units and a terminator. The count byte of 255 units wraps
  /// to 0 (docs/oddities.md): callers refuse such strings beforehand.
  void storeString(std::string_view text);

  /// A UINT32 count and the elements; an empty array is the count alone.
  void storeByteArray(std::span<const std::uint8_t> values) { storeArray(values); }
  void storeUInt16Array(std::span<const std::uint16_t> values) { storeArray(values); }
  void storeSInt16Array(std::span<const std::int16_t> values) { storeArray(values); }
  void storeUInt32Array(std::span<const std::uint32_t> values) { storeArray(values); }
  void storeSInt32Array(std::span<const std::int32_t> values) { storeArray(values); }

  /// Copies `length` raw bytes to the end.
  void appendBytes(const void* bytes, std::uint32_t length);
  /// Grows the capacity, by zero bytes, by exactly `count`.
  void increaseLengthBy(std::uint32_t count);
  /// Appends one zero byte, and returns true, when the length is a modulo-64 payload size.
  bool adjustToAvoidModulo64PayloadSize();

 protected:
  const char* className() const override { return "XTMutablePTPDataSet"; }

 private:
  template <typename T>
  void storeScalar(T value) {
    const T stored = ordered(value);
    appendBytes(&stored, sizeof stored);
  }
  template <typename T>
  void storeArray(std::span<const T> values);
  /// Room for `count` bytes behind the position. Raises NSMallocException.
  void reserve(std::uint64_t count);
};

}  // namespace tarvo
