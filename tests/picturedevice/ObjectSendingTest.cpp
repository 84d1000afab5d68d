// By which operations, under which format and with which announcement a file goes to a device.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "platform/files/FileNames.h"
#include "tests/support/ScriptedPTPTransactions.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

const MakerConstants kMaker;

TEST(SendOpcodes, FollowFromFormatModelAndWhatTheDeviceRequires) {
  const std::tuple<std::uint16_t, bool, bool, SendOpcodes, SendOpcodes> rows[] = {
      {0x3801, true, false, {0x9005, 0x9006}, {0x9005, 0x9006}},
      {0xB001, true, false, {0x9005, 0x9006}, {0x100C, 0x100D}},  // firmware
      {0xB20A, false, false, {0x100C, 0x100D}, {0x100C, 0x100D}},
      {0xB20A, true, true, {0x9001, 0x9002}, {0x9001, 0x9002}},
      {0xB203, false, true, {0x100C, 0x100D}, {0x100C, 0x100D}},
  };
  for (const auto& [format, requiresVendorSend, hasVendorObject, current, legacy] : rows) {
    ScriptedPTPTransactions device;
    device.capabilities.xtSendRequired = requiresVendorSend;
    device.capabilities.hasSendVendorObject = hasVendorObject;
    XTExtendedObjectInfo info;
    info.setObjFmtCode(format);
    EXPECT_EQ(opcodesForInfo(device.facts(), kMaker, info), current) << format;
    device.model = "Tarvo Lumo 300";
    EXPECT_EQ((SendOpcodes{sendObjectInfoOpcodeForFormat(device.facts(), kMaker, format),
                           sendObjectOpcodeForFormat(device.facts(), kMaker, format)}),
              legacy);
    info.setIsExtended(true);
    EXPECT_EQ(opcodesForInfo(device.facts(), kMaker, info), (SendOpcodes{0x9202, 0x100D}));
  }
}

TEST(FormatCodeFilter, LeavesEveryFormatButThoseOfTheUndefinedFormatModels) {
  EXPECT_EQ(formatCodeFilter("Tarvo Lumo N10", kMaker, 0x3801), 0x3000);
  // The form of the name that the announcement of a file knows.
  EXPECT_EQ(formatCodeFilter("Tarvo N10", kMaker, 0x3801), 0x3801);
}

TEST(FileTypeTables, DifferOnPurposeInWhatTheyKnow) {
  const std::tuple<const char*, const char*, std::uint16_t> rows[] = {
      {"jpg", "JPEG", 0x3801},  {"jp2", "JPEG", 0x380F}, {"fpix", "FPix", 0x3000},
      {"cif", "????", 0x3805},  {"tdc", "TDC ", 0xB804}, {"avi", "VfW ", 0x300A},
      {"abk", "TEXT", 0xB003},  {"how", "????", 0xB008}, {"JPG", "????", 0x3000},
      {".jpg", "????", 0x3000}, {"", "????", 0x3000}};
  for (const auto& [extension, type, format] : rows) {
    EXPECT_EQ(fourCharText(fileTypeOfExtension(extension)), type) << extension;
    EXPECT_EQ(ptpFormatOfExtension(extension), format) << extension;
  }
}

class FileObjectInfoTest : public ::testing::Test {
 protected:
  /// Sets the date before the file is looked at.
  Status fill(const std::string& name, const CodeList* operations) {
    const std::string path = folder_.write(name, "content");
    const timespec times[] = {{.tv_sec = 1181908800, .tv_nsec = 0},
                              {.tv_sec = 1181908800, .tv_nsec = 0}};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    return fillInObjInfo(info_, path, operations, device_.facts(), kMaker, &sendRequired_);
  }

  ScopedEnvironment zone_{"TZ", "UTC-2"};
  TemporaryFolder folder_;
  ScriptedPTPTransactions device_;
  XTExtendedObjectInfo info_;
  bool sendRequired_ = false;
};

TEST_F(FileObjectInfoTest, FillsTheStandardFieldsAndTracesEachStep) {
  ::tzset();
  info_.setKeywordsStr("old");
  info_.setIsExtended(true);
  TraceRecorder traces;
  const CodeList operations = {0x100D};
  EXPECT_EQ(fill("Sub/Picture.JPG", &operations), 0);
  XTExtendedObjectInfo expected;
  expected.setObjFmtCode(0x3801);
  expected.setCompressedSize(7);
  expected.setFileName("Picture.JPG");
  expected.setCaptureDateStr("20070615T140000+0200");
  expected.setModDataStr("20070615T140000+0200");
  EXPECT_EQ(info_, expected);
  EXPECT_THAT(traces.take(), testing::ElementsAre(
                                 "MakeObjectInfo: file type: JPEG",
                                 "MakeObjectInfo: PTP type: 0x3801", "MakeObjectInfo: File size: 7",
                                 testing::HasSubstr("Modification Date: 2007-06-15 12:00:00 +0000"),
                                 "MakeObjectInfo: final PTP type: 0x3801"));
}

TEST_F(FileObjectInfoTest, ChoosesTheFormatByModelOperationsAndName) {
  const CodeList none;
  const CodeList standard = {0x100C, 0x100D};
  const CodeList vendor = {0x100D, 0x9006};
  // sendRequired: starts as true with the standard's operations, as false otherwise
  const std::tuple<const char*, const char*, const CodeList*, bool, Status, std::uint16_t, bool>
      rows[] = {
          {"Tarvo Lumo 500", "a.jpg", &standard, false, 0, 0x3801, false},
          {"Tarvo Lumo 500", "a.jpg", &vendor, false, 0, 0x3801, true},
          {"Tarvo Lumo 500", "a.jpg", &none, false, 0, 0x2005, false},
          {"Tarvo Lumo 500", "a.xyz", &standard, false, 0x200B, 0, false},
          {"Tarvo Lumo 500", "a.xyz", nullptr, false, 0, 0x2005, false},
          {"Tarvo Lumo 500", "FAV1.JPG", &standard, true, 0, 0xB802, false},
          {"Tarvo Lumo 500", "FAV1.JPG", &standard, false, 0, 0x3801, false},
          {"Tarvo Lumo 500", "fav1.jpg", &standard, true, 0, 0x3801, false},
          {"Tarvo Lumo 100", "a.jpg", &standard, false, 0x200B, 0, true},
          {"Tarvo Lumo 100", "a.bin", &standard, false, 0, 0xB001, false},
          {"Tarvo N10", "a.jpg", &standard, false, 0, 0x3000, false},
          {"Tarvo N10", "a.xyz", nullptr, false, 0, 0x3000, false},
      };
  for (const auto& [model, file, operations, hasBragbooks, status, format, sendRequired] : rows) {
    device_.model = model;
    device_.capabilities.deviceSupportsBragbooks = hasBragbooks;
    sendRequired_ = operations == &standard;
    info_ = XTExtendedObjectInfo();
    EXPECT_EQ(fill(file, operations), status) << model << ' ' << file;
    EXPECT_EQ(info_.objFmtCode(), format) << model << ' ' << file;
    EXPECT_EQ(sendRequired_, sendRequired) << model << ' ' << file;
  }
  device_.model = "Tarvo Lumo 500";
  device_.capabilities.deviceSupportsBragbooks = true;
  device_.imageFormats = {0x3801, 0xB803};
  EXPECT_EQ(fill("FAV1.jpeg", &standard), 0);
  EXPECT_EQ(info_.objFmtCode(), 0xB803);
}

TEST_F(FileObjectInfoTest, RefusesWhatIsNoFileOrCannotBeAnnounced) {
  const CodeList operations = {0x100D};
  const auto statusOf = [&](const std::string& path) {
    return fillInObjInfo(info_, path, &operations, device_.facts(), kMaker, nullptr);
  };
  TraceRecorder traces;
  const std::string missing = folder_.path("missing.jpg");
  EXPECT_EQ(statusOf(missing), -43);
  EXPECT_EQ(statusOf(folder_.path()), -1302);
  EXPECT_THAT(traces.take(), testing::ElementsAre("MakeObjectInfo: path was not found: " + missing,
                                                  "MakeObjectInfo: path does not specify a file: " +
                                                      folder_.path()));
  const std::string large = folder_.write("large.jpg", "");
  for (const auto& [size, status] : {std::pair(0x100000000, -50), {0xFFFFFFFF, 0}}) {
    ASSERT_EQ(::truncate(large.c_str(), size), 0);
    EXPECT_EQ(statusOf(large), status);
  }
  EXPECT_EQ(info_.compressedSize(), 0xFFFFFFFF);
}

TEST_F(FileObjectInfoTest, TakesTheFileTypeFromTheAttributeWhereThereIsOne) {
  const std::string path = folder_.write("a.jpg", "");
  const CodeList operations = {0x100D};
  TraceRecorder traces;
  for (const std::string& type : {std::string("TIFF"), std::string(), std::string("JPEGs")}) {
    if (::setxattr(path.c_str(), "user.tarvo.hfstype", type.data(), type.size(), 0) != 0)
      GTEST_SKIP() << "no extended attributes here";
    EXPECT_EQ(fillInObjInfo(info_, path, &operations, device_.facts(), kMaker, nullptr),
              type == "TIFF" ? 0 : -127);
    EXPECT_EQ(traces.take().front(), type == "TIFF"
                                         ? "MakeObjectInfo: file type: TIFF"
                                         : "MakeObjectInfo: file type was not found for: " + path);
    EXPECT_TRUE(type != "TIFF" || info_.objFmtCode() == 0x3801) << "the extension decides";
  }
}

TEST(SendingContent, DropsTheRefusalOfTheDefaultCollectionFileAlone) {
  const std::tuple<const char*, const char*, const char*, Status> rows[] = {
      {"/x/PREFGUID.TXT", "Tarvo Lumo 500", "SendObjectInfo", 0},
      {"PREFGUID.TXT", "Tarvo Lumo 500", "SendObject", 0x200C},
      {"/x/PREFGUID.TXT", "Tarvo Brisklink picture viewer", "SendObjectInfo", 0x200C},
      {"/PREFGUID.TXT/a", "Tarvo Lumo 500", "SendObjectInfo", 0x200C},
  };
  for (const auto& [path, model, failing, expected] : rows) {
    ScriptedPTPTransactions device;
    device.model = model;
    device.failing[failing] = 0x200C;
    XTExtendedObjectInfo info;
    std::uint32_t handle = 5;
    EXPECT_EQ(ObjectSending(device, kMaker).sendContent(path, 0, 0, {}, info, &handle), expected)
        << path << ' ' << model;
    EXPECT_EQ(handle, 5U);
  }
}

}  // namespace
}  // namespace tarvo::test
