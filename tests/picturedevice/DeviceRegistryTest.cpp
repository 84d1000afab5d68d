// The registry of picture devices: what enters, what leaves, and who hears of it when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

using testing::_;
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
  const auto listed = XTPictureDevice::deviceList();
  EXPECT_THAT(room.added, ElementsAre(device));

  device->removeFromCache();
  device->uncache();
  EXPECT_THAT(listed, ElementsAre(device)) << "a copy, which later changes leave alone";
  EXPECT_TRUE(XTPictureDevice::deviceList().empty());
  EXPECT_THAT(room.removed, ElementsAre(device));
}

TEST(DeviceRegistry, TakesADeviceForKnownOnlyWhenClassSerialNumberAndManufacturerAreTheSame) {
  PictureDeviceTestRoom room;
  cached("Lumo", "SN1");
  cached("Another name", "SN1");
  EXPECT_EQ(room.added.size(), 1U);
  EXPECT_THAT(room.visibleLines(), ElementsAre(testing::HasSubstr("Another name")));
  cached("Lumo", "SN2");
  std::make_shared<PlainDevice>("Lumo", "SN1", "Foto")->cache();
  std::make_shared<OtherDevice>("Lumo", "SN1")->cache();
  EXPECT_EQ(room.added.size(), 4U);
}

TEST(DeviceRegistry, TellsDevicesWithoutASerialNumberByTheirObjects) {
  PictureDeviceTestRoom room;
  for (int i = 0; i < 2; ++i)
    room.ica.addPTPCamera({.serialNumber = ""});
  for (int i = 0; i < 2; ++i)
    XTImageCaptureDevice::checkForDevicesAtStartup();
  EXPECT_EQ(room.added.size(), 2U);
  EXPECT_THAT(room.visibleLines(), testing::IsEmpty());
  const auto plain = cached("Lumo", "");
  plain->cache();
  EXPECT_THAT(XTPictureDevice::deviceList(), ElementsAre(_, _, plain));
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
  EXPECT_EQ(XTPictureDevice::device("Frame", 1), second);
  EXPECT_EQ(XTPictureDevice::device("Lumo", 1), first) << "another name there";
  EXPECT_EQ(XTPictureDevice::device("Lumo", 99), first) << "beyond the list";
  EXPECT_EQ(XTPictureDevice::deviceWithSerialNumber("SN2"), second);
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

TEST(PictureDevice, LoadsItsInformationUntilThatSucceedsOnce) {
  struct Loading : PlainDevice {
    using PlainDevice::PlainDevice;
    Status loadDeviceInfoUncached() override { return ++loads == 2 ? 0 : -36; }
    int loads = 0;
  };
  PictureDeviceTestRoom room;
  Loading device("Lumo");
  EXPECT_EQ(device.loadDeviceInfo(), -36);
  EXPECT_TRUE(room.trace.contains(
      "XTPictureDevice: loadDeviceInfo: bad status from loadDeviceInfoUncached"));
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(device.loadDeviceInfo(), 0);
  EXPECT_EQ(device.loads, 2);
}

TEST(PictureDevice, SaysWhichOperationItsClassLacks) {
  PictureDeviceTestRoom room;
  PlainDevice device("Lumo");
  EXPECT_EQ(device.batteryLevel(), 255);
  EXPECT_EQ(device.formatStore(1), -50);
  EXPECT_EQ(room.trace.count("[PlainDevice formatStore:] (self"), 1U);
  EXPECT_EQ(room.trace.count("Subclass responsibility not overridden"), 2U);
  EXPECT_TRUE(room.trace.contains("-[PlainDevice formatStore:]: unrecognized selector"));
}

}  // namespace
}  // namespace tarvo::test
