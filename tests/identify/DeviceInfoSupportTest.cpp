// The facts that the agent passes on about a device.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "identify/DeviceInfoSupport.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;

/// An agent bundle whose model table lists product id 0x0A21, and volumes with and without marker.
class DeviceInfo : public testing::Test {
 protected:
  DeviceInfo() {
    fs::create_directories(folder_ / "Resources");
    std::ofstream(folder_ / "Resources/ggcam.inf")
        << "[Models.NTx86]\r\n%MfgName%=QRS.Camera,USB.VID_F055&PID_0A21\r\n";
    fs::create_directories(folder_ / "volumes/CARD/MISC");
    std::ofstream(folder_ / "volumes/CARD/MISC/IREVIEW.DB") << "x";
    room_.maker.agentBundlePath = folder_.string();
    room_.mounts = FakeMountTable((folder_ / "volumes").string());
  }
  ~DeviceInfo() override { fs::remove_all(folder_); }

  struct Info {
    std::string type = "unset";
    std::int32_t locID = 77;
    std::string path = "unset";
    friend bool operator==(const Info&, const Info&) = default;
    friend void PrintTo(const Info& info, std::ostream* out) {
      *out << info.type << ", " << info.locID << ", " << info.path;
    }
  };
  Info infoFor(const std::shared_ptr<XTPictureDevice>& device) {
    const SupportedModels models(room_.maker);
    Info info;
    DeviceInfoSupport::getInfoForDevice(device, &info.type, &info.locID, &info.path);
    return info;
  }
  std::shared_ptr<XTImageCaptureMSCDevice> massStorage(const char* volume,
                                                       std::uint32_t idProduct) {
    const std::string bsdName = "sd" + std::to_string(++units_);
    room_.addUSBUnit(bsdName, idProduct);
    return XTImageCaptureMSCDevice::withICAObject(room_.ica.addVolume(volume, bsdName).object,
                                                  nullptr);
  }

  fs::path folder_ = fs::path(testing::TempDir()) / "device-info-bundle";
  PictureDeviceTestRoom room_;
  int units_ = 0;
};

TEST_F(DeviceInfo, OfAPTPCameraComesFromItsDictionaryWhenTheModelIsSupported) {
  const struct {
    std::uint32_t idVendor;
    std::uint32_t idProduct;
    Info expected;
  } rows[] = {
      {0xF055, 0x0A21, {"PTP", -98566144, ""}},
      {0xF055, 0x0311, {"PTP", -98566144, ""}},
      {0xF055, 0x0312, {"", 77, "unset"}},
      {0x04A9, 0x0A21, {"", 77, "unset"}},
  };
  for (const auto& row : rows) {
    const auto& camera = room_.ica.addPTPCamera(
        {.idVendor = row.idVendor, .idProduct = row.idProduct, .locationID = 0xFA200000});
    EXPECT_EQ(infoFor(XTImageCapturePTPDevice::withICAObject(camera.object, nullptr)), row.expected)
        << std::hex << row.idProduct;
  }
}

TEST_F(DeviceInfo, OfMassStorageHasItsVolumeWhateverItsType) {
  const struct {
    const char* volume;
    std::uint32_t idProduct;
    const char* type;
  } rows[] = {{"CARD", 0x40B, "MSC"}, {"CARD", 0x40C, "card"}, {"STICK", 0x40C, ""}};
  for (const auto& row : rows) {
    const auto device = massStorage(row.volume, row.idProduct);
    EXPECT_EQ(infoFor(device),
              (Info{row.type, -98566144, (folder_ / "volumes" / row.volume).string()}));
    EXPECT_EQ(DeviceInfoSupport::isValidPVC(*device), device->isMSCamera());
    EXPECT_EQ(DeviceInfoSupport::isValidCard(device.get()), row.volume == std::string("CARD"));
  }
}

TEST_F(DeviceInfo, OfNoDeviceOrAnUnknownKindIsLeftAsItIs) {
  EXPECT_EQ(infoFor(nullptr), Info());
  EXPECT_EQ(infoFor(std::make_shared<PlainDevice>("Lumo")), Info());
  const auto device =
      XTImageCapturePTPDevice::withICAObject(room_.ica.addPTPCamera().object, nullptr);
  device->storesChanged();  // Drops its dictionary.
  EXPECT_EQ(infoFor(device), Info());
  EXPECT_TRUE(room_.trace.contains("getInfoForDevice:returnType:locID:path - icaDict is nil!"));
  EXPECT_EQ(room_.trace.count("getInfoForDevice:returnType:locID:path - mscDevice cast failed!"),
            2U);
}

TEST(RootUSBDictionary, IsThatOfTheFirstUSBDeviceFromTheServiceUpwards) {
  PictureDeviceTestRoom room;
  const IdentifyRoom identify({room.ica, room.registry, room.mounts});
  const auto hub = room.registry.add({{"USB Product Name", "Hub"}});
  const auto device =
      room.registry.add({{"USB Product Name", ""}, {"USB Serial Number", "S"}}, hub);
  const auto unit = room.registry.add({{"IOClass", "scsi_unit"}}, device);
  const auto orphan = room.registry.add({{"IOClass", "scsi_unit"}});
  const auto serialNumber = [](ServiceHandle service) {
    const auto found = DeviceInfoSupport::getRootUSBDictionaryForService(service);
    return found ? textForKey(*found, "USB Serial Number").value_or("none") : "no device";
  };
  EXPECT_EQ(serialNumber(unit), "S");
  EXPECT_EQ(serialNumber(device), "S") << "the service itself counts";
  EXPECT_EQ(serialNumber(orphan), "no device");
  EXPECT_EQ(serialNumber(0x999), "no device");
  room.registry.makeUnreadable(device);
  EXPECT_EQ(serialNumber(unit), "none") << "an entry that cannot be read is passed over";
}

}  // namespace
}  // namespace tarvo::test
