#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using test::raised;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

using Bytes = std::vector<std::byte>;
constexpr std::int32_t kBigEndian = 0;

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

XTUInt128 bytesFrom(std::uint8_t first) {
  XTUInt128 bytes;
  for (auto& byte : bytes)
    byte = first++;
  return bytes;
}

XTExtendedObjectInfo filledInfo(bool extended) {
  auto info = extended ? XTExtendedObjectInfo::initExtended() : XTExtendedObjectInfo();
  info.setStorageID(0x10001);
  info.setObjFmtCode(0x3801);
  info.setProtectionStatus(2);
  info.setCompressedSize(3);
  info.setThumbFmtCode(0x3808);
  info.setThumbCompressedSize(4);
  info.setThumbPixWidth(5);
  info.setThumbPixHeight(6);
  info.setImagePixWidth(7);
  info.setImagePixHeight(8);
  info.setImageBitDepth(9);
  info.setParentObject(10);
  info.setAssocType(1);
  info.setAssocDesc(11);
  info.setSeqNum(12);
  info.setFileName("ab");
  info.setCaptureDateStr("12");
  info.setModDataStr("3");
  info.setKeywordsStr("k");
  if (!extended) return info;
  info.setFileCreationDateStr("c");
  info.setQuickFingerPrint(bytesFrom(0));
  info.setFullFingerPrint(bytesFrom(0x10));
  info.setFavoriteStatus(13);
  info.setRetentionFlag(14);
  info.setTextAnnotation("\u20ac");
  info.setAudioAnnotationList({1, 2});
  info.setAlbumList({3});
  info.setEmailOrderList({4});
  info.setTransferOrderList({5});
  info.setBBSourceFileSize(15);
  info.setBBSourceQFP(bytesFrom(0x20));
  info.setBBSourceFFP(bytesFrom(0x30));
  return info;
}

XTExtendedObjectInfo read(const Bytes& bytes, bool extended,
                          std::int32_t byteOrder = kPTPByteOrder) {
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, byteOrder);
  return XTExtendedObjectInfo::initWithDataSet(dataSet, extended);
}

TEST(ObjectInfo, TravelsAsNineteenFieldsAndAsThirtyThreeWhenItIsExtended) {
  for (const bool extended : {false, true}) {
    const Bytes wire = hexBytes(extended ? kStandard + kExtension : kStandard);
    const auto info = filledInfo(extended);
    EXPECT_EQ(hexText(info.dataSetWithByteOrder(kPTPByteOrder).bytes()), hexText(wire));
    EXPECT_TRUE(read(wire, extended) == info);
  }
  // The flag alone says what is read: behind the standard fields the position stays.
  const Bytes wire = hexBytes(kStandard + kExtension);
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(wire, kPTPByteOrder);
  EXPECT_TRUE(XTExtendedObjectInfo::initWithDataSet(dataSet, false) == filledInfo(false));
  EXPECT_EQ(dataSet.position(), hexBytes(kStandard).size());
}

TEST(ObjectInfo, ReversesEverythingButFingerprintsInTheOtherByteOrder) {
  const auto info = filledInfo(true);
  const Bytes wire = info.dataSetWithByteOrder(kBigEndian).data();
  EXPECT_THAT(hexText(wire), StartsWith("00010001380100020000000338080000000400000005"));
  EXPECT_THAT(hexText(wire), ::testing::EndsWith("00000010303132333435363738393a3b3c3d3e3f"));
  EXPECT_TRUE(read(wire, true, kBigEndian) == info);
  EXPECT_FALSE(raised([&] { read(wire, true); }).empty());
}

TEST(ObjectInfo, ReservesMoreForTheShorterForm) {
  const auto reserved = [](bool extended) {
    const auto info = extended ? XTExtendedObjectInfo::initExtended() : XTExtendedObjectInfo();
    const auto dataSet = info.dataSetWithByteOrder(kPTPByteOrder);
    return malloc_usable_size(const_cast<std::byte*>(dataSet.buffer()));
  };
  EXPECT_GE(reserved(false), 508U);
  EXPECT_GE(reserved(true), 308U);
  EXPECT_LT(reserved(true), 508U);
}

TEST(ObjectInfo, RaisesWhereverTheDataSetEndsEarly) {
  for (const bool extended : {false, true}) {
    const Bytes wire = hexBytes(extended ? kStandard + kExtension : kStandard);
    // A last fingerprint that is cut off is zero; nothing is read behind it.
    const std::size_t needed = extended ? wire.size() - 16 : wire.size();
    for (std::size_t length = 0; length < needed; ++length) {
      const Bytes cut(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_THAT(raised([&] { read(cut, extended); }),
                  StartsWith("NSRangeException: out of bounds error: location="))
          << length;
    }
  }
  Bytes cut = hexBytes(kStandard + kExtension);
  cut.pop_back();
  EXPECT_EQ(read(cut, true).bbSourceFFP(), "");
  EXPECT_EQ(read(cut, true).bbSourceQFP(), "202122232425262728292a2b2c2d2e2f");
}

struct DateRow {
  const char* text;
  const char* becomes;  ///< null: itself
};
constexpr const char* kFirst = "1970-01-01 00:00:00 +0000";
constexpr const char* kLast = "2038-01-01 00:00:00 +0000";
constexpr DateRow kDates[] = {
    {"20070615T120000", nullptr},
    {"19691231T235959", kFirst},
    {"19700101T000000", nullptr},
    {"20380101T000000", nullptr},
    {"20371231T235959", nullptr},
    {"20380101T000001", kLast},
    {"20380101T000100", kLast},
    {"20380101T010000", kLast},
    {"20380102T000000", kLast},
    {"20380201T000000", kLast},
    {"99991231T235959", kLast},
    {"00010101T000000", kFirst},
    // What stands behind the seconds does not matter, a zone included.
    {"19691231T235959.9Z", kFirst},
    {"20380101T000000-0800", nullptr},
    {"20380101T0000012", kLast},
    // Blanks and shorter numbers, as cameras pad them.
    {"2039 1 2T 3 4 5", kLast},
    {"  2039010203T", nullptr},
    // No dates, so they stay.
    {"", nullptr},
    {"00000000T000000", nullptr},
    {"19690230T000000", nullptr},
    {"19690229T000000", nullptr},
    {"19680229T000000", kFirst},
    {"19000229T000000", nullptr},
    {"20400229T000000", kLast},
    {"21000229T000000", nullptr},
    {"24000229T000000", kLast},
    {"19691301T000000", nullptr},
    {"19690001T000000", nullptr},
    {"19690431T000000", nullptr},
    {"19690100T000000", nullptr},
    {"19690101T240000", nullptr},
    {"19690101T006000", nullptr},
    {"19690101T000060", nullptr},
    {"19690101 000000", nullptr},
    {"19690101t000000", nullptr},
    {"19690101T0000", nullptr},
    {"19690101", nullptr},
    {"-9690101T000000", nullptr},
    {"1969-01-01 00:00:00 +0000", nullptr},
    {kFirst, nullptr},
    {kLast, nullptr},
};

TEST(ObjectInfo, KeepsCaptureAndModificationDatesWithinTheirBounds) {
  for (const auto& row : kDates) {
    auto info = XTExtendedObjectInfo::initExtended();
    info.setCaptureDateStr(row.text);
    info.setModDataStr("m");
    info.setFileCreationDateStr(row.text);
    const std::string expected = row.becomes == nullptr ? row.text : row.becomes;
    auto back = read(info.dataSetWithByteOrder(kPTPByteOrder).data(), true);
    EXPECT_EQ(back.captureDateStr(), expected) << row.text;
    EXPECT_EQ(back.modDataStr(), "m");
    EXPECT_EQ(back.fileCreationDateStr(), row.text);

    info.setModDataStr(row.text);
    info.setCaptureDateStr("c");
    back = read(info.dataSetWithByteOrder(kPTPByteOrder).data(), true);
    EXPECT_EQ(back.modDataStr(), expected) << row.text;
    EXPECT_EQ(back.captureDateStr(), "c");
  }
}

TEST(ObjectInfo, TracesAPictureWithoutAQuickFingerprintAndKeepsIt) {
  test::TraceRecorder traces;
  for (const std::uint32_t height : {0U, 1U}) {
    for (const bool printed : {false, true}) {
      auto info = XTExtendedObjectInfo::initExtended();
      info.setImagePixHeight(height);
      if (printed) info.setQuickFingerPrint(bytesFrom(1));
      EXPECT_TRUE(read(info.dataSetWithByteOrder(kPTPByteOrder).data(), true) == info);
      if (height == 0 || printed) {
        EXPECT_THAT(traces.take(), IsEmpty());
      } else {
        EXPECT_THAT(
            traces.take(),
            ElementsAre(MatchesRegex(R"(-\[XTExtendedObjectInfo initWithDataSet:extended:\])"
                                     R"( \(self=0x.*\))"),
                        "Error in PTP data set - quickFingerprint is 0"));
      }
    }
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
}

TEST(ObjectInfo, TakesFingerprintsAsText) {
  const std::string digits = "000102030405060708090A0B0C0D0E0F";
  XTExtendedObjectInfo info;
  info.setQuickFingerPrintString(digits);
  info.setBBSourceQFPString("ff0102030405060708090a0b0c0d0e0f");
  EXPECT_EQ(info.quickFingerprint(), "000102030405060708090a0b0c0d0e0f");
  EXPECT_EQ(info.bbSourceQFP(), "ff0102030405060708090a0b0c0d0e0f");
  for (const char* wrong : {"", "00", "000102030405060708090A0B0C0D0E0F0"}) {
    info.setQuickFingerPrintString(wrong);
    EXPECT_EQ(info.quickFingerprint(), "000102030405060708090a0b0c0d0e0f") << wrong;
  }
  // What stands before the wrong digit is written already.
  info.setQuickFingerPrintString("ffx00000000000000000000000000000");
  EXPECT_EQ(info.quickFingerprint(), "ff0102030405060708090a0b0c0d0e0f");
}

TEST(ObjectInfo, IsADirectFavoriteOnlyWhenEverythingSaysSo) {
  const auto isFavorite = [](bool extended, std::uint16_t format, const char* name,
                             const XTUInt128& source) {
    auto info = extended ? XTExtendedObjectInfo::initExtended() : XTExtendedObjectInfo();
    info.setObjFmtCode(format);
    info.setFileName(name);
    info.setBBSourceQFP(source);
    return info.isDirectFavoriteInfo();
  };
  const XTUInt128 source = {1};
  EXPECT_TRUE(isFavorite(true, 0xB802, "FAV1.JPG", source));
  EXPECT_TRUE(isFavorite(true, 0xB803, "FAV", source));
  EXPECT_FALSE(isFavorite(false, 0xB802, "FAV1.JPG", source));
  EXPECT_FALSE(isFavorite(true, 0x3801, "FAV1.JPG", source));
  EXPECT_FALSE(isFavorite(true, 0xB804, "FAV1.JPG", source));
  EXPECT_FALSE(isFavorite(true, 0xB802, "fav1.jpg", source));
  EXPECT_FALSE(isFavorite(true, 0xB802, "1FAV.JPG", source));
  EXPECT_FALSE(isFavorite(true, 0xB802, "FAV1.JPG", {}));
}

TEST(ObjectInfo, DescribesItselfInOneLineWhateverItsNameContains) {
  auto info = filledInfo(false);
  info.setFileName("%n%s.JPG");
  info.setCompressedSize(0xFFFFFFFF);
  EXPECT_EQ(info.description(),
            "XTExtendedObjectInfo file:%n%s.JPG format:3801 storageID:10001 compressed size:-1 "
            "width:7 height:8");
}

}  // namespace
}  // namespace tarvo
