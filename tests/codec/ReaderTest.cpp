#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/XTPTPDataSet.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using test::raised;
using ::testing::IsEmpty;

using Bytes = std::vector<std::byte>;

XTPTPDataSet reader(const Bytes& bytes, std::int32_t byteOrder = kPTPByteOrder) {
  return XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, byteOrder);
}

/// A value in both byte orders, and what the generic reader makes of it.
struct ScanRow {
  std::uint16_t code;
  const char* little;
  const char* big;
  PropertyDictionary value;
};

const std::vector<ScanRow>& scanRows() {
  static const std::vector<ScanRow> rows = {
      {kPTPInt8, "81", "81", -127},
      {kPTPUInt8, "82", "82", 130},
      {kPTPInt16, "0380", "8003", -32765},
      {kPTPUInt16, "0480", "8004", 32772},
      {kPTPInt32, "05000080", "80000005", -2147483643},
      {kPTPUInt32, "06000080", "80000006", 2147483654},
      {kPTPUInt64, "0800000000000080", "8000000000000008", 9223372036854775816U},
      {kPTPArrayOfUInt8, "03000000 818283", "00000003 818283", {129, 130, 131}},
      {kPTPArrayOfInt16, "02000000 0180 0200", "00000002 8001 0002", {-32767, 2}},
      {kPTPArrayOfUInt16, "02000000 0380 0400", "00000002 8003 0004", {32771, 4}},
      {kPTPArrayOfInt32, "01000000 05000080", "00000001 80000005", {-2147483643}},
      {kPTPArrayOfUInt32, "01000000 06000080", "00000001 80000006", {2147483654}},
      {kPTPArrayOfInt64,
       "01000000 0700000000000080",
       "00000001 8000000000000007",
       {-9223372036854775801}},
      {kPTPArrayOfUInt64,
       "01000000 0800000000000080",
       "00000001 8000000000000008",
       {9223372036854775816U}},
      {kPTPString, "03 6100 ac20 0000", "03 0061 20ac 0000", "a\u20ac"},
  };
  return rows;
}

/// True when the whole of `wire`, and nothing less, reads as the row's value.
bool readsAs(const ScanRow& row, const char* wire, std::int32_t byteOrder) {
  const Bytes bytes = hexBytes(wire);
  XTPTPDataSet set = reader(bytes, byteOrder);
  PropertyDictionary value;
  const std::string exception = raised([&] { value = set.scan(row.code); });
  return exception.empty() && value == row.value && set.position() == bytes.size();
}

TEST(Reader, ReadsEveryDatatypeFromItsOwnBytesAlone) {
  for (const auto& row : scanRows()) {
    for (const auto& other : scanRows()) {
      EXPECT_EQ(readsAs(row, other.little, 1), &row == &other) << row.code << ' ' << other.code;
      EXPECT_EQ(readsAs(row, other.big, 0), &row == &other) << row.code << ' ' << other.code;
    }
    const bool hasNoOrder = row.code == kPTPInt8 || row.code == kPTPUInt8;
    EXPECT_EQ(readsAs(row, row.little, 0), hasNoOrder) << row.code;
    EXPECT_EQ(readsAs(row, row.big, 1), hasNoOrder) << row.code;
  }
}

TEST(Reader, GivesSignedByteArraysUnsigned) {
  const Bytes bytes = hexBytes("02000000 ff01");
  EXPECT_EQ(reader(bytes).scan(kPTPArrayOfInt8), PropertyDictionary({255, 1}));
}

TEST(Reader, RefusesEveryDatatypeWithoutAReader) {
  const Bytes bytes(64);
  for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
    const bool known = code == kPTPArrayOfInt8 ||
                       std::ranges::any_of(scanRows(), [&](auto& row) { return row.code == code; });
    if (known) continue;
    XTPTPDataSet set = reader(bytes);
    ASSERT_EQ(raised([&] { set.scan(static_cast<std::uint16_t>(code)); }),
              "NSInternalInconsistencyException: Unexpected datatype " + std::to_string(code));
    ASSERT_EQ(set.position(), 0U);
  }
}

TEST(Reader, KnowsElementSizesOfScalarsOnly) {
  const std::vector<std::uint32_t> sizes = {0, 1, 1, 2, 2, 4, 4, 8, 8, 8, 8};
  for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
    const std::uint32_t expected = code < sizes.size() ? sizes[code] : 0;
    ASSERT_EQ(XTPTPDataSet::sizeForDataCode(static_cast<std::uint16_t>(code)), expected) << code;
  }
}

TEST(Reader, AnyByteOrderButOneReverses) {
  const Bytes bytes = hexBytes("0102");
  EXPECT_EQ(reader(bytes, 1).scanUInt16(), 0x0201);
  for (const std::int32_t order : {0, 2, -1, 256})
    EXPECT_EQ(reader(bytes, order).scanUInt16(), 0x0102) << order;
}

struct StringRow {
  const char* wire;
  std::string text;
  std::uint32_t consumed;
};

TEST(Reader, EndsAStringAtItsLastZero) {
  using namespace std::string_literals;
  const std::vector<StringRow> rows = {
      {"00 6100", "", 1},                                 // no units, the rest is not looked at
      {"01 0000", "", 3},                                 // a terminator alone
      {"01 6100", "a", 3},                                // no terminator at all
      {"03 6100 6200 0000 6300", "ab", 7},                // the usual form
      {"04 6100 0000 6200 0000", "a\0b"s, 9},             // an early zero stays inside
      {"04 6100 0000 6200 6300", "a", 9},                 // cut at a zero in the middle
      {"03 0000 0000 6100", "\0"s, 7},                    // the last of several zeros counts
      {"04 3dd8 00de 3dd8 0000", "\U0001F600\uFFFD", 9},  // a pair, then half of one
      {"03 00de 3dd8 0000", "\uFFFD\uFFFD", 7},           // a pair the wrong way round
  };
  for (const auto& row : rows) {
    const Bytes bytes = hexBytes(row.wire);
    XTPTPDataSet set = reader(bytes);
    EXPECT_EQ(set.scanString(), row.text) << row.wire;
    EXPECT_EQ(set.position(), row.consumed) << row.wire;
  }
}

constexpr const char* kSixteen = "000102030405060708090a0b0c0d0e0f";
constexpr const char* kZeros = "00000000000000000000000000000000";

TEST(Reader, ReadsA128BitValueFromSixteenBytesAndElseZero) {
  const std::string wrongLength =
      "Error in PTP data set - UInt128 stored as UInt8Array but has incorrect length of ";
  const std::string sixteen = std::string("10000000") + kSixteen;
  const std::string seventeen = std::string("11000000") + kSixteen + "10";
  const std::vector<std::tuple<std::string, std::string, std::uint32_t, std::string>> rows = {
      {sixteen, kSixteen, 20, ""},
      {sixteen + "ff", kSixteen, 20, ""},
      {"00000000 ff", kZeros, 4, ""},
      {"08000000 0102030405060708 ff", kZeros, 12, wrongLength + "8"},
      {seventeen, kZeros, 21, wrongLength + "17"},
      {"10000000 ff", kZeros, 20, ""},  // runs past the end
      {"20000000 ff", kZeros, 36, wrongLength + "32"},
      {"ffffffff ff", kZeros, 0xFFFFFFFF, wrongLength + "-1"},  // does not wrap
  };
  test::TraceRecorder traces;
  for (const auto& [wire, value, position, trace] : rows) {
    const Bytes bytes = hexBytes(wire);
    XTPTPDataSet set = reader(bytes);
    XTUInt128 read;
    read.fill(0xEE);
    set.scanUInt128FromUInt8Array(read);
    EXPECT_EQ(hexText(std::as_bytes(std::span(read))), value) << wire;
    EXPECT_EQ(set.position(), position) << wire;
    EXPECT_EQ(traces.take(), trace.empty() ? std::vector<std::string>{} : std::vector{trace})
        << wire;
    if (position > bytes.size()) {
      EXPECT_THAT(raised([&] { set.scanByte(); }), ::testing::StartsWith("NSRangeException"));
      traces.take();
    }
  }
}

TEST(Reader, ReversesWhole128BitValuesButNeverThoseInArrays) {
  const Bytes plain = hexBytes(kSixteen);
  XTUInt128 value;
  reader(plain, 1).scanUInt128(value);
  EXPECT_EQ(XTUInt128AsHexString(value), kSixteen);
  reader(plain, 0).scanUInt128(value);
  EXPECT_EQ(XTUInt128AsHexString(value), "0f0e0d0c0b0a09080706050403020100");
  const Bytes array = hexBytes(std::string("00000010") + kSixteen);
  reader(array, 0).scanUInt128FromUInt8Array(value);
  EXPECT_EQ(XTUInt128AsHexString(value), kSixteen);
}

TEST(Reader, ShowsGUIDsInUpperCaseGroups) {
  const Bytes some = hexBytes(std::string("10000000") + "a0b1c2d3e4f5061728394a5b6c7d8e9f");
  EXPECT_EQ(reader(some).scanGUID(), "A0B1C2D3-E4F5-0617-2839-4A5B6C7D8E9F");
  for (const char* wire : {"00000000", "0300000001020304"}) {
    const Bytes none = hexBytes(wire);
    EXPECT_EQ(reader(none).scanGUID(), "00000000-0000-0000-0000-000000000000") << wire;
  }
}

TEST(Reader, SkipAndScanUInt64HaveNoBoundsTest) {
  const Bytes bytes = hexBytes("0102030405");
  XTPTPDataSet set = reader(bytes);
  EXPECT_EQ(set.scanUInt64(), 0x0504030201U);  // the missing bytes are zero
  EXPECT_EQ(set.position(), 8U);
  EXPECT_EQ(set.scanUInt64(), 0U);
  set.setPosition(3);
  set.setByteOrder(0);
  EXPECT_EQ(set.scanUInt64(), 0x0405000000000000U);
  set.skip(0xFFFFFFFF - 2);
  EXPECT_EQ(set.position(), 8U);  // 11 - 3, modulo 2^32
  set.setPosition(0xFFFFFFFC);
  EXPECT_EQ(set.scanUInt64(), 0U);
  EXPECT_EQ(set.position(), 4U);
}

TEST(Reader, OwnsOrBorrowsItsBytes) {
  const Bytes bytes = hexBytes("01020304");
  XTPTPDataSet copied = XTPTPDataSet::initWithData(bytes);
  EXPECT_NE(copied.buffer(), bytes.data());
  EXPECT_TRUE(copied.freeBufferWhenDone());
  EXPECT_EQ(copied.byteOrder(), 0);
  EXPECT_EQ(copied.scanUInt32(), 0x01020304U);

  const XTPTPDataSet borrowed = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes.data(), 1, 3, false);
  EXPECT_EQ(borrowed.buffer(), bytes.data());
  EXPECT_EQ(borrowed.length(), 3U);
  EXPECT_FALSE(borrowed.freeBufferWhenDone());

  void* given = std::malloc(2);
  std::memset(given, 0x55, 2);
  XTPTPDataSet owning = XTPTPDataSet::ptpDataSetWithBytesNoCpy(given, 1, 2, true);
  XTPTPDataSet moved = std::move(owning);
  EXPECT_EQ(moved.scanUInt16(), 0x5555);

  auto record = std::make_shared<Bytes>(bytes);
  const std::weak_ptr<Bytes> watched = record;
  {
    const std::span<const std::byte> area(record->data() + 1, 3);
    XTPTPDataSet set = XTPTPDataSet::ptpDataSetWithBytesNoCpy(area, 1, std::move(record));
    EXPECT_FALSE(watched.expired());
    EXPECT_EQ(set.scanByte(), 2);
  }
  EXPECT_TRUE(watched.expired());
}

TEST(Reader, GivesTheBytesBeforeThePosition) {
  const Bytes bytes = hexBytes("01020304");
  XTPTPDataSet set = reader(bytes);
  EXPECT_THAT(set.data(), IsEmpty());
  set.skip(3);
  EXPECT_EQ(hexText(set.data()), "010203");
  set.skip(100);
  EXPECT_EQ(hexText(set.data()), "01020304");
  EXPECT_EQ(hexText(set.bytes()), "01020304");
  EXPECT_EQ(set.description(), "XTPTPDataSet of 4 bytes with position at 103");
}

TEST(Reader, IsEmptyWithoutBytes) {
  const Bytes bytes = hexBytes("00");
  XTPTPDataSet none;
  EXPECT_TRUE(none.isEmpty());
  EXPECT_EQ(none.byteOrder(), 0);
  EXPECT_EQ(none.scanUInt64(), 0U);
  EXPECT_THAT(none.data(), IsEmpty());
  EXPECT_TRUE(XTPTPDataSet::ptpDataSetWithBytesNoCpy(nullptr, 1, 10, false).isEmpty());
  EXPECT_TRUE(XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes.data(), 1, 0, false).isEmpty());
  EXPECT_TRUE(XTPTPDataSet::initWithData({}).isEmpty());
  EXPECT_FALSE(reader(bytes).isEmpty());
}

}  // namespace
}  // namespace tarvo
