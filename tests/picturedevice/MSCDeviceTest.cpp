// A mass-storage device: where its names come from and whose USB identity it takes.
#include <gtest/gtest.h>

#include <tuple>

#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
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
  EXPECT_EQ(device->logicalMountPath(), "/media/u/CARD");
  EXPECT_EQ(device->physicalMountPath(), "/dev/sdb1");
  EXPECT_TRUE(room.trace.contains("doIOKitDiscovery IORegistryEntryCreateCFProperties failed"));
}

TEST(MSCDevice, KeepsItsVolumeNameInsideTheVolumesFolderAndHasFilesOfMoreThan2GiB) {
  PictureDeviceTestRoom room;
  room.addUSBUnit("sdb1", 0x40B);
  const std::pair<const char*, const char*> rows[] = {
      {"../../etc", "/media/u/etc"}, {"..", "/media/u/"}, {"A B", "/media/u/A B"}};
  for (const auto& [volume, path] : rows) {
    const auto device =
        XTImageCaptureMSCDevice::withICAObject(room.ica.addVolume(volume, "sdb1").object, nullptr);
    EXPECT_EQ(device->logicalMountPath(), path);
    const PropertyDictionary film = {{"isiz", 0x80000000U}, {"tsiz", 0x80000001U}};
    EXPECT_EQ(device->objectSize(film), 0x80000000);
    EXPECT_EQ(device->thumbSize(film), 0x80000001);
  }
}

TEST(MSCDevice, NeedsABlockDeviceWithAUSBDeviceAboveIt) {
  PictureDeviceTestRoom room;
  room.addUSBUnit("sdb1", 0x40B);
  room.registry.add({{"BSD Name", "loop0"}});
  room.mounts.add("/dev/sdb1", "/media/u/MOUNTED");
  const std::tuple<const char*, const char*, Status> rows[] = {
      {"MOUNTED", "", 0}, {"ELSEWHERE", "", -36}, {"V", "sdx", -36}, {"V", "loop0", 998}};
  for (const auto& [volume, bsdName, expected] : rows) {
    Status failure = -1;
    const auto object = room.ica.addVolume(volume, bsdName).object;
    EXPECT_EQ(XTImageCaptureMSCDevice::withICAObject(object, &failure) != nullptr, expected == 0);
    EXPECT_EQ(failure, expected) << volume << bsdName;
  }
}

}  // namespace
}  // namespace tarvo::test
