// What Image Capture lists, and what its events do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/XTImageCaptureDevice.h"
#include "Utilities/Exception.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<XTImageCaptureDevice> onlyDevice() {
  const auto devices = XTPictureDevice::deviceList();
  if (devices.size() != 1) return nullptr;
  return std::dynamic_pointer_cast<XTImageCaptureDevice>(devices[0]);
}

TEST(Enumeration, ListsCamerasWithTheClassOfTheirModule) {
  PictureDeviceTestRoom room;
  const auto ptp = room.ica.addPTPCamera({.name = "Camera"}).object;
  const auto volume = room.ica.addVolume("CARD", "sdb1", "MassStorage.app").object;
  const auto massStorageCamera = room.ica.addVolume("DISK", "sdc1").object;
  room.ica.addDevice({{"ifil", "Scanner"}}).info.objectSubtype = fourCharCode("scan");
  room.ica.addDevice({{"ifil", "Folder"}}).info.objectType = fourCharCode("fold");
  room.ica.nthChildStatus[5] = -50;
  room.ica.addPTPCamera({.name = "Unreadable child"});

  std::vector<std::string> classes;
  std::vector<ICAObject> objects;
  const auto names = XTImageCaptureDevice::icaDevices(&classes, &objects);
  ASSERT_TRUE(names);
  EXPECT_THAT(*names, ElementsAre("Camera", "CARD", "DISK"));
  EXPECT_THAT(classes, ElementsAre("XTImageCapturePTPDevice", "XTImageCaptureVolume"));
  EXPECT_THAT(objects, ElementsAre(ptp, volume, massStorageCamera));
  for (const char* line :
       {"found 6 ICA image source(s)",
        "child 3 getNthChildPB.childInfo.objectSubtype: 'scan'; should have been 'cmra'",
        "child 4 getNthChildPB.childInfo.objectType: 'fold'; should have been 'icdv'",
        "getNthChildPB.header.err: -50"})
    EXPECT_TRUE(room.trace.contains(line)) << line;
}

TEST(Enumeration, LeavesOutThePictureDiscUnderOneModuleOnly) {
  const struct {
    const char* name;
    const char* module;
    bool isListed;
  } rows[] = {
      {"Tarvo PictureCD", "MassStorage.app", false},
      {"Tarvo PictureCD", "MassStorageCamera.app", true},
      {"Tarvo PictureCD ", "MassStorage.app", true},
      {"CARD", "MassStorage.app", true},
  };
  for (const auto& row : rows) {
    PictureDeviceTestRoom room;
    room.addUSBUnit("sdb1", 0x40B);
    const auto object = room.ica.addVolume(row.name, "sdb1", row.module).object;
    EXPECT_EQ(XTImageCaptureDevice::icaDevices(nullptr, nullptr)->size(), row.isListed ? 1U : 0U)
        << row.name << row.module;
    EXPECT_EQ(XTImageCaptureDevice::deviceFromICAObject(object, nullptr) != nullptr, row.isListed)
        << row.name << row.module;
  }
}

TEST(Enumeration, GivesNothingWhenImageCaptureFails) {
  const auto enumerate = [](auto fail) {
    PictureDeviceTestRoom room;
    fail(room.ica, room.ica.addPTPCamera());
    return XTImageCaptureDevice::icaDevices(nullptr, nullptr).has_value();
  };
  using ICA = FakeImageCapture;
  EXPECT_TRUE(enumerate([](ICA&, ICA::Device&) {}));
  EXPECT_FALSE(enumerate([](ICA& ica, ICA::Device&) { ica.deviceListStatus = -50; }));
  EXPECT_FALSE(enumerate([](ICA& ica, ICA::Device&) { ica.childCountStatus = -50; }));
  EXPECT_FALSE(enumerate([](ICA& ica, ICA::Device&) { ica.childCountHeaderErr = -50; }));
  EXPECT_FALSE(enumerate([](ICA&, ICA::Device& device) { device.dictionaryStatus = -50; }));
  // What is odd about the list itself is reported, but enumeration goes on.
  EXPECT_TRUE(enumerate([](ICA& ica, ICA::Device&) {
    ica.objectInfoStatus = -50;
    ica.deviceListInfo = {};
  }));
}

TEST(DeviceAdded, IsInspectedHalfASecondLater) {
  PictureDeviceTestRoom room;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto object = room.ica.addPTPCamera().object;
  room.ica.announce(object);
  room.loop.advance(499ms);
  EXPECT_THAT(room.added, IsEmpty());
  room.loop.advance(1ms);
  EXPECT_EQ(room.added.size(), 1U);
  EXPECT_EQ(XTImageCaptureDevice::deviceWithICAObject(object), room.added[0]);
  EXPECT_EQ(XTImageCaptureDevice::deviceWithICAObject(object + 1), nullptr);
}

TEST(DeviceAdded, DoesNothingForADeviceThatIsInTheRegistryOrWaits) {
  PictureDeviceTestRoom room;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto object = room.ica.addPTPCamera().object;
  room.ica.announce(object);
  room.ica.announce(object);
  EXPECT_EQ(room.loop.validTimerCount(), 1U);
  room.loop.advance(1s);
  room.ica.announce(object);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
}

TEST(DeviceAdded, IsQuietAboutADeviceThatWentWithinTheHalfSecond) {
  PictureDeviceTestRoom room;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto object = room.ica.addPTPCamera().object;
  room.ica.announce(object);
  room.ica.unplug(object);
  room.loop.advance(20s);
  EXPECT_THAT(room.added, IsEmpty());
  EXPECT_THAT(room.visibleLines(), IsEmpty());
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
}

TEST(DeviceAdded, IsDroppedWithTheRoomAndHarmlessAfterIt) {
  PictureDeviceTestRoom room;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto object = room.ica.addPTPCamera().object;
  room.ica.announce(object);
  room.room.reset();
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
  room.ica.announce(object);
  room.ica.unplug(object);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
  EXPECT_EQ(PictureDeviceRoom::current(), nullptr);
}

TEST(DeviceRemoved, DisconnectsTheDeviceAndAnnouncesIt) {
  PictureDeviceTestRoom room;
  const auto& camera = room.ica.addPTPCamera();
  room.ica.addPTPCamera({.serialNumber = "SN2"});
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto device = XTImageCaptureDevice::deviceWithICAObject(camera.object);
  ASSERT_TRUE(device);
  room.ica.unplug(camera.object);
  EXPECT_TRUE(device->disconnected());
  EXPECT_THAT(room.removed, ElementsAre(device));
  EXPECT_EQ(XTPictureDevice::deviceList().size(), 1U);
}

TEST(DeviceRemoved, SwallowsWhatAnObserverRaises) {
  PictureDeviceTestRoom room;
  const auto object = room.ica.addPTPCamera().object;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const int observer = 0;
  room.center.addObserver(&observer, "DeviceRemoved",
                          [](const Notification&) { throw Exception("Test", "observer"); });
  EXPECT_NO_THROW(room.ica.unplug(object));
  EXPECT_TRUE(room.trace.contains("handling uncaught exception in notifyICADeviceRemoved: "));
  EXPECT_THAT(XTPictureDevice::deviceList(), IsEmpty());
  room.center.removeObserver(&observer);
}

TEST(StoreEvents, MakeTheDeviceForgetWhatItReadAndAreAnnounced) {
  for (const auto& [event, name] :
       {std::pair{ica::kStoreAdded, "StoreAdded"}, std::pair{ica::kStoreRemoved, "StoreRemoved"}}) {
    PictureDeviceTestRoom room;
    std::vector<std::shared_ptr<Object>> heard;
    room.record(name, heard);
    auto& camera = room.ica.addPTPCamera();
    XTImageCaptureDevice::registerDeviceAddedNotifications();
    const auto device = onlyDevice();
    ASSERT_TRUE(device && device->icaDictionary());

    room.ica.fire(camera.object, event);
    EXPECT_THAT(heard, ElementsAre(device));
    EXPECT_FALSE(device->icaDictionary());
    camera.properties["data"] = {{{"ifil", "1.JPG"}}, {{"ifil", "2.JPG"}}};
    EXPECT_EQ(device->imageCount(), 2);
    EXPECT_EQ(device->pictureFiles()->at(1)["ifil"], "2.JPG");
  }
}

TEST(StoreEvents, OfAnUnknownDeviceAreAnnouncedWithoutIt) {
  PictureDeviceTestRoom room;
  std::vector<std::shared_ptr<Object>> heard;
  room.record("StoreAdded", heard);
  XTImageCaptureDevice::storeAdded(0x999);
  EXPECT_THAT(heard, ElementsAre(nullptr));
}

TEST(EventRegistration, RaisesExceptForRemovedStores) {
  const struct {
    FourCharCode event;
    const char* line;
    bool raises;
  } rows[] = {
      {ica::kDeviceRemoved, "DeviceRemoved: registerEventNotificationPB.header.err: -50", true},
      {ica::kStoreAdded, "StoreAdded: registerEventNotificationPB.header.err: -50", true},
      {ica::kStoreRemoved, "StoreRemoved: registerEventNotificationPB.header.err: -50", false},
  };
  for (const auto& row : rows) {
    PictureDeviceTestRoom room;
    const auto object = room.ica.addPTPCamera().object;
    room.ica.registrationStatus[row.event] = -50;
    if (row.raises) {
      EXPECT_THROW(XTImageCaptureDevice::primeICADevice(object), Exception) << row.line;
    } else {
      EXPECT_NO_THROW(XTImageCaptureDevice::primeICADevice(object)) << row.line;
    }
    EXPECT_TRUE(room.trace.contains(row.line)) << row.line;
    EXPECT_EQ(room.added.size(), row.raises ? 0U : 1U) << row.line;
  }
}

TEST(VolumeLabel, IsReadWhereItIsText) {
  PictureDeviceTestRoom room;
  auto& volume = room.ica.addVolume("CARD", "sdb1");
  volume.volumeLabel = std::string("CARD\0junk", 9);
  EXPECT_EQ(XTImageCaptureDevice::getICADeviceName(volume.object), "CARD");
  volume.volumeLabelType = fourCharCode("utxt");
  EXPECT_EQ(XTImageCaptureDevice::getICADeviceName(volume.object), std::nullopt);
  EXPECT_TRUE(room.trace.contains(
      "getPropertyByTypePB.propertyInfo.dataType: 'utxt'; should have been 'TEXT'"));
  EXPECT_EQ(XTImageCaptureDevice::getICADeviceName(0), std::nullopt);
  EXPECT_EQ(XTImageCaptureDevice::getICADeviceName(0x999), std::nullopt);
}

}  // namespace
}  // namespace tarvo::test
