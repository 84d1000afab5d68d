// The facts that the agent passes on about a device.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "identify/DeviceInfoSupport.h"
#include "identify/GetICAVolumeFromUSBLocation.h"
#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::Optional;

/// An agent bundle whose model table lists product id 0x0A21, and volumes with and without marker.
class DeviceInfo : public testing::Test {
 protected:
  DeviceInfo() {
    folder_.write("Resources/ggcam.inf",
                  "[Models.NTx86]\r\n%MfgName%=QRS.Camera,USB.VID_F055&PID_0A21\r\n");
    folder_.write("volumes/CARD/MISC/IREVIEW.DB", "x");
    room_.maker.agentBundlePath = folder_.path();
    room_.mounts = FakeMountTable(folder_.path("volumes"));
  }

  /// Type, location and path.
  using Info = std::tuple<std::string, std::int32_t, std::string>;
  Info infoFor(const std::shared_ptr<XTPictureDevice>& device) {
    const SupportedModels models(room_.maker);
    Info info = kUnset;
    auto& [type, location, path] = info;
    DeviceInfoSupport::getInfoForDevice(device, &type, &location, &path);
    return info;
  }
  std::shared_ptr<XTImageCaptureMSCDevice> massStorage(const char* volume,
                                                       std::uint32_t idProduct) {
    const std::string bsdName = "sd" + std::to_string(++units_);
    room_.addUSBUnit(bsdName, idProduct);
    return XTImageCaptureMSCDevice::withICAObject(room_.ica.addVolume(volume, bsdName).object,
                                                  nullptr);
  }

  const Info kUnset{"unset", 77, "unset"};
  TemporaryFolder folder_;
  PictureDeviceTestRoom room_;
  int units_ = 0;
};

TEST_F(DeviceInfo, OfAPTPCameraComesFromItsDictionaryWhenTheModelIsSupported) {
  for (const auto& [idVendor, idProduct] :
       {std::pair(0xF055U, 0x0A21U), {0xF055U, 0x0311U}, {0xF055U, 0x0312U}, {0x04A9U, 0x0A21U}}) {
    const auto& camera = room_.ica.addPTPCamera(
        {.idVendor = idVendor, .idProduct = idProduct, .locationID = 0xFA200000});
    const bool isSupported = idVendor == 0xF055 && idProduct != 0x0312;
    EXPECT_EQ(infoFor(XTImageCapturePTPDevice::withICAObject(camera.object, nullptr)),
              (isSupported ? Info{"PTP", -98566144, ""} : Info{"", 77, "unset"}))
        << std::hex << idProduct;
  }
}

TEST_F(DeviceInfo, OfMassStorageHasItsVolumeWhateverItsType) {
  const std::tuple<const char*, std::uint32_t, const char*> rows[] = {
      {"CARD", 0x40B, "MSC"}, {"CARD", 0x40C, "card"}, {"STICK", 0x40C, ""}};
  for (const auto& [volume, idProduct, type] : rows) {
    const auto device = massStorage(volume, idProduct);
    EXPECT_EQ(infoFor(device), (Info{type, -98566144, folder_.path("volumes/") + volume}));
    EXPECT_EQ(DeviceInfoSupport::isValidPVC(*device), device->isMSCamera());
    EXPECT_EQ(DeviceInfoSupport::isValidCard(device.get()), volume == std::string("CARD"));
  }
}

TEST_F(DeviceInfo, OfNoDeviceOrAnUnknownKindIsLeftAsItIs) {
  const auto device =
      XTImageCapturePTPDevice::withICAObject(room_.ica.addPTPCamera().object, nullptr);
  device->storesChanged();  // Drops its dictionary.
  for (const std::shared_ptr<XTPictureDevice>& each :
       {std::shared_ptr<XTPictureDevice>(), std::shared_ptr<XTPictureDevice>(device),
        std::shared_ptr<XTPictureDevice>(std::make_shared<PlainDevice>("Lumo"))})
    EXPECT_EQ(infoFor(each), kUnset);
  EXPECT_TRUE(room_.trace.contains("getInfoForDevice:returnType:locID:path - icaDict is nil!"));
  EXPECT_EQ(room_.trace.count("getInfoForDevice:returnType:locID:path - mscDevice cast failed!"),
            2U);
}

struct Rooms {
  PictureDeviceTestRoom room;
  IdentifyRoom identify{{room.ica, room.registry, room.mounts}};
};

TEST(ICABSDNames, AreThoseOfTheMassStorageModulesInOrder) {
  Rooms rooms;
  auto& ica = rooms.room.ica;
  ica.addVolume("B", "sdc1", "MassStorage.app");
  ica.addPTPCamera();
  ica.addVolume("A", "sdb1", "MassStorageCamera.app");
  ica.addVolume("X", "sdd1", "MassStorage.app.bak");
  ica.addVolume("MOUNTED", "");
  ica.addVolume("ELSEWHERE", "");
  rooms.room.mounts.add("/dev/sde1", "/media/u/MOUNTED");
  EXPECT_THAT(GetICABSDNames(), Optional(ElementsAre(ICAVolume{"B", "sdc1"}, ICAVolume{"A", "sdb1"},
                                                     ICAVolume{"MOUNTED", "sde1"})));
}

TEST(ICABSDNames, LeaveOutWhatIsNoReadableCameraAndSayWhy) {
  const std::pair<std::function<void(FakeImageCapture&, FakeImageCapture::Device&)>, const char*>
      rows[] = {
          {[](auto& ica, auto&) { ica.nthChildStatus[0] = -50; },
           "ICAGetNthChild 0 error: -50, header err"},
          {[](auto&, auto& device) { device.info.objectType = fourCharCode("abcd"); },
           "child 0 getNthChildPB.childInfo.objectType: 'dcba'"},
          {[](auto&, auto& device) { device.info.objectSubtype = fourCharCode("scan"); },
           "child 0 getNthChildPB.childInfo.objectSubtype: 'nacs'"},
          {[](auto&, auto& device) { device.dictionaryStatus = -50; },
           "ICACopyObjectPropertyDictionary copyObjectPropertyDictionaryPB.header.err: -50"},
          {[](auto&, auto& device) { device.properties.erase("volume"); },
           "No volume property for index 0"},
      };
  for (const auto& [spoil, line] : rows) {
    Rooms rooms;
    spoil(rooms.room.ica, rooms.room.ica.addVolume("BAD", "sdb1"));
    rooms.room.ica.addVolume("GOOD", "sdc1");
    EXPECT_THAT(GetICABSDNames(), Optional(ElementsAre(ICAVolume{"GOOD", "sdc1"}))) << line;
    EXPECT_THAT(rooms.room.trace.lines(), ElementsAre(line));
  }
}

TEST(ICABSDNames, AreNoneNotEmptyWhenImageCaptureFails) {
  Rooms rooms;
  EXPECT_THAT(GetICABSDNames(), Optional(testing::IsEmpty()));
  for (const auto failing :
       {&FakeImageCapture::deviceListStatus, &FakeImageCapture::childCountStatus,
        &FakeImageCapture::childCountHeaderErr}) {
    rooms.room.ica.*failing = -50;
    EXPECT_EQ(GetICABSDNames(), std::nullopt);
    rooms.room.ica.*failing = 0;
  }
}

TEST(RootUSBDictionary, IsThatOfTheFirstUSBDeviceFromTheServiceUpwards) {
  Rooms rooms;
  auto& registry = rooms.room.registry;
  const auto device = registry.add({{"USB Product Name", ""}, {"USB Serial Number", "S"}});
  const auto unit = registry.add({{"IOClass", "scsi_unit"}}, device);
  const auto orphan = registry.add({{"IOClass", "scsi_unit"}});
  const auto find = DeviceInfoSupport::getRootUSBDictionaryForService;
  for (const auto service : {unit, device})  // the service itself counts
    EXPECT_EQ(textForKey(find(service).value(), "USB Serial Number"), "S");
  for (const auto service : {orphan, ServiceHandle{0x999}})
    EXPECT_FALSE(find(service));
}

}  // namespace
}  // namespace tarvo::test
