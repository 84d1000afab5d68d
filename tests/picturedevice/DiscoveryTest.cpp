// What Image Capture lists, what its events do, when discovery starts, and the inspection of a
// device that has come: which class, whose device, and who may hold it.
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

TEST(Enumeration, ListsCamerasButThePictureDiscWithTheClassOfTheirModule) {
  PictureDeviceTestRoom room;
  const auto ptp = room.ica.addPTPCamera({.name = "Camera"}).object;
  room.ica.addVolume("CARD", "sdb1", "MassStorage.app");
  room.ica.addVolume("DISK", "sdc1");
  room.ica.addVolume("Tarvo PictureCD", "sdd1", "MassStorage.app");
  room.ica.addDevice({{"ifil", "Scanner"}}).info.objectSubtype = fourCharCode("scan");
  room.ica.addDevice({{"ifil", "Folder"}}).info.objectType = fourCharCode("fold");
  room.ica.nthChildStatus[6] = -50;
  auto& last = room.ica.addPTPCamera({.name = "Unreadable child"});

  std::vector<std::string> classes;
  std::vector<ICAObject> objects;
  const auto names = XTImageCaptureDevice::icaDevices(&classes, &objects);
  EXPECT_THAT(names.value(), ElementsAre("Camera", "CARD", "DISK"));
  EXPECT_THAT(classes, ElementsAre("XTImageCapturePTPDevice", "XTImageCaptureVolume"));
  EXPECT_EQ(objects.front(), ptp);
  for (const char* line :
       {"found 7 ICA image source(s)",
        "child 4 getNthChildPB.childInfo.objectSubtype: 'scan'; should have been 'cmra'",
        "child 5 getNthChildPB.childInfo.objectType: 'fold'; should have been 'icdv'",
        "getNthChildPB.header.err: -50"})
    EXPECT_TRUE(room.trace.contains(line)) << line;

  room.ica.nthChildStatus.clear();
  last.dictionaryStatus = -50;
  EXPECT_FALSE(XTImageCaptureDevice::icaDevices(nullptr, nullptr)) << "nothing instead of a part";
}

TEST(DeviceAdded, IsInspectedOnceHalfASecondLaterAndNotWhenItIsKnown) {
  PictureDeviceTestRoom room;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto object = room.ica.addPTPCamera().object;
  room.ica.announce(object);
  room.ica.announce(object);
  EXPECT_EQ(room.loop.validTimerCount(), 1U);
  room.loop.advance(499ms);
  EXPECT_THAT(room.added, IsEmpty());
  room.loop.advance(1ms);
  EXPECT_EQ(room.added.size(), 1U);
  EXPECT_EQ(XTImageCaptureDevice::deviceWithICAObject(object), room.added[0]);
  room.ica.announce(object);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
}

TEST(DeviceAdded, IsDroppedWithTheRoomAndHarmlessAfterIt) {
  PictureDeviceTestRoom room;
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto object = room.ica.addPTPCamera().object;
  room.ica.announce(object);
  room.room.reset();
  room.ica.announce(object);
  room.ica.unplug(object);
  EXPECT_EQ(room.loop.validTimerCount(), 0U);
}

TEST(DeviceRemoved, DisconnectsTheDeviceAndAnnouncesItWhateverAnObserverRaises) {
  PictureDeviceTestRoom room;
  const auto& camera = room.ica.addPTPCamera();
  room.ica.addPTPCamera({.serialNumber = "SN2"});
  XTImageCaptureDevice::registerDeviceAddedNotifications();
  const auto device = XTImageCaptureDevice::deviceWithICAObject(camera.object);
  ASSERT_TRUE(device);
  const int observer = 0;
  room.center.addObserver(&observer, "DeviceRemoved",
                          [](const Notification&) { throw Exception("Test", "observer"); });
  EXPECT_NO_THROW(room.ica.unplug(camera.object));
  EXPECT_TRUE(room.trace.contains("handling uncaught exception in notifyICADeviceRemoved: "));
  EXPECT_TRUE(device->disconnected());
  EXPECT_THAT(room.removed, ElementsAre(device));
  EXPECT_EQ(XTPictureDevice::deviceList().size(), 1U);
  room.center.removeObserver(&observer);
}

TEST(StoreEvents, MakeTheDeviceForgetWhatItReadAndAreAnnounced) {
  for (const auto& [event, name] :
       {std::pair{ica::kStoreAdded, "StoreAdded"}, std::pair{ica::kStoreRemoved, "StoreRemoved"}}) {
    PictureDeviceTestRoom room;
    std::vector<std::shared_ptr<Object>> heard;
    room.record(name, heard);
    const auto object = room.ica.addPTPCamera().object;
    XTImageCaptureDevice::registerDeviceAddedNotifications();
    const auto device = XTImageCaptureDevice::deviceWithICAObject(object);
    ASSERT_TRUE(device && device->icaDictionary());
    room.ica.fire(object, event);
    EXPECT_THAT(heard, ElementsAre(device));
    EXPECT_FALSE(device->icaDictionary());
  }
}

TEST(DiscoveryStart, AnnouncesWhatIsThereFromTheMainLoopNotFromInside) {
  PictureDeviceTestRoom room;
  room.ica.addPTPCamera();
  XTPictureDevice::registerAllNotifications();
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
  const std::pair<PTPAnswer, const char*> rows[] = {
      {{.status = status::kICATimeout}, "-9904"},
      {{.vanishes = true}, "-9903"},
      {{.responseCode = 0x2002}, "0x2002"},
      {{.data = {}}, "its PTP vendor extension is 0x00000000"},
      {{.data = PTPBytes().u16(100).u32(0x5452).u16(0).u8(0).u16(0).u32(0xFFFFFFFF)}, "NSRange"},
  };
  for (const auto& [answer, words] : rows) {
    for (const bool isMakers : {true, false}) {
      PictureDeviceTestRoom room;
      auto& camera = room.ica.addPTPCamera(isMakers ? PTPCameraDescription() : kForeignCamera);
      camera.answers[0x1001] = answer;
      EXPECT_NO_THROW(XTImageCaptureDevice::primeICADevice(camera.object));
      room.loop.advance(20s);
      EXPECT_THAT(room.added, IsEmpty());
      const auto told = testing::Contains(
          testing::AllOf(HasSubstr("'Tarvo Lumo 500' at 0x01420000"), HasSubstr(words)));
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
