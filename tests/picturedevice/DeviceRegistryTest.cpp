// The registry of picture devices: what enters, what leaves, and who hears of it when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<PlainDevice> cached(const std::string& name, const std::string& serialNumber) {
  auto device = std::make_shared<PlainDevice>(name, serialNumber);
  device->cache();
  return device;
}

class OtherDevice : public PlainDevice {
  using PlainDevice::PlainDevice;
};

TEST(DeviceRegistry, AnnouncesADeviceOnceAndItsRemovalOnce) {
  PictureDeviceTestRoom room;
  const auto device = cached("Lumo", "SN1");
  device->cache();
  EXPECT_THAT(XTPictureDevice::deviceList(), ElementsAre(device));
  EXPECT_THAT(room.added, ElementsAre(device));

  device->removeFromCache();
  device->uncache();
  EXPECT_TRUE(XTPictureDevice::deviceList().empty());
  EXPECT_THAT(room.removed, ElementsAre(device));
}

TEST(DeviceRegistry, TakesADeviceForKnownOnlyWhenClassSerialNumberAndManufacturerAreTheSame) {
  const struct {
    const char* what;
    std::shared_ptr<PlainDevice> device;
    bool isKnown;
  } rows[] = {
      {"all the same, another name", std::make_shared<PlainDevice>("Other", "SN1"), true},
      {"another serial number", std::make_shared<PlainDevice>("Lumo", "SN2"), false},
      {"another manufacturer", std::make_shared<PlainDevice>("Lumo", "SN1", "Foto"), false},
      {"a derived class", std::make_shared<OtherDevice>("Lumo", "SN1"), false},
  };
  for (const auto& row : rows) {
    PictureDeviceTestRoom room;
    const auto first = cached("Lumo", "SN1");
    row.device->cache();
    EXPECT_EQ(XTPictureDevice::deviceList().size(), row.isKnown ? 1U : 2U) << row.what;
    EXPECT_EQ(room.added.size(), row.isKnown ? 1U : 2U) << row.what;
  }
}

TEST(DeviceRegistry, GivesAListThatLaterChangesLeaveAlone) {
  PictureDeviceTestRoom room;
  const auto device = cached("Lumo", "SN1");
  const auto before = XTPictureDevice::deviceList();
  device->uncache();
  EXPECT_EQ(before.size(), 1U);
}

TEST(DeviceRegistry, KeepsAnAddedDeviceAndDropsARemovedOneWhenAnObserverRaises) {
  PictureDeviceTestRoom room;
  const int observer = 0;
  const auto raise = [](const Notification&) { throw std::runtime_error("observer"); };
  room.center.addObserver(&observer, "DeviceAdded", raise);
  room.center.addObserver(&observer, "DeviceRemoved", raise);

  const auto device = std::make_shared<PlainDevice>("Lumo");
  EXPECT_THROW(device->cache(), std::runtime_error);
  EXPECT_THAT(XTPictureDevice::deviceList(), ElementsAre(device));
  EXPECT_TRUE(room.trace.contains("exception while caching a new device PlainDevice named Lumo"));

  EXPECT_THROW(device->uncache(), std::runtime_error);
  EXPECT_TRUE(XTPictureDevice::deviceList().empty());
  room.center.removeObserver(&observer);
}

TEST(DeviceRegistry, EndsADevicesObservingBeforeItsRemovalIsAnnounced) {
  PictureDeviceTestRoom room;
  const auto device = cached("Lumo", "SN1");
  int heard = 0;
  room.center.addObserver(device.get(), "DeviceRemoved", [&](const Notification&) { ++heard; });
  device->uncache();
  EXPECT_EQ(heard, 0);
}

TEST(DeviceRegistry, PostsWhenIdleOnlyWhileThatStyleHolds) {
  PictureDeviceTestRoom room;
  auto& style = room.room->deviceRegistry().discoveryNotificationPostingStyle;
  style = PostingStyle::kWhenIdle;
  cached("Lumo", "SN1");
  EXPECT_TRUE(room.added.empty());
  room.loop.runMainThreadQueue();
  EXPECT_TRUE(room.added.empty()) << "still queued until the loop is idle";
  room.loop.runIdleQueue();
  EXPECT_EQ(room.added.size(), 1U);

  cached("Lumo", "SN2");
  style = PostingStyle::kNow;
  room.loop.runMainThreadQueue();
  EXPECT_EQ(room.added.size(), 2U) << "the style that holds at delivery counts";
}

TEST(DeviceRegistry, FindsDevicesByNameAndSerialNumber) {
  PictureDeviceTestRoom room;
  const auto first = cached("Lumo", "SN1");
  const auto second = cached("Frame", "SN2");
  const auto third = cached("Lumo", "SN3");
  const struct {
    const char* name;
    std::size_t index;
    std::shared_ptr<PlainDevice> expected;
  } rows[] = {
      {"Lumo", 2, third},   // the hint is right
      {"Lumo", 1, first},   // another name there
      {"Lumo", 99, first},  // beyond the list
      {"Frame", 0, second}, {"None", 0, nullptr},
  };
  for (const auto& row : rows)
    EXPECT_EQ(XTPictureDevice::device(row.name, row.index), row.expected) << row.name << row.index;
  EXPECT_EQ(XTPictureDevice::deviceWithSerialNumber("SN2"), second);
  EXPECT_EQ(XTPictureDevice::deviceWithSerialNumber("SN9"), nullptr);
  EXPECT_EQ(XTPictureDevice::deviceWithName("Lumo", "http://camera"), nullptr);
}

TEST(DeviceRegistry, DetectsTheDevicesThatHaveAName) {
  PictureDeviceTestRoom room;
  const auto nameless = cached("", "SN1");
  const auto device = cached("Lumo", "SN2");
  std::vector<std::string> classes;
  std::vector<std::shared_ptr<XTPictureDevice>> devices;
  EXPECT_THAT(XTPictureDevice::detectAllDevices(&classes, &devices), ElementsAre("Lumo"));
  EXPECT_THAT(classes, ElementsAre("PlainDevice"));
  EXPECT_THAT(devices, ElementsAre(device));
  EXPECT_THAT(XTPictureDevice::detectAllDevices(nullptr, nullptr), ElementsAre("Lumo"));
}

TEST(DeviceRegistry, IsEmptyWithoutARoomAndForgetsWhatItHadDeferred) {
  PictureDeviceTestRoom room;
  room.room->deviceRegistry().discoveryNotificationPostingStyle = PostingStyle::kWhenIdle;
  const auto device = cached("Lumo", "SN1");
  room.room.reset();
  room.loop.runPending();
  EXPECT_TRUE(room.added.empty());
  EXPECT_TRUE(XTPictureDevice::deviceList().empty());
}

TEST(PictureDevice, WarnsWhenItEndsDuringDownloads) {
  PictureDeviceTestRoom room;
  auto device = std::make_shared<PlainDevice>("Lumo");
  device->fields().acquisitions = 2;
  device.reset();
  EXPECT_TRUE(room.trace.contains("Warning dealloc'ing a device with 2 pending acquisitions."));
}

TEST(PictureDevice, DropsItsAlbumNamesWhenItWasSetUp) {
  PictureDeviceTestRoom room;
  const auto device = std::make_shared<PlainDevice>("Lumo", "SN1");
  for (const bool names : {false, true}) {
    device->fields().cachedAlbumDict = PropertyDictionary::object();
    device->deviceWasSetupNotification(
        {"setup", nullptr, {{"XTDeviceSerialNumber", names ? "SN1" : "SN2"}}});
    EXPECT_EQ(device->fields().cachedAlbumDict.has_value(), !names);
  }
}

}  // namespace
}  // namespace tarvo::test
