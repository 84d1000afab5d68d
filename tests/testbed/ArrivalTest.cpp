// What the agent does when devices arrive, shown on the unmodified program.
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Arrival : public AgentTestbed {};

TEST_F(Arrival, ASupportedCameraStartsTheRelayWithAnEmptyThirdArgument) {
  startAgent();
  const auto id = plug("tarvo-camera");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", "17825792", ""));
  EXPECT_THAT(camera(id).violations(), IsEmpty());
}

TEST_F(Arrival, TheRelayCanClaimTheCamera) {
  startAgent();
  plug("tarvo-camera");
  const auto claim = relayLaunch(0)["claim"];
  EXPECT_EQ(claim["claimed"], true) << claim;
  EXPECT_EQ(claim["response"], 0x2001) << claim;
}

TEST_F(Arrival, ACameraThatIsThereAtTheStartIsFoundToo) {
  plug("tarvo-camera");
  startAgent();
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", "17825792", ""));
}

TEST_F(Arrival, ALocationBeyondTheSignedRangeIsPassedAsANegativeNumber) {
  startAgent();
  plug("tarvo-camera", "250-2");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", "-98566144", ""));
}

TEST_F(Arrival, APortBehindHubsIsOneNibbleEach) {
  startAgent();
  plug("tarvo-camera", "1-4.2");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01420000), ""));
}

TEST_F(Arrival, AMassStorageCameraComesWithItsVolume) {
  startAgent();
  plug("msc-camera", "1-3");
  EXPECT_THAT(relayArguments(0), ElementsAre("MSC", std::to_string(0x01300000),
                                             (testbed_->volumes() / "TARVO_LUMO").string()));
}

TEST_F(Arrival, ACardComesWithItsVolume) {
  startAgent();
  plug("card", "1-3");
  EXPECT_THAT(relayArguments(0), ElementsAre("card", std::to_string(0x01300000),
                                             (testbed_->volumes() / "TARVO_CARD").string()));
}

TEST_F(Arrival, AnUnsupportedModelIsInspectedAndIgnored) {
  startAgent();
  const auto id = plug("unsupported-model");
  EXPECT_TRUE(waitForLog("ignoring invalid mass storage device."));
  EXPECT_THAT(camera(id).operations(), Contains(0x1001));
  EXPECT_THAT(launches(kRelay), IsEmpty());
}

TEST_F(Arrival, ACameraOfAnotherVendorIsLeftAloneForTheNextOne) {
  startAgent();
  plug("foreign-camera");
  plug("tarvo-camera", "1-9");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01900000), ""));
  EXPECT_EQ(timesLogged("newImageCaptureDeviceAdded - entered"), 1U);
}

TEST_F(Arrival, ASecondCameraIsIgnoredWhileTheRelayRunsAndStartsItAfterItsEnd) {
  listenToDistributed();
  startAgent();
  plug("tarvo-camera");
  const auto first = relayLaunch(0);
  ASSERT_FALSE(first.is_null());
  const auto second = plug("second-camera");
  EXPECT_TRUE(waitForLog("RelayApp is already running. Ignoring this camera event."));
  EXPECT_TRUE(waitUntil([&] { return !heard().empty(); }));
  EXPECT_THAT(heard(), ElementsAre("kRLABusyNotification"));
  end(first);
  EXPECT_TRUE(waitForLog("appDiedHandler - got RLA died notification"));
  EXPECT_TRUE(waitUntil([&] { return heard().size() == 2; }));
  EXPECT_THAT(heard(), ElementsAre("kRLABusyNotification", "kRLADoneNotification"));
  testbed_->unplug(second);
  plug("second-camera", "1-5");
  EXPECT_THAT(relayArguments(1), ElementsAre("PTP", std::to_string(0x01500000), ""));
}

TEST_F(Arrival, WhileTheWirelessUtilityIsBusyTheViewerShowsTheBusyPage) {
  startAgent();
  postDistributed("kWRLABusyNotification");
  ASSERT_TRUE(waitForLog("handleBusyNotification entered"));
  plug("tarvo-camera");
  EXPECT_TRUE(waitForLog("WRLA is transferring. Ignoring this camera event."));
  ASSERT_TRUE(waitUntil([&] { return !launches(kViewer).empty(); }));
  EXPECT_EQ(launches(kViewer)[0]["arguments"],
            nlohmann::json({bundle_.page.string(), "-h", "400", "-v", "155"}));
  EXPECT_THAT(launches(kRelay), IsEmpty());
  postDistributed("kWRLADoneNotification");
  ASSERT_TRUE(waitForLog("handleDoneNotification entered"));
  plug("second-camera", "1-5");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01500000), ""));
}

TEST_F(Arrival, TheWirelessUtilityStartsWithTheAgentAndAgainOnRequest) {
  startAgent();
  ASSERT_TRUE(waitUntil([&] { return launches(kWireless).size() == 1; }));
  EXPECT_EQ(launches(kWireless)[0]["arguments"], nlohmann::json::array());
  end(launches(kWireless)[0]);
  EXPECT_TRUE(waitForLog("got WRLA died notification"));
  postDistributed("LaunchWRLAppNotification");
  EXPECT_TRUE(waitUntil([&] { return launches(kWireless).size() == 2; }));
}

TEST_F(Arrival, ACameraThatIsGoneWithinTheHalfSecondIsNotTouched) {
  configure("Preferences", "LOG_SUBSYS_CAMERA_VERBOSE", "true");
  startAgent();
  const auto first = plug("tarvo-camera");
  const auto gone = testbed_->device(first)->camera;
  ASSERT_TRUE(waitForLog("came: 'Tarvo Lumo X2'"));
  testbed_->unplug(first);
  plug("second-camera", "1-5");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01500000), ""));
  EXPECT_THAT(gone->operations(), IsEmpty());
}

TEST_F(Arrival, AnArrivalCostsTheSameWhateverTheCameraHolds) {
  startAgent();
  const auto small = plug("tarvo-camera", "1-1");
  end(relayLaunch(0));
  ASSERT_TRUE(waitForLog("got RLA died notification"));
  const auto big = plug("big-store", "1-2");
  ASSERT_FALSE(relayLaunch(1).is_null());
  EXPECT_EQ(camera(small).counts().transactions, camera(big).counts().transactions);
}

class InactiveSession : public AgentTestbed {
 protected:
  InactiveSession() { systemBus_.start(); }
};

TEST_F(InactiveSession, ArrivalsAreIgnoredUntilTheSessionIsActive) {
  FakeLogind logind(systemBus_);
  logind.setDisplay("s1");
  logind.setActive("s1", false);
  startAgent();
  ASSERT_TRUE(waitForLog("fastUserSwitchHandler - entered"));
  plug("tarvo-camera");
  EXPECT_TRUE(waitForLog("newImageCaptureDeviceAdded - not active. Ignoring this camera event."));
  EXPECT_THAT(launches(kRelay), IsEmpty());
  logind.setActive("s1", true);
  ASSERT_TRUE(waitForLog("fastUserSwitchHandler - entered", 2));
  plug("second-camera", "1-5");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01500000), ""));
}

class Recovery : public AgentTestbed {
 protected:
  Recovery() { configure("Platform", "SystemVersion", "0x1062"); }
  static simulator::DeviceDescription named(const std::string& name) {
    auto device = description("tarvo-camera");
    device.usb.name = name;
    return device;
  }
};

TEST_F(Recovery, AnAVIEventStartsTheSearchWhichEndsAfterFiveSeconds) {
  startAgent();
  EXPECT_TRUE(hasLogged("handle ICA AVI bug"));
  plug(named("CLIP.AVI"));
  EXPECT_TRUE(waitForLog("starting Lost Device Timer"));
  EXPECT_TRUE(waitForLog("starting Kill Timer"));
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", "17825792", ""));
  EXPECT_TRUE(waitForLog("killTimersHandler - entered"));
}

TEST_F(Recovery, AnEventWithoutAnUpperCaseAVINameStartsNoSearch) {
  startAgent();
  plug(named("clip.avi"));
  EXPECT_TRUE(waitForLog("addDeviceNotificationCB - entered"));
  plug(named("CLIP.AVI"), "1-5");
  EXPECT_TRUE(waitForLog("addDeviceNotificationCB - entered", 2));
  EXPECT_TRUE(waitForLog("starting Lost Device Timer"));
  EXPECT_EQ(timesLogged("starting Lost Device Timer"), 1U);
}

}  // namespace
}  // namespace tarvo::test
