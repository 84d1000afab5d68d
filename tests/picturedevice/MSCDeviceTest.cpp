// A mass-storage device: where its names come from and whose USB identity it takes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "NativeServices/PictureDevice/XTImageCaptureMSCDevice.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

TEST(MSCDevice, TakesTheIdentityOfTheNearestUSBDevice) {
  PictureDeviceTestRoom room;
  const auto hub = room.registry.add({{"USB Product Name", "Hub"}, {"idVendor", 1}});
  const auto usbDevice = room.registry.add({{"USB Product Name", "Lumo"},
                                            {"USB Vendor Name", "Tarvo Imaging"},
                                            {"USB Serial Number", "SN7"},
                                            {"idVendor", 0xF055},
                                            {"idProduct", 0x40B},
                                            {"locationID", 0xFA200000U}},
                                           hub);
  const auto interface = room.registry.add({{"idVendor", 0xF055}}, usbDevice);
  room.registry.makeUnreadable(interface);
  room.registry.add({{"BSD Name", "sdb1"}, {"USB Product Name", "not an ancestor"}}, interface);

  const auto device =
      XTImageCaptureMSCDevice::withICAObject(room.ica.addVolume("CARD", "sdb1").object, nullptr);
  ASSERT_TRUE(device);
  EXPECT_EQ(device->model(), "Lumo");
  EXPECT_EQ(device->manufacturer(), "Tarvo Imaging");
  EXPECT_EQ(device->serialNumber(), "SN7");
  EXPECT_EQ(device->vid(), 0xF055);
  EXPECT_EQ(device->pid(), 0x40B);
  EXPECT_EQ(device->usbLocID(), -98566144);
  EXPECT_EQ(device->volumeName(), "CARD");
  EXPECT_EQ(device->logicalMountPath(), "/media/u/CARD");
  EXPECT_EQ(device->physicalMountPath(), "/dev/sdb1");
  EXPECT_TRUE(room.trace.contains("doIOKitDiscovery IORegistryEntryCreateCFProperties failed"));
}

TEST(MSCDevice, IsACameraByItsIdsAndElseACardByItsMarkers) {
  const std::filesystem::path folder = std::filesystem::path(testing::TempDir()) / "msc-volumes";
  std::filesystem::create_directories(folder / "MARKED/MISC");
  std::ofstream(folder / "MARKED/MISC/EREVIEW.DB") << "x";
  const struct {
    std::uint32_t idVendor;
    std::uint32_t idProduct;
    const char* volume;
    bool isCamera;
    bool isCard;
  } rows[] = {
      {0xF055, 0x40B, "PLAIN", true, false},  {0xF055, 0x40B, "MARKED", true, false},
      {0xF055, 0x40C, "PLAIN", false, false}, {0xF055, 0x40C, "MARKED", false, true},
      {0x1234, 0x40B, "PLAIN", false, false}, {0x1234, 0x40B, "MARKED", false, true},
  };
  for (const auto& row : rows) {
    PictureDeviceTestRoom room;
    room.mounts = FakeMountTable(folder.string());
    room.addUSBUnit("sdb1", row.idProduct, "SN", row.idVendor);
    const auto device = XTImageCaptureMSCDevice::withICAObject(
        room.ica.addVolume(row.volume, "sdb1").object, nullptr);
    ASSERT_TRUE(device);
    EXPECT_EQ(device->isMSCamera(), row.isCamera) << row.idProduct << row.volume;
    EXPECT_EQ(device->isMSCard(), row.isCard) << row.idProduct << row.volume;
    EXPECT_FALSE(device->isPTPDevice());
  }
  std::filesystem::remove_all(folder);
}

TEST(MSCDevice, TakesAMissingBSDNameFromTheMountTable) {
  for (const bool isMounted : {true, false}) {
    PictureDeviceTestRoom room;
    room.addUSBUnit("sdb1", 0x40B);
    if (isMounted) room.mounts.add("/dev/sdb1", "/media/u/CARD");
    Status failure = 0;
    const auto device =
        XTImageCaptureMSCDevice::withICAObject(room.ica.addVolume("CARD", "").object, &failure);
    EXPECT_EQ(device != nullptr, isMounted);
    EXPECT_EQ(failure, isMounted ? 0 : -36);
    EXPECT_EQ(room.trace.contains("statfs failed for volume 'CARD'"), !isMounted);
    EXPECT_EQ(room.trace.contains("loadDeviceInfoUncached failed to find bsdName"), !isMounted);
  }
}

TEST(MSCDevice, KeepsItsVolumeNameInsideTheVolumesFolder) {
  const std::pair<const char*, const char*> rows[] = {{"../../etc", "/media/u/etc"},
                                                      {"..", "/media/u/"},
                                                      {".", "/media/u/"},
                                                      {"A B", "/media/u/A B"}};
  for (const auto& [volume, path] : rows) {
    PictureDeviceTestRoom room;
    room.addUSBUnit("sdb1", 0x40B);
    const auto device =
        XTImageCaptureMSCDevice::withICAObject(room.ica.addVolume(volume, "sdb1").object, nullptr);
    EXPECT_EQ(device->logicalMountPath(), path);
  }
}

TEST(MSCDevice, IsNoneWithoutAUSBDeviceAboveIt) {
  PictureDeviceTestRoom room;
  room.registry.add({{"BSD Name", "loop0"}});
  const std::pair<const char*, Status> rows[] = {{"loop0", 998}, {"sdx", -36}};
  for (const auto& [bsdName, expected] : rows) {
    Status failure = 0;
    EXPECT_FALSE(
        XTImageCaptureMSCDevice::withICAObject(room.ica.addVolume("V", bsdName).object, &failure));
    EXPECT_EQ(failure, expected) << bsdName;
  }
  EXPECT_TRUE(room.trace.contains("doIOKitDiscovery failed to find the device in IOKit Registry"));
  EXPECT_TRUE(room.trace.contains("doIOKitDiscovery failed to get service"));
}

}  // namespace
}  // namespace tarvo::test
