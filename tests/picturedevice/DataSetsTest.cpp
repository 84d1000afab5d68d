// Vendor data sets of a PTP device on the wire: the room that each gets, and what becomes of one
// that is too large or too short.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPDevice.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST(DataSetRooms, AreForAllFormatsOfAKind) {
  CameraWithBook scripted;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(scripted->maxAlbumArrayLength(), 24U);
    EXPECT_EQ(scripted->maxEmailOrderArrayLength(), 44U);
    EXPECT_EQ(scripted->maxPrintOrderArrayLength(), 44U);
    EXPECT_EQ(scripted->maxTransferOrderArrayLength(), 44U);
    EXPECT_EQ(scripted->maxAudioAnnotationArrayLength(), 24U);
  }
  std::string asked;
  for (const auto& pb : scripted.camera.records)
    asked += formatted(" %X", pb.params[1]);
  EXPECT_EQ(asked, " B201 B204 B207 B205 B208 B206 B209 3008") << "once";
  EXPECT_EQ(arrayLength(-1), 0U);
  EXPECT_EQ(arrayLength(0x40000000), 0xFFFFFFFF);
  EXPECT_EQ(roomForDataSet(0xFFFFFFFF, 1), 0xFFFFFFFF);
  EXPECT_EQ(sumOfCounts({1, 2}, [](std::uint16_t format) { return format == 1 ? 5 : -1; }), -1);
  EXPECT_EQ(sumOfCounts({1, 2}, [](std::uint16_t) { return 0x7FFFFFFF; }), 0x7FFFFFFF);
}

TEST(GettingADataSet, GivesAllOfItOrNothing) {
  constexpr std::size_t kRoom = 2098;
  const struct {
    std::size_t size;
    bool isGiven;
    std::uint32_t last;  ///< the last four bytes of the room
  } rows[] = {
      {kRoom, true, 0x01010101}, {kRoom - 3, true, 0x01}, {0, true, 0}, {kRoom + 1, false, 0}};
  for (const auto& row : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x9204] = {.data = std::vector<std::uint8_t>(row.size, 1)};
    auto dataSet = scripted->getDataSet(11, 0xB205);
    EXPECT_THAT(scripted.sent(), ElementsAre("9204(b,b205)0<2098"));
    ASSERT_EQ(dataSet.has_value(), row.isGiven) << row.size;
    EXPECT_EQ(scripted->lastOutcome(), row.isGiven ? 0 : 0x2007);
    EXPECT_EQ(scripted.room.trace.contains("the data set is larger than 2098 bytes"), !row.isGiven);
    if (!dataSet) continue;
    // The whole record, of which the reader stands behind the header.
    EXPECT_EQ(dataSet->length(), kRoom + 45);
    EXPECT_EQ(dataSet->position(), 44U);
    dataSet->setPosition(0);
    EXPECT_EQ(dataSet->scanUInt32(), 0x9204U);
    dataSet->setPosition(44 + kRoom - 4);
    EXPECT_EQ(dataSet->scanUInt32(), row.last) << row.size;
    EXPECT_EQ(wasShort(*scripted, *dataSet, 11), row.size < kRoom);
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
    dataSet.appendBytes(std::vector<std::byte>(size, std::byte{1}).data(), size);
    return updates ? scripted->updateObject(0x77, 0xB202, dataSet)
                   : scripted->createFormat(0xB202, dataSet, &handle);
  };
  EXPECT_EQ(send(51, false), 0);
  EXPECT_EQ(handle, 0x77U);
  EXPECT_FALSE(scripted.room.trace.contains("Asjusted"));
  EXPECT_EQ(send(52, false), 0);
  EXPECT_TRUE(scripted.room.trace.contains("Asjusted size of dataset to 53"));
  EXPECT_EQ(send(116, true), 0);
  EXPECT_THAT(scripted.sent(),
              ElementsAre("9205(b202)1>51", "9205(b202)1>53", "9207(77,b202)0>117"));
  EXPECT_EQ(scripted.camera.payloads[1].back(), 0);
  scripted.camera.answers[0x9205] = {.responseCode = 0x200C, .parameters = {0x78}};
  EXPECT_EQ(send(51, false), 0x200C);
  EXPECT_EQ(handle, 0x77U);
}

TEST(Fulfilment, IsToldWithTheMessagesOwnErrorFirst) {
  const std::pair<PTPAnswer, Status> rows[] = {
      {{}, 0},
      {{.responseCode = 0x2009}, 0x2009},
      {{.status = status::kICATimeout}, status::kICATimeout},
  };
  for (const auto& [answer, returned] : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x9208] = answer;
    EXPECT_EQ(scripted->indicateFulfillment(11, 1), returned);
    EXPECT_THAT(scripted.sent(), ElementsAre("9208(b,1,0)0-"));
    EXPECT_EQ(scripted.room.trace.count(
                  "indicateFulfillment XTO_MODIFY_ASSET_LIST objectSendMessagePB.header.err: 0x"),
              returned == 0 ? 0U : 1U);
  }
  auto description = fullCamera();
  std::erase(description.operations, 0x9208);
  EXPECT_EQ(ScriptedPTPDevice(description)->indicateFulfillment(11, 1), 0x2005);
}

}  // namespace
}  // namespace tarvo::test
