#include <gmock/gmock.h>

#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/PTPMessages.h"
#include "tests/imagecapture/ServiceFixture.h"

namespace tarvo {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kConnect = "connect /dev/bus/usb/001/004#2";

std::vector<std::byte> payload(std::size_t size) {
  std::vector<std::byte> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::byte>(i + 1);
  return bytes;
}

class PassThrough : public ServiceFixture {
 protected:
  PassThrough() {
    usbDevice = plugCamera();
    camera = devices().at(0);
  }
  Status send(PTPPassThroughRecord& record) {
    ICAObjectSendMessagePB block{.object = camera,
                                 .messageType = ica::kMessagePass,
                                 .data = &record,
                                 .dataSize = static_cast<std::uint32_t>(record.allocationSize()),
                                 .dataType = ica::kDataTypeData};
    const Status result = service().objectSendMessage(block);
    EXPECT_EQ(block.headerErr, result);
    return result;
  }
  /// A whole operation without data.
  Status run(std::uint16_t operation) {
    PTPPassThroughRecord record(1);
    record.pb().commandCode = operation;
    record.pb().dataUsageMode = kNoData;
    return send(record);
  }
  std::unique_ptr<ICAScope> open() { return service().openScope(camera, nullptr, nullptr); }

  ServiceHandle usbDevice = 0;
  ICAObject camera = 0;
};

TEST_F(PassThrough, OpensAndClosesAroundALoneMessage) {
  EXPECT_EQ(run(ptp::kGetDeviceInfo), status::kOK);
  EXPECT_EQ(run(ptp::kGetStorageIDs), status::kOK);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "1001", "release",  // needs no session
                                         kConnect, "open session", "1004", "release"));
}

TEST_F(PassThrough, HoldsInterfaceAndSessionWhileAnyScopeLives) {
  auto outer = open();
  EXPECT_THAT(connector.log, ElementsAre(kConnect));
  run(ptp::kGetDeviceInfo);
  {
    const auto inner = open();
    run(ptp::kGetStorageIDs);
  }
  run(ptp::kGetNumObjects);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "1001", "open session", "1004", "1006"));
  outer.reset();
  EXPECT_EQ(connector.log.back(), "release");
}

TEST_F(PassThrough, CarriesParametersBothWays) {
  std::vector<std::uint32_t> sent;
  connector.answer = [&](ptp::Transaction& transaction) {
    sent.assign(transaction.parameters.begin(),
                transaction.parameters.begin() + transaction.parameterCount);
    transaction.responseCode = 0x2001;
    transaction.responseParameters = {10, 20, 30, 40, 50};
    transaction.responseParameterCount = 5;
    return status::kOK;
  };
  PTPPassThroughRecord record(1);
  record.pb() = {.commandCode = 0x9208,
                 .resultCode = 0,
                 .numOfInputParams = 3,
                 .numOfOutputParams = 4,
                 .params = {1, 2, 3, 4},
                 .dataUsageMode = kNoData,
                 .flags = 0,
                 .dataSize = 7};
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_THAT(sent, ElementsAre(1, 2, 3));
  EXPECT_EQ(record.pb().resultCode, 0x2001U);
  EXPECT_THAT(record.pb().params, ElementsAre(10, 20, 30, 40));
  EXPECT_EQ(record.pb().dataSize, 7U);
}

TEST_F(PassThrough, NeverShowsAnOperationsParameterAsAResponses) {
  PTPPassThroughRecord record(1);
  record.pb().commandCode = ptp::kGetNumObjects;
  record.pb().dataUsageMode = kNoData;
  record.pb().numOfInputParams = 2;
  record.pb().numOfOutputParams = 1;
  record.pb().params[0] = record.pb().params[1] = ptp::kAllStores;
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_THAT(record.pb().params, Each(0));
}

struct ReceiveRow {
  std::size_t room;
  std::size_t sent;
  std::uint32_t dataSize;
};

TEST_F(PassThrough, ReceivesWhatFitsAndDropsTheRest) {
  for (const ReceiveRow& row :
       {ReceiveRow{16, 5, 5}, ReceiveRow{16, 16, 16}, ReceiveRow{16, 17, 16},
        ReceiveRow{16, 4000, 16}, ReceiveRow{0, 3, 0}, ReceiveRow{16, 0, 0}}) {
    connector.answer = [&](ptp::Transaction& transaction) {
      test::sendPayload(transaction, payload(row.sent));
      transaction.responseCode = 0x2001;
      return status::kOK;
    };
    PTPPassThroughRecord record(row.room + 1);  // the byte behind the room must stay as it was
    record.pb().commandCode = ptp::kGetThumb;
    record.pb().dataUsageMode = kDataFromDevice;
    record.pb().dataSize = static_cast<std::uint32_t>(row.room);
    EXPECT_EQ(send(record), status::kOK);
    EXPECT_EQ(record.pb().dataSize, row.dataSize) << row.sent << " into " << row.room;
    const auto expected = payload(row.dataSize);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), record.data().begin()));
    EXPECT_EQ(record.data()[row.dataSize], std::byte{0});
  }
}

TEST_F(PassThrough, SendsTheRecordsBytesAsTheyLie) {
  std::vector<std::byte> arrived;
  connector.answer = [&](ptp::Transaction& transaction) {
    arrived = test::payloadOf(transaction);
    transaction.responseCode = 0x2001;
    return status::kOK;
  };
  PTPPassThroughRecord record(300);
  const auto bytes = payload(200);
  std::ranges::copy(bytes, record.data().begin());
  record.pb().commandCode = ptp::XTO_CREATE_DATASET;
  record.pb().dataUsageMode = kDataToDevice;
  record.pb().dataSize = 200;
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(arrived, bytes);
  EXPECT_EQ(record.pb().dataSize, 200U);
}

TEST_F(PassThrough, RefusesARecordThatDoesNotFitTogetherBeforeAnythingIsSent) {
  const std::function<void(PTPPassThroughPB&)> mistakes[] = {
      [](PTPPassThroughPB& pb) { pb.dataSize = 17; },
      [](PTPPassThroughPB& pb) { pb.dataSize = 0xFFFFFFFF; },
      [](PTPPassThroughPB& pb) {
        pb.dataUsageMode = kDataToDevice;
        pb.dataSize = 17;
      },
      [](PTPPassThroughPB& pb) { pb.numOfInputParams = 5; },
      [](PTPPassThroughPB& pb) { pb.dataUsageMode = 3; },
      [](PTPPassThroughPB& pb) { pb.commandCode = 0x11004; },
      [](PTPPassThroughPB& pb) { pb.commandCode = ptp::kOpenSession; },
      [](PTPPassThroughPB& pb) { pb.commandCode = ptp::kCloseSession; }};
  for (const auto& makeMistake : mistakes) {
    const auto scope = open();
    connector.log.clear();
    PTPPassThroughRecord record(16);
    record.pb().commandCode = ptp::kGetStorageIDs;
    record.pb().dataUsageMode = kDataFromDevice;
    makeMistake(record.pb());
    EXPECT_EQ(send(record), status::kBadParameter);
    EXPECT_THAT(connector.log, IsEmpty());
  }
  ICAObjectSendMessagePB withoutRecord{.object = camera, .messageType = ica::kMessagePass};
  EXPECT_EQ(service().objectSendMessage(withoutRecord), status::kBadParameter);
  ICAObjectSendMessagePB unknown{.object = camera, .messageType = ica::kDataTypeText};
  EXPECT_EQ(service().objectSendMessage(unknown), status::kUnsupported);
}

TEST_F(PassThrough, LeavesTheResponseCodeAloneWhenNoneCame) {
  for (const Status failure : {status::kICATimeout, status::kICAProtocolError, status::kIOError,
                               status::kICADeviceGone, status::kCancelled}) {
    connector.answer = [&](ptp::Transaction& transaction) {
      transaction.bytesReceived = 3;
      return failure;
    };
    PTPPassThroughRecord record(16);
    record.pb().commandCode = ptp::kGetObject;
    record.pb().resultCode = 0x2002;
    record.pb().dataUsageMode = kDataFromDevice;
    EXPECT_EQ(send(record), failure);
    EXPECT_EQ(record.pb().resultCode, 0x2002U);
    EXPECT_EQ(record.pb().dataSize, 3U);
  }
}

TEST_F(PassThrough, GivesTheRefusalOfASessionAsTheResponse) {
  connector.sessionStatus = status::kPTPDeviceBusy;
  PTPPassThroughRecord record(1);
  record.pb().commandCode = ptp::kGetStorageIDs;
  record.pb().dataUsageMode = kNoData;
  EXPECT_EQ(send(record), status::kOK);
  EXPECT_EQ(record.pb().resultCode, static_cast<std::uint32_t>(status::kPTPDeviceBusy));

  connector.sessionStatus = status::kICATimeout;
  record.pb().resultCode = 0;
  EXPECT_EQ(send(record), status::kICATimeout);
  EXPECT_EQ(record.pb().resultCode, 0U);
}

TEST_F(PassThrough, OpensAnotherSessionWhereTheDeviceHasLostTheFirst) {
  const auto scope = open();
  connector.answer = [](ptp::Transaction& transaction) {
    transaction.responseCode = 0x2003;
    return status::kOK;
  };
  run(ptp::kGetStorageIDs);
  connector.answer = nullptr;
  run(ptp::kGetStorageIDs);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "open session", "1004", "open session", "1004"));
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
  auto second = open();
  run(ptp::kGetStorageIDs);
  registry.unplug(usbDevice);
  EXPECT_EQ(connector.log.back(), "release");
  const auto logged = connector.log.size();
  EXPECT_EQ(run(ptp::kGetStorageIDs), status::kICADeviceGone);
  EXPECT_EQ(open(), nullptr);
  scope.reset();
  second.reset();
  EXPECT_EQ(connector.log.size(), logged);
}

TEST_F(PassThrough, SendsNothingOnAChannelWhoseDeviceWent) {
  PTPChannel channel(connector, {"/dev/bus/usb/001/004", 0});
  std::string why;
  ASSERT_EQ(channel.hold(&why), status::kOK);
  channel.deviceWent();
  PTPPassThroughRecord record(16);
  record.pb().commandCode = ptp::kGetDeviceInfo;
  record.pb().dataUsageMode = kDataFromDevice;
  EXPECT_EQ(passThrough(channel, record, &why), status::kICADeviceGone);
  channel.release();
  EXPECT_EQ(channel.hold(&why), status::kICADeviceGone);
  EXPECT_EQ(why, statusText(status::kICADeviceGone));
}

TEST_F(PassThrough, SetsTheClockToLocalTime) {
  std::vector<std::byte> value;
  std::uint32_t property = 0;
  connector.answer = [&](ptp::Transaction& transaction) {
    property = transaction.parameters[0];
    value = test::payloadOf(transaction);
    transaction.responseCode = 0x2001;
    return status::kOK;
  };
  PTPChannel channel(connector, {"/dev/bus/usb/001/004", 0});
  ASSERT_EQ(channel.hold(nullptr), status::kOK);
  std::tm moment{};
  moment.tm_year = 126;
  moment.tm_mon = 11;
  moment.tm_mday = 31;
  moment.tm_hour = 23;
  moment.tm_min = 59;
  moment.tm_sec = 8;
  moment.tm_isdst = -1;
  EXPECT_EQ(setClock(channel, std::mktime(&moment), nullptr), status::kOK);
  EXPECT_EQ(property, 0x5011U);
  ASSERT_EQ(value.size(), 33U);
  EXPECT_EQ(value[0], std::byte{16});
  std::string text;
  for (std::size_t i = 1; i < value.size(); i += 2)
    text += static_cast<char>(value[i]);
  EXPECT_EQ(text, std::string("20261231T235908\0", 16));
  channel.release();

  connector.answer = [](ptp::Transaction& transaction) {
    transaction.responseCode = 0x200A;
    return status::kOK;
  };
  ICAObjectSendMessagePB block{.object = camera, .messageType = ica::kMessageSyncClock};
  EXPECT_EQ(service().objectSendMessage(block), status::kPTPDevicePropNotSupported);
}

TEST(PassThroughRecord, IsClearedAndKnowsItsRoom) {
  PTPPassThroughRecord record(100);
  EXPECT_EQ(record.allocationSize(), 145U);
  EXPECT_EQ(record.pb().dataSize, 100U);
  EXPECT_EQ(record.pb().resultCode, 0U);
  EXPECT_THAT(record.data(), Each(std::byte{0}));
}

TEST(PassThroughRecord, RaisesWithItsReasonWhenThereIsNoMemory) {
  try {
    PTPPassThroughRecord record(std::size_t{1} << 60, "malloc failed in getDataSet.");
    FAIL() << "that much memory cannot be had";
  } catch (const Exception& raised) {
    EXPECT_EQ(raised.name(), exception_name::kMalloc);
    EXPECT_EQ(raised.reason(), "malloc failed in getDataSet.");
  }
}

}  // namespace
}  // namespace tarvo
