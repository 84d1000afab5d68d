// When discovery starts, and how what it finds is announced.
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

TEST(DiscoveryStart, AnnouncesWhatIsThereFromTheMainLoopNotFromInside) {
  PictureDeviceTestRoom room;
  room.ica.addPTPCamera();
  XTPictureDevice::registerAllNotifications();
  EXPECT_EQ(XTPictureDevice::deviceList().size(), 1U);
  EXPECT_TRUE(room.added.empty());
  EXPECT_TRUE(room.trace.contains("launcher procName: "));
  EXPECT_TRUE(room.trace.contains("Not launched by helper"));

  room.loop.runMainThreadQueue();  // posted at once then: the idle style has ended
  EXPECT_EQ(room.added.size(), 1U);
}

TEST(DiscoveryStart, WaitsForTheHelpersWirelessDeviceToGo) {
  PictureDeviceTestRoom room;
  room.applications.launcher = room.maker.helperBundleIdentifier;
  room.ica.addPTPCamera();
  XTPictureDevice::registerAllNotifications();
  EXPECT_FALSE(room.ica.isRegistered(0, ica::kDeviceAdded));
  EXPECT_TRUE(room.trace.contains(" - Launched by helper"));

  room.center.post({"XTWirelessDeviceDestroyed", nullptr});
  EXPECT_TRUE(room.ica.isRegistered(0, ica::kDeviceAdded));
  EXPECT_EQ(room.added.size(), 1U) << "announced at once";

  const int registrations = room.ica.registrations;
  room.center.post({"XTWirelessDeviceDestroyed", nullptr});
  EXPECT_EQ(room.ica.registrations, registrations) << "heard once only";
}

}  // namespace
}  // namespace tarvo::test
