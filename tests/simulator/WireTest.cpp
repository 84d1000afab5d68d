// The camera at the level of USB requests: how it checks the host, and how it behaves when
// something goes wrong in either direction.
#include <gmock/gmock.h>

#include "Utilities/PTPCodes.h"
#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using State = InResult::State;

class Wire : public ::testing::Test {
 protected:
  Wire() { command(ptp::kOpenSession, 0, {1}), response(); }

  OutResult send(const Bytes& bytes) {
    return camera_.out(PTPCamera::kBulkOut, bytes, bytes.size() % 512 != 0);
  }
  OutResult command(std::uint16_t code, std::uint32_t id, const std::vector<std::uint32_t>& with) {
    return send(parameterContainer(ptp::kCommandBlock, code, id, with));
  }
  OutResult data(std::uint16_t code, std::uint32_t id, const Bytes& payload) {
    return send(dataContainer(code, id, payload));
  }
  static Bytes dataContainer(std::uint16_t code, std::uint32_t id, const Bytes& payload) {
    ByteWriter writer;
    writer.raw(parameterContainer(ptp::kDataBlock, code, id, {}));
    writer.raw(payload);
    auto bytes = writer.take();
    bytes[0] = static_cast<std::byte>(bytes.size());
    bytes[1] = static_cast<std::byte>(bytes.size() >> 8);
    return bytes;
  }

  /// One transfer from the camera.
  Bytes take(std::uint8_t endpoint = PTPCamera::kBulkIn) {
    Bytes room(8192);
    last_ = camera_.in(endpoint, room);
    room.resize(last_.length);
    return room;
  }
  /// The code of the container that comes next; 0 where none does.
  std::uint16_t response() { return static_cast<std::uint16_t>(littleEndian(take(), 6, 2)); }
  std::uint16_t status() {
    const auto answer = camera_.control({0xA1, ptp::kGetDeviceStatus, 0, 0, 64}, {});
    return static_cast<std::uint16_t>(littleEndian(*answer, 2, 2));
  }
  void cancel(std::uint32_t id) {
    ByteWriter writer;
    writer.u16(ptp::kCancellationCode);
    writer.u32(id);
    camera_.control({0x21, ptp::kCancelRequest, 0, 0, 6}, writer.take());
  }

  PTPCamera camera_{DeviceDescription::fromJson(nlohmann::json::parse(R"({
      "usb": {"vendor": 1, "product": 2}, "deviceInfo": {},
      "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}],
      "stores": [{"content": [{"file": "A.JPG", "size": 6000}]}]})"))};
  InResult last_;
};

constexpr std::uint16_t kSet = ptp::kSetDevicePropValue;
const Bytes kValue = {std::byte{1}, std::byte{}, std::byte{}, std::byte{}, std::byte{9}};

TEST_F(Wire, EveryBreachOfTheProtocolIsNoted) {
  struct Row {
    const char* expected;
    std::function<void()> breach;
  };
  auto lying = dataContainer(kSet, 3, kValue);
  lying[0] = std::byte{99};
  const Row rows[] = {
      {"transaction id 1 was expected, got 5", [&] { command(ptp::kGetStorageIDs, 5, {}); }},
      {"operation 0x1008: 1 to 1 parameters were expected, got 2",
       [&] {
         command(ptp::kGetObjectInfo, 6, {1, 2});
       }},
      {"a command came before the last answer was taken",
       [&] { command(ptp::kGetObject, 7, {1}), command(ptp::kGetNumObjects, 8, {0xFFFFFFFF}); }},
      {"a command was expected, got 17 bytes, type 2", [&] { data(kSet, 9, kValue); }},
      {"data of operation 0x1016 were expected, a command came",
       [&] { command(kSet, 9, {0xD100}), command(ptp::kGetNumObjects, 10, {0xFFFFFFFF}); }},
      {"0x1016: 99 bytes claimed, 17 came", [&] { command(kSet, 11, {0xD100}), send(lying); }},
      {"its length 64 is a multiple of 64",
       [&] { command(kSet, 12, {0xD100}), data(kSet, 12, Bytes(52)); }},
      {"wrong type, code or transaction id",
       [&] { command(kSet, 13, {0xD100}), data(kSet, 1, kValue); }},
      {"operation 0x1004 without a session",
       [&] {
         command(ptp::kCloseSession, 14, {}), response();
         command(ptp::kGetStorageIDs, 0, {});
       }},
      {"a session id of 0", [&] { command(ptp::kOpenSession, 0, {0}); }},
  };
  for (const auto& row : rows) {
    camera_.forgetViolations();
    row.breach();
    EXPECT_THAT(camera_.violations(), Contains(HasSubstr(row.expected)));
    while (!take().empty()) {
    }
  }
}

TEST_F(Wire, ADataPhaseMayComeInPieces) {
  command(kSet, 1, {0xD100});
  const auto container = dataContainer(kSet, 1, kValue);
  camera_.out(PTPCamera::kBulkOut, std::span(container).first(7), false);
  camera_.out(PTPCamera::kBulkOut, std::span(container).subspan(7), true);
  EXPECT_EQ(response(), kOK);
  EXPECT_THAT(camera_.propertyValue(0xD100), ElementsAre(9));
  EXPECT_THAT(camera_.violations(), IsEmpty());
}

TEST_F(Wire, ACancelEndsATransactionInEitherDirection) {
  command(ptp::kGetObject, 1, {1});
  Bytes room(512);
  camera_.in(PTPCamera::kBulkIn, room);
  cancel(1);
  EXPECT_EQ(status(), kDeviceBusy);
  EXPECT_EQ(status(), kOK);
  EXPECT_THAT(take(), IsEmpty());
  command(kSet, 2, {0xD100});
  cancel(2);
  command(ptp::kGetNumObjects, 3, {0xFFFFFFFF});
  EXPECT_EQ(response(), kOK);
  EXPECT_THAT(camera_.propertyValue(0xD100), ElementsAre(1));
  EXPECT_THAT(camera_.violations(), IsEmpty());
}

TEST_F(Wire, ADeviceResetForgetsSessionAndTransaction) {
  command(ptp::kGetObject, 1, {1});
  camera_.control({0x21, ptp::kDeviceResetRequest, 0, 0, 0}, {});
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(status(), kOK);
  command(ptp::kOpenSession, 0, {1});
  EXPECT_EQ(response(), kOK);
  EXPECT_THAT(camera_.violations(), IsEmpty());
}

TEST_F(Wire, AStallWhileReceivingLeavesTheCameraAsItWas) {
  ASSERT_EQ(camera_.setFault("stall-out", "once"), "");
  command(kSet, 1, {0xD100});
  EXPECT_EQ(data(kSet, 1, kValue), OutResult::kStalled);
  EXPECT_EQ(status(), kTransactionCancelled);
  camera_.clearHalt(PTPCamera::kBulkOut);
  EXPECT_THAT(camera_.propertyValue(0xD100), ElementsAre(1));
  command(kSet, 2, {0xD100});
  data(kSet, 2, kValue);
  EXPECT_EQ(response(), kOK);
}

TEST_F(Wire, FaultsSpoilTheAnswer) {
  ASSERT_EQ(camera_.setFault("respond", "0x2019,once"), "");
  command(ptp::kGetNumObjects, 1, {0xFFFFFFFF});
  EXPECT_EQ(response(), kDeviceBusy);
  ASSERT_EQ(camera_.setFault("babble", "once"), "");
  command(ptp::kGetObject, 2, {1});
  take();
  EXPECT_EQ(last_.state, State::kOverflow);
  EXPECT_EQ(response(), kOK);
  ASSERT_EQ(camera_.setFault("short", "once"), "");
  command(ptp::kGetObject, 3, {1});
  EXPECT_EQ(take().size(), 3012U);
  EXPECT_EQ(last_.state, State::kShort);
  EXPECT_EQ(response(), kOK);
  ASSERT_EQ(camera_.setFault("vanish", ""), "");
  command(kSet, 4, {0xD100});
  EXPECT_EQ(data(kSet, 4, kValue), OutResult::kGone);
  EXPECT_TRUE(camera_.isGone());
}

TEST_F(Wire, PowerDownAnswersAndGoes) {
  command(ptp::kPowerDown, 1, {});
  EXPECT_EQ(response(), kOK);
  EXPECT_TRUE(camera_.isGone());
}

TEST_F(Wire, WhatTheCameraDoesByItselfComesAsEvents) {
  int activity = 0;
  camera_.onActivity([&] { ++activity; });
  StoredObject object;
  object.name = u"NEW.JPG";
  EXPECT_EQ(camera_.addObject(object), 2U);
  EXPECT_TRUE(camera_.changeProperty(0xD100, nlohmann::json::array({5})));
  EXPECT_EQ(camera_.capture(), 3U);
  EXPECT_TRUE(camera_.removeObject(2));
  EXPECT_FALSE(camera_.removeObject(2));
  const std::pair<std::uint16_t, std::uint32_t> expected[] = {
      {kObjectAdded, 2}, {kDevicePropChanged, 0xD100}, {kObjectAdded, 3}, {kObjectRemoved, 2}};
  for (const auto& [code, parameter] : expected) {
    const auto event = take(PTPCamera::kInterruptIn);
    EXPECT_EQ(littleEndian(event, 4, 2), ptp::kEventBlock);
    EXPECT_EQ(littleEndian(event, 6, 2), code);
    EXPECT_EQ(littleEndian(event, 12, 4), parameter);
  }
  EXPECT_EQ(activity, 4);
}

TEST_F(Wire, ALargeObjectIsStreamedAsItsPattern) {
  PTPCamera camera(DeviceDescription::fromJson(nlohmann::json::parse(R"({
      "usb": {"vendor": 1, "product": 2}, "deviceInfo": {}, "stores": [{"content": [
        {"file": "A.MOV", "size": 4294967295}, {"file": "B.MOV", "size": 70000, "hidesSize": true}
      ]}]})")));
  const auto content = camera.content(1);
  ASSERT_EQ(content->size(), 4294967295U);
  Bytes room(70001);
  const std::uint64_t offset = 4294967295U - room.size();
  content->read(offset, room);
  for (std::size_t i = 0; i < room.size(); ++i) {
    const auto at = offset + i;
    ASSERT_EQ(room[i], static_cast<std::byte>(at ^ (at >> 8) ^ 37)) << at;
  }
  EXPECT_EQ(camera.bytes(2).size(), 70000U);
}

}  // namespace
}  // namespace tarvo::simulator
