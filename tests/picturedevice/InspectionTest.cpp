// The inspection of a device that has come: which class, whose device, and who may hold it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "Utilities/Exception.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const PTPCameraDescription kForeignCamera{
    .manufacturer = "Foto", .vendorExtensionID = 6, .idVendor = 0x04A9};

TEST(Inspection, UsesOneSessionWhichEndsBeforeTheDeviceIsAnnouncedAndOutlivesObservers) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  int openWhenAnnounced = -1;
  const int observer = 0;
  room.center.addObserver(&observer, "DeviceAdded", [&](const Notification&) {
    openWhenAnnounced = camera.openScopes;
    throw Exception("Test", "observer");
  });
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  EXPECT_EQ(openWhenAnnounced, 0);
  EXPECT_EQ(camera.scopesOpened, 1);
  EXPECT_EQ(XTPictureDevice::deviceList().size(), 1U);
  EXPECT_THAT(room.visibleLines(),
              ElementsAre(HasSubstr("uncaught exception in checkForDevicesAtStartup: Test")));
  room.center.removeObserver(&observer);
}

TEST(Inspection, SaysInWordsWhyACameraOfTheMakerIsNotUsedAndIsSilentAboutOthers) {
  const struct {
    PTPAnswer answer;
    const char* words;
  } rows[] = {
      {{.status = status::kICATimeout}, "-9904"},
      {{.vanishes = true}, "-9903"},
      {{.responseCode = 0x2002}, "0x2002"},
      {{.data = {}}, "its PTP vendor extension is 0x00000000"},
      {{.data = PTPBytes().u16(100).u32(0x5452).u16(0).u8(0).u16(0).u32(0xFFFFFFFF)}, "NSRange"},
  };
  for (const auto& row : rows) {
    for (const bool isMakers : {true, false}) {
      PictureDeviceTestRoom room;
      auto& camera = room.ica.addPTPCamera(isMakers ? PTPCameraDescription() : kForeignCamera);
      camera.answers[0x1001] = row.answer;
      EXPECT_NO_THROW(XTImageCaptureDevice::primeICADevice(camera.object));
      room.loop.advance(20s);
      EXPECT_THAT(room.added, IsEmpty());
      const auto told = testing::Contains(
          testing::AllOf(HasSubstr("'Tarvo Lumo 500' at 0x01420000"), HasSubstr(row.words)));
      EXPECT_THAT(room.visibleLines(), testing::Conditional(isMakers, told, IsEmpty()));
    }
  }
}

TEST(Inspection, ReadsATruncatedDeviceInfoAsZerosAndSaysSo) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  camera.answers[0x1001].data.resize(camera.answers[0x1001].data.size() - 10);
  XTImageCaptureDevice::primeICADevice(camera.object);
  ASSERT_EQ(room.added.size(), 1U);
  EXPECT_EQ(room.sink.count("DeviceInfo of 'Tarvo Lumo 500' is cut off"), 1U);
}

TEST(Inspection, OutlivesVendorQueriesThatRaise) {
  for (const std::uint16_t query : {0x920A, 0x9009}) {
    PictureDeviceTestRoom room;
    auto& camera = room.ica.addPTPCamera({.operations = {0x1001, 0x1002, 0x1003, query}});
    camera.answers[query] = {.responseCode = 0x2002};
    room.ica.addPTPCamera({.serialNumber = "GOOD"});
    XTImageCaptureDevice::registerDeviceAddedNotifications();
    EXPECT_EQ(room.added.size(), 1U) << "the other device is inspected all the same";
    EXPECT_EQ(camera.openScopes, 0);
    EXPECT_TRUE(room.trace.contains(
        "handling uncaught exception in completeDeviceInspection: XTPTPException"));
    EXPECT_EQ(room.visibleLines().size(), 1U);

    camera.answers[query] = {.status = status::kICATimeout};
    XTImageCaptureDevice::primeICADevice(camera.object);
    EXPECT_THAT(room.visibleLines().back(), HasSubstr("-9904"));
  }
}

// --- an interface that somebody else holds

TEST(HeldInterface, IsTriedAgainForTheMakersCameraUntilItIsFreeGoneOrTheTriesAreUp) {
  enum class Then { kFree, kGone, kHeld };
  for (const Then then : {Then::kFree, Then::kGone, Then::kHeld}) {
    PictureDeviceTestRoom room;
    auto& camera = room.ica.addPTPCamera();
    camera.scopeStatus = status::kICADeviceBusy;
    camera.scopeWhy = "held by gthumb (pid 4711)";
    XTImageCaptureDevice::primeICADevice(camera.object);
    room.loop.advance(9500ms);
    EXPECT_THAT(camera.operations, IsEmpty());
    EXPECT_EQ(room.visibleLines().size(), 1U) << "said once, at the first attempt";
    EXPECT_EQ(room.sink.count("is waited for: held by gthumb (pid 4711)"), 1U);
    if (then == Then::kFree) camera.scopeStatus = 0;
    if (then == Then::kGone) room.ica.unplug(camera.object);
    room.loop.advance(60s);
    EXPECT_EQ(room.added.size(), then == Then::kFree ? 1U : 0U);
    EXPECT_EQ(room.visibleLines().size(), then == Then::kHeld ? 2U : 1U);
    EXPECT_EQ(room.sink.count("cannot be opened: held by gthumb (pid 4711)"),
              then == Then::kHeld ? 1U : 0U);
    EXPECT_EQ(room.loop.validTimerCount(), 0U);
  }
}

TEST(HeldInterface, IsNotWaitedForWhenTheCauseIsAnotherOrTheVendor) {
  const std::pair<Status, PTPCameraDescription> rows[] = {{status::kICAAccessDenied, {}},
                                                          {status::kICADeviceGone, {}},
                                                          {status::kICADeviceBusy, kForeignCamera}};
  for (const auto& [cause, description] : rows) {
    PictureDeviceTestRoom room;
    auto& camera = room.ica.addPTPCamera(description);
    camera.scopeStatus = cause;
    XTImageCaptureDevice::primeICADevice(camera.object);
    EXPECT_EQ(room.loop.validTimerCount(), 0U);
    EXPECT_EQ(room.visibleLines().size(), cause == status::kICADeviceBusy ? 0U : 1U);
  }
}

}  // namespace
}  // namespace tarvo::test
