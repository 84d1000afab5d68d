#include "agent/AgentProcess.h"
#include "tests/agent/ListenerFixture.h"
#include "tests/support/Raised.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kEntered = "newImageCaptureDeviceAdded - entered";
constexpr const char* kMSCEntered = "newMSCDeviceAdded - entered";
constexpr const char* kRelay = "com.tarvo.Relay";

TEST_F(ListenerTest, LaunchesForWhatIsSupportedAndShowsAllInTheOrderOfTheirArrival) {
  using Device = AgentStatus::Device;
  folder.write("media/CARD/MISC/IREVIEW.DB", "");
  folder.write("media/STICK/DCIM/a.jpg", "");
  start();
  plugVolume("STICK", 0x0999, 0x01100000);
  EXPECT_EQ(takeLines().back(),
            "newImageCaptureDeviceAdded - ignoring invalid mass storage device.");
  EXPECT_EQ(takeWhyIgnored(), "") << "it is not the maker's";
  plugVolume("CARD", 0x0998, 0xFA300000);
  plugVolume("FRAME", 0x040B, 0x01200000);
  imageCapture.announce(
      imageCapture.addPTPCamera({.serialNumber = "SN7", .locationID = 0x01420000}).object);
  loop.advance(500ms);
  EXPECT_THAT(presentDevices(),
              ElementsAre(Device{"", 0x01100000, folder.path("media/STICK"), "SN-STICK"},
                          Device{"card", -97517568, folder.path("media/CARD"), "SN-CARD"},
                          Device{"MSC", 0x01200000, folder.path("media/FRAME"), "SN-FRAME"},
                          Device{"PTP", 0x01420000, "", "SN7"}));
  EXPECT_EQ(relays().size(), 3u);
}

// Every guard of an arrival: what makes it hold and what it says.
struct Guard {
  const char* name;
  void (*prepare)(ListenerTest&);
  void (*end)(ListenerTest&);
  const char* why;
  Lines lines;
};

const Guard kGuards[] = {
    {"the session is inactive",
     [](ListenerTest& t) { t.setSessionActive(false); },
     [](ListenerTest& t) { t.setSessionActive(true); },
     "this user's session is not active",
     {kEntered, "newImageCaptureDeviceAdded - not active. Ignoring this camera event."}},
    {"the Relay is running",
     [](ListenerTest& t) { t.applications.start(kRelay); },
     [](ListenerTest& t) { t.applications.end(kRelay); },
     "the Relay application is running already",
     {kEntered,
      "newImageCaptureDeviceAdded - RelayApp is already running. Ignoring this camera event."}},
    {"the wireless utility is transferring",
     [](ListenerTest& t) {
       t.distributed.postFromElsewhere(kWRLABusyNotification);
       t.now += 75s;
       t.distributed.postFromElsewhere(kWRLABusyNotification);  // it is the same busy
     },
     [](ListenerTest& t) { t.distributed.postFromElsewhere(kWRLADoneNotification); },
     "the wireless utility is transferring, for 75 s by now",
     {kEntered, "showBusyMessage entered", kViewerLine,
      "newImageCaptureDeviceAdded - WRLA is transferring. Ignoring this camera event."}},
};

TEST_F(ListenerTest, AsksTheGuardsInTheirOrderAndThenForADeviceThatIsSupported) {
  start();
  for (const Guard& guard : kGuards)
    guard.prepare(*this);
  for (const Guard& guard : kGuards) {
    takeLines();
    arrive(camera());
    EXPECT_EQ(takeLines(), guard.lines) << guard.name;
    EXPECT_EQ(takeWhyIgnored(), guard.why);
    guard.end(*this);
  }
  EXPECT_THAT(relays(), IsEmpty());
  arrive(camera());
  EXPECT_EQ(relays().size(), 1u);
  tasks.end(*relays()[0]);
  const std::pair<std::shared_ptr<Object>, std::string> rows[] = {
      {nullptr, "ERROR - device is nil!"},
      {std::make_shared<Object>(), "ERROR - device is nil!"},
      {camera(0x0312), "ignoring invalid mass storage device."},
      {camera(0x10302), "ignoring invalid mass storage device."}};
  takeLines();
  warnings.clear();
  for (const auto& [object, line] : rows) {
    arrive(object);
    EXPECT_THAT(takeLines(), ElementsAre(kEntered, "newImageCaptureDeviceAdded - " + line));
    EXPECT_EQ(takeWhyIgnored(), line.starts_with("ERROR") ? "" : "its model is not supported");
  }
  EXPECT_EQ(relays().size(), 1u);
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

TEST_F(ListenerTest, RefusesACallWithoutANotification) {
  start();
  for (const auto handler : {&Listener::newImageCaptureDeviceAdded, &Listener::newMSCDeviceAdded})
    EXPECT_EQ(raised([&] { (listener.get()->*handler)(nullptr); }),
              "NSInternalInconsistencyException: Invalid parameter not satisfying: "
              "notification != nil");
  EXPECT_THAT(takeLines(), ElementsAre(kEntered, kMSCEntered));
}

TEST_F(ListenerTest, UnmountsAndEjectsAUnitThatCannotPowerCycleAndSaysWhoKeepsIt) {
  start();
  disks.dissenter = DADissenter{status::kIOReturnBusy, "in use by vi (12)"};
  const auto unit =
      std::make_shared<FakeSCSIUnit>(Pages{{0x25, "000f 0000 00000000 25 07 04 00 00000000 06"}});
  unit->failsAt = "SetTrayState 1";
  plug(unit, 0x01100000);
  EXPECT_THAT(disks.take(), ElementsAre("unmount sr0", "run 20000", "unmount sr0", "run 20000"));
  EXPECT_EQ(unit->take().back(), "SetTrayState 1");
  EXPECT_THAT(takeLines(), ElementsAre(kMSCEntered,
                                       "newMSCDeviceAdded - device does not support "
                                       "canAutoPowerCycle - ignoring it"));
  EXPECT_THAT(warnings.lines(),
              ElementsAre("Lumo 700 could not be unmounted: in use by vi (12), the disk is in use "
                          "(0xe00002d5)",
                          StartsWith("Lumo 700 could not be ejected: ")));
}

TEST_F(ListenerTest, WarnsOfACardThatIsMountedWhileItsCameraIsSwitchedAndOfAFailure) {
  start();
  plugVolume("CARD", 0x0302, 0x01100000);
  plugVolume("OTHER", 0x0302, 0x01200000);
  const auto unit = std::make_shared<FakeSCSIUnit>(Pages{{0x25, kUSBModePageAnswer}});
  unit->selectStatus = scsi::kCheckCondition;
  plug(unit, 0x01100000);
  EXPECT_THAT(disks.take(), IsEmpty()) << "nothing is unmounted";
  EXPECT_THAT(warnings.lines(),
              ElementsAre("The volume CARD (disk-CARD) of Lumo 700 is still mounted while the "
                          "camera is switched: what has not been written to it yet may be lost.",
                          "Lumo 700 could not be switched to camera mode: a mode page was not "
                          "taken: the unit answered with SCSI status 0x02, sense 5/26/00, the unit "
                          "did not carry the command out (0xe00002bc)"));
}

TEST_F(ListenerTest, LeavesAUnitAloneWhileTheSessionIsInactive) {
  start();
  arriveMSC(nullptr);
  EXPECT_THAT(takeLines(), ElementsAre(kMSCEntered));
  setSessionActive(false);
  EXPECT_THAT(takeLines(), ElementsAre("fastUserSwitchHandler - entered"));
  const auto unit = std::make_shared<FakeSCSIUnit>(Pages{});
  plug(unit, 0x01100000);
  EXPECT_THAT(unit->take(), IsEmpty());
  EXPECT_EQ(takeWhyIgnored(), "this user's session is not active");
  EXPECT_THAT(
      takeLines(),
      ElementsAre(kMSCEntered, "newMSCDeviceAdded - not active. Ignoring this camera event."));
}

}  // namespace
}  // namespace tarvo::test
