// A PTP device: its DeviceInfo, the messages that reach the service and those that do not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/PassThroughTransaction.h"
#include "NativeServices/PictureDevice/XTImageCapturePTPDevice.h"
#include "Utilities/Exception.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::uint16_t> kAllQueries = {0x1001, 0x1002, 0x1003, 0x1014,
                                                0x900C, 0x9009, 0x920A};

/// A camera that answers every vendor query.
FakeImageCapture::Device& addAnsweringCamera(PictureDeviceTestRoom& room) {
  auto& camera = room.ica.addPTPCamera(
      {.operations = kAllQueries, .properties = {0xD00B, 0xD206}, .imageFormats = {0xB803}});
  camera.answers[0x920A] = {.data = PTPBytes().codes({0xB203, 0xB201})};
  camera.answers[0x900C] = {.data = std::vector<std::uint8_t>(12)};
  camera.answers[0x9009] = {.parameters = {3}};
  camera.answers[0x1014] = {.data = PTPBytes().u16(0xD00B).u16(4).u8(0).u16(0).u16(0x41)};
  return camera;
}

std::shared_ptr<XTImageCapturePTPDevice> load(const FakeImageCapture::Device& camera,
                                              Status* failure = nullptr) {
  return XTImageCapturePTPDevice::withICAObject(camera.object, failure);
}

TEST(PTPDevice, TakesItsIdentityAndListsFromDeviceInfo) {
  PictureDeviceTestRoom room;
  const auto device = load(addAnsweringCamera(room));
  ASSERT_TRUE(device);
  EXPECT_TRUE(device->isPTPDevice());
  EXPECT_EQ(device->vendorExtensionID(), 0x5452U);
  EXPECT_EQ(device->manufacturer(), "Tarvo Imaging");
  EXPECT_EQ(device->model(), "Tarvo Lumo 500");
  EXPECT_EQ(device->deviceVersion(), "1.02");
  EXPECT_EQ(device->serialNumber(), "SN0001");
  EXPECT_EQ(*device->opCodeList(), kAllQueries);
  EXPECT_THAT(*device->eventCodeList(), ElementsAre(0x4004));
  EXPECT_THAT(*device->propertyList(), ElementsAre(0xD00B, 0xD206));
  EXPECT_THAT(*device->captureFormatList(), ElementsAre(0x3801));
  EXPECT_THAT(*device->imageFormatList(), ElementsAre(0xB803));
  EXPECT_THAT(device->supportedDatasets(), ElementsAre(0xB203, 0xB201));
  EXPECT_EQ(device->displayRequestVersion(), 3);
  EXPECT_TRUE(device->supportsCobaltDatasets());
  EXPECT_EQ(device->description(),
            "XTImageCapturePTPDevice named Tarvo Lumo 500, model Tarvo Lumo 500 and serial# SN0001"
            ", icaObject 0x00000100");
  for (const char* line :
       {"getDeviceInfo entered", "getDeviceInfo GetDeviceInfo: dataSize: ",
        "data: 0x64 0x0 0x52 0x54 0x0 0x0 0x64 0x0", "Display Request Version: 3",
        "XTImageCapturePTPDevice loadDeviceInfoUncached Loaded device info for 'Tarvo Imaging' "
        "'Tarvo Lumo 500' version '1.02', serial# 'SN0001'"})
    EXPECT_TRUE(room.trace.contains(line)) << line;
}

TEST(PTPDevice, AsksEachThingOnceAnArrival) {
  PictureDeviceTestRoom room;
  const auto& camera = addAnsweringCamera(room);
  const auto device = load(camera);
  device->loadDeviceInfo();
  device->supportedDatasets();
  device->displayRequestVersion();
  EXPECT_THAT(camera.operations, ElementsAre(0x1001, 0x920A, 0x900C, 0x1014, 0x9009));
  EXPECT_THAT(camera.parameters[3], ElementsAre(0xD00B));
}

TEST(PTPDevice, ReadsAShortAnswerOfSupportedDatasetsAsZeros) {
  PictureDeviceTestRoom room;
  auto& camera = addAnsweringCamera(room);
  camera.answers[0x920A] = {.data = PTPBytes().u32(2).u16(0xB203)};
  EXPECT_THAT(load(camera)->supportedDatasets(), ElementsAre(0xB203, 0));
  EXPECT_TRUE(room.trace.contains("supportedDatasets read 8 bytes, the device sent 6"));
}

TEST(PTPDevice, RaisesWhenAVendorQueryFailsAndKeepsTheStatusNotTheResponse) {
  const struct {
    std::uint16_t query;
    const char* reason;
  } rows[] = {
      {0x920A, "XTO_GET_SUPPORTED_DATASETS failed"},
      {0x9009, "XT_GET_DISPLAY_REQUEST_VERSION failed"},
  };
  for (const auto& row : rows) {
    PictureDeviceTestRoom room;
    auto& camera = addAnsweringCamera(room);
    camera.answers[row.query] = {.responseCode = 0x2019};
    try {
      load(camera);
      FAIL() << row.reason;
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), "XTPTPException");
      EXPECT_EQ(exception.reason(), row.reason);
      EXPECT_EQ(exception.userInfo(), PropertyDictionary({{"ptpResponseCode", 0}}));
    }
  }
}

TEST(PTPDevice, FailsToLoadWithTheServicesStatusOrTheResponse) {
  const struct {
    PTPAnswer answer;
    Status expected;
  } rows[] = {
      {{.status = status::kICATimeout}, status::kICATimeout},
      {{.responseCode = 0x2019}, 0x2019},
      {{.responseCode = 0}, 0x2002},
  };
  for (const auto& row : rows) {
    PictureDeviceTestRoom room;
    auto& camera = addAnsweringCamera(room);
    camera.answers[0x1001] = row.answer;
    Status failure = 0;
    EXPECT_FALSE(load(camera, &failure));
    EXPECT_EQ(failure, row.expected);
    EXPECT_TRUE(room.trace.contains("getDeviceInfo GetDeviceInfo result "));
    EXPECT_TRUE(room.trace.contains("initObject call to loadDeviceInfo failed"));
  }
}

TEST(PTPDevice, NeedsADictionaryAndAName) {
  PictureDeviceTestRoom room;
  auto& nameless = room.ica.addDevice({{"device module", "PTPCamera.app"}});
  Status failure = 0;
  EXPECT_FALSE(load(nameless, &failure));
  EXPECT_EQ(failure, -36);
  EXPECT_TRUE(room.trace.contains("loadDeviceInfoUncached couldn't get a device name"));
  nameless.dictionaryStatus = -50;
  EXPECT_FALSE(load(nameless, &failure));
  EXPECT_TRUE(room.trace.contains("loadDeviceInfoUncached couldn't get an ICA dictionary"));
}

TEST(PTPDevice, IsNotReachedWhenDisconnectedOrForAnOperationThatItDoesNotOffer) {
  PictureDeviceTestRoom room;
  const auto& camera = addAnsweringCamera(room);
  const auto device = load(camera);
  const auto sent = camera.operations.size();
  const auto outcome = [&](std::uint16_t operation) {
    PassThroughTransaction transaction({.method = "test", .operation = operation});
    transaction.run(*device);
    EXPECT_EQ(static_cast<Status>(transaction.responseCode()), transaction.outcome());
    EXPECT_EQ(transaction.status(), transaction.outcome());
    return transaction.outcome();
  };
  EXPECT_EQ(outcome(0x100B), 0x2005);
  device->setDisconnected(true);
  EXPECT_EQ(outcome(0x1001), 0x2002);
  EXPECT_TRUE(room.trace.contains("Device 0x     100 is disconnected!"));
  EXPECT_EQ(camera.operations.size(), sent);
}

TEST(PTPDevice, ReadsPropertyDescriptionsOfListedPropertiesOnly) {
  PictureDeviceTestRoom room;
  auto& camera = addAnsweringCamera(room);
  const auto device = load(camera);
  EXPECT_EQ(device->propertyDataSet(0xD00B)->length(), 9U) << "what was received, not the room";
  EXPECT_FALSE(device->propertyDataSet(0x5001));
  camera.answers[0x1014] = {.responseCode = 0x200A};
  EXPECT_FALSE(device->propertyDataSet(0xD00B));
  EXPECT_TRUE(room.trace.contains(
      "propertyDataSet GetDevicePropInfo D00B objectSendMessagePB.header.err: 0x0"));
  EXPECT_TRUE(
      room.trace.contains("propertyDataSet GetDevicePropInfo result 0: resultCode: 0x200a"));
}

// --- the shape of a transaction

TEST(Transaction, LaysItsRecordOutAsTheServiceWantsIt) {
  const std::byte data[3] = {std::byte{1}, std::byte{2}, std::byte{3}};
  const struct {
    PTPRequest request;
    std::size_t allocation;
    std::uint32_t dataSize;
  } rows[] = {
      {{.method = "receive", .dataUsageMode = kDataFromDevice, .room = 128}, 173, 128},
      {{.method = "send", .dataUsageMode = kDataToDevice, .data = data}, 48, 3},
      {{.method = "none", .dataUsageMode = kNoData}, 46, 0},
  };
  for (const auto& row : rows) {
    PassThroughTransaction transaction(row.request);
    const auto record = transaction.takeRecord();
    EXPECT_EQ(record.allocationSize(), row.allocation) << row.request.method;
    EXPECT_EQ(record.pb().dataSize, row.dataSize) << row.request.method;
    EXPECT_EQ(record.pb().flags, 0U);
  }
}

TEST(Transaction, SendsParametersAndDataAndReceivesParameters) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera({.operations = {0x1001, 0x1016}});
  camera.answers[0x1016] = {.parameters = {7, 8}};
  const auto device = load(camera);
  const std::byte data[2] = {std::byte{0xAB}, std::byte{0xCD}};
  PassThroughTransaction transaction({.method = "test",
                                      .operation = 0x1016,
                                      .parameters = {1, 2, 3},
                                      .responseParameters = 2,
                                      .dataUsageMode = kDataToDevice,
                                      .data = data});
  EXPECT_TRUE(transaction.run(*device));
  EXPECT_EQ(transaction.outcome(), 0);
  EXPECT_THAT(camera.parameters.back(), ElementsAre(1, 2, 3));
  EXPECT_THAT(camera.sent.back(), ElementsAre(0xAB, 0xCD));
  EXPECT_EQ(transaction.responseParameter(1), 8U);
}

TEST(Transaction, NeedsAnImageCaptureObject) {
  PictureDeviceTestRoom room;
  struct Unbound : XTImageCapturePTPDevice {
  } device;
  PassThroughTransaction transaction({.method = "storageIDs", .operation = 0x1004});
  EXPECT_FALSE(transaction.run(device));
  EXPECT_EQ(transaction.outcome(), 0x2003);
  EXPECT_TRUE(room.trace.contains("storageIDs couldn't get an ICA object"));
  EXPECT_EQ(device.refreshIcaDictionary(), -36);
}

}  // namespace
}  // namespace tarvo::test
