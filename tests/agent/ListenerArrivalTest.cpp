#include "agent/PresentDevices.h"
#include "tests/agent/ListenerFixture.h"
#include "tests/agent/RecordingUnit.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kEntered = "newImageCaptureDeviceAdded - entered";
constexpr const char* kRelay = "com.tarvo.Relay";

TEST_F(ListenerTest, LaunchesTheRelayForASupportedCamera) {
  start();
  arrive(camera(0x0302, 0xFA200000));
  ASSERT_EQ(relays().size(), 1u);
  EXPECT_THAT(relays()[0]->arguments, ElementsAre("PTP", "-98566144", ""));
  EXPECT_TRUE(relays()[0]->standardErrorIsPipeReadingEnd);
  EXPECT_TRUE(relays()[0]->running);
  EXPECT_THAT(distributed.posted, ElementsAre(kRLABusyNotification));
  EXPECT_THAT(takeLines(),
              ElementsAre(kEntered, "launch with type='PTP' usbId='-98566144' path=''", kRelayLine,
                          "call SendBusyNotification",
                          "AppBlocker - SendBusyNotification sending kRLABusyNotification",
                          kShortSeparator));
}

TEST_F(ListenerTest, InspectsAPluggedCameraAfterHalfASecondAndLaunches) {
  start();
  const auto& plugged = imageCapture.addPTPCamera({.locationID = 0x01420000});
  imageCapture.announce(plugged.object);
  loop.advance(499ms);
  EXPECT_THAT(relays(), IsEmpty());
  loop.advance(1ms);
  ASSERT_EQ(relays().size(), 1u);
  EXPECT_THAT(relays()[0]->arguments, ElementsAre("PTP", "21102592", ""));
  EXPECT_EQ(plugged.openScopes, 0) << "the Relay must be able to claim the camera";
}

TEST_F(ListenerTest, LaunchesForAMassStorageCameraAndACardAndForNoOtherVolume) {
  folder.write("media/CARD/MISC/IREVIEW.DB", "");
  folder.write("media/STICK/DCIM/a.jpg", "");
  start();
  plugVolume("STICK", 0x0999, 0x01100000);
  EXPECT_EQ(takeLines().back(),
            "newImageCaptureDeviceAdded - ignoring invalid mass storage device.");
  plugVolume("FRAME", 0x040B, 0x01200000);
  plugVolume("CARD", 0x0998, 0xFA300000);
  ASSERT_EQ(relays().size(), 2u);
  EXPECT_THAT(relays()[0]->arguments, ElementsAre("MSC", "18874368", folder / "media/FRAME"));
  EXPECT_THAT(relays()[1]->arguments, ElementsAre("card", "-97517568", folder / "media/CARD"));
}

TEST_F(ListenerTest, ShowsPresentDevicesInTheOrderOfTheirArrival) {
  using Device = AgentStatus::Device;
  folder.write("media/CARD/MISC/IREVIEW.DB", "");
  start();
  plugVolume("CARD", 0x0998, 0xFA300000);
  plugVolume("STICK", 0x0999, 0x01100000);
  imageCapture.announce(
      imageCapture.addPTPCamera({.serialNumber = "SN7", .locationID = 0x01420000}).object);
  loop.advance(500ms);
  const auto devices = presentDevices();
  ASSERT_EQ(devices.size(), 3u);
  EXPECT_THAT(devices, ElementsAre(Device{"card", -97517568, folder / "media/CARD", "SN-CARD"},
                                   Device{"", 0x01100000, folder / "media/STICK", "SN-STICK"},
                                   Device{"PTP", 0x01420000, "", "SN7"}));
}

TEST_F(ListenerTest, LaunchesNothingForACameraThatLeavesWithinTheHalfSecond) {
  start();
  const ICAObject object = imageCapture.addPTPCamera().object;
  imageCapture.announce(object);
  loop.advance(200ms);
  imageCapture.unplug(object);
  loop.advance(5s);
  EXPECT_THAT(relays(), IsEmpty());
}

// Every guard of an arrival: what makes it hold and what it says.
struct Guard {
  const char* name;
  void (*prepare)(ListenerTest&);
  void (*end)(ListenerTest&);
  Lines lines;
};

const Guard kGuards[] = {
    {"the session is inactive",
     [](ListenerTest& t) { t.resignActive(); },
     [](ListenerTest& t) {
       t.workspace.post({"NSWorkspaceSessionDidBecomeActiveNotification", nullptr});
     },
     {kEntered, "newImageCaptureDeviceAdded - not active. Ignoring this camera event."}},
    {"the Relay is running",
     [](ListenerTest& t) { t.applications.start(kRelay); },
     [](ListenerTest& t) { t.applications.end(kRelay); },
     {kEntered,
      "newImageCaptureDeviceAdded - RelayApp is already running. Ignoring this camera event."}},
    {"the wireless utility is transferring",
     [](ListenerTest& t) { t.distributed.postFromElsewhere(kWRLABusyNotification); },
     [](ListenerTest& t) { t.distributed.postFromElsewhere(kWRLADoneNotification); },
     {kEntered, "showBusyMessage entered", kViewerLine,
      "newImageCaptureDeviceAdded - WRLA is transferring. Ignoring this camera event."}},
};

TEST_F(ListenerTest, IgnoresAnArrivalWhileAGuardHoldsAndNoLonger) {
  start();
  for (const Guard& guard : kGuards) {
    SCOPED_TRACE(guard.name);
    const auto launchesBefore = relays().size();
    guard.prepare(*this);
    takeLines();
    arrive(camera());
    EXPECT_EQ(takeLines(), guard.lines);
    EXPECT_EQ(relays().size(), launchesBefore);

    guard.end(*this);
    arrive(camera());
    ASSERT_EQ(relays().size(), launchesBefore + 1);
    tasks.end(*relays().back());
  }
}

TEST_F(ListenerTest, AsksTheGuardsInTheirOrder) {
  start();
  for (const Guard& guard : kGuards)
    guard.prepare(*this);
  for (const Guard& guard : kGuards) {
    takeLines();
    arrive(nullptr);
    EXPECT_EQ(takeLines(), guard.lines) << guard.name;
    guard.end(*this);
  }
}

TEST_F(ListenerTest, IgnoresRunningApplicationsThatOnlyResembleTheRelay) {
  start();
  for (const char* name : {"com.tarvo.Relay2", "com.tarvo", "COM.TARVO.RELAY", ""})
    applications.start(name);
  EXPECT_FALSE(listener->relayAppIsRunning());
  applications.start(kRelay);
  EXPECT_TRUE(listener->relayAppIsRunning());
}

TEST_F(ListenerTest, DropsAStaleRelayHandleAndLaunchesAnew) {
  start();
  arrive(camera());
  takeLines();
  arrive(camera());  // its end has not been heard of, but it is not among the running ones
  EXPECT_EQ(relays().size(), 2u);
  EXPECT_EQ(takeLines().at(1),
            "newImageCaptureDeviceAdded --- ERROR --- rlaTask is not nil, but RLA is running!");
}

TEST_F(ListenerTest, IgnoresAnArrivalWithoutADevice) {
  start();
  for (const auto& object : {std::shared_ptr<Object>(), std::make_shared<Object>()}) {
    arrive(object);
    EXPECT_THAT(takeLines(),
                ElementsAre(kEntered, "newImageCaptureDeviceAdded - ERROR - device is nil!"));
  }
  EXPECT_THAT(relays(), IsEmpty());
}

TEST_F(ListenerTest, IgnoresAnUnsupportedCamera) {
  start();
  for (const std::uint32_t product : {0x0301u, 0x0312u, 0x0000u, 0x10302u}) {
    arrive(camera(product));
    EXPECT_THAT(
        takeLines(),
        ElementsAre(kEntered, "newImageCaptureDeviceAdded - ignoring invalid mass storage device."))
        << std::hex << product;
  }
  EXPECT_THAT(relays(), IsEmpty());
}

TEST_F(ListenerTest, RefusesACallWithoutANotification) {
  start();
  for (const auto handler : {&Listener::newImageCaptureDeviceAdded, &Listener::newMSCDeviceAdded}) {
    try {
      (listener.get()->*handler)(nullptr);
      ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
      EXPECT_EQ(exception.reason(), "Invalid parameter not satisfying: notification != nil");
    }
  }
  EXPECT_THAT(takeLines(), ElementsAre(kEntered, "newMSCDeviceAdded - entered"));
}

// Mass-storage units.

TEST_F(ListenerTest, UnmountsAndEjectsAUnitThatCannotPowerCycleWhetherOrNotItLogs) {
  for (const bool logging : {true, false}) {
    defaults.setBool("LOG_SUBSYS_LISTENER", logging);
    LogState fresh(defaults, log);
    start();
    const auto unit = std::make_shared<RecordingUnit>(std::vector<std::uint8_t>{1});
    arriveMSC(unit);
    EXPECT_THAT(unit->calls, ElementsAre("unmountMedia", "ejectTray"));
    EXPECT_EQ(takeLines(),
              logging ? Lines({"newMSCDeviceAdded - entered",
                               "newMSCDeviceAdded - device does not support canAutoPowerCycle - "
                               "ignoring it"})
                      : Lines());
    listener.reset();
  }
  EXPECT_THAT(relays(), IsEmpty());
}

TEST_F(ListenerTest, SendsAUnitToCameraModeAndWaitsForNothing) {
  start();
  const auto unit = std::make_shared<RecordingUnit>(std::vector<std::uint8_t>{1}, true);
  TarvoMSCDeviceList::sharedDeviceList()->addDevice(unit);
  EXPECT_THAT(unit->calls, ElementsAre("setUSBMode 1 1 1000"));
  EXPECT_THAT(takeLines(), ElementsAre("newMSCDeviceAdded - entered",
                                       "newMSCDeviceAdded - setting device USB mode."));
  EXPECT_EQ(loop.validTimerCount(), 0u);
}

TEST_F(ListenerTest, LeavesAUnitAloneWhileTheSessionIsInactive) {
  start();
  resignActive();
  takeLines();
  const auto unit = std::make_shared<RecordingUnit>(std::vector<std::uint8_t>{1}, true);
  arriveMSC(unit);
  EXPECT_THAT(unit->calls, IsEmpty());
  EXPECT_THAT(takeLines(),
              ElementsAre("newMSCDeviceAdded - entered",
                          "newMSCDeviceAdded - not active. Ignoring this camera event."));
}

TEST_F(ListenerTest, SaysNothingMoreOfAnArrivalWithoutAUnit) {
  start();
  arriveMSC(nullptr);
  EXPECT_THAT(takeLines(), ElementsAre("newMSCDeviceAdded - entered"));
}

}  // namespace
}  // namespace tarvo::test
