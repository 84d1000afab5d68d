#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

constexpr std::uint64_t kLargestSize = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kLongestString = 255;

/// The units of a string and its terminator.
using StringUnits = std::array<std::uint16_t, kLongestString + 1>;

/// Puts the first units of `text` into `units` and returns their number.
std::size_t takeUnits(std::string_view text, StringUnits& units) {
  // Most text is ASCII, which needs neither conversion nor memory.
  const std::string_view beginning = text.substr(0, kLongestString);
  std::ranges::copy(beginning, units.begin());
  const bool isASCII = std::ranges::all_of(
      beginning, [](char each) { return static_cast<unsigned char>(each) < 0x80; });
  if (isASCII) return beginning.size();
  const std::u16string converted = utf16FromUTF8(text);
  const std::size_t count = std::min(converted.size(), kLongestString);
  std::copy_n(converted.begin(), count, units.begin());
  return count;
}

[[noreturn]] void raiseMalloc(const char* reason) {
  throw Exception(std::string(exception_name::kMalloc), reason);
}

}  // namespace

std::vector<std::byte> dataAdjustedToAvoidModulo64PayloadSize(std::vector<std::byte> objectData) {
  if (!isModulo64PayloadSize(objectData.size())) return objectData;
  objectData.push_back(std::byte{0});
  TraceLog::trace("objectData payload size adjusted to %d", static_cast<int>(objectData.size()));
  return objectData;
}

XTMutablePTPDataSet XTMutablePTPDataSet::initWithByteOrder(std::int32_t byteOrder,
                                                           std::uint32_t preallocate) {
  XTMutablePTPDataSet set;
  set.byteOrder_ = byteOrder;
  if (preallocate != 0) set.increaseLengthBy(preallocate);
  return set;
}

XTMutablePTPDataSet XTMutablePTPDataSet::dataSetWithByteOrder(std::int32_t byteOrder,
                                                              std::uint32_t preallocate) {
  return initWithByteOrder(byteOrder, preallocate);
}

void XTMutablePTPDataSet::increaseLengthBy(std::uint32_t count) {
  // One byte at least: a size of 0 would free the buffer.
  // In 64 bits, where the sum cannot wrap.
  const std::uint64_t size = std::uint64_t{bufferSize_} + count;
  const std::size_t allocated = std::max<std::uint64_t>(size, 1);
  if (buffer_ == nullptr) {
    // Cleared, for the same reason as below.
    buffer_ = static_cast<std::byte*>(std::calloc(allocated, 1));
    if (buffer_ == nullptr) raiseMalloc("malloc failed in increaseLengthBy.");
    freeBufferWhenDone_ = true;
  } else {
    void* grown = size > kLargestSize ? nullptr : std::realloc(buffer_, allocated);
    if (grown == nullptr) raiseMalloc("realloc failed in increaseLengthBy.");
    buffer_ = static_cast<std::byte*>(grown);
    // Bytes that are skipped by setPosition() must not show what was in memory.
    std::memset(buffer_ + bufferSize_, 0, count);
  }
  bufferSize_ = static_cast<std::uint32_t>(size);
}

/// Grows by exactly `count` when fewer bytes are free behind the position; by more only where the
/// position was set beyond the buffer.
void XTMutablePTPDataSet::reserve(std::uint64_t count) {
  const std::uint64_t end = position_ + count;
  if (end <= bufferSize_) return;
  // Lengths of data sets are 32 bits everywhere, on the wire too.
  if (end > kLargestSize) raiseMalloc("realloc failed in increaseLengthBy.");
  increaseLengthBy(static_cast<std::uint32_t>(std::max(count, end - bufferSize_)));
}

void XTMutablePTPDataSet::appendBytes(const void* bytes, std::uint32_t length) {
  reserve(length);
  if (length != 0) std::memcpy(buffer_ + position_, bytes, length);
  position_ += length;
}

void XTMutablePTPDataSet::storeUInt128(XTUInt128 value) {
  if (!isHostOrder()) std::reverse(value.begin(), value.end());
  appendBytes(value.data(), 4);
}

void XTMutablePTPDataSet::storeUInt128ToUInt8Array(const XTUInt128& value) {
  storeUInt32(static_cast<std::uint32_t>(value.size()));
  appendBytes(value.data(), static_cast<std::uint32_t>(value.size()));
}

void XTMutablePTPDataSet::storeGUID(std::optional<std::string_view> _val) {
  assertParameter(_val.has_value(), "_val");
  const std::string text(*_val);
  XTUInt128 value;
  // The length test also refuses text that goes on behind a zero character.
  if (text.size() == UUID_STR_LEN - 1 && uuid_parse(text.c_str(), value.data()) == 0) {
    storeUInt128ToUInt8Array(value);
    return;
  }
  TraceLog::traceMethod(className(), "storeGUID:", this);
  TraceLog::trace("storeGUID could not make a guid from %s", text.c_str());
  storeUInt32(0);
}

void XTMutablePTPDataSet::storeString(std::string_view text) {
  if (text.empty()) {
    storeByte(0);
    return;
  }
  StringUnits units;
  const std::size_t count = takeUnits(text, units);
  // All of it first, so that a failure leaves nothing half written.
  reserve(2 * count + 3);
  storeByte(static_cast<std::uint8_t>(count + 1));
  if (!isHostOrder()) {
    for (std::size_t i = 0; i < count; ++i)
      units[i] = reversed(units[i]);
  }
  units[count] = 0;
  appendBytes(units.data(), static_cast<std::uint32_t>(2 * (count + 1)));
}

template <typename T>
void XTMutablePTPDataSet::storeArray(std::span<const T> values) {
  reserve(4 + std::uint64_t{values.size()} * sizeof(T));
  storeUInt32(static_cast<std::uint32_t>(values.size()));
  // As a block where no byte changes its place, which is every array that goes to a device.
  if (sizeof(T) == 1 || isHostOrder()) {
    appendBytes(values.data(), static_cast<std::uint32_t>(values.size_bytes()));
    return;
  }
  std::byte* place = buffer_ + position_;  // the room is there already
  for (const T value : values) {
    const T stored = reversed(value);
    std::memcpy(place, &stored, sizeof stored);
    place += sizeof stored;
  }
  position_ += static_cast<std::uint32_t>(values.size_bytes());
}

template void XTMutablePTPDataSet::storeArray(std::span<const std::uint8_t> values);
template void XTMutablePTPDataSet::storeArray(std::span<const std::uint16_t> values);
template void XTMutablePTPDataSet::storeArray(std::span<const std::int16_t> values);
template void XTMutablePTPDataSet::storeArray(std::span<const std::uint32_t> values);
template void XTMutablePTPDataSet::storeArray(std::span<const std::int32_t> values);

bool XTMutablePTPDataSet::adjustToAvoidModulo64PayloadSize() {
  if (!isModulo64PayloadSize(position_)) return false;
  storeByte(0);
  return true;
}

}  // namespace tarvo
