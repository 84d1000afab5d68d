// The inspection of a device that has come: which class, whose device, and who may hold it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/XTImageCaptureDevice.h"
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

TEST(Inspection, UsesOneSessionAndLetsTheInterfaceGoBeforeTheDeviceIsAnnounced) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  int openWhenAnnounced = -1;
  const int observer = 0;
  room.center.addObserver(&observer, "DeviceAdded",
                          [&](const Notification&) { openWhenAnnounced = camera.openScopes; });
  XTImageCaptureDevice::primeICADevice(camera.object);
  EXPECT_EQ(openWhenAnnounced, 0);
  EXPECT_EQ(camera.scopesOpened, 1);
  EXPECT_THAT(camera.operations, ElementsAre(0x1001));
  room.center.removeObserver(&observer);
}

TEST(Inspection, ListensToTheDeviceItKeeps) {
  PictureDeviceTestRoom room;
  const auto ours = room.ica.addPTPCamera().object;
  const auto foreign = room.ica.addPTPCamera(kForeignCamera).object;
  for (const auto object : {ours, foreign}) {
    XTImageCaptureDevice::primeICADevice(object);
    EXPECT_TRUE(room.ica.isRegistered(object, ica::kDeviceRemoved));
    EXPECT_EQ(room.ica.isRegistered(object, ica::kStoreAdded), object == ours);
    EXPECT_EQ(room.ica.isRegistered(object, ica::kStoreRemoved), object == ours);
  }
}

TEST(Inspection, KeepsAPTPCameraOnlyWithTheMakersVendorExtension) {
  for (const std::uint32_t extension : {0x5452U, 6U, 0U, 0xFFFF5452U}) {
    PictureDeviceTestRoom room;
    auto& camera = room.ica.addPTPCamera({.vendorExtensionID = extension});
    XTImageCaptureDevice::primeICADevice(camera.object);
    const bool isMakers = extension == room.maker.ptpVendorExtensionID;
    EXPECT_EQ(room.added.size(), isMakers ? 1U : 0U) << std::hex << extension;
    EXPECT_EQ(room.trace.contains("vendorExtensionID != TARVO_PTP_VENDOR_EXTENSION_ID"), !isMakers);
  }
}

TEST(Inspection, GivesNoDeviceForAnUnknownModule) {
  PictureDeviceTestRoom room;
  const auto object =
      room.ica.addDevice({{"ifil", "Scanner"}, {"device module", "/x/Scanner.app"}}).object;
  XTImageCaptureDevice::primeICADevice(object);
  EXPECT_THAT(room.added, IsEmpty());
  EXPECT_THAT(room.visibleLines(), IsEmpty());
}

TEST(Inspection, OfTheAsynchronousKindYieldsNothing) {
  PictureDeviceTestRoom room;
  room.room->gEnableAsyncDeviceInspection = true;
  XTImageCaptureDevice::primeICADevice(room.ica.addPTPCamera().object);
  EXPECT_THAT(room.added, IsEmpty());
}

TEST(Inspection, SaysInWordsWhyACameraOfTheMakerIsNotUsedAndIsSilentAboutOthers) {
  const struct {
    PTPAnswer answer;
    const char* words;
  } rows[] = {
      {{.status = status::kICATimeout}, "-9904"},
      {{.status = status::kICAProtocolError}, "-9905"},
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
      if (isMakers) {
        EXPECT_THAT(room.visibleLines(),
                    testing::Contains(testing::AllOf(HasSubstr("'Tarvo Lumo 500' at 0x01420000"),
                                                     HasSubstr(row.words))));
      } else {
        EXPECT_THAT(room.visibleLines(), IsEmpty()) << row.words;
      }
    }
  }
}

TEST(Inspection, ReadsATruncatedDeviceInfoAsZerosAndSaysSo) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  auto& data = camera.answers[0x1001].data;
  data.erase(data.end() - 10, data.end());
  XTImageCaptureDevice::primeICADevice(camera.object);
  ASSERT_EQ(room.added.size(), 1U);
  EXPECT_EQ(room.sink.count("DeviceInfo of 'Tarvo Lumo 500' is cut off"), 1U);
}

TEST(Inspection, OutlivesVendorQueriesThatRaise) {
  for (const std::uint16_t query : {0x920A, 0x9009}) {
    PictureDeviceTestRoom room;
    auto& camera = room.ica.addPTPCamera({.operations = {0x1001, 0x1002, 0x1003, query}});
    camera.answers[query] = {.responseCode = 0x2002};
    XTImageCaptureDevice::registerDeviceAddedNotifications();
    EXPECT_THAT(room.added, IsEmpty());
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

TEST(HeldInterface, OfTheMakersCameraIsTriedAgainUntilItIsFree) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  camera.scopeStatus = status::kICADeviceBusy;
  XTImageCaptureDevice::primeICADevice(camera.object);
  room.loop.advance(2500ms);
  EXPECT_THAT(camera.operations, IsEmpty());
  camera.scopeStatus = 0;
  room.loop.advance(500ms);
  EXPECT_EQ(room.added.size(), 1U);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
  EXPECT_THAT(room.visibleLines(), IsEmpty());
}

TEST(HeldInterface, IsReportedOnceInWordsThatNameTheHolderWhenItStaysHeld) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  camera.scopeStatus = status::kICADeviceBusy;
  camera.scopeWhy = "held by gthumb (pid 4711)";
  XTImageCaptureDevice::primeICADevice(camera.object);
  room.loop.advance(9999ms);
  EXPECT_THAT(room.visibleLines(), IsEmpty());
  room.loop.advance(60s);
  EXPECT_THAT(room.visibleLines(),
              ElementsAre(HasSubstr("cannot be opened: held by gthumb (pid 4711)")));
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
}

TEST(HeldInterface, OfAnotherVendorsCameraGetsOneAttemptAndNoWord) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera(kForeignCamera);
  camera.scopeStatus = status::kICADeviceBusy;
  XTImageCaptureDevice::primeICADevice(camera.object);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
  EXPECT_THAT(room.visibleLines(), IsEmpty());
}

TEST(HeldInterface, IsNotWaitedForWhenTheCauseIsAnother) {
  for (const Status cause : {status::kICAAccessDenied, status::kICADeviceGone, status::kIOError}) {
    PictureDeviceTestRoom room;
    auto& camera = room.ica.addPTPCamera();
    camera.scopeStatus = cause;
    XTImageCaptureDevice::primeICADevice(camera.object);
    EXPECT_EQ(room.loop.validTimerCount(), 0U);
    EXPECT_THAT(room.visibleLines(), ElementsAre(HasSubstr(statusText(cause))));
  }
}

TEST(HeldInterface, IsForgottenWhenTheDeviceGoes) {
  PictureDeviceTestRoom room;
  auto& camera = room.ica.addPTPCamera();
  camera.scopeStatus = status::kICADeviceBusy;
  XTImageCaptureDevice::primeICADevice(camera.object);
  EXPECT_EQ(room.loop.validTimerCount(), 1U);
  room.ica.unplug(camera.object);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
}

TEST(HeldInterface, LeavesAnExceptionOfAnObserverToTheGuardOfTheTimer) {
  PictureDeviceTestRoom room;
  const int observer = 0;
  room.center.addObserver(&observer, "DeviceAdded",
                          [](const Notification&) { throw Exception("Test", "observer"); });
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  room.ica.announce(room.ica.addPTPCamera().object);
  EXPECT_NO_THROW(room.loop.advance(1s));
  EXPECT_THAT(room.visibleLines(),
              ElementsAre(HasSubstr("handling uncaught exception in primeICADeviceDelayed: Test")));
  EXPECT_EQ(XTPictureDevice::deviceList().size(), 1U);
  room.center.removeObserver(&observer);
}

}  // namespace
}  // namespace tarvo::test
