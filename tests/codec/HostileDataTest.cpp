#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/XTMutablePTPDataSet.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::raised;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

/// A read that is one byte short, and the range that its reason names.
struct ShortRow {
  const char* name;
  const char* wire;
  std::function<void(XTPTPDataSet&)> scan;
  const char* range;
};

TEST(HostileData, AReadBeyondTheEndNamesItsRange) {
  XTUInt128 wide;
  const std::vector<ShortRow> rows = {
      {"byte", "", [](auto& set) { set.scanByte(); }, "location=0, length=1"},
      {"bytes", "000000", [&](auto& set) { set.scanBytes(&wide, 4); }, "location=0, length=4"},
      {"UInt16", "00", [](auto& set) { set.scanUInt16(); }, "location=0, length=2"},
      {"SInt16", "00", [](auto& set) { set.scanSInt16(); }, "location=0, length=2"},
      {"UInt32", "000000", [](auto& set) { set.scanUInt32(); }, "location=0, length=4"},
      {"SInt32", "000000", [](auto& set) { set.scanSInt32(); }, "location=0, length=4"},
      {"SInt64", "00000000000000", [](auto& set) { set.scanSInt64(); }, "location=0, length=8"},
      {"UInt128", "000000000000000000000000000000", [&](auto& set) { set.scanUInt128(wide); },
       "location=0, length=16"},
      {"GUID", "100000", [](auto& set) { set.scanGUID(); }, "location=0, length=4"},
      {"string count", "", [](auto& set) { set.scanString(); }, "location=0, length=1"},
      {"string", "02 410000", [](auto& set) { set.scanString(); }, "location=1, length=4"},
      {"longest string", "ff 0000", [](auto& set) { set.scanString(); }, "location=1, length=510"},
      {"array count", "000000", [](auto& set) { set.scanByteArray(); }, "location=0, length=4"},
      {"byte array", "02000000 00", [](auto& set) { set.scanByteArray(); }, "location=4, length=2"},
      {"UInt16 array", "02000000 000000", [](auto& set) { set.scanUInt16Array(); },
       "location=4, length=4"},
      {"SInt16 array", "01000000 00", [](auto& set) { set.scanSInt16Array(); },
       "location=4, length=2"},
      {"UInt32 array", "01000000 000000", [](auto& set) { set.scanUInt32Array(); },
       "location=4, length=4"},
      {"SInt32 array", "ffffff7f 000000", [](auto& set) { set.scanSInt32Array(); },
       "location=4, length=8589934588"},
      {"UInt64 array", "01000000 00000000000000", [](auto& set) { set.scanUInt64Array(); },
       "location=4, length=8"},
      {"SInt64 array", "ffffffff 00", [](auto& set) { set.scanSInt64Array(); },
       "location=4, length=34359738360"},
  };
  for (const auto& row : rows) {
    const auto bytes = hexBytes(row.wire);
    const std::string reason = "NSRangeException: out of bounds error: " + std::string(row.range) +
                               " extends beyond buffer size = " + std::to_string(bytes.size());
    for (const std::int32_t order : {1, 0}) {
      auto wire = bytes;
      if (order == 0 && wire.size() >= 4) std::reverse(wire.begin(), wire.begin() + 4);
      const bool isString = std::string_view(row.name).ends_with("string");
      XTPTPDataSet set = XTPTPDataSet::ptpDataSetWithBytesNoCpy(isString ? bytes : wire, order);
      EXPECT_EQ(raised([&] { row.scan(set); }), reason) << row.name << " in order " << order;
    }
  }
}

TEST(HostileData, AReadBeyondTheEndIsTracedWithItsMethod) {
  test::TraceRecorder traces;
  XTPTPDataSet set;
  EXPECT_NE(raised([&] { set.scanByte(); }), "");
  const std::string reason =
      "out of bounds error: location=0, length=1 extends beyond buffer size = 0";
  EXPECT_THAT(
      traces.take(),
      ElementsAre(MatchesRegex("-\\[XTPTPDataSet getBytes:range:\\] \\(self=0x[0-9a-f]+\\)"),
                  reason));
  XTMutablePTPDataSet writer;
  EXPECT_NE(raised([&] { writer.scanByte(); }), "");
  EXPECT_THAT(traces.take(), ElementsAre(StartsWith("-[XTMutablePTPDataSet getBytes:"), reason));
}

TEST(HostileData, AFailedReadLeavesThePositionBehindWhatWasRead) {
  const auto bytes = hexBytes("05000000 0102");
  XTPTPDataSet set = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, 1);
  EXPECT_NE(raised([&] { set.scanByteArray(); }), "");
  EXPECT_EQ(set.position(), 4U);
  EXPECT_EQ(set.scanUInt16(), 0x0201);
}

TEST(HostileData, APositionFarBeyondTheEndDoesNotWrapIntoTheBuffer) {
  const auto bytes = hexBytes("0102030405060708");
  XTPTPDataSet set = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, 1);
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
  EXPECT_EQ(test::hexText(writer.bytes()), "0000");
  writer.storeUInt16(0x0201);
  EXPECT_EQ(test::hexText(writer.bytes()), "00000000000102");
  writer.setPosition(0xFFFFFFFE);
  EXPECT_EQ(raised([&] { writer.storeUInt32(1); }),
            "NSMallocException: realloc failed in increaseLengthBy.");
  EXPECT_EQ(raised([&] { writer.increaseLengthBy(0xFFFFFFFF); }),
            "NSMallocException: realloc failed in increaseLengthBy.");
}

}  // namespace
}  // namespace tarvo
