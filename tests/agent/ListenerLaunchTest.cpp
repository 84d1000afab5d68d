#include "tests/agent/ListenerFixture.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string kUnknownDied = "appDiedHandler --- ERROR --- got unknown app died notification";

TEST_F(ListenerTest, EndsTheArgumentListAtTheFirstOneThatIsAbsent) {
  start();
  listener->launchAppWithType("PTP", "5", "");
  listener->launchAppWithType("PTP", "5", std::nullopt);
  listener->launchAppWithType("PTP", std::nullopt, "/media/u/CARD");
  ASSERT_EQ(relays().size(), 3u);
  EXPECT_TRUE(relays()[0]->standardErrorIsPipeReadingEnd);
  EXPECT_THAT(relays()[0]->arguments, ElementsAre("PTP", "5", ""));
  EXPECT_THAT(relays()[1]->arguments, ElementsAre("PTP", "5"));
  EXPECT_THAT(relays()[2]->arguments, ElementsAre("PTP"));
}

TEST_F(ListenerTest, ReplacesAHandleThatIsStillThereAndNamesTheOtherHandler) {
  start();
  listener->launchAppWithType("PTP", "1", "");
  takeLines();
  listener->launchAppWithType("card", "-2", "/media/u/a b");
  EXPECT_THAT(takeLines(),
              ElementsAre("launch with type='card' usbId='-2' path='/media/u/a b'",
                          "appDiedHandler --- ERROR --- rlaTask is not nil!", kRelayLine,
                          "call SendBusyNotification",
                          "AppBlocker - SendBusyNotification sending kRLABusyNotification",
                          kShortSeparator));
  // The end of the child that was dropped is nobody's; the new one's is the Relay's, once.
  for (const std::size_t ended : {0u, 1u, 1u})
    tasks.end(*relays()[ended]);
  EXPECT_THAT(
      takeLines(),
      ElementsAre(kUnknownDied, "appDiedHandler - got RLA died notification",
                  "AppBlocker - SendDoneNotification sending kRLADoneNotification", kUnknownDied));
  EXPECT_FALSE(listener->relayIsRunning());
}

TEST_F(ListenerTest, TellsTheUserOfARelayThatCannotStartAndKeepsItsHandleUntilTheNextLaunch) {
  start();
  tasks.failStart("/Library/Tarvo Relay", "no such file");
  listener->launchAppWithType("PTP", "1", "");
  EXPECT_THAT(takeLines(), ElementsAre("launch with type='PTP' usbId='1' path=''", kRelayLine,
                                       "launch - caught exception: no such file", kShortSeparator));
  EXPECT_THAT(warnings.lines(), ElementsAre(HasSubstr("no such file")));
  EXPECT_FALSE(listener->relayIsRunning());
  tasks.failStart("/Library/Tarvo Relay", "");
  listener->launchAppWithType("PTP", "1", "");
  listener->showBusyMessage();
  EXPECT_THAT(applications.named,
              ElementsAre("TARVO Wireless Utility", "com.tarvo.Relay", "ViewerApp"));
  EXPECT_EQ(takeLines().at(1), "appDiedHandler --- ERROR --- rlaTask is not nil!");
  EXPECT_THAT(distributed.posted, ElementsAre(kRLABusyNotification));
}

TEST_F(ListenerTest, LetsAnExceptionOfAnotherKindThroughALaunch) {
  start();
  tasks.onStart([](RecordingTask&) { throw std::runtime_error("not a platform exception"); });
  EXPECT_THROW(listener->launchAppWithType("PTP", "1", ""), std::runtime_error);
  EXPECT_THROW(listener->showBusyMessage(), std::runtime_error);
  EXPECT_THROW(listener->launchWRLApp(), std::runtime_error);
}

TEST_F(ListenerTest, ShowsTheBusyPageInTheViewer) {
  start();
  listener->showBusyMessage();
  const auto viewer = tasks.tasks().back();
  EXPECT_THAT(viewer->arguments,
              ElementsAre("/opt/tarvo/Modules/web/gg/statics/conflict window/conflictpage.htm",
                          "-h", "400", "-v", "155"));
  EXPECT_TRUE(viewer->standardErrorIsPipeReadingEnd);
  tasks.end(*viewer);
  tasks.failStart("ViewerApp", "no such file");
  listener->showBusyMessage();
  EXPECT_THAT(takeLines(), ElementsAre("showBusyMessage entered", kViewerLine, kUnknownDied,
                                       "showBusyMessage entered", kViewerLine,
                                       "showBusyMessage - caught exception: no such file"));
}

TEST_F(ListenerTest, TellsOnceOfAWirelessUtilityThatIsMissing) {
  tasks.failStart("TARVO Wireless Utility", "no such file");
  start();
  EXPECT_THAT(startLines, Contains("launchWRLApp - caught exception: no such file"));
  EXPECT_THAT(startLines, Contains("launch WRLApp - caught exception: task already launched"));
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  EXPECT_THAT(takeLines(), Contains("launchWRLApp - caught exception: no such file"));
  ASSERT_EQ(warnings.entries().size(), 1u);
  EXPECT_EQ(warnings.entries()[0].level, LogLevel::kInfo);
  EXPECT_EQ(warnings.lines()[0], "There is no wireless utility to start: no such file");
}

TEST_F(ListenerTest, StartsTheWirelessUtilityAgainOnRequestOnlyAndForgetsThatItWasBusy) {
  start();
  for (const auto name : {kWRLABusyNotification, kWRLABusyNotification, kWRLADoneNotification})
    distributed.postFromElsewhere(name);
  EXPECT_FALSE(listener->wirelessIsBusy());
  EXPECT_EQ(takeLines().back(), "AppBlocker - handleDoneNotification entered");
  distributed.postFromElsewhere(kWRLABusyNotification);
  EXPECT_EQ(listener->wirelessBusySince(), now);
  EXPECT_EQ(takeLines().back(), "AppBlocker - handleBusyNotification entered");
  tasks.end(tasks.task(0));
  EXPECT_THAT(takeLines(), ElementsAre("appDiedHandler --- ERROR --- got WRLA died notification"));
  EXPECT_FALSE(listener->wirelessIsBusy());
  EXPECT_EQ(listener->wirelessBusySince(), std::nullopt);
  EXPECT_EQ(tasks.count(), 1u);
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  EXPECT_THAT(takeLines(), ElementsAre("Received a notification to launch WRLA", "Launch WRLApp",
                                       kWirelessLine));
  // A request while it runs starts one more, and the former's end is nobody's.
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  takeLines();
  tasks.end(tasks.task(1));
  EXPECT_THAT(takeLines(), ElementsAre(kUnknownDied));
  EXPECT_TRUE(tasks.task(2).running);
}

TEST_F(ListenerTest, SaysThatSomethingChangedWheneverItDid) {
  start();
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"inactive", [&] { setSessionActive(false); }},
      {"busy", [&] { distributed.postFromElsewhere(kWRLABusyNotification); }},
      {"launch", [&] { listener->launchAppWithType("PTP", "1", ""); }},
      {"end", [&] { tasks.end(*relays()[0]); }},
      {"armed", [&] { listener->startLostDevTimer(); }},
      {"given up", [&] { loop.advance(5s); }},
  };
  for (const auto& [name, change] : changes) {
    stateChanges = 0;
    change();
    EXPECT_GT(stateChanges, 0) << name;
  }
}

const std::string kTriedAgain = "launch WRLApp - caught exception: task already launched";

TEST_F(ListenerTest, StartsTheWirelessUtilityOnceAndTriesASecondTime) {
  start();
  ASSERT_EQ(tasks.count(), 1u);
  EXPECT_EQ(tasks.task(0).launchCalls, 2);
  EXPECT_THAT(tasks.task(0).arguments, IsEmpty());
  EXPECT_TRUE(tasks.task(0).standardErrorIsPipeReadingEnd);
  EXPECT_THAT(startLines, ElementsAre("Launch WRLApp", kWirelessLine, kTriedAgain, kStartSeparator,
                                      kStartSeparator));
}

TEST_F(ListenerTest, LetsARefusedDeviceRegistrationThroughTheStart) {
  imageCapture.registrationStatus[ica::kDeviceAdded] = status::kIOError;
  EXPECT_THROW(start(), Exception);
  arrive(camera());
  EXPECT_THAT(tasks.tasks(), IsEmpty()) << "a Listener that could not be made still hears";
}

TEST_F(ListenerTest, HandlesAnAttachedCameraBeforeThereIsABlocker) {
  imageCapture.addPTPCamera();
  start();
  ASSERT_EQ(relays().size(), 1u);
  EXPECT_EQ(tasks.tasks().front(), relays().front()) << "the wireless utility comes later";
  EXPECT_THAT(distributed.posted, IsEmpty());
  EXPECT_THAT(startLines, Contains("call SendBusyNotification"));
  tasks.end(*relays().front());
  EXPECT_THAT(distributed.posted, ElementsAre(kRLADoneNotification));
}

TEST_F(ListenerTest, RecoversLostDevicesOnFourSystemVersionsAlone) {
  for (const std::uint32_t version : {0u, 0x105Fu, 0x1060u, 0x1061u, 0x1062u, 0x1063u, 0x1064u}) {
    start(version);
    EXPECT_EQ(startLines.front() == "handle ICA AVI bug", version >= 0x1060 && version <= 0x1063)
        << std::hex << version;
    listener.reset();
  }
  imageCapture.registrationStatus[ica::kICANotificationTypeDeviceAdded] = status::kIOError;
  start(0x1062);
  startLines.resize(3);
  EXPECT_THAT(startLines,
              ElementsAre("handle ICA AVI bug", "ERROR ---- ICARegisterEventNotification failed",
                          "Launch WRLApp"));
}

TEST_F(ListenerTest, HearsNothingOnceItIsGone) {
  start(0x1062);
  listener->startLostDevTimer();
  listener.reset();
  takeLines();
  arrive(camera());
  arriveMSC(nullptr);
  setSessionActive(false);
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  distributed.postFromElsewhere("kWRLABusyNotification");
  loop.advance(10s);
  EXPECT_THAT(takeLines(), IsEmpty());
  EXPECT_EQ(tasks.count(), 1u);
}

}  // namespace
}  // namespace tarvo::test
