#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <new>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {

XTPTPDataSet::XTPTPDataSet(XTPTPDataSet&& other) noexcept {
  swap(other);
}

XTPTPDataSet& XTPTPDataSet::operator=(XTPTPDataSet&& other) noexcept {
  XTPTPDataSet taken(std::move(other));
  swap(taken);
  return *this;
}

XTPTPDataSet::~XTPTPDataSet() {
  if (freeBufferWhenDone_) std::free(buffer_);
}

void XTPTPDataSet::swap(XTPTPDataSet& other) noexcept {
  // Field by field: the destructor of what was moved from must find nothing to free.
  std::swap(position_, other.position_);
  std::swap(byteOrder_, other.byteOrder_);
  std::swap(buffer_, other.buffer_);
  std::swap(bufferSize_, other.bufferSize_);
  std::swap(freeBufferWhenDone_, other.freeBufferWhenDone_);
  std::swap(owner_, other.owner_);
}

XTPTPDataSet XTPTPDataSet::initWithBytesNoCpy(const void* bytes, std::int32_t byteOrder,
                                              std::uint32_t length, bool freeWhenDone) {
  XTPTPDataSet set;
  // A reader never writes; the one field serves the writer too.
  set.buffer_ = const_cast<std::byte*>(static_cast<const std::byte*>(bytes));
  set.byteOrder_ = byteOrder;
  // So that the bounds test alone keeps every read away from a null buffer.
  set.bufferSize_ = bytes == nullptr ? 0 : length;
  set.freeBufferWhenDone_ = freeWhenDone;
  return set;
}

XTPTPDataSet XTPTPDataSet::ptpDataSetWithBytesNoCpy(const void* bytes, std::int32_t byteOrder,
                                                    std::uint32_t length, bool freeWhenDone) {
  return initWithBytesNoCpy(bytes, byteOrder, length, freeWhenDone);
}

XTPTPDataSet XTPTPDataSet::ptpDataSetWithBytesNoCpy(std::span<const std::byte> bytes,
                                                    std::int32_t byteOrder,
                                                    std::shared_ptr<const void> owner) {
  constexpr std::size_t kLargest = std::numeric_limits<std::uint32_t>::max();
  // Positions are 32 bits; what lies behind cannot be read and is left out.
  const auto length = static_cast<std::uint32_t>(std::min(bytes.size(), kLargest));
  XTPTPDataSet set = initWithBytesNoCpy(bytes.data(), byteOrder, length, false);
  set.owner_ = std::move(owner);
  return set;
}

XTPTPDataSet XTPTPDataSet::initWithData(std::span<const std::byte> data) {
  constexpr std::size_t kLargest = std::numeric_limits<std::uint32_t>::max();
  void* copy =
      // malloc, because a writer grows its buffer with realloc and both are freed alike.
      data.size() > kLargest ? nullptr : std::malloc(std::max<std::size_t>(data.size(), 1));
  if (copy == nullptr) {
    // The reason names another operation: intended, see docs/oddities.md.
    throw Exception(std::string(exception_name::kMalloc), "malloc failed in increaseLengthBy.");
  }
  if (!data.empty()) std::memcpy(copy, data.data(), data.size());
  return initWithBytesNoCpy(copy, 0, static_cast<std::uint32_t>(data.size()), true);
}

std::vector<std::byte> XTPTPDataSet::data() const {
  return {buffer_, buffer_ + std::min(position_, bufferSize_)};
}

std::span<const std::byte> XTPTPDataSet::bytes() const {
  return {buffer_, std::min(length(), bufferSize_)};
}

std::string XTPTPDataSet::description() const {
  return formatted("XTPTPDataSet of %d bytes with position at %d", static_cast<int>(bufferSize_),
                   static_cast<int>(position_));
}

void XTPTPDataSet::raiseOutOfBounds(std::uint32_t location, std::uint64_t length) const {
  TraceLog::traceMethod(className(), "getBytes:range:", this);
  std::string reason = formatted(
      "out of bounds error: location=%d, length=%lld extends beyond buffer size = %d",
      static_cast<int>(location), static_cast<long long>(length), static_cast<int>(bufferSize_));
  TraceLog::trace("%s", reason.c_str());
  throw Exception(std::string(exception_name::kRange), std::move(reason));
}

void XTPTPDataSet::scanBytes(void* destination, std::uint32_t length) {
  getBytes(destination, position_, length);
  // Not before the copy: after an exception the position is that of the field which is missing.
  position_ += length;
}

std::uint64_t XTPTPDataSet::scanUInt64() {
  std::uint64_t value = 0;
  if (position_ < bufferSize_) {
    // No bounds test does not mean no bounds.
    const std::size_t there = std::min<std::size_t>(sizeof value, bufferSize_ - position_);
    std::memcpy(&value, buffer_ + position_, there);
  }
  position_ += sizeof value;
  return ordered(value);
}

void XTPTPDataSet::scanUInt128(XTUInt128& value) {
  scanBytes(value.data(), value.size());
  if (!isHostOrder()) std::reverse(value.begin(), value.end());
}

void XTPTPDataSet::scanUInt128FromUInt8Array(XTUInt128& value) {
  value.fill(0);
  const std::uint32_t count = scanUInt32();
  const std::uint32_t left = bufferSize_ - position_;  // the count was read, so this cannot wrap
  if (count == value.size() && count <= left) {
    getBytes(value.data(), position_, count);
  } else if (count != 0 && count != value.size()) {
    TraceLog::trace(
        "Error in PTP data set - UInt128 stored as UInt8Array but has incorrect length of %d",
        static_cast<int>(count));
  }
  position_ += std::min(count, std::numeric_limits<std::uint32_t>::max() - position_);
}

std::optional<std::string> XTPTPDataSet::scanGUID() {
  XTUInt128 value;
  scanUInt128FromUInt8Array(value);
  std::array<char, UUID_STR_LEN> text;
  uuid_unparse_upper(value.data(), text.data());
  return std::string(text.data());
}

std::string XTPTPDataSet::scanString() {
  const std::size_t count = scanByte();
  // The count is one byte, so the longest string fits without an allocation.
  std::array<char16_t, 256> units;
  scanBytes(units.data(), static_cast<std::uint32_t>(2 * count));
  // The last zero ends the string, and is its last unit nearly always.
  std::size_t length = count;
  while (length > 0 && units[length - 1] != 0)
    --length;
  length = length > 0 ? length - 1 : count;
  if (!isHostOrder()) {
    for (std::size_t i = 0; i < length; ++i)
      units[i] = static_cast<char16_t>(reversed(static_cast<std::uint16_t>(units[i])));
  }
  return utf8FromUTF16({units.data(), length});
}

template <typename T>
std::vector<T> XTPTPDataSet::scanArray() {
  const std::uint64_t count = scanUInt32();
  const std::uint64_t size = count * sizeof(T);
  // Before the vector is made: a count of 0xFFFFFFFF must not cost 32 GiB.
  requireBytes(size);
  std::vector<T> values(count);
  scanBytes(values.data(), static_cast<std::uint32_t>(size));
  if (sizeof(T) > 1 && !isHostOrder()) {
    for (T& value : values)
      value = reversed(value);
  }
  return values;
}

template std::vector<std::uint8_t> XTPTPDataSet::scanArray();
template std::vector<std::uint16_t> XTPTPDataSet::scanArray();
template std::vector<std::int16_t> XTPTPDataSet::scanArray();
template std::vector<std::uint32_t> XTPTPDataSet::scanArray();
template std::vector<std::int32_t> XTPTPDataSet::scanArray();
template std::vector<std::uint64_t> XTPTPDataSet::scanArray();
template std::vector<std::int64_t> XTPTPDataSet::scanArray();

PropertyDictionary XTPTPDataSet::scan(std::uint16_t dataCode) {
  switch (dataCode) {
    case kPTPInt8:
      return static_cast<std::int8_t>(scanByte());
    case kPTPUInt8:
      return scanByte();
    case kPTPInt16:
      return scanSInt16();
    case kPTPUInt16:
      return scanUInt16();
    case kPTPInt32:
      return scanSInt32();
    case kPTPUInt32:
      return scanUInt32();
    case kPTPUInt64:
      return scanUInt64();
    case kPTPArrayOfInt8:  // elements come out unsigned, see docs/oddities.md
    case kPTPArrayOfUInt8:
      return scanByteArray();
    case kPTPArrayOfInt16:
      return scanSInt16Array();
    case kPTPArrayOfUInt16:
      return scanUInt16Array();
    case kPTPArrayOfInt32:
      return scanSInt32Array();
    case kPTPArrayOfUInt32:
      return scanUInt32Array();
    case kPTPArrayOfInt64:
      return scanSInt64Array();
    case kPTPArrayOfUInt64:
      return scanUInt64Array();
    case kPTPString:
      return scanString();
    default:
      raiseAssertion(formatted("Unexpected datatype %d", dataCode));
  }
}

std::uint32_t XTPTPDataSet::sizeForDataCode(std::uint16_t dataCode) {
  switch (dataCode) {
    case kPTPInt8:
    case kPTPUInt8:
      return 1;
    case kPTPInt16:
    case kPTPUInt16:
      return 2;
    case kPTPInt32:
    case kPTPUInt32:
      return 4;
    case kPTPInt64:
    case kPTPUInt64:
    case kPTPInt128:  // 8 for 128 bits, see docs/oddities.md
    case kPTPUInt128:
      return 8;
    default:
      return 0;
  }
}

namespace {

/// The value of a hexadecimal digit, or -1. The locale, which isxdigit() asks, has no say in it.
int digitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

std::string XTUInt128AsHexString(const XTUInt128& value) {
  if (std::ranges::all_of(value, [](std::uint8_t byte) { return byte == 0; })) return {};
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * value.size());
  for (const std::uint8_t byte : value) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

bool XTHexStringAsUInt128(std::optional<std::string_view> hexString, XTUInt128* digest) {
  assertParameter(hexString.has_value(), "hexString");
  assertParameter(digest != nullptr, "digest");
  if (hexString->size() != 2 * digest->size()) return false;
  for (std::size_t i = 0; i < digest->size(); ++i) {
    const int high = digitValue((*hexString)[2 * i]);
    const int low = digitValue((*hexString)[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    (*digest)[i] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return true;
}

}  // namespace tarvo
