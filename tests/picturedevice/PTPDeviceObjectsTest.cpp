// Stores, objects and properties of a PTP device: what goes over the wire, and what is made of the
// answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPDevice.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

std::vector<std::uint8_t> bytesOf(const XTPTPDataSet& dataSet) {
  std::vector<std::uint8_t> bytes;
  for (const std::byte each : dataSet.bytes())
    bytes.push_back(std::to_integer<std::uint8_t>(each));
  return bytes;
}

XTExtendedObjectInfo picture(std::uint32_t size = 1000, std::uint32_t thumbSize = 0) {
  XTExtendedObjectInfo info;
  info.setObjFmtCode(0x3801);
  info.setCompressedSize(size);
  info.setThumbCompressedSize(thumbSize);
  info.setProtectionStatus(1);
  info.setFileName("A.JPG");
  return info;
}

PTPAnswer infoAnswer(const XTExtendedObjectInfo& info) {
  return {.data = bytesOf(info.dataSetWithByteOrder(kPTPByteOrder))};
}

PTPAnswer numbers(const std::vector<std::uint32_t>& values) {
  PTPBytes bytes;
  bytes.u32(static_cast<std::uint32_t>(values.size()));
  for (const auto value : values)
    bytes.u32(value);
  return {.data = bytes};
}

// Those of one form stand in PTPDeviceFailureTest.cpp.
TEST(PTPOperations, OfSeveralFormsGoOutWithTheParametersOfEach) {
  using D = XTImageCapturePTPDevice;
  const std::pair<const char*, std::function<void(D&)>> rows[] = {
      {"1001()0<2048", [](D& d) { d.deviceInfoDataset(); }},
      {"1006(1,3801)1-", [](D& d) { d.numberOfObjectsOnStore(1, 0x3801); }},
      {"1006(0,ffffffff)1-", [](D& d) { d.numberOfObjectsOnStore(0, ptp::kAllImageFormats); }},
      {"1006(1,0,9)1-", [](D& d) { d.numberOfObjectsOnStore(1, 0, 9); }},
      {"1007(1)0<16", [](D& d) { d.objectHandlesOnStore(1, 0); }},
      {"1007(1,b203,9)0<16", [](D& d) { d.objectHandlesOnStore(1, 0xB203, 9); }},
      {"9203(1,0,0)0<16", [](D& d) { d.pictureFilesizeOnStore(1, 0); }},
      {"900c()0<12", [](D& d) { d.doesLCBInfoWork(); }},
  };
  for (const auto& [sent, call] : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x1006] = {.parameters = {3}};
    call(*scripted);
    EXPECT_EQ(scripted.sent().back(), sent);
  }
}

TEST(PTPCounts, RefuseAStoreWithoutALogicalPartAndKnowAFormatThatTheDeviceDoesNot) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x1006] = {.parameters = {4}};
  const std::pair<std::uint32_t, std::int32_t> rows[] = {
      {0x00010000, -1}, {0xFFFF0000, -1}, {0, 4}, {0x00010001, 4}, {0xFFFFFFFF, 4}};
  for (const auto& [store, count] : rows) {
    scripted.forget();
    EXPECT_EQ(scripted->numberOfObjectsOnStore(store, 0), count) << store;
    EXPECT_EQ(scripted->numberOfObjectsOnStore(store, 0, 5), count) << store;
    EXPECT_EQ(scripted.sent().size(), count < 0 ? 0U : 2U) << store;
    EXPECT_TRUE(scripted.room.trace.contains("numberOfObjectsOnStore - entered"));
  }
  EXPECT_TRUE(scripted.room.trace.contains("\t\t\t\t  Number of Objects: 4"));

  scripted.camera.answers[0x1006] = {.responseCode = 0x200B};
  scripted.room.trace.clear();
  EXPECT_EQ(scripted->numberOfObjectsOnStore(1, 0xB203), 0);
  EXPECT_FALSE(scripted.room.trace.contains("header.err"));
  scripted.camera.answers[0x1006] = {.responseCode = 0x2008};
  EXPECT_EQ(scripted->numberOfObjectsOnStore(1, 0xB203), -1);
}

TEST(PTPLists, AreTakenAsTheDeviceGivesThem) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x1006] = {.parameters = {3}};
  scripted.camera.answers[0x1007] = numbers({9, 7, 8});
  scripted.camera.answers[0x9203] = numbers({100, 200});
  EXPECT_THAT(*scripted->objectHandlesOnStore(1, 0x3801, 5), ElementsAre(9, 7, 8));
  EXPECT_EQ(scripted.sent()[0], "1006(1,0,5)1-") << "the room is for all formats";
  EXPECT_THAT(*scripted->pictureFilesizeOnStore(1, 0), ElementsAre(100, 200));
  EXPECT_TRUE(scripted.room.trace.contains("Object Handles: 0x00000009 0x00000007 0x00000008"));
  EXPECT_TRUE(scripted.room.trace.contains("Picture FileSizes: 100 200"));

  for (const std::uint16_t response : {0x200B, 0x2002}) {
    scripted.forget();
    scripted.camera.answers[0x1007] = scripted.camera.answers[0x9203] = {.responseCode = response};
    EXPECT_EQ(scripted->objectHandlesOnStore(1, 0x3801).has_value(), response == 0x200B);
    EXPECT_EQ(scripted->pictureFilesizeOnStore(1, 0x3801).has_value(), response == 0x200B);
    EXPECT_EQ(scripted.room.trace.count("header.err"), response == 0x200B ? 0U : 2U);
  }
  scripted.forget();
  for (const PTPAnswer& count : {PTPAnswer{.parameters = {0}}, PTPAnswer{.responseCode = 0x2008}}) {
    scripted.camera.answers[0x1006] = count;
    EXPECT_THAT(*scripted->objectHandlesOnStore(1, 0), IsEmpty());
    EXPECT_EQ(scripted->lastOutcome(), count.responseCode == 0x2001 ? 0 : 0x2008);
  }
  EXPECT_EQ(scripted.sent().size(), 2U);
}

TEST(PTPLists, CostNoMoreThanArrivesWhateverTheDeviceCounts) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x1006] = {.parameters = {3}};
  scripted.camera.answers[0x1007] = {.data = PTPBytes().u32(3).u32(9)};
  EXPECT_THAT(*scripted->objectHandlesOnStore(1, 0), ElementsAre(9, 0, 0));
  EXPECT_TRUE(
      scripted.room.trace.contains("objectHandlesOnStore read 16 bytes, the device sent 8"));
  scripted.camera.answers[0x1007] = {.data = PTPBytes().u32(4).u32(9)};
  EXPECT_THAT(raised([&] { scripted->objectHandlesOnStore(1, 0); }), StartsWith("NSRange"));

  // 4 MiB of handles, of which none comes; then more than any device holds.
  scripted.camera.answers[0x1006] = {.parameters = {0x00100000}};
  scripted.camera.answers[0x1007] = {.data = PTPBytes().u32(0x00100000)};
  EXPECT_THAT(raised([&] { scripted->objectHandlesOnStore(1, 0); }), StartsWith("NSRange"));
  scripted.camera.answers[0x1006] = {.parameters = {0x7FFFFFFF}};
  EXPECT_EQ(raised([&] { scripted->objectHandlesOnStore(1, 0); }),
            "NSMallocException: No memory for 2147483647 object handles");
  EXPECT_TRUE(scripted.room.trace.contains(
      "XTImageCapturePTPDevice:objectHandlesOnStore:ofType: No memory for 2147483647 object"));
}

TEST(PTPObjectInfo, IsReadInTheStandardFormTriedTwiceAndKept) {
  ScriptedPTPDevice scripted;
  ObjectInfoPointer info;
  scripted.camera.answers[0x1008] = {.responseCode = 0x2009};
  EXPECT_EQ(scripted->objectInfo(info, 7), 0x2009);
  EXPECT_FALSE(info);
  EXPECT_EQ(scripted.sent().size(), 2U);

  scripted.forget();
  auto extended = picture();
  extended.setIsExtended(true);
  scripted.camera.answers[0x1008] = infoAnswer(extended);
  EXPECT_EQ(scripted->objectInfo(info, 7), 0);
  EXPECT_EQ(*info, picture()) << "the extension is not read";
  EXPECT_EQ(scripted->cachedObject(), 7U);
  EXPECT_EQ(scripted->objectSize(7), 1000);
  EXPECT_EQ(scripted->objectFilename(7), "A.JPG");
  EXPECT_TRUE(scripted->isProtected(7));
  EXPECT_EQ(scripted.sent().size(), 1U);
}

TEST(PTPObjectInfo, IsAskedForAnewAfterAChangeOfOurs) {
  using D = XTImageCapturePTPDevice;
  static XTExtendedObjectInfo info;
  static std::uint32_t handle = 0;
  const std::pair<std::function<void(D&)>, int> changes[] = {
      {[](D& d) { d.deleteObject(7, 0, 0x100B); }, 2},
      {[](D& d) { d.deleteObject(8, 0, 0x100B); }, 1},  // another one
      {[](D& d) { d.updateExtObjectInfo(info, 7); }, 2},
      {[](D& d) { d.formatStore(1); }, 2},
      {[](D& d) { d.sendDeviceReset(); }, 2},
      {[](D& d) { d.sendObjectInfo(info, 0, 0, &handle); }, 2},  // which has that handle
  };
  for (const auto& [change, asked] : changes) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x1008] = infoAnswer(picture());
    for (const std::uint16_t code : {0x100B, 0x9206, 0x100F, 0x1010, 0x100C})
      scripted.camera.answers[code] = {.parameters = {1, 2, 7}};
    scripted->objectSize(7);
    change(*scripted);
    const auto last = scripted.camera.operations.back();
    scripted->objectSize(7);
    EXPECT_EQ(std::ranges::count(scripted.camera.operations, 0x1008), asked) << last;
  }
}

TEST(PTPObjects, OfOneFormatAreDeletedUntilADeletionFails) {
  const struct {
    PTPAnswer count;
    PTPAnswer deletion;
    Status status;
    int deletions;
  } rows[] = {
      {{.parameters = {3}}, {}, 0, 3},
      {{.parameters = {3}}, {.responseCode = 0x200D}, 0x200D, 1},
      {{.responseCode = 0x200B}, {}, 0, 0},
      {{.responseCode = 0x2002}, {}, 0x2002, 0},
  };
  for (const auto& row : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x1006] = row.count;
    scripted.camera.answers[0x1007] = numbers({9, 7, 8});
    scripted.camera.answers[0x1008] = infoAnswer(picture());
    scripted.camera.answers[0x100B] = row.deletion;
    EXPECT_EQ(scripted->deleteFilesOfType(0xB003), row.status);
    EXPECT_EQ(std::ranges::count(scripted.camera.operations, 0x100B), row.deletions);
    EXPECT_EQ(scripted.sent()[0], "1006(ffffffff,b003)1-");
  }
}

TEST(PTPObjects, AreNamedByNumbersAlone) {
  ScriptedPTPDevice scripted;
  for (const ObjectReference& object :
       {ObjectReference(), ObjectReference("7"), ObjectReference(0), ObjectReference(-7),
        ObjectReference(7.5), ObjectReference(0x100000000), ObjectReference({{"icao", 7}})}) {
    EXPECT_EQ(scripted->deleteObject(object), 0x2009) << object;
    EXPECT_EQ(scripted->downloadFile(object, "/nowhere"), 0x2009);
    EXPECT_EQ(scripted->downloadImage(object, "/nowhere"), 0x2009);
    EXPECT_FALSE(scripted->downloadObject(object) || scripted->downloadThumb(object) ||
                 scripted->objectInfoForHandle(object) || scripted->objectFilename(object) ||
                 scripted->isProtected(object));
    EXPECT_EQ(scripted->objectSize(object) + scripted->thumbSize(object), 0);
  }
  EXPECT_THAT(scripted.sent(), IsEmpty());
}

TEST(PTPProperties, AreReadWhereListedAndSentWithPaddingWhereNeeded) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x1015] = {.data = {80}};
  scripted.camera.answers[0x1016] = {};
  EXPECT_EQ(scripted->propertyValueDataSet(0x5001)->length(), 1U) << "what came, not the room";
  EXPECT_FALSE(scripted->propertyValueDataSet(0x5002));
  EXPECT_EQ(scripted->batteryLevel(), 80);
  scripted.camera.answers[0x1015] = {};
  EXPECT_EQ(scripted->batteryLevel(), 255);
  for (const auto& [size, sent] : {std::pair{51, 51}, {52, 53}, {53, 53}, {116, 117}}) {
    scripted->setProperty(0x5011, std::vector<std::byte>(static_cast<std::size_t>(size)));
    EXPECT_EQ(std::ssize(scripted.camera.payloads.back()), sent);
  }
}

TEST(PTPVersions, AreAskedOnlyOfADeviceThatHasTheFeature) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x9011] = {.parameters = {0x10002}};
  scripted.camera.answers[0x9008] = {};
  EXPECT_EQ(scripted->bragbookVersion(), 2);
  EXPECT_TRUE(scripted.room.trace.contains("Bragbook Version: 2"));
  auto request = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  request.appendBytes(std::vector<std::byte>(52).data(), 52);
  EXPECT_EQ(scripted->displayRequest(request), 0x2001) << "the response, not 0";
  EXPECT_EQ(scripted.sent().back(), "9008()0>53");

  auto foreign = fullCamera();
  foreign.manufacturer = "Foto";
  ScriptedPTPDevice lacking(foreign);
  XT_AddressBookInfo info;
  EXPECT_EQ(lacking->bragbookVersion(), 0);
  EXPECT_EQ(lacking->addressBookInfo(info), 0x2005);
  EXPECT_THAT(lacking.sent(), IsEmpty());
}

TEST(PTPAddressBookInfo, IsKeptOnceItHasAVersion) {
  ScriptedPTPDevice scripted;
  XT_AddressBookInfo info;
  XT_AddressBookInfo onDevice{.maxAddresses = 9, .maxGroupNameLengthInBytes = 20};
  for (const std::uint16_t version : {0, 2, 3}) {
    onDevice.version = version;
    scripted.camera.answers[0x9007] = {.data = bytesOf(dataSetFromAddressBookInfo(onDevice))};
    EXPECT_EQ(scripted->addressBookInfo(info), 0);
    EXPECT_EQ(info.version, std::min<int>(version, 2));
    EXPECT_EQ(info.maxGroupNameLengthInBytes, 20U);
  }
  EXPECT_EQ(scripted.sent().size(), 2U);
  EXPECT_TRUE(scripted.room.trace.contains("AddressBookInfo.maxGroupNameLengthInBytes: 20"));
}

}  // namespace
}  // namespace tarvo::test
