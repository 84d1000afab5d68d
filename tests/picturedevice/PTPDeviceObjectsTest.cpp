// Stores, objects, properties and vendor data sets of a PTP device: what goes over the wire, and
// what is made of the answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPDevice.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
      {"1006(1,3801)1-", [](D& d) { d.numberOfObjectsOnStore(1, 0x3801); }},
      {"1006(0,ffffffff)1-", [](D& d) { d.numberOfObjectsOnStore(0, ptp::kAllImageFormats); }},
      {"1006(1,0,9)1-", [](D& d) { d.numberOfObjectsOnStore(1, 0, 9); }},
      {"1007(1)0<16", [](D& d) { d.objectHandlesOnStore(1, 0); }},
      {"1007(1,b203,9)0<16", [](D& d) { d.objectHandlesOnStore(1, 0xB203, 9); }},
      {"9203(1,0,0)0<16", [](D& d) { d.pictureFilesizeOnStore(1, 0); }},
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
  auto& answer = scripted.camera.answers[0x1006];
  answer = {.parameters = {4}};
  for (const std::uint32_t store : {0x00010000U, 0U, 0x00010001U, 0xFFFFFFFFU}) {
    const int count = store == 0x00010000 ? -1 : 4;
    EXPECT_EQ(scripted->numberOfObjectsOnStore(store, 0), count) << store;
    EXPECT_EQ(scripted->numberOfObjectsOnStore(store, 0, 5), count) << store;
  }
  EXPECT_EQ(scripted.sent().size(), 6U);
  EXPECT_TRUE(scripted.room.trace.contains("numberOfObjectsOnStore - entered"));
  EXPECT_TRUE(scripted.room.trace.contains("\t\t\t\t  Number of Objects: 4"));
  answer = {.responseCode = 0x200B};
  EXPECT_EQ(scripted->numberOfObjectsOnStore(1, 0xB203), 0);
  EXPECT_FALSE(scripted.room.trace.contains("header.err"));
  answer = {.responseCode = 0x2008};
  EXPECT_EQ(scripted->numberOfObjectsOnStore(1, 0xB203), -1);
}

TEST(PTPLists, AreTakenAsTheDeviceGivesThem) {
  ScriptedPTPDevice scripted;
  auto& answers = scripted.camera.answers;
  answers[0x1006] = {.parameters = {3}};
  answers[0x1007] = answers[0x9203] = numbers({9, 7, 8});
  EXPECT_THAT(*scripted->objectHandlesOnStore(1, 0x3801, 5), ElementsAre(9, 7, 8));
  EXPECT_EQ(scripted.sent()[0], "1006(1,0,5)1-") << "the room is for all formats";
  EXPECT_THAT(*scripted->pictureFilesizeOnStore(1, 0), ElementsAre(9, 7, 8));
  EXPECT_TRUE(scripted.room.trace.contains("Object Handles: 0x00000009 0x00000007 0x00000008"));
  EXPECT_TRUE(scripted.room.trace.contains("Picture FileSizes: 9 7 8"));
  for (const std::uint16_t response : {0x200B, 0x2002}) {
    scripted.forget();
    answers[0x1007] = answers[0x9203] = {.responseCode = response};
    EXPECT_EQ(scripted->objectHandlesOnStore(1, 0x3801).has_value(), response == 0x200B);
    EXPECT_EQ(scripted->pictureFilesizeOnStore(1, 0x3801).has_value(), response == 0x200B);
    EXPECT_EQ(scripted.room.trace.count("header.err"), response == 0x200B ? 0U : 2U);
  }
  for (const PTPAnswer& count : {PTPAnswer{.parameters = {0}}, PTPAnswer{.responseCode = 0x2008}}) {
    scripted.forget();
    answers[0x1006] = count;
    EXPECT_THAT(*scripted->objectHandlesOnStore(1, 0), IsEmpty());
    EXPECT_EQ(scripted->lastOutcome(), count.responseCode == 0x2001 ? 0 : 0x2008);
    EXPECT_EQ(scripted.sent().size(), 1U);
  }
}

TEST(PTPLists, CostNoMoreThanArrivesWhateverTheDeviceCounts) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x1006] = {.parameters = {3}};
  scripted.camera.answers[0x1007] = {.data = PTPBytes().u32(3).u32(9)};
  EXPECT_THAT(*scripted->objectHandlesOnStore(1, 0), ElementsAre(9, 0, 0));
  EXPECT_TRUE(
      scripted.room.trace.contains("objectHandlesOnStore read 16 bytes, the device sent 8"));
  scripted.camera.answers[0x1007] = {.data = PTPBytes().u32(4).u32(9)};
  EXPECT_THAT(raised([&] { scripted->objectHandlesOnStore(1, 0); }),
              testing::StartsWith("NSRange"));

  // 4 MiB of handles, of which none comes; then more than any device holds.
  scripted.camera.answers[0x1006] = {.parameters = {0x00100000}};
  scripted.camera.answers[0x1007] = {.data = PTPBytes().u32(0x00100000)};
  EXPECT_THAT(raised([&] { scripted->objectHandlesOnStore(1, 0); }),
              testing::StartsWith("NSRange"));
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
  const std::tuple<PTPAnswer, PTPAnswer, Status, int> rows[] = {
      {{.parameters = {3}}, {}, 0, 3},
      {{.parameters = {3}}, {.responseCode = 0x200D}, 0x200D, 1},
      {{.responseCode = 0x200B}, {}, 0, 0},
      {{.responseCode = 0x2002}, {}, 0x2002, 0},
  };
  for (const auto& [count, deletion, status, deletions] : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x1006] = count;
    scripted.camera.answers[0x1007] = numbers({9, 7, 8});
    scripted.camera.answers[0x1008] = infoAnswer(picture());
    scripted.camera.answers[0x100B] = deletion;
    EXPECT_EQ(scripted->deleteFilesOfType(0xB003), status);
    EXPECT_EQ(std::ranges::count(scripted.camera.operations, 0x100B), deletions);
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

TEST(PTPVersions, AreReadAndThatOfTheAddressBookIsKeptOnceThereIsOne) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x9011] = {.parameters = {0x10002}};
  scripted.camera.answers[0x9008] = {};
  EXPECT_EQ(scripted->bragbookVersion(), 2);
  EXPECT_TRUE(scripted.room.trace.contains("Bragbook Version: 2"));
  auto request = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  request.appendBytes(std::vector<std::byte>(52).data(), 52);
  EXPECT_EQ(scripted->displayRequest(request), 0x2001) << "the response, not 0";
  EXPECT_EQ(scripted.sent().back(), "9008()0>53");
  XT_AddressBookInfo info;
  for (const std::uint16_t version : {0, 2, 3}) {
    scripted.camera.answers[0x9007] = {
        .data = bytesOf(dataSetFromAddressBookInfo({.version = version}))};
    EXPECT_EQ(scripted->addressBookInfo(info), 0);
    EXPECT_EQ(info.version, std::min<int>(version, 2));
  }
}

/// A camera with 10 pictures, 20 contacts and 30 groups.
struct CameraWithBook : ScriptedPTPDevice {
  CameraWithBook() {
    camera.answers[0x9007] = {
        .data = PTPBytes().u16(1).u16(3).u32(9).u32(9).u32(9).u32(9).u32(9).u32(9)};
    camera.counts = [](std::uint32_t format) {
      const std::map<std::uint32_t, std::uint32_t> counts = {
          {0xFFFFFFFF, 10}, {ptp::XTD_CONTACT, 20}, {ptp::XTD_GROUP, 30}};
      return counts.contains(format) ? counts.at(format) : 5U;
    };
  }
};

TEST(DataSetRooms, FollowFromWhatTheDeviceHolds) {
  using Asked = std::vector<std::string>;
  const std::string images = "1006(ffffffff,ffffffff)1-";
  const std::string contacts = "1006(ffffffff,b203)1-";
  const std::tuple<std::uint16_t, std::uint32_t, Asked> rows[] = {
      {0xB201, 44 + 4104, {images}},
      {0xB202, 84 + 1029, {"9007()0<28", contacts}},
      {0xB203, 124 + 10342, {"9007()0<28", "1006(ffffffff,b202)1-"}},
      {0xB204, 44 + 84 + 3097, {images, contacts}},
      {0xB205, 2098, {}},
      {0xB206, 44 + 1047, {images}},
      {0xB20A, 0x10000, {}},
  };
  for (const auto& [format, room, asked] : rows) {
    CameraWithBook scripted;
    EXPECT_EQ(scripted->maxSizeForDatasetFormat(format), room) << std::hex << format;
    EXPECT_EQ(scripted.sent(), asked) << std::hex << format;
    EXPECT_EQ(scripted.room.trace.contains("Could not compute dataset size for for format B20A"),
              format == 0xB20A);
  }
  ScriptedPTPDevice silent;
  silent.camera.answers[0x9007] = {.responseCode = 0x2019};
  for (const std::uint16_t format : {0xB202, 0xB203})
    EXPECT_EQ(silent->maxSizeForDatasetFormat(format), 0x10000U);
}

TEST(DataSetRooms, CountGroupsWhileContactsAreNotCountedAndNeverAgain) {
  CameraWithBook scripted;
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(scripted->maxGroupArrayLength(), 124U);
  EXPECT_EQ(scripted->maxContactArrayLength(), 84U);
  scripted.camera.counts = [](std::uint32_t) { return 1000U; };
  scripted->invalidateCachedCountsUsedForDatasetSizes();
  EXPECT_EQ(scripted->maxContactArrayLength(), 84U);
  EXPECT_EQ(scripted->maxGroupArrayLength(), 124U);
  EXPECT_EQ(scripted->maxAssetArrayLength(), 4004U);
  EXPECT_THAT(scripted.sent(), ElementsAre("1006(ffffffff,b202)1-", "1006(ffffffff,b202)1-",
                                           "1006(ffffffff,b203)1-", "1006(ffffffff,ffffffff)1-"));
  CameraWithBook contactsFirst;
  contactsFirst->maxContactArrayLength();
  EXPECT_EQ(contactsFirst->maxGroupArrayLength(), 0U) << "never counted";
}

TEST(DataSetRooms, AreForAllFormatsOfAKindAndNeverWrap) {
  CameraWithBook scripted;
  EXPECT_EQ(scripted->maxEmailOrderArrayLength(), 44U);
  EXPECT_EQ(scripted->maxPrintOrderArrayLength(), 44U);
  EXPECT_EQ(scripted->maxTransferOrderArrayLength(), 44U);
  std::string asked;
  for (const auto& pb : scripted.camera.records)
    asked += formatted(" %X", pb.params[1]);
  EXPECT_EQ(asked, " B204 B207 B205 B208 B206 B209");
  EXPECT_EQ(arrayLength(-1), 0U);
  EXPECT_EQ(arrayLength(0x40000000), 0xFFFFFFFF);
  EXPECT_EQ(roomForDataSet(0xFFFFFFFF, 1), 0xFFFFFFFF);
  EXPECT_EQ(sumOfCounts({1, 2}, [](std::uint16_t) { return 0x7FFFFFFF; }), 0x7FFFFFFF);
}

TEST(GettingADataSet, GivesAllOfItOrNothing) {
  constexpr std::size_t kRoom = 2098;
  for (const auto& [size, last] :
       {std::pair(kRoom, 0x01010101), {kRoom - 3, 1}, {0, 0}, {kRoom + 1, 0}}) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x9204] = {.data = std::vector<std::uint8_t>(size, 1)};
    auto dataSet = scripted->getDataSet(11, 0xB205);
    const bool isTooLarge = size > kRoom;
    EXPECT_THAT(scripted.sent(), ElementsAre("9204(b,b205)0<2098"));
    ASSERT_EQ(dataSet.has_value(), !isTooLarge) << size;
    EXPECT_EQ(scripted->lastOutcome(), isTooLarge ? 0x2007 : 0);
    EXPECT_EQ(scripted.room.trace.contains("the data set is larger than 2098 bytes"), isTooLarge);
    if (!dataSet) continue;
    // The whole record, of which the reader stands behind the header.
    EXPECT_EQ(dataSet->length(), kRoom + 45);
    EXPECT_EQ(dataSet->position(), 44U);
    dataSet->setPosition(0);
    EXPECT_EQ(dataSet->scanUInt32(), 0x9204U);
    dataSet->setPosition(44 + kRoom - 4);
    EXPECT_EQ(dataSet->scanSInt32(), last) << size;
    EXPECT_EQ(wasShort(*scripted, *dataSet, 11), size < kRoom);
  }
}

TEST(GettingADataSet, MakesNoRoomForWhateverTheDeviceClaims) {
  ScriptedPTPDevice scripted;
  scripted.camera.counts = [](std::uint32_t) { return 0x7FFFFFFFU; };
  EXPECT_EQ(raised([&] { scripted->getDataSet(11, 0xB204); }),
            "NSMallocException: malloc failed in getDataSet.");
  scripted.forget();
  scripted->setDisconnected(true);
  EXPECT_FALSE(scripted->getDataSet(11, 0xB205));
  EXPECT_THAT(scripted.sent(), IsEmpty());
}

TEST(SendingADataSet, PadsItAndGivesTheNewHandle) {
  ScriptedPTPDevice scripted;
  scripted.camera.answers[0x9205] = {.parameters = {0x77}};
  scripted.camera.answers[0x9207] = {};
  std::uint32_t handle = 0;
  const auto send = [&](std::uint32_t size, bool updates) {
    auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
    dataSet.appendBytes(std::vector<std::byte>(size).data(), size);
    return updates ? scripted->updateObject(0x77, 0xB202, dataSet)
                   : scripted->createFormat(0xB202, dataSet, &handle);
  };
  EXPECT_EQ(send(51, false), 0);
  EXPECT_EQ(handle, 0x77U);
  EXPECT_FALSE(scripted.room.trace.contains("Asjusted"));
  EXPECT_EQ(send(116, true), 0);
  EXPECT_TRUE(scripted.room.trace.contains("Asjusted size of dataset to 117"));
  EXPECT_THAT(scripted.sent(), ElementsAre("9205(b202)1>51", "9207(77,b202)0>117"));
  scripted.camera.answers[0x9205] = {.responseCode = 0x200C, .parameters = {0x78}};
  EXPECT_EQ(send(52, false), 0x200C);
  EXPECT_EQ(handle, 0x77U);
}

TEST(Fulfilment, IsToldWithTheMessagesOwnErrorFirst) {
  ScriptedPTPDevice scripted;
  const auto ending = [&](const PTPAnswer& answer) {
    scripted.camera.answers[0x9208] = answer;
    return scripted->indicateFulfillment(11, 1);
  };
  EXPECT_EQ(ending({}), 0);
  EXPECT_EQ(ending({.responseCode = 0x2009}), 0x2009);
  EXPECT_EQ(ending({.status = status::kICATimeout}), status::kICATimeout);
  EXPECT_EQ(scripted.sent(), std::vector<std::string>(3, "9208(b,1,0)0-"));
  EXPECT_EQ(scripted.room.trace.count(
                "indicateFulfillment XTO_MODIFY_ASSET_LIST objectSendMessagePB.header.err: 0x"),
            2U);
}

}  // namespace
}  // namespace tarvo::test
