#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <optional>
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

using test::hexText;
using test::raised;
using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr const char* kGUID = "A0B1C2D3-E4F5-0617-2839-4A5B6C7D8E9F";
constexpr const char* kGUIDDigits = "a0b1c2d3e4f5061728394a5b6c7d8e9f";

XTMutablePTPDataSet writer(std::int32_t byteOrder = kPTPByteOrder) {
  return XTMutablePTPDataSet::dataSetWithByteOrder(byteOrder);
}

/// The description shows the capacity, which nothing else does.
std::size_t capacityOf(const XTMutablePTPDataSet& set) {
  return std::stoul(set.description().substr(std::string("XTPTPDataSet of ").size()));
}

TEST(Writer, Stores128BitValuesAndGUIDs) {
  XTUInt128 value;
  std::iota(value.begin(), value.end(), std::uint8_t{0});
  XTMutablePTPDataSet set = writer(0);
  set.storeUInt128(value);  // the first four of the reversed bytes
  set.storeUInt128ToUInt8Array(value);
  set.storeGUID(kGUID);
  set.storeString("");
  EXPECT_EQ(hexText(set.bytes()),
            "0f0e0d0c"
            "00000010000102030405060708090a0b0c0d0e0f"
            "00000010" +
                std::string(kGUIDDigits) + "00");
  set = writer();
  set.storeUInt128(value);
  set.appendBytes("xyz", 3);
  EXPECT_EQ(hexText(set.bytes()), "0001020378797a");
}

TEST(Writer, CountsUTF16UnitsAndWrapsTheCountOfALongString) {
  std::string pairs;
  for (int i = 0; i < 127; ++i)
    pairs += "\U0001F600";  // two units each
  const auto letters = [](std::size_t count) { return std::string(count, 'a'); };
  const std::vector<std::tuple<std::string, std::string, std::size_t>> rows = {
      {"a", "02", 1},
      {letters(253), "fe", 253},
      {pairs, "ff", 254},
      {letters(255), "00", 255},
      {letters(1000), "00", 255}};
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

TEST(Writer, GrowsByExactlyWhatIsNeeded) {
  XTMutablePTPDataSet set = writer();
  set.storeByte(1);
  set.storeUInt32(1);
  EXPECT_EQ(capacityOf(set), 5U);
  set.increaseLengthBy(3);
  set.storeUInt16(1);
  EXPECT_EQ(capacityOf(set), 8U);
  set.storeUInt32(1);  // by the whole length, though one byte is free
  EXPECT_EQ(capacityOf(set), 12U);
  EXPECT_EQ(set.length(), 11U);
  EXPECT_EQ(capacityOf(XTMutablePTPDataSet::dataSetWithByteOrder(1, 308)), 308U);
}

TEST(Writer, TakesTextThatIsNoGUIDForNone) {
  const std::string guid = kGUID;
  test::TraceRecorder traces;
  for (const auto& text : {std::string(), guid.substr(1), guid + "0", "{" + guid + "}",
                           std::string(kGUIDDigits), "G" + guid.substr(1), guid + '\0'}) {
    XTMutablePTPDataSet set = writer();
    set.storeGUID(text);
    EXPECT_EQ(hexText(set.bytes()), "00000000") << text;
    EXPECT_THAT(traces.take(), ElementsAre(StartsWith("-[XTMutablePTPDataSet storeGUID:] (self=0x"),
                                           "storeGUID could not make a guid from " +
                                               text.substr(0, text.find('\0'))));
  }
  XTMutablePTPDataSet set = writer();
  EXPECT_EQ(raised([&] { set.storeGUID(std::nullopt); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: _val");
  set.storeGUID("a0b1c2d3-e4f5-0617-2839-4a5b6c7d8e9f");
  EXPECT_EQ(hexText(set.bytes()).substr(8), kGUIDDigits);
  EXPECT_TRUE(traces.take().empty());
}

TEST(Writer, PadsOnlyPayloadsThatEndAContainerOnAMultipleOf64) {
  test::TraceRecorder traces;
  for (std::uint32_t length = 0; length <= 200; ++length) {
    const bool padded = length == 52 || length == 116 || length == 180;
    std::vector<std::byte> data(length, std::byte{0xAA});
    XTMutablePTPDataSet set = writer();
    set.appendBytes(data.data(), length);
    EXPECT_EQ(set.adjustToAvoidModulo64PayloadSize(), padded) << length;
    EXPECT_EQ(set.length(), length + (padded ? 1 : 0));
    EXPECT_FALSE(set.adjustToAvoidModulo64PayloadSize());

    const std::byte* where = data.data();
    data = dataAdjustedToAvoidModulo64PayloadSize(std::move(data));
    EXPECT_EQ(hexText(data), hexText(set.bytes()));
    const auto lines = traces.take();
    if (padded) {
      EXPECT_EQ(data.back(), std::byte{0});
      EXPECT_THAT(lines,
                  ElementsAre("objectData payload size adjusted to " + std::to_string(length + 1)));
    } else {
      EXPECT_EQ(data.data(), where);  // the buffer itself
      EXPECT_TRUE(lines.empty());
    }
  }
}

const std::string kHexDigits = "00ff10a9b8c7d6e5f403122130405060";

TEST(UInt128, GoesBothWaysAndShowsNothingForZero) {
  EXPECT_EQ(XTUInt128AsHexString({}), "");
  EXPECT_EQ(XTUInt128AsHexString({0, 1}), "0001" + std::string(28, '0'));
  for (const auto& digits : {kHexDigits, std::string("00FF10A9B8C7D6E5F403122130405060")}) {
    XTUInt128 digest = {};
    EXPECT_TRUE(XTHexStringAsUInt128(digits, &digest));
    EXPECT_EQ(XTUInt128AsHexString(digest), kHexDigits);
  }
}

TEST(UInt128, RefusesEveryOtherTextAndKeepsTheBytesBeforeAWrongDigit) {
  XTUInt128 digest = {};
  for (const auto& text :
       {std::string(), kHexDigits.substr(1), kHexDigits + "0", "0x" + kHexDigits})
    EXPECT_FALSE(XTHexStringAsUInt128(text, &digest)) << text;
  for (const char wrong : {'g', 'G', '/', ':', '@', '`', '\0', '\x80'}) {
    for (const std::size_t at : {0U, 31U}) {
      std::string text = kHexDigits;
      text[at] = wrong;
      digest.fill(0xEE);
      EXPECT_FALSE(XTHexStringAsUInt128(text, &digest)) << text;
      EXPECT_EQ(XTUInt128AsHexString(digest).starts_with(kHexDigits.substr(0, 30)), at == 31);
    }
  }
}

TEST(UInt128, NamesAMissingArgument) {
  XTUInt128 digest = {};
  const std::string prefix = "NSInternalInconsistencyException: Invalid parameter not satisfying: ";
  EXPECT_EQ(raised([&] { XTHexStringAsUInt128(std::nullopt, &digest); }), prefix + "hexString");
  EXPECT_EQ(raised([&] { XTHexStringAsUInt128(kHexDigits, nullptr); }), prefix + "digest");
}

}  // namespace
}  // namespace tarvo
