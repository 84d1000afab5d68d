#include "tests/agent/ListenerFixture.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST_F(ListenerTest, StartsWithoutAWirelessUtilityAndIsQuietAboutIt) {
  tasks.failStart("Wireless Utility", "no such file");
  start();
  EXPECT_THAT(startLines, ElementsAre("Launch WRLApp", kWirelessLine,
                                      "launchWRLApp - caught exception: no such file", kTriedAgain,
                                      kStartSeparator, kStartSeparator));
  EXPECT_THAT(warnings.lines(), IsEmpty());
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
