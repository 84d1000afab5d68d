#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "tests/support/HexBytes.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using Bytes = std::vector<std::byte>;
// A value of its own in every field.
const std::string kStandard =
    "01000100 0138 0200 03000000 0838 04000000 05000000 06000000 07000000 08000000 09000000"
    "0a000000 0100 0b000000 0c000000"
    "03 6100 6200 0000"
    "03 3100 3200 0000"
    "02 3300 0000"
    "02 6b00 0000";
const std::string kExtension =
    "02 6300 0000"
    "10000000 000102030405060708090a0b0c0d0e0f"
    "10000000 101112131415161718191a1b1c1d1e1f"
    "0d00 0e00"
    "02 ac20 0000"
    "02000000 01000000 02000000"
    "01000000 03000000"
    "01000000 04000000"
    "00000000"
    "01000000 05000000"
    "0f000000"
    "10000000 202122232425262728292a2b2c2d2e2f"
    "10000000 303132333435363738393a3b3c3d3e3f";

XTExtendedObjectInfo read(const Bytes& bytes, bool extended) {
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  return XTExtendedObjectInfo::initWithDataSet(dataSet, extended);
}

// What each field is called stands in RecordJSONTest.cpp.
TEST(ObjectInfo, TravelsAsNineteenFieldsAndAsThirtyThreeWhenItIsExtended) {
  for (const bool extended : {false, true}) {
    const Bytes wire = hexBytes(extended ? kStandard + kExtension : kStandard);
    EXPECT_EQ(hexText(read(wire, extended).dataSetWithByteOrder(kPTPByteOrder).bytes()),
              hexText(wire));
  }
  // The flag alone says what is read: behind the standard fields the position stays.
  const Bytes wire = hexBytes(kStandard + kExtension);
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(wire, kPTPByteOrder);
  EXPECT_TRUE(XTExtendedObjectInfo::initWithDataSet(dataSet, false) ==
              read(hexBytes(kStandard), false));
  EXPECT_EQ(dataSet.position(), hexBytes(kStandard).size());
}

constexpr const char* kFirst = "1970-01-01 00:00:00 +0000";
constexpr const char* kLast = "2038-01-01 00:00:00 +0000";
constexpr std::pair<const char*, const char*> kDates[] = {
    // What it becomes; null: itself.
    {"19691231T235959", kFirst},
    {"19700101T000000", nullptr},
    {"20380101T000000", nullptr},
    {"20380101T000001", kLast},
    // What stands behind the seconds does not matter, a zone included.
    {"19691231T235959.9Z", kFirst},
    // Blanks and shorter numbers, as cameras pad them.
    {"2039 1 2T 3 4 5", kLast},
    {"  2039010203T", nullptr},
    // No dates, so they stay.
    {"", nullptr},
    {"00000000T000000", nullptr},
    {"19680229T000000", kFirst},
    {"19000229T000000", nullptr},
    {"19691301T000000", nullptr},
    {"19690101T240000", nullptr},
    {"-9690101T000000", nullptr},
    {kFirst, nullptr},
};

TEST(ObjectInfo, KeepsCaptureAndModificationDatesWithinTheirBounds) {
  for (const auto& [text, becomes] : kDates) {
    auto info = XTExtendedObjectInfo::initExtended();
    info.setCaptureDateStr(text);
    info.setModDataStr(text);
    info.setFileCreationDateStr(text);
    const std::string expected = becomes == nullptr ? text : becomes;
    const auto back = read(info.dataSetWithByteOrder(kPTPByteOrder).data(), true);
    EXPECT_EQ(back.captureDateStr(), expected) << text;
    EXPECT_EQ(back.modDataStr(), expected) << text;
    EXPECT_EQ(back.fileCreationDateStr(), text);
  }
}

TEST(ObjectInfo, TracesAPictureWithoutAQuickFingerprintAndKeepsIt) {
  for (const auto& [height, print] : {std::pair(0U, 0), {1U, 0}, {1U, 1}}) {
    test::TraceRecorder traces;
    auto info = XTExtendedObjectInfo::initExtended();
    info.setImagePixHeight(height);
    info.setQuickFingerPrint({static_cast<std::uint8_t>(print)});
    EXPECT_TRUE(read(info.dataSetWithByteOrder(kPTPByteOrder).data(), true) == info);
    const auto lines = traces.take();
    EXPECT_EQ(lines.size(), height == 1 && print == 0 ? 2U : 0U);
    if (lines.empty()) continue;
    EXPECT_THAT(lines,
                testing::ElementsAre(
                    testing::MatchesRegex(R"(-\[XTExtendedObjectInfo initWithDataSet:extended:\])"
                                          R"( \(self=0x.*\))"),
                    "Error in PTP data set - quickFingerprint is 0"));
  }
}

TEST(ObjectInfo, ReadsFingerprintsOfAnotherLengthAsZero) {
  const auto withQuickFingerprint = [](const std::string& array) {
    return hexBytes(kStandard + "00" + array + "00000000 0d00 0e00 00" + std::string(48, '0') +
                    std::string(16, '0'));
  };
  test::TraceRecorder traces;
  EXPECT_EQ(read(withQuickFingerprint("00000000"), true).quickFingerprint(), "");
  EXPECT_EQ(traces.take().size(), 2U);  // of the zero fingerprint alone
  const auto info = read(withQuickFingerprint("08000000 0102030405060708"), true);
  EXPECT_EQ(info.quickFingerprint(), "");
  EXPECT_EQ(info.favoriteStatus(), 13);  // the eight bytes were passed over
  EXPECT_THAT(traces.take().front(), ::testing::HasSubstr("incorrect length of 8"));
  Bytes cut = hexBytes(kStandard + kExtension);
  cut.pop_back();
  EXPECT_EQ(read(cut, true).bbSourceFFP(), "");
  EXPECT_EQ(read(cut, true).bbSourceQFP(), "202122232425262728292a2b2c2d2e2f");
}

TEST(ObjectInfo, IsADirectFavoriteOnlyWhenEverythingSaysSo) {
  const std::tuple<bool, std::uint16_t, const char*, XTUInt128, bool> rows[] = {
      {true, 0xB802, "FAV1.JPG", {1}, true},   {true, 0xB803, "FAV", {1}, true},
      {false, 0xB802, "FAV1.JPG", {1}, false}, {true, 0x3801, "FAV1.JPG", {1}, false},
      {true, 0xB802, "fav1.jpg", {1}, false},  {true, 0xB802, "FAV1.JPG", {}, false}};
  for (const auto& [extended, format, name, source, isFavorite] : rows) {
    auto info = extended ? XTExtendedObjectInfo::initExtended() : XTExtendedObjectInfo();
    info.setObjFmtCode(format);
    info.setFileName(name);
    info.setBBSourceQFP(source);
    EXPECT_EQ(info.isDirectFavoriteInfo(), isFavorite) << format << name;
  }
}

TEST(ObjectInfo, DescribesItselfInOneLineWhateverItsNameContains) {
  auto info = read(hexBytes(kStandard), false);
  info.setFileName("%n%s.JPG");
  info.setCompressedSize(0xFFFFFFFF);
  EXPECT_EQ(info.description(),
            "XTExtendedObjectInfo file:%n%s.JPG format:3801 storageID:10001 compressed size:-1 "
            "width:7 height:8");
}

}  // namespace
}  // namespace tarvo
