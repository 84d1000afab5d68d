// What lies on a device as Image Capture shows it, what is done with it through plain messages, and
// where a mass-storage device has its identity from.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/ScriptedPTPDevice.h"

namespace tarvo::test {
namespace {

using testing::IsEmpty;

PropertyDictionary file(const std::string& name, std::uint32_t object) {
  return {{"ifil", name}, {"icao", object}, {"isiz", 1000}};
}

/// A card with a device of its own.
struct Card {
  Card() {
    room.addUSBUnit("sdb1", 0x0302);
    auto& volume = room.ica.addVolume("CARD", "sdb1");
    volume.properties["data"] = {file("A.JPG", 0x201), file("B.JPG", 0x202)};
    device = XTImageCaptureMSCDevice::withICAObject(volume.object, nullptr);
  }
  PictureDeviceTestRoom room;
  std::shared_ptr<XTImageCaptureDevice> device;
};

TEST(Contents, AreTheElementsUnderDataUntilTheyChange) {
  Card card;
  EXPECT_EQ(card.device->imageCount(), 2);
  EXPECT_EQ(*card.device->pictureFiles(),
            (ObjectReferences{file("A.JPG", 0x201), file("B.JPG", 0x202)}));
  auto& volume = *card.room.ica.find(card.device->icaObject());
  volume.properties.erase("data");
  EXPECT_EQ(card.device->imageCount(), 2) << "as last copied";
  card.device->storesChanged();
  EXPECT_EQ(volume.forgotten, 1);
  EXPECT_EQ(card.device->imageCount(), 0);
  EXPECT_THAT(*card.device->pictureFiles(), IsEmpty());
  card.room.ica.vanish(card.device->icaObject());
  card.device->storesChanged();
  EXPECT_EQ(card.device->imageCount(), 0);
}

TEST(Contents, LoseAPictureOnceItWasDeleted) {
  Card card;
  EXPECT_EQ(card.device->imageCount(), 2);
  card.room.ica.messageStatus = -36;
  EXPECT_EQ(card.device->deleteObject(file("A.JPG", 0x201)), -36);
  EXPECT_EQ(card.device->imageCount(), 2);
  card.room.ica.messageStatus = 0;
  EXPECT_EQ(card.device->deleteObject(file("A.JPG", 0x201)), 0);
  EXPECT_EQ(card.device->deleteObject(file("not a picture", 0x207)), 0);
  EXPECT_EQ(*card.device->pictureFiles(), ObjectReferences{file("B.JPG", 0x202)});
  EXPECT_EQ(card.room.ica.messages.back(), std::pair(ICAObject{0x207}, ica::kMessageDelete));

  for (const ObjectReference& object : {ObjectReference(), ObjectReference("/media/u/A.JPG"),
                                        ObjectReference({{"ifil", "no handle"}})})
    EXPECT_EQ(card.device->deleteObject(object), status::kICAInvalidObject);
  card.device->setDisconnected(true);
  EXPECT_EQ(card.device->deleteObject(file("B.JPG", 0x202)), 0x2002);
  EXPECT_EQ(card.room.ica.messages.size(), 3U);
}

TEST(Clock, IsSetByTheFirstCapabilityForIt) {
  const std::uint32_t other = 0x61626364;
  const std::tuple<PropertyDictionary, Status, Status, std::size_t> rows[] = {
      {{other, ica::kMessageSyncClock, ica::kMessageSyncClock}, 0, 0, 1},
      {{other, ica::kMessageSyncClock}, 0x200F, 0x200F, 1},
      {{other, "sclk"}, 0, -1400, 0}};
  for (const auto& [capabilities, ends, status, messages] : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.properties["capa"] = capabilities;
    scripted.room.ica.messageStatus = ends;
    EXPECT_EQ(scripted->setDateTime(), status) << capabilities;
    EXPECT_EQ(scripted.room.ica.messages.size(), messages);
    EXPECT_EQ(scripted.room.trace.count("setDateTime CameraSyncClock objectSendMessagePB.header.err"
                                        ": 0x200f"),
              ends == 0 ? 0U : 1U);
    EXPECT_TRUE(scripted.room.trace.contains("Capability 0: abcd"));
  }
  ScriptedPTPDevice gone;
  EXPECT_EQ(gone->setDateTime(), -1400);
  gone.camera.dictionaryStatus = status::kICADeviceGone;
  gone->storesChanged();
  EXPECT_EQ(gone->setDateTime(), status::kICADeviceGone) << "not knowing is no answer";
}

TEST(ExtendedEvents, ReachTheDeviceUntilItLeavesOrIsGone) {
  ScriptedPTPDevice scripted;
  std::vector<PropertyDictionary> heard;
  scripted.room.center.addObserver(
      &heard, "DeviceEvent", [&](const Notification& posted) { heard.push_back(posted.userInfo); });
  const PropertyDictionary event = {{"code", 0x4002}, {"params", {0xFFFFFFF0U, 2}}};
  const auto heardOf = [&](const PropertyDictionary& reported) {
    scripted.room.ica.report(scripted.camera.object, reported);
    return std::exchange(heard, {});
  };
  EXPECT_THAT(heardOf(event), IsEmpty());
  EXPECT_EQ(scripted->registerForExtendedEvents(), 0);
  scripted.camera.properties["ifil"] = "read anew";
  const auto first = heardOf(event);
  (void)scripted->refreshIcaDictionary();
  EXPECT_EQ(scripted->icaDictionary()->at("ifil"), "read anew");
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(first[0].at("code"), 0x4002);
  EXPECT_EQ(first[0].at("params"), event.at("params"));
  EXPECT_EQ(heardOf({{"code", "none"}, {"params", {"x"}}}).size(), 1U);
  scripted->unregisterForExtendedEvents();
  EXPECT_THAT(heardOf(event), IsEmpty());
  EXPECT_EQ(scripted->registerForExtendedEvents(), 0);
  scripted.device.reset();
  EXPECT_THAT(heardOf(event), IsEmpty());
  scripted.room.center.removeObserver(&heard);

  ScriptedPTPDevice refused;
  refused.room.ica.registrationStatus[ica::kExtended] = -9906;
  EXPECT_EQ(refused->registerForExtendedEvents(), -9906);
  EXPECT_TRUE(
      refused.room.trace.contains("Extended : registerEventNotificationPB.header.err: -9906"));
}

TEST(MSCDevice, TakesTheIdentityOfTheNearestUSBDevice) {
  PictureDeviceTestRoom room;
  const auto usbDevice = room.registry.add({{"USB Product Name", "Lumo"},
                                            {"USB Vendor Name", "Tarvo Imaging"},
                                            {"USB Serial Number", "SN7"},
                                            {"idVendor", 0xF055},
                                            {"idProduct", 0x40B},
                                            {"locationID", 0xFA200000U}});
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
