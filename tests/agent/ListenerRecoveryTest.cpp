#include "tests/agent/ListenerFixture.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::uint32_t kVersionWithDefect = 0x1062;

const Lines kArmed = {"starting Lost Device Timer", "starting Kill Timer"};

class ListenerRecovery : public ListenerTest {
 public:
  ListenerRecovery() { start(kVersionWithDefect); }

  /// A registry entry of a unit below a USB device with these properties.
  ServiceHandle unitBelow(PropertyDictionary usbDevice) {
    usbDevice["IOClass"] = "usb_device";
    const ServiceHandle parent = registry.plug(std::move(usbDevice));
    return registry.plug({{"IOClass", "scsi_unit"}}, parent);
  }
  void arriveUnit(ServiceHandle service) {
    arriveMSC(TarvoMSCDevice::initWithMMCDevice(
        std::make_shared<FakeSCSIUnit>(Pages{{0x25, kUSBModePageAnswer}}), service, "Lumo 700",
        std::vector<std::uint8_t>{1}));
  }
};

TEST_F(ListenerRecovery, StartsForAFileNameWithAVIInCapitals) {
  const std::pair<PropertyDictionary, bool> rows[] = {
      {{{"ifil", "CLIP.AVI"}}, true},  {{{"ifil", "a.AVI.txt"}}, true},
      {{{"ifil", "clip.avi"}}, false}, {{{"ifil", "CLIPAVI"}}, false},
      {{{"ifil", 7}}, false},          {{{"name", "CLIP.AVI"}}, false}};
  for (const auto& [dictionary, starts] : rows) {
    addDeviceNotificationCB("edea", dictionary, listener.get());
    EXPECT_EQ(listener->recoveryIsArmed(), starts) << dictionary.dump();
    loop.advance(5s);
  }
  addDeviceNotificationCB("edea", {{"ifil", "CLIP.AVI"}}, nullptr);
  EXPECT_FALSE(listener->recoveryIsArmed());
}

TEST_F(ListenerRecovery, LooksOnceASecondAndGivesUpAfterFiveHoweverOftenItIsStarted) {
  listener->startLostDevTimer();
  EXPECT_THAT(loop.validIntervals(), ElementsAre(1000ms, 5000ms));
  EXPECT_EQ(takeLines(), kArmed);
  loop.advance(3s);
  listener->startLostDevTimer();
  loop.advance(1999ms);
  EXPECT_EQ(takeLines(), Lines(4, "lostDevTimerHandler - checking for device..."));
  EXPECT_TRUE(listener->recoveryIsArmed());
  loop.advance(1ms);
  EXPECT_THAT(takeLines(), Contains("killTimersHandler - entered"));
  EXPECT_FALSE(listener->recoveryIsArmed());
  loop.advance(10s);
  EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(ListenerRecovery, MovesTheEndOfTheSearchWhenTheKillTimerIsStartedAgain) {
  listener->startKillTimer();
  loop.advance(3s);
  takeLines();
  listener->startKillTimer();
  EXPECT_THAT(takeLines(), ElementsAre("startingKillTimer - reset trigger time"));
  loop.advance(4999ms);
  EXPECT_TRUE(listener->recoveryIsArmed());
  loop.advance(1ms);
  EXPECT_THAT(takeLines(), ElementsAre("killTimersHandler - entered", kShortSeparator));
}

TEST_F(ListenerRecovery, FindsALostCameraAndLaunchesWithoutASeparator) {
  listener->startLostDevTimer();
  imageCapture.addPTPCamera({.serialNumber = "SN7"});
  takeLines();
  loop.advance(1s);
  ASSERT_EQ(relays().size(), 1u);
  const Lines lines = takeLines();
  EXPECT_THAT(lines, Contains("newImageCaptureDeviceAdded - entered"));
  EXPECT_THAT(lines, Not(Contains(kShortSeparator)));
  EXPECT_THAT(XTPictureDevice::deviceList(), IsEmpty()) << "so that it can be found once more";
  // The search has been stopped, but another one cannot start before the kill timer.
  EXPECT_THAT(loop.validIntervals(), ElementsAre(5000ms));
  listener->startLostDevTimer();
  EXPECT_THAT(loop.validIntervals(), ElementsAre(5000ms));
}

TEST_F(ListenerRecovery, WaitsForTheSerialNumberOfTheUnitThatWasSentAway) {
  arriveUnit(unitBelow({{"USB Product Name", "Dock"}, {"USB Serial Number", "SN2"}}));
  EXPECT_THAT(takeLines(),
              ElementsAre("newMSCDeviceAdded - entered",
                          "newMSCDeviceAdded - setting device USB mode.", kArmed[0], kArmed[1]));
  setSessionActive(false);  // so that what is found stays in the registry
  imageCapture.addPTPCamera({.serialNumber = "SN1"});
  takeLines();
  // The arrival of any device stops the search; the list is looked through all the same.
  loop.advance(1s);
  EXPECT_EQ(takeLines().back(), "lostDevTimerHandler - serial number mismatch. Continuing...");

  loop.advance(4s);
  arriveUnit(unitBelow({{"USB Product Name", "Dock"}, {"USB Serial Number", "SN2"}}));
  setSessionActive(true);
  arriveUnit(unitBelow({{"USB Product Name", "Dock"}, {"USB Serial Number", "SN1"}}));
  takeLines();
  loop.advance(1s);
  EXPECT_THAT(takeLines(), ElementsAre("lostDevTimerHandler - checking for device...",
                                       "lostDevTimerHandler - found a device. Stopping timer."));
}

TEST_F(ListenerRecovery, SaysWhatItMissesOfAUnitAndStartsNoTimerWithoutAUSBDevice) {
  const std::string sent = "newMSCDeviceAdded - setting device USB mode.";
  for (const ServiceHandle service :
       {ServiceHandle{9999}, registry.plug({{"IOClass", "scsi_unit"}})}) {
    arriveUnit(service);
    EXPECT_THAT(takeLines(), ElementsAre("newMSCDeviceAdded - entered", sent,
                                         "--- ERROR --- getRootUSBDictionaryForService failed."));
  }
  EXPECT_FALSE(listener->recoveryIsArmed());
  arriveUnit(unitBelow({{"USB Product Name", "Dock"}}));
  EXPECT_THAT(takeLines(), ElementsAre("newMSCDeviceAdded - entered", sent,
                                       "--- ERROR --- failed to find serial number in svcDict.",
                                       kArmed[0], kArmed[1]));
}

}  // namespace
}  // namespace tarvo::test
