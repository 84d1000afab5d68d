#include "tests/agent/ListenerFixture.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(ListenerTest, EndsTheArgumentListAtTheFirstOneThatIsAbsent) {
  start();
  listener->launchAppWithType("MSC", "5", "/media/u/CARD");
  listener->launchAppWithType("PTP", "5", "");
  listener->launchAppWithType("PTP", "5", std::nullopt);
  listener->launchAppWithType("PTP", std::nullopt, "/media/u/CARD");
  ASSERT_EQ(relays().size(), 4u);
  EXPECT_THAT(relays()[0]->arguments, ElementsAre("MSC", "5", "/media/u/CARD"));
  EXPECT_THAT(relays()[1]->arguments, ElementsAre("PTP", "5", ""));
  EXPECT_THAT(relays()[2]->arguments, ElementsAre("PTP", "5"));
  EXPECT_THAT(relays()[3]->arguments, ElementsAre("PTP"));
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
  // The end of the child that was dropped is nobody's; the new one's is the Relay's.
  tasks.end(*relays()[0]);
  EXPECT_THAT(takeLines(),
              ElementsAre("appDiedHandler --- ERROR --- got unknown app died notification"));
  tasks.end(*relays()[1]);
  EXPECT_EQ(takeLines().front(), "appDiedHandler - got RLA died notification");
}

TEST_F(ListenerTest, TellsTheUserOfARelayThatCannotStartAndAnnouncesNothing) {
  tasks.failStart("/Library/Tarvo Relay", "no such file");
  for (const bool logging : {true, false}) {
    defaults.setBool("LOG_SUBSYS_LISTENER", logging);
    LogState fresh(defaults, log);
    start();
    listener->launchAppWithType("PTP", "1", "");
    EXPECT_EQ(takeLines(), logging
                               ? Lines({"launch with type='PTP' usbId='1' path=''", kRelayLine,
                                        "launch - caught exception: no such file", kShortSeparator})
                               : Lines({kShortSeparator}));
    EXPECT_THAT(warnings.lines(), ElementsAre(HasSubstr("no such file")));
    EXPECT_FALSE(listener->relayIsRunning());
    warnings.clear();
    listener.reset();
  }
  EXPECT_THAT(distributed.posted, IsEmpty());
}

TEST_F(ListenerTest, KeepsTheHandleOfARelayThatDidNotStartUntilTheNextLaunch) {
  start();
  tasks.failStart("/Library/Tarvo Relay", "no such file");
  listener->launchAppWithType("PTP", "1", "");
  tasks.failStart("/Library/Tarvo Relay", "");
  takeLines();
  listener->launchAppWithType("PTP", "1", "");
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

TEST_F(ListenerTest, WritesNoSeparatorAfterALaunchWhileASearchIsOn) {
  start();
  listener->startKillTimer();
  takeLines();
  listener->launchAppWithType("PTP", "1", "");
  EXPECT_NE(takeLines().back(), kShortSeparator);
}

TEST_F(ListenerTest, ShowsTheBusyPageInTheViewer) {
  start();
  listener->showBusyMessage();
  ASSERT_EQ(viewers().size(), 1u);
  EXPECT_THAT(viewers()[0]->arguments,
              ElementsAre("/opt/tarvo/Modules/web/gg/statics/conflict window/conflictpage.htm",
                          "-h", "400", "-v", "155"));
  EXPECT_TRUE(viewers()[0]->standardErrorIsPipeReadingEnd);
  takeLines();
  tasks.end(*viewers()[0]);
  EXPECT_THAT(takeLines(),
              ElementsAre("appDiedHandler --- ERROR --- got unknown app died notification"));

  tasks.failStart("ViewerApp", "no such file");
  listener->showBusyMessage();
  EXPECT_THAT(takeLines(), ElementsAre("showBusyMessage entered", kViewerLine,
                                       "showBusyMessage - caught exception: no such file"));
}

TEST_F(ListenerTest, StartsTheWirelessUtilityAgainOnRequestOnly) {
  start();
  tasks.end(*wirelessUtilities()[0]);
  EXPECT_THAT(takeLines(), ElementsAre("appDiedHandler --- ERROR --- got WRLA died notification"));
  EXPECT_EQ(wirelessUtilities().size(), 1u);
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  EXPECT_THAT(takeLines(), ElementsAre("Received a notification to launch WRLA", "Launch WRLApp",
                                       kWirelessLine));
  ASSERT_EQ(wirelessUtilities().size(), 2u);
  EXPECT_TRUE(wirelessUtilities()[1]->running);
  // A request while it runs starts one more, and the former's end is nobody's.
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  takeLines();
  tasks.end(*wirelessUtilities()[1]);
  EXPECT_THAT(takeLines(),
              ElementsAre("appDiedHandler --- ERROR --- got unknown app died notification"));
}

TEST_F(ListenerTest, AnnouncesBusyAndDoneOfTheRelay) {
  start();
  listener->launchAppWithType("PTP", "1", "");
  EXPECT_TRUE(listener->relayIsRunning());
  tasks.end(*relays()[0]);
  EXPECT_FALSE(listener->relayIsRunning());
  EXPECT_THAT(distributed.posted, ElementsAre(kRLABusyNotification, kRLADoneNotification));
  // The same end once more is nobody's.
  takeLines();
  tasks.end(*relays()[0]);
  EXPECT_THAT(takeLines(),
              ElementsAre("appDiedHandler --- ERROR --- got unknown app died notification"));
  center.post({"NSTaskDidTerminateNotification", nullptr});
  EXPECT_THAT(takeLines(),
              ElementsAre("appDiedHandler --- ERROR --- got unknown app died notification"));
  EXPECT_EQ(distributed.posted.size(), 2u);
}

TEST_F(ListenerTest, ForgetsThatTheWirelessUtilityWasBusyWhenItEnds) {
  start();
  distributed.postFromElsewhere(kWRLABusyNotification);
  EXPECT_TRUE(listener->wirelessIsBusy());
  tasks.end(*wirelessUtilities()[0]);
  EXPECT_FALSE(listener->wirelessIsBusy());
}

TEST_F(ListenerTest, SaysThatSomethingChangedWheneverItDid) {
  start();
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"inactive", [&] { resignActive(); }},
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

}  // namespace
}  // namespace tarvo::test
