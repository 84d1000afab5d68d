#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/PTPChannel.h"
#include "tests/imagecapture/ServiceFixture.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ScriptedUSBDevice.h"

namespace tarvo {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
namespace wire = test::wire;

class PassThrough : public ServiceFixture {
 protected:
  PassThrough() {
    usbDevice = plugCamera();
    camera = devices().at(0);
  }
  static PTPPassThroughRecord makeRecord(std::uint32_t operation,
                                         PTPDataUsageMode mode = kDataFromDevice,
                                         const std::vector<std::uint32_t>& parameters = {}) {
    PTPPassThroughRecord record(16);
    record.pb().commandCode = operation;
    record.pb().dataUsageMode = mode;
    record.pb().numOfInputParams = static_cast<std::uint32_t>(parameters.size());
    std::ranges::copy(parameters, record.pb().params);
    return record;
  }
  Status send(PTPPassThroughRecord& record) {
    ICAObjectSendMessagePB block{
        .object = camera, .messageType = ica::kMessagePass, .data = &record};
    const Status result = service().objectSendMessage(block);
    EXPECT_EQ(block.headerErr, result);
    return result;
  }
  Status run(std::uint16_t operation) {
    auto record = makeRecord(operation);
    return send(record);
  }
  std::unique_ptr<ICAScope> open() { return service().openScope(camera, nullptr, nullptr); }

  ServiceHandle usbDevice = 0;
  ICAObject camera = 0;
};

TEST_F(PassThrough, HoldsTheSessionAroundAMessageOrWhileAnyScopeLives) {
  EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kOK);
  EXPECT_EQ(run(ptp::kGetStorageIDs), status::kOK);
  auto outer = open();
  {
    const auto inner = open();
    run(ptp::kGetStorageIDs);
  }
  run(ptp::kGetStorageIDs);
  outer.reset();
  EXPECT_THAT(simulated->operations(), ElementsAre(0x1001,                  // needs no session
                                                   0x1002, 0x1004, 0x1003,  // a message
                                                   0x1002, 0x1004, 0x1004, 0x1003));
}

TEST_F(PassThrough, CarriesParametersBothWays) {
  test::USBScript script;
  script.opens();
  script.out(wire::command(0x9208, 1, {1, 2, 3}));
  script.in(wire::response(0x2001, 1, {10, 20, 30, 40, 50}));
  script.out(wire::command(0x9208, 2, {10, 20, 30})).in(wire::response(0x2001, 2));
  script.answers(0x1003, 3);
  connector.wrap = [&](auto) { return std::make_unique<test::ScriptedUSBDevice>(script); };
  auto scope = open();
  auto record = makeRecord(0x9208, kNoData, {1, 2, 3});
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(record.pb().resultCode, 0x2001U);
  EXPECT_THAT(record.pb().params, ElementsAre(10, 20, 30, 40)) << "there is no place for a fifth";
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_THAT(record.pb().params, Each(0)) << "what was sent is no response";
  scope.reset();
  EXPECT_EQ(script.report(), "");
}

TEST_F(PassThrough, CarriesDataBothWaysAndDropsWhatDoesNotFit) {
  const std::string text(4000, 'x');
  describe(R"({"stores": [{"content": [{"file": "A.TXT", "text": ")" + text + R"("}]}],
      "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}]})");
  for (const auto& [room, sent] : {std::pair(15U, 5U), {15, 15}, {15, 16}, {15, 4000}, {0, 3}}) {
    auto record = makeRecord(ptp::kGetPartialObject, kDataFromDevice, {1, 0, sent});
    record.pb().dataSize = room;
    EXPECT_EQ(send(record), status::kOK);
    const std::uint32_t kept = std::min(room, sent);
    EXPECT_EQ(record.pb().dataSize, kept) << sent << " into " << room;
    EXPECT_THAT(record.data().first(kept), Each(std::byte{'x'}));
    EXPECT_EQ(record.data()[kept], std::byte{0}) << "what lies behind stays";
  }
  auto record = makeRecord(ptp::kSetDevicePropValue, kDataToDevice, {0xD100});
  std::ranges::copy(test::hexBytes("02000000abcd"), record.data().begin());
  record.pb().dataSize = 6;
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(simulated->propertyValue(0xD100), nlohmann::json::array({0xAB, 0xCD}));
}

TEST_F(PassThrough, RefusesARecordThatDoesNotFitTogetherBeforeAnythingIsSent) {
  const auto scope = open();
  const std::function<void(PTPPassThroughPB&)> mistakes[] = {
      [](PTPPassThroughPB& pb) { pb.dataSize = 17; },
      [](PTPPassThroughPB& pb) { pb.dataSize = 0xFFFFFFFF; },
      [](PTPPassThroughPB& pb) { pb.numOfInputParams = 5; },
      [](PTPPassThroughPB& pb) { pb.dataUsageMode = 3; },
      [](PTPPassThroughPB& pb) { pb.commandCode = 0x11004; },
      [](PTPPassThroughPB& pb) { pb.commandCode = ptp::kOpenSession; },
      [](PTPPassThroughPB& pb) { pb.commandCode = ptp::kCloseSession; }};
  for (const auto mode : {kDataFromDevice, kDataToDevice}) {
    for (const auto& makeMistake : mistakes) {
      auto record = makeRecord(ptp::kGetStorageIDs, mode);
      makeMistake(record.pb());
      EXPECT_EQ(send(record), status::kBadParameter);
    }
  }
  ICAObjectSendMessagePB withoutRecord{.object = camera, .messageType = ica::kMessagePass};
  EXPECT_EQ(service().objectSendMessage(withoutRecord), status::kBadParameter);
  ICAObjectSendMessagePB unknown{.object = camera, .messageType = ica::kDataTypeText};
  EXPECT_EQ(service().objectSendMessage(unknown), status::kUnsupported);
  EXPECT_THAT(simulated->operations(), IsEmpty());
}

TEST_F(PassThrough, LeavesTheResponseCodeAloneWhenNoneCameAndGivesTheRefusalOfASession) {
  auto record = makeRecord(ptp::kGetStorageIDs);
  record.pb().resultCode = 0x2002;
  fail("silent", "0x1004,once");
  EXPECT_EQ(send(record), status::kICATimeout);
  EXPECT_EQ(record.pb().resultCode, 0x2002U);
  fail("respond", "0x2019,0x1002,once");
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(record.pb().resultCode, static_cast<std::uint32_t>(status::kPTPDeviceBusy));
}

TEST_F(PassThrough, AsksAQuestionOnceMoreInASessionWhereTheDeviceRefusesItForThatAlone) {
  const std::pair<const char*, std::uint32_t> rows[] = {{"0x2003,0x1001,once", 0x2001},
                                                        {"0x2004,0x1001,once", 0x2001},
                                                        {"0x201E,0x1001,once", 0x2001},
                                                        {"0x2019,0x1001,once", 0x2019}};
  for (const auto& [refusal, expected] : rows) {
    fail("respond", refusal);
    auto record = makeRecord(ptp::kGetDeviceInfo);
    EXPECT_EQ(send(record), status::kOK);
    EXPECT_EQ(record.pb().resultCode, expected) << refusal;
  }
  const auto scope = open();
  fail("respond", "0x2003,0x100B,once");
  for (const std::uint32_t expected : {0x2003U, 0x2009U}) {
    auto record = makeRecord(ptp::kDeleteObject, kNoData, {7});
    EXPECT_EQ(send(record), status::kOK);
    EXPECT_EQ(record.pb().resultCode, expected) << "no question, but the next has another session";
  }
  simulated->forgetViolations();  // it has not lost its session
}

/// Calls back in the middle of a data phase.
class CallingSink : public ptp::MemorySink {
 public:
  CallingSink(std::span<std::byte> memory, std::function<void()> call)
      : MemorySink(memory), call_(std::move(call)) {}
  bool received(std::uint64_t offset, std::size_t length) override {
    call_();
    return MemorySink::received(offset, length);
  }

 private:
  std::function<void()> call_;
};

TEST_F(PassThrough, KeepsTheConnectionForATransactionInWhichTheDeviceGoesAndRunsNoOther) {
  std::vector<std::byte> memory(4096);
  CallingSink sink(memory, [&] {
    EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kICATransactionRunning);
    registry.unplug(usbDevice);
    EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kICADeviceGone);
  });
  auto record = makeRecord(ptp::kGetDeviceInfo);
  record.setSink(&sink);
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_THAT(simulated->operations(), ElementsAre(0x1001));
}

TEST_F(PassThrough, SaysInWordsWhyAnInterfaceCannotBeHad) {
  fail("vanish", "0x1001");
  EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kICADeviceGone);
  Status failure = status::kOK;
  std::string why;
  EXPECT_EQ(service().openScope(camera, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kICADeviceGone);
  EXPECT_EQ(why, "it is unplugged");
  describe();
  EXPECT_NE(open(), nullptr) << "a failed attempt leaves nothing behind";
}

TEST_F(PassThrough, AnswersWithAStatusAfterAnUnplugDuringAScope) {
  auto scope = open();
  PTPChannel channel(connector, {"/dev/bus/usb/001/004", 0});
  ASSERT_EQ(channel.hold(nullptr), status::kOK);
  registry.unplug(usbDevice);
  channel.deviceWent();
  EXPECT_EQ(run(ptp::kGetStorageIDs), status::kICADeviceGone);
  EXPECT_EQ(open(), nullptr);
  auto record = makeRecord(ptp::kGetDeviceInfo);
  EXPECT_EQ(passThrough(channel, record, nullptr), status::kICADeviceGone);
  scope.reset();
  channel.release();
  EXPECT_EQ(channel.hold(nullptr), status::kICADeviceGone);
}

TEST_F(PassThrough, SetsTheClockToLocalTime) {
  describe(R"({"properties": [{"code": "0x5011", "type": "STR", "value": "", "writable": true}]})");
  PTPChannel channel(connector, {"/dev/bus/usb/001/004", 0});
  ASSERT_EQ(channel.hold(nullptr), status::kOK);
  std::tm moment{};
  ::strptime("20261231T235908", "%Y%m%dT%H%M%S", &moment);
  moment.tm_isdst = -1;
  EXPECT_EQ(setClock(channel, std::mktime(&moment), nullptr), status::kOK);
  EXPECT_EQ(simulated->propertyValue(0x5011), "20261231T235908");
  channel.release();
  describe();
  ICAObjectSendMessagePB block{.object = camera, .messageType = ica::kMessageSyncClock};
  EXPECT_EQ(service().objectSendMessage(block), status::kPTPDevicePropNotSupported);
}

}  // namespace
}  // namespace tarvo
