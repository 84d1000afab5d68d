#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using test::raised;
using ::testing::ElementsAre;
using ::testing::StartsWith;

using Bytes = std::vector<std::byte>;

XTPTPDataSet reader(const Bytes& bytes, std::int32_t byteOrder = kPTPByteOrder) {
  return XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, byteOrder);
}

/// A value in both byte orders, what the generic reader makes of it (as JSON), and what writes it.
struct FormRow {
  std::uint16_t code;
  const char* little;
  const char* big;
  const char* value;
  std::function<void(XTMutablePTPDataSet&)> store;
};

const std::vector<std::uint8_t> kBytes = {129, 130, 131};
const std::vector<std::int16_t> kS16 = {-32767, 2};
const std::vector<std::uint16_t> kU16 = {32771, 4};
const std::vector<std::int32_t> kS32 = {-2147483643};
const std::vector<std::uint32_t> kU32 = {2147483654};

const std::vector<FormRow>& formRows() {
  static const std::vector<FormRow> rows = {
      {kPTPInt8, "81", "81", "-127", nullptr},
      {kPTPUInt8, "82", "82", "130", [](auto& s) { s.storeByte(130); }},
      {kPTPInt16, "0380", "8003", "-32765", [](auto& s) { s.storeSInt16(-32765); }},
      {kPTPUInt16, "0480", "8004", "32772", [](auto& s) { s.storeUInt16(32772); }},
      {kPTPInt32, "05000080", "80000005", "-2147483643", [](auto& s) { s.storeSInt32(kS32[0]); }},
      {kPTPUInt32, "06000080", "80000006", "2147483654", [](auto& s) { s.storeUInt32(kU32[0]); }},
      {kPTPUInt64, "0800000000000080", "8000000000000008", "9223372036854775816",
       [](auto& s) { s.storeUInt64(9223372036854775816U); }},
      {kPTPArrayOfInt8, "02000000ff01", "00000002ff01", "[255, 1]", nullptr},  // unsigned, intended
      {kPTPArrayOfUInt8, "03000000818283", "00000003818283", "[129, 130, 131]",
       [](auto& s) { s.storeByteArray(kBytes); }},
      {kPTPArrayOfInt16, "0200000001800200", "0000000280010002", "[-32767, 2]",
       [](auto& s) { s.storeSInt16Array(kS16); }},
      {kPTPArrayOfUInt16, "0200000003800400", "0000000280030004", "[32771, 4]",
       [](auto& s) { s.storeUInt16Array(kU16); }},
      {kPTPArrayOfInt32, "0100000005000080", "0000000180000005", "[-2147483643]",
       [](auto& s) { s.storeSInt32Array(kS32); }},
      {kPTPArrayOfUInt32, "0100000006000080", "0000000180000006", "[2147483654]",
       [](auto& s) { s.storeUInt32Array(kU32); }},
      {kPTPArrayOfInt64, "010000000700000000000080", "000000018000000000000007",
       "[-9223372036854775801]", nullptr},
      {kPTPArrayOfUInt64, "010000000800000000000080", "000000018000000000000008",
       "[9223372036854775816]", nullptr},
      {kPTPString, "036100ac200000", "03006120ac0000", "\"a\u20ac\"",
       [](auto& s) { s.storeString("a\u20ac"); }},
  };
  return rows;
}

/// True when the whole of `wire`, and nothing less, reads as the row's value.
bool readsAs(const FormRow& row, const char* wire, std::int32_t byteOrder) {
  const Bytes bytes = hexBytes(wire);
  XTPTPDataSet set = reader(bytes, byteOrder);
  PropertyDictionary value;
  const std::string exception = raised([&] { value = set.scan(row.code); });
  return exception.empty() && value == PropertyDictionary::parse(row.value) &&
         set.position() == bytes.size();
}

TEST(Reader, ReadsEveryDatatypeFromItsOwnBytesAlone) {
  for (const auto& row : formRows()) {
    for (const auto& other : formRows()) {
      EXPECT_EQ(readsAs(row, other.little, 1), &row == &other) << row.code << ' ' << other.code;
      EXPECT_EQ(readsAs(row, other.big, 0), &row == &other) << row.code << ' ' << other.code;
    }
    const bool hasNoOrder = row.code == kPTPInt8 || row.code == kPTPUInt8;
    EXPECT_EQ(readsAs(row, row.little, 0), hasNoOrder) << row.code;
    EXPECT_TRUE(readsAs(row, row.big, 2)) << row.code;  // any order but 1 is big-endian
  }
}

TEST(Writer, StoresEveryDatatypeExactlyAndBehindTheOneBefore) {
  for (const std::int32_t order : {1, 0, 2}) {
    auto set = XTMutablePTPDataSet::dataSetWithByteOrder(order);
    std::string expected;
    for (const auto& row : formRows()) {
      if (!row.store) continue;
      row.store(set);
      expected += order == 1 ? row.little : row.big;
      EXPECT_EQ(hexText(set.bytes()), expected) << row.code;
    }
    EXPECT_EQ(hexText(set.data()), expected);
  }
}

TEST(Reader, RefusesEveryDatatypeWithoutAReaderAndKnowsTheSizesOfScalars) {
  const Bytes bytes(64);
  const std::vector<std::uint32_t> sizes = {0, 1, 1, 2, 2, 4, 4, 8, 8, 8, 8};
  for (std::uint32_t each = 0; each <= 0xFFFF; ++each) {
    const auto code = static_cast<std::uint16_t>(each);
    ASSERT_EQ(XTPTPDataSet::sizeForDataCode(code), code < sizes.size() ? sizes[code] : 0) << code;
    if (std::ranges::any_of(formRows(), [&](auto& row) { return row.code == code; })) continue;
    ASSERT_EQ(raised([&] { reader(bytes).scan(code); }),
              "NSInternalInconsistencyException: Unexpected datatype " + std::to_string(code));
  }
}

TEST(Reader, EndsAStringAtItsLastZero) {
  using namespace std::string_literals;
  const std::vector<std::tuple<const char*, std::string, std::uint32_t>> rows = {
      {"00 6100", "", 1},                                 // no units, the rest is not looked at
      {"01 6100", "a", 3},                                // no terminator at all
      {"03 6100 6200 0000 6300", "ab", 7},                // the usual form
      {"04 6100 0000 6200 0000", "a\0b"s, 9},             // an early zero stays inside
      {"04 6100 0000 6200 6300", "a", 9},                 // cut at a zero in the middle
      {"03 0000 0000 6100", "\0"s, 7},                    // the last of several zeros counts
      {"04 3dd8 00de 3dd8 0000", "\U0001F600\uFFFD", 9},  // a pair, then half of one
      {"03 00de 3dd8 0000", "\uFFFD\uFFFD", 7},           // a pair the wrong way round
  };
  for (const auto& [wire, text, consumed] : rows) {
    const Bytes bytes = hexBytes(wire);
    XTPTPDataSet set = reader(bytes);
    EXPECT_EQ(set.scanString(), text) << wire;
    EXPECT_EQ(set.position(), consumed) << wire;
  }
}

constexpr const char* kSixteen = "000102030405060708090a0b0c0d0e0f";
TEST(Reader, ReadsA128BitValueFromSixteenBytesAndElseZero) {
  const std::string sixteen = kSixteen;
  // The position behind it, and which wrong length is traced.
  const std::tuple<std::string, bool, std::uint32_t, std::string> rows[] = {
      {"10000000" + sixteen, true, 20, ""},
      {"00000000 ff", false, 4, ""},
      {"08000000 0102030405060708 ff", false, 12, "8"},
      {"11000000" + sixteen + "10", false, 21, "17"},
      {"10000000 ff", false, 20, ""},            // runs past the end
      {"ffffffff ff", false, 0xFFFFFFFF, "-1"},  // does not wrap
  };
  test::TraceRecorder traces;
  for (const auto& [wire, isRead, position, wrong] : rows) {
    const Bytes bytes = hexBytes(wire);
    XTPTPDataSet set = reader(bytes);
    XTUInt128 read;
    read.fill(0xEE);
    set.scanUInt128FromUInt8Array(read);
    EXPECT_EQ(XTUInt128AsHexString(read), isRead ? sixteen : "") << wire;
    EXPECT_EQ(set.position(), position) << wire;
    const auto lines = traces.take();
    EXPECT_EQ(lines.empty(), wrong.empty());
    EXPECT_TRUE(wrong.empty() || lines.back() ==
                                     "Error in PTP data set - UInt128 stored as "
                                     "UInt8Array but has incorrect length of " +
                                         wrong);
  }
}

TEST(Reader, ReversesWhole128BitValuesButNeverThoseInArrays) {
  XTUInt128 value;
  reader(hexBytes(kSixteen), 0).scanUInt128(value);
  EXPECT_EQ(XTUInt128AsHexString(value), "0f0e0d0c0b0a09080706050403020100");
  reader(hexBytes(std::string("00000010") + kSixteen), 0).scanUInt128FromUInt8Array(value);
  EXPECT_EQ(XTUInt128AsHexString(value), kSixteen);
}

TEST(Reader, ShowsGUIDsInUpperCaseGroups) {
  EXPECT_EQ(reader(hexBytes("10000000 a0b1c2d3e4f5061728394a5b6c7d8e9f")).scanGUID(),
            "A0B1C2D3-E4F5-0617-2839-4A5B6C7D8E9F");
  for (const char* wire : {"00000000", "0300000001020304"})
    EXPECT_EQ(reader(hexBytes(wire)).scanGUID(), "00000000-0000-0000-0000-000000000000") << wire;
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
}

TEST(Reader, OwnsOrBorrowsItsBytes) {
  const Bytes bytes = hexBytes("01020304");
  XTPTPDataSet copied = XTPTPDataSet::initWithData(bytes);
  EXPECT_NE(copied.buffer(), bytes.data());
  EXPECT_EQ(copied.scanUInt32(), 0x01020304U);
  EXPECT_EQ(reader(bytes).buffer(), bytes.data());

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
  for (const char* before : {"", "010203", "01020304"}) {
    EXPECT_EQ(hexText(set.data()), before);
    set.skip(3);
  }
  EXPECT_TRUE(XTPTPDataSet::ptpDataSetWithBytesNoCpy(nullptr, 1, 10, false).isEmpty());
}

constexpr const char* kGUID = "A0B1C2D3-E4F5-0617-2839-4A5B6C7D8E9F";
constexpr const char* kGUIDDigits = "a0b1c2d3e4f5061728394a5b6c7d8e9f";

XTMutablePTPDataSet writer(std::int32_t byteOrder = kPTPByteOrder) {
  return XTMutablePTPDataSet::dataSetWithByteOrder(byteOrder);
}

TEST(Writer, Stores128BitValuesAndGUIDs) {
  XTUInt128 value = {};
  ASSERT_TRUE(XTHexStringAsUInt128(kSixteen, &value));
  XTMutablePTPDataSet set = writer(0);
  set.storeUInt128(value);  // the first four of the reversed bytes
  set.storeUInt128ToUInt8Array(value);
  set.storeGUID(kGUID);
  set.storeString("");
  EXPECT_EQ(hexText(set.bytes()),
            "0f0e0d0c00000010" + std::string(kSixteen) + "00000010" + kGUIDDigits + "00");
  set = writer();
  set.storeUInt128(value);
  set.appendBytes("xyz", 3);
  EXPECT_EQ(hexText(set.bytes()), "0001020378797a");
}

TEST(Writer, CountsUTF16UnitsAndWrapsTheCountOfALongString) {
  std::string pairs;
  for (int i = 0; i < 127; ++i)
    pairs += "\U0001F600";  // two units each
  const std::tuple<std::string, std::string, std::size_t> rows[] = {
      {"a", "02", 1}, {pairs, "ff", 254}, {std::string(1000, 'a'), "00", 255}};
  for (const auto& [text, count, units] : rows) {
    XTMutablePTPDataSet set = writer();
    set.storeString(text);
    EXPECT_EQ(hexText(set.bytes()).substr(0, 2), count) << units;
    EXPECT_EQ(hexText(set.bytes()).substr(2 + 4 * units), "0000") << units;
    if (count == "00") continue;  // the count no longer tells the length
    set.setPosition(0);
    EXPECT_EQ(set.scanString(), text);
  }
}

TEST(Writer, TakesTextThatIsNoGUIDForNone) {
  const std::string guid = kGUID;
  test::TraceRecorder traces;
  for (const auto& text : {std::string(), guid + "0", "{" + guid + "}", std::string(kGUIDDigits),
                           "G" + guid.substr(1), guid + '\0'}) {
    XTMutablePTPDataSet set = writer();
    set.storeGUID(text);
    EXPECT_EQ(hexText(set.bytes()), "00000000") << text;
    EXPECT_THAT(traces.take(), ElementsAre(StartsWith("-[XTMutablePTPDataSet storeGUID:] (self=0x"),
                                           "storeGUID could not make a guid from " +
                                               text.substr(0, text.find('\0'))));
  }
  EXPECT_EQ(raised([&] { writer().storeGUID(std::nullopt); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: _val");
}

TEST(Writer, PadsOnlyPayloadsThatEndAContainerOnAMultipleOf64) {
  test::TraceRecorder traces;
  for (std::uint32_t length = 0; length <= 120; ++length) {
    const bool padded = length == 52 || length == 116;
    std::vector<std::byte> data(length, std::byte{0xAA});
    XTMutablePTPDataSet set = writer();
    set.appendBytes(data.data(), length);
    EXPECT_EQ(set.adjustToAvoidModulo64PayloadSize(), padded) << length;
    EXPECT_EQ(set.length(), length + (padded ? 1 : 0));
    data = dataAdjustedToAvoidModulo64PayloadSize(std::move(data));
    EXPECT_EQ(hexText(data), hexText(set.bytes()));
  }
  EXPECT_THAT(traces.take(), ElementsAre("objectData payload size adjusted to 53",
                                         "objectData payload size adjusted to 117"));
}

TEST(UInt128, GoesBothWaysAndRefusesEveryOtherText) {
  const std::string digits = "00ff10a9b8c7d6e5f403122130405060";
  EXPECT_EQ(XTUInt128AsHexString({}), "");
  XTUInt128 digest = {};
  for (const auto& text : {digits, std::string("00FF10A9B8C7D6E5F403122130405060")}) {
    EXPECT_TRUE(XTHexStringAsUInt128(text, &digest));
    EXPECT_EQ(XTUInt128AsHexString(digest), digits);
  }
  for (const auto& text : {std::string(), digits.substr(1), digits + "0", "0x" + digits})
    EXPECT_FALSE(XTHexStringAsUInt128(text, &digest)) << text;
  for (const char wrong : {'g', 'G', '/', ':', '@', '`', '\0', '\x80'}) {
    digest.fill(0xEE);
    EXPECT_FALSE(XTHexStringAsUInt128(wrong + digits.substr(1), &digest)) << wrong;
    EXPECT_FALSE(XTHexStringAsUInt128(digits.substr(0, 31) + wrong, &digest)) << wrong;
    EXPECT_TRUE(XTUInt128AsHexString(digest).starts_with(digits.substr(0, 30)));
  }
  const std::string prefix = "NSInternalInconsistencyException: Invalid parameter not satisfying: ";
  EXPECT_EQ(raised([&] { XTHexStringAsUInt128(std::nullopt, &digest); }), prefix + "hexString");
  EXPECT_EQ(raised([&] { XTHexStringAsUInt128(digits, nullptr); }), prefix + "digest");
}

TEST(HostileData, AReadBeyondTheEndNamesItsRange) {
  const std::vector<std::tuple<std::uint16_t, const char*, std::string>> rows = {
      {kPTPInt16, "00", "location=0, length=2"},
      {kPTPUInt32, "000000", "location=0, length=4"},
      {kPTPString, "", "location=0, length=1"},
      {kPTPString, "02 410000", "location=1, length=4"},
      {kPTPString, "ff 0000", "location=1, length=510"},
      {kPTPArrayOfUInt8, "02000000 00", "location=4, length=2"},
      {kPTPArrayOfUInt32, "ffffff7f 000000", "location=4, length=8589934588"},
      {kPTPArrayOfInt64, "ffffffff 00", "location=4, length=34359738360"},
  };
  for (const auto& row : rows) {
    const auto bytes = hexBytes(std::get<1>(row));
    EXPECT_EQ(raised([&] { reader(bytes).scan(std::get<0>(row)); }),
              "NSRangeException: out of bounds error: " + std::get<2>(row) +
                  " extends beyond buffer size = " + std::to_string(bytes.size()));
  }
  XTUInt128 wide;
  EXPECT_THAT(raised([&] { reader(Bytes(15)).scanUInt128(wide); }),
              testing::HasSubstr("location=0, length=16 "));
}

TEST(HostileData, AReadBeyondTheEndIsTracedAndLeavesThePositionBehindWhatWasRead) {
  test::TraceRecorder traces;
  EXPECT_NE(raised([] { XTMutablePTPDataSet().scanByte(); }), "");
  EXPECT_THAT(
      traces.take(),
      ElementsAre(testing::MatchesRegex("-\\[XTMutablePTPDataSet getBytes:range:\\] \\(self=0x.+"),
                  "out of bounds error: location=0, length=1 extends beyond buffer size = 0"));
  const auto bytes = hexBytes("05000000 0102");
  XTPTPDataSet set = reader(bytes);
  EXPECT_NE(raised([&] { set.scanByteArray(); }), "");
  EXPECT_EQ(set.position(), 4U);
}

TEST(HostileData, APositionFarBeyondTheEndDoesNotWrapIntoTheBuffer) {
  const auto bytes = hexBytes("0102030405060708");
  XTPTPDataSet set = reader(bytes);
  for (const std::uint32_t position : {9U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
    set.setPosition(position);
    EXPECT_THAT(raised([&] { set.scanUInt32(); }), StartsWith("NSRangeException")) << position;
    EXPECT_THAT(raised([&] { set.scanString(); }), StartsWith("NSRangeException")) << position;
    EXPECT_EQ(set.position(), position);
  }
  EXPECT_THAT(raised([&] { set.getBytes(nullptr, 0xFFFFFFFF, 0xFFFFFFFF); }),
              StartsWith("NSRangeException: out of bounds error: location=-1, "));
}

TEST(HostileData, AWriterWhosePositionWasSetBeyondItsBufferWritesZerosBetween) {
  XTMutablePTPDataSet writer = XTMutablePTPDataSet::dataSetWithByteOrder(1, 2);
  writer.setPosition(5);
  EXPECT_EQ(hexText(writer.bytes()), "0000");
  writer.storeUInt16(0x0201);
  EXPECT_EQ(hexText(writer.bytes()), "00000000000102");
  writer.setPosition(0xFFFFFFFE);
  EXPECT_EQ(raised([&] { writer.storeUInt32(1); }),
            "NSMallocException: realloc failed in increaseLengthBy.");
  EXPECT_EQ(raised([&] { writer.increaseLengthBy(0xFFFFFFFF); }),
            "NSMallocException: realloc failed in increaseLengthBy.");
}

}  // namespace
}  // namespace tarvo
