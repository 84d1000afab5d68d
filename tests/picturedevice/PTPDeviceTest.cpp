// A PTP device: its DeviceInfo, the messages that reach the service and those that do not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/Exception.h"
#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/Raised.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;

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

std::shared_ptr<XTImageCapturePTPDevice> load(const FakeImageCapture::Device& camera) {
  return XTImageCapturePTPDevice::withICAObject(camera.object, nullptr);
}

TEST(PTPDevice, TakesItsIdentityAndListsFromDeviceInfoAskingEachThingOnce) {
  PictureDeviceTestRoom room;
  const auto& camera = addAnsweringCamera(room);
  const auto device = load(camera);
  ASSERT_TRUE(device);
  EXPECT_TRUE(device->isPTPDevice());
  EXPECT_EQ(device->vendorExtensionID(), 0x5452U);
  EXPECT_EQ(device->manufacturer(), "Tarvo Imaging");
  EXPECT_EQ(device->deviceVersion(), "1.02");
  EXPECT_EQ(*device->opCodeList(), kAllQueries);
  EXPECT_THAT(*device->eventCodeList(), ElementsAre(0x4004));
  EXPECT_THAT(*device->propertyList(), ElementsAre(0xD00B, 0xD206));
  EXPECT_THAT(*device->captureFormatList(), ElementsAre(0x3801));
  EXPECT_THAT(*device->imageFormatList(), ElementsAre(0xB803));
  EXPECT_EQ(device->displayRequestVersion(), 3);
  EXPECT_EQ(device->description(),
            "XTImageCapturePTPDevice named Tarvo Lumo 500, model Tarvo Lumo 500 and serial# SN0001"
            ", icaObject 0x00000100");
  EXPECT_EQ(device->loadDeviceInfo(), 0);
  EXPECT_THAT(camera.operations, ElementsAre(0x1001, 0x920A, 0x900C, 0x1014, 0x9009));
  EXPECT_TRUE(room.trace.contains("data: 0x64 0x0 0x52 0x54 0x0 0x0 0x64 0x0"));
}

TEST(PTPDevice, ReadsAShortAnswerOfSupportedDatasetsAsZeros) {
  PictureDeviceTestRoom room;
  auto& camera = addAnsweringCamera(room);
  camera.answers[0x920A] = {.data = PTPBytes().u32(2).u16(0xB203)};
  EXPECT_THAT(load(camera)->supportedDatasets(), ElementsAre(0xB203, 0));
  EXPECT_TRUE(room.trace.contains("supportedDatasets read 8 bytes, the device sent 6"));
}

TEST(PTPDevice, RaisesWhenAVendorQueryFailsAndKeepsTheStatusNotTheResponse) {
  PictureDeviceTestRoom room;
  auto& camera = addAnsweringCamera(room);
  camera.answers[0x9009] = {.responseCode = 0x2019};
  try {
    load(camera);
    FAIL() << "nothing was raised";
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), "XTPTPException");
    EXPECT_EQ(exception.reason(), "XT_GET_DISPLAY_REQUEST_VERSION failed");
    EXPECT_EQ(exception.userInfo(), PropertyDictionary({{"ptpResponseCode", 0}}));
  }
}

TEST(PTPDevice, IsUsedWithoutWhatItListsAndThenDoesNotKnow) {
  for (const std::uint16_t query : {0x920A, 0x9009}) {
    for (const std::uint16_t response : {0x2005, 0x2006}) {
      PictureDeviceTestRoom room;
      auto& camera = addAnsweringCamera(room);
      camera.answers[query] = {.responseCode = response};
      EXPECT_TRUE(load(camera)) << query;
    }
  }
}

TEST(PTPDevice, OfMoreDeviceInfoThanThereIsRoomForIsRefusedInWords) {
  PictureDeviceTestRoom room;
  const auto& camera = room.ica.addPTPCamera({.operations = std::vector<std::uint16_t>(1100, 7)});
  EXPECT_THAT(raised([&] { load(camera); }), testing::HasSubstr("more than the 2048 bytes"));
}

}  // namespace
}  // namespace tarvo::test
