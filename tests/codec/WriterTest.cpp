#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/XTMutablePTPDataSet.h"
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

std::size_t capacityOf(const XTMutablePTPDataSet& set) {
  // The description shows the capacity, which nothing else does.
  return std::stoul(set.description().substr(std::string("XTPTPDataSet of ").size()));
}

struct StoreRow {
  const char* name;
  std::function<void(XTMutablePTPDataSet&)> store;
  std::string little;
  std::string big;
};

std::vector<StoreRow> storeRows() {
  static const std::vector<std::uint8_t> bytes = {1, 0xFF};
  static const std::vector<std::uint16_t> u16 = {0x1234, 0xFFFE};
  static const std::vector<std::int16_t> s16 = {0x1235, -2};
  static const std::vector<std::uint32_t> u32 = {0x12345678};
  static const std::vector<std::int32_t> s32 = {-3};
  static const std::vector<std::uint32_t> none;
  XTUInt128 value;
  std::iota(value.begin(), value.end(), std::uint8_t{0});
  const std::string guid = kGUIDDigits;
  return {
      {"byte", [](auto& set) { set.storeByte(0xA1); }, "a1", "a1"},
      {"UInt16", [](auto& set) { set.storeUInt16(0xA1B2); }, "b2a1", "a1b2"},
      {"SInt16", [](auto& set) { set.storeSInt16(-2); }, "feff", "fffe"},
      {"UInt32", [](auto& set) { set.storeUInt32(0xA1B2C3D4); }, "d4c3b2a1", "a1b2c3d4"},
      {"SInt32", [](auto& set) { set.storeSInt32(-2); }, "feffffff", "fffffffe"},
      {"four of 16 bytes", [=](auto& set) { set.storeUInt128(value); }, "00010203", "0f0e0d0c"},
      {"16 bytes as array", [=](auto& set) { set.storeUInt128ToUInt8Array(value); },
       "10000000000102030405060708090a0b0c0d0e0f", "00000010000102030405060708090a0b0c0d0e0f"},
      {"GUID", [](auto& set) { set.storeGUID(kGUID); }, "10000000" + guid, "00000010" + guid},
      {"no GUID", [](auto& set) { set.storeGUID("no GUID"); }, "00000000", "00000000"},
      {"empty string", [](auto& set) { set.storeString(""); }, "00", "00"},
      {"string", [](auto& set) { set.storeString("ab"); }, "03610062000000", "03006100620000"},
      {"string of a pair", [](auto& set) { set.storeString("\U0001F600"); }, "033dd800de0000",
       "03d83dde000000"},
      {"byte array", [](auto& set) { set.storeByteArray(bytes); }, "0200000001ff", "0000000201ff"},
      {"UInt16 array", [](auto& set) { set.storeUInt16Array(u16); }, "020000003412feff",
       "000000021234fffe"},
      {"SInt16 array", [](auto& set) { set.storeSInt16Array(s16); }, "020000003512feff",
       "000000021235fffe"},
      {"UInt32 array", [](auto& set) { set.storeUInt32Array(u32); }, "0100000078563412",
       "0000000112345678"},
      {"SInt32 array", [](auto& set) { set.storeSInt32Array(s32); }, "01000000fdffffff",
       "00000001fffffffd"},
      {"no array", [](auto& set) { set.storeUInt32Array(none); }, "00000000", "00000000"},
      {"raw bytes", [](auto& set) { set.appendBytes("xyz", 3); }, "78797a", "78797a"},
  };
}

TEST(Writer, StoresEveryFormExactly) {
  for (const auto& row : storeRows()) {
    for (const std::int32_t order : {1, 0, 2}) {
      XTMutablePTPDataSet set = writer(order);
      row.store(set);
      EXPECT_EQ(hexText(set.bytes()), order == 1 ? row.little : row.big) << row.name;
      EXPECT_EQ(hexText(set.data()), hexText(set.bytes())) << row.name;
      EXPECT_EQ(set.length(), set.position()) << row.name;
    }
  }
}

TEST(Writer, AppendsOneFormBehindTheOther) {
  XTMutablePTPDataSet set = writer();
  std::string expected;
  for (const auto& row : storeRows()) {
    row.store(set);
    expected += row.little;
  }
  EXPECT_EQ(hexText(set.bytes()), expected);
}

TEST(Writer, WrapsTheCountOfALongString) {
  struct Row {
    std::size_t units;
    const char* count;
    std::size_t stored;
  };
  for (const Row& row : {Row{1, "02", 1}, Row{253, "fe", 253}, Row{254, "ff", 254},
                         Row{255, "00", 255}, Row{256, "00", 255}, Row{1000, "00", 255}}) {
    XTMutablePTPDataSet set = writer();
    set.storeString(std::string(row.units, 'a'));
    std::string expected = row.count;
    for (std::size_t i = 0; i < row.stored; ++i)
      expected += "6100";
    EXPECT_EQ(hexText(set.bytes()), expected + "0000") << row.units;
  }
}

TEST(Writer, CountsUTF16UnitsOfAString) {
  std::string text;
  for (int i = 0; i < 127; ++i)
    text += "\U0001F600";  // two units each
  XTMutablePTPDataSet set = writer();
  set.storeString(text);
  EXPECT_EQ(hexText(set.bytes()).substr(0, 2), "ff");
  EXPECT_EQ(set.length(), 1U + 2 * 254 + 2);
  auto back = XTPTPDataSet::ptpDataSetWithBytesNoCpy(set.bytes(), 1);
  EXPECT_EQ(back.scanString(), text);
}

TEST(Writer, GrowsByExactlyWhatIsNeeded) {
  XTMutablePTPDataSet set = writer();
  EXPECT_TRUE(set.isEmpty());
  set.storeByte(1);
  EXPECT_EQ(capacityOf(set), 1U);
  set.storeUInt32(1);
  EXPECT_EQ(capacityOf(set), 5U);
  set.increaseLengthBy(3);
  EXPECT_EQ(capacityOf(set), 8U);
  EXPECT_EQ(set.length(), 5U);
  set.storeUInt16(1);
  EXPECT_EQ(capacityOf(set), 8U);
  set.storeUInt32(1);  // by the whole length, though one byte is free
  EXPECT_EQ(capacityOf(set), 12U);
  set.storeString("ab");  // in one step
  EXPECT_EQ(capacityOf(set), 19U);
  EXPECT_EQ(set.length(), 18U);
  set.storeUInt16Array(std::vector<std::uint16_t>{1, 2, 3});
  EXPECT_EQ(capacityOf(set), 29U);
  set.increaseLengthBy(0);
  EXPECT_EQ(capacityOf(set), 29U);
}

TEST(Writer, Preallocates) {
  const auto set = XTMutablePTPDataSet::dataSetWithByteOrder(1, 308);
  EXPECT_EQ(capacityOf(set), 308U);
  EXPECT_EQ(set.length(), 0U);
  EXPECT_TRUE(set.bytes().empty());
  EXPECT_EQ(capacityOf(XTMutablePTPDataSet::initWithByteOrder(0, 0)), 0U);
  EXPECT_EQ(XTMutablePTPDataSet().byteOrder(), 0);
  XTMutablePTPDataSet none;
  none.increaseLengthBy(0);
  none.storeByte(7);
  EXPECT_EQ(hexText(none.bytes()), "07");
}

TEST(Writer, TakesTextThatIsNoGUIDForNone) {
  const std::string guid = kGUID;
  std::vector<std::string> refused = {"",
                                      " ",
                                      guid.substr(1),
                                      guid + "0",
                                      guid + std::string(1, '\0'),
                                      "{" + guid + "}",
                                      kGUIDDigits,
                                      "G" + guid.substr(1),
                                      guid.substr(0, 8) + "_" + guid.substr(9)};
  test::TraceRecorder traces;
  for (const auto& text : refused) {
    XTMutablePTPDataSet set = writer();
    set.storeGUID(text);
    EXPECT_EQ(hexText(set.bytes()), "00000000") << text;
    EXPECT_THAT(traces.take(),
                ElementsAre(StartsWith("-[XTMutablePTPDataSet storeGUID:] (self=0x"),
                            "storeGUID could not make a guid from " + std::string(text.c_str())));
  }
  XTMutablePTPDataSet set = writer();
  set.storeGUID("a0b1c2d3-e4f5-0617-2839-4a5b6c7d8e9f");
  EXPECT_EQ(hexText(set.bytes()).substr(8), kGUIDDigits);
  EXPECT_TRUE(traces.take().empty());
}

TEST(Writer, RequiresAGUID) {
  XTMutablePTPDataSet set = writer();
  EXPECT_EQ(raised([&] { set.storeGUID(std::nullopt); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: _val");
  EXPECT_EQ(set.length(), 0U);
}

TEST(Writer, PadsOnlyPayloadsThatEndAContainerOnAMultipleOf64) {
  test::TraceRecorder traces;
  for (std::uint32_t length = 0; length <= 200; ++length) {
    const bool padded = length == 52 || length == 116 || length == 180;
    XTMutablePTPDataSet set = writer();
    for (std::uint32_t i = 0; i < length; ++i)
      set.storeByte(0xAA);
    EXPECT_EQ(set.adjustToAvoidModulo64PayloadSize(), padded) << length;
    EXPECT_EQ(set.length(), length + (padded ? 1 : 0));
    EXPECT_FALSE(set.adjustToAvoidModulo64PayloadSize());
    if (padded) {
      EXPECT_EQ(set.bytes().back(), std::byte{0});
    }

    std::vector<std::byte> data(length, std::byte{0xAA});
    const std::byte* where = data.data();
    data = dataAdjustedToAvoidModulo64PayloadSize(std::move(data));
    EXPECT_EQ(hexText(data), hexText(set.bytes()));
    if (padded) {
      EXPECT_THAT(traces.take(),
                  ElementsAre("objectData payload size adjusted to " + std::to_string(length + 1)));
    } else {
      EXPECT_EQ(data.data(), where);  // the buffer itself
      EXPECT_TRUE(traces.take().empty());
    }
  }
}

TEST(Writer, IsReadBackFromItsOwnBuffer) {
  XTMutablePTPDataSet set = writer();
  set.storeString("a b");
  set.storeGUID(kGUID);
  XTMutablePTPDataSet moved = std::move(set);
  moved.setPosition(0);
  EXPECT_EQ(moved.scanString(), "a b");
  EXPECT_EQ(moved.scanGUID(), kGUID);
  EXPECT_EQ(moved.length(), moved.position());
}

}  // namespace
}  // namespace tarvo
