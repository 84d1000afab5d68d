#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/PTPChannel.h"
#include "tests/imagecapture/ServiceFixture.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"

namespace tarvo {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kConnect = "connect /dev/bus/usb/001/004#2";

class PassThrough : public ServiceFixture {
 protected:
  PassThrough() {
    usbDevice = plugCamera();
    camera = devices().at(0);
  }
  static PTPPassThroughRecord makeRecord(std::uint32_t operation, PTPDataUsageMode mode = kNoData) {
    PTPPassThroughRecord record(16);
    record.pb().commandCode = operation;
    record.pb().dataUsageMode = mode;
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
  /// Every operation is answered with `code`, after `look` has seen the transaction.
  void answerWith(std::uint16_t code, std::function<void(ptp::Transaction&)> look = {}) {
    connector.answer = [code, look](ptp::Transaction& transaction) {
      if (look) look(transaction);
      transaction.responseCode = code;
      return status::kOK;
    };
  }

  ServiceHandle usbDevice = 0;
  ICAObject camera = 0;
};

TEST_F(PassThrough, HoldsInterfaceAndSessionAroundAMessageOrWhileAnyScopeLives) {
  EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kOK);
  EXPECT_EQ(run(ptp::kGetStorageIDs), status::kOK);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "1001", "release",  // needs no session
                                         kConnect, "open session", "1004", "release"));
  connector.log.clear();
  auto outer = open();
  EXPECT_THAT(connector.log, ElementsAre(kConnect));
  {
    const auto inner = open();
    run(ptp::kGetStorageIDs);
  }
  run(ptp::kGetNumObjects);
  outer.reset();
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "open session", "1004", "1006", "release"));
}

TEST_F(PassThrough, CarriesParametersBothWays) {
  answerWith(0x2001, [](ptp::Transaction& transaction) {
    EXPECT_EQ(transaction.parameterCount, 3U);
    EXPECT_THAT(std::span(transaction.parameters).first(3), ElementsAre(1, 2, 3));
    transaction.responseParameters = {10, 20, 30, 40, 50};
    transaction.responseParameterCount = 5;
  });
  auto record = makeRecord(0x9208);
  record.pb().numOfInputParams = 3;
  std::ranges::copy(std::array{1U, 2U, 3U, 4U}, record.pb().params);
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(record.pb().resultCode, 0x2001U);
  EXPECT_THAT(record.pb().params, ElementsAre(10, 20, 30, 40));
  EXPECT_EQ(record.pb().dataSize, 16U);
  answerWith(0x2001);
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_THAT(record.pb().params, Each(0)) << "what was sent is no response";
}

TEST_F(PassThrough, CarriesDataBothWaysAndDropsWhatDoesNotFit) {
  const std::vector<std::byte> bytes(4000, std::byte{7});
  const struct {
    std::uint32_t room, sent, kept;
  } rows[] = {{15, 0, 0}, {15, 5, 5}, {15, 15, 15}, {15, 16, 15}, {15, 4000, 15}, {0, 3, 0}};
  for (const auto& row : rows) {
    answerWith(0x2001, [&](ptp::Transaction& transaction) {
      test::sendPayload(transaction, std::span(bytes).first(row.sent));
    });
    auto record = makeRecord(ptp::kGetThumb, kDataFromDevice);
    record.pb().dataSize = row.room;
    EXPECT_EQ(send(record), status::kOK);
    EXPECT_EQ(record.pb().dataSize, row.kept) << row.sent << " into " << row.room;
    EXPECT_THAT(record.data().first(row.kept), Each(std::byte{7}));
    EXPECT_EQ(record.data()[row.kept], std::byte{0}) << "what lies behind stays";
  }
  std::vector<std::byte> arrived;
  answerWith(0x2001, [&](ptp::Transaction& each) { arrived = test::payloadOf(each); });
  auto record = makeRecord(ptp::XTO_CREATE_DATASET, kDataToDevice);
  record.data()[0] = std::byte{0xAB};
  record.pb().dataSize = 3;
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(test::hexText(arrived), "ab0000");
}

/// Of any size, but never read.
class SizedSource : public ptp::DataSource {
 public:
  explicit SizedSource(std::uint64_t size) : size_(size) {}
  std::uint64_t size() const override { return size_; }
  std::span<const std::byte> bytes(std::uint64_t, std::size_t) override { return {}; }

 private:
  std::uint64_t size_;
};

TEST_F(PassThrough, CountsAndRefusesWhatGoesBeyond32Bits) {
  SizedSource source(std::uint64_t{1} << 32);
  auto record = makeRecord(ptp::kSendObject, kDataToDevice);
  record.setSource(&source);
  EXPECT_EQ(send(record), status::kBadParameter);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "release")) << "and nothing was sent";

  answerWith(0x2001, [](ptp::Transaction& each) { each.receive->received(5, 0xFFFFFFFFFF); });
  ptp::MemorySink sink({});
  auto large = makeRecord(ptp::kGetObject, kDataFromDevice);
  large.setSink(&sink);
  EXPECT_EQ(send(large), status::kOK);
  EXPECT_EQ(large.pb().dataSize, 0xFFFFFFFFU);
}

TEST_F(PassThrough, RefusesARecordThatDoesNotFitTogetherBeforeAnythingIsSent) {
  const auto scope = open();
  connector.log.clear();
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
  EXPECT_THAT(connector.log, IsEmpty());
}

TEST_F(PassThrough, LeavesTheResponseCodeAloneWhenNoneCameAndGivesTheRefusalOfASession) {
  connector.answer = [&](ptp::Transaction& transaction) {
    test::sendPayload(transaction, std::vector<std::byte>(3));
    return status::kICATimeout;
  };
  auto record = makeRecord(ptp::kGetObject, kDataFromDevice);
  record.pb().resultCode = 0x2002;
  EXPECT_EQ(send(record), status::kICATimeout);
  EXPECT_EQ(record.pb().resultCode, 0x2002U);
  EXPECT_EQ(record.pb().dataSize, 3U);

  connector.sessionStatus = status::kICATimeout;
  EXPECT_EQ(send(record), status::kICATimeout);
  EXPECT_EQ(record.pb().resultCode, 0x2002U);
  connector.sessionStatus = status::kPTPDeviceBusy;
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(record.pb().resultCode, static_cast<std::uint32_t>(status::kPTPDeviceBusy));
}

TEST_F(PassThrough, OpensAnotherSessionWhereTheDeviceHasLostTheFirst) {
  const auto scope = open();
  answerWith(0x2003);
  run(ptp::kGetStorageIDs);
  answerWith(0x2001);
  run(ptp::kGetStorageIDs);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "open session", "1004", "open session", "1004"));
}

TEST_F(PassThrough, AsksAQuestionOnceMoreInASessionWhereTheDeviceRefusesItForThatAlone) {
  const struct {
    std::uint16_t operation, refusal;
    PTPDataUsageMode mode;
    bool isAskedAgain;
  } rows[] = {
      {ptp::kGetDeviceInfo, 0x2003, kDataFromDevice, true},
      {ptp::kGetDeviceInfo, 0x2004, kDataFromDevice, true},
      {ptp::kGetDeviceInfo, 0x201E, kDataFromDevice, true},
      {ptp::kGetDeviceInfo, 0x2019, kDataFromDevice, false},
      {ptp::kDeleteObject, 0x2003, kNoData, false},
  };
  for (const auto& row : rows) {
    connector.log.clear();
    connector.answer = [&](ptp::Transaction& transaction) {
      const bool isFirst = connector.log.size() <= 2 + (row.operation == ptp::kDeleteObject);
      transaction.responseCode = isFirst ? row.refusal : 0x2001;
      return status::kOK;
    };
    auto record = makeRecord(row.operation, row.mode);
    EXPECT_EQ(send(record), status::kOK);
    EXPECT_EQ(record.pb().resultCode, row.isAskedAgain ? 0x2001 : row.refusal);
  }
}

TEST_F(PassThrough, KeepsTheConnectionForATransactionInWhichTheDeviceGoesAndRunsNoOther) {
  connector.answer = [&](ptp::Transaction& transaction) {
    connector.answer = nullptr;
    EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kICATransactionRunning);
    registry.unplug(usbDevice);
    EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kICADeviceGone);
    connector.log.emplace_back("it ends");
    transaction.responseCode = 0x2001;
    return status::kOK;
  };
  EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kOK);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "1001", "it ends", "release"));
}

TEST_F(PassThrough, SaysInWordsWhyAnInterfaceCannotBeHad) {
  connector.connectStatus = status::kICADeviceBusy;
  connector.why = "held by gphoto2 (4711)";
  Status failure = status::kOK;
  std::string why;
  EXPECT_EQ(service().openScope(camera, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kICADeviceBusy);
  EXPECT_EQ(why, "held by gphoto2 (4711)");
  EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kICADeviceBusy);
  connector.connectStatus = status::kOK;
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
  EXPECT_THAT(connector.log,
              ElementsAre(kConnect, "connect /dev/bus/usb/001/004#0", "release", "release"));
}

TEST_F(PassThrough, SetsTheClockToLocalTime) {
  std::string value;
  answerWith(0x2001, [&](ptp::Transaction& transaction) {
    EXPECT_EQ(transaction.parameters[0], 0x5011U);
    value = test::hexText(test::payloadOf(transaction));
  });
  PTPChannel channel(connector, {"/dev/bus/usb/001/004", 0});
  ASSERT_EQ(channel.hold(nullptr), status::kOK);
  std::tm moment{};
  ::strptime("20261231T235908", "%Y%m%dT%H%M%S", &moment);
  moment.tm_isdst = -1;
  EXPECT_EQ(setClock(channel, std::mktime(&moment), nullptr), status::kOK);
  std::string expected = "10";
  for (const char digit : std::string_view("20261231T235908"))
    expected += formatted("%02x00", unsigned(digit));
  EXPECT_EQ(value, expected + "0000");
  channel.release();

  answerWith(0x200A);
  ICAObjectSendMessagePB block{.object = camera, .messageType = ica::kMessageSyncClock};
  EXPECT_EQ(service().objectSendMessage(block), status::kPTPDevicePropNotSupported);
}

TEST(PassThroughRecord, IsClearedAndKnowsItsRoomOrRaisesWhenThereIsNoMemory) {
  PTPPassThroughRecord record(100);
  EXPECT_EQ(record.allocationSize(), 145U);
  EXPECT_EQ(record.pb().dataSize, 100U);
  EXPECT_THAT(record.data(), Each(std::byte{0}));
  EXPECT_EQ(test::raised(
                [] { PTPPassThroughRecord(std::size_t{1} << 60, "malloc failed in getDataSet."); }),
            std::string(exception_name::kMalloc).append(": malloc failed in getDataSet."));
}

}  // namespace
}  // namespace tarvo
