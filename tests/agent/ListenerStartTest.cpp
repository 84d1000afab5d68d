#include "tests/agent/ListenerFixture.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

TEST_F(ListenerTest, StartsTheWirelessUtilityOnceAndTriesASecondTime) {
  start();
  ASSERT_EQ(tasks.count(), 1u);
  EXPECT_EQ(tasks.task(0).launchPath(),
            "/opt/tarvo/TARVO Wireless Utility.app/Contents/MacOS/TARVO Wireless Utility");
  EXPECT_EQ(tasks.task(0).launchCalls, 2);
  EXPECT_THAT(tasks.task(0).arguments, IsEmpty());
  EXPECT_TRUE(tasks.task(0).standardErrorIsPipeReadingEnd);
  EXPECT_THAT(startLines, ElementsAre("Launch WRLApp", kWirelessLine,
                                      "launch WRLApp - caught exception: task already launched",
                                      kStartSeparator, kStartSeparator));
}

TEST_F(ListenerTest, StartsWithoutAWirelessUtilityAndIsQuietAboutIt) {
  tasks.failStart("Wireless Utility", "no such file");
  start();
  ASSERT_NE(listener, nullptr);
  EXPECT_THAT(startLines, ElementsAre("Launch WRLApp", kWirelessLine,
                                      "launchWRLApp - caught exception: no such file",
                                      "launch WRLApp - caught exception: task already launched",
                                      kStartSeparator, kStartSeparator));
  EXPECT_THAT(warnings.lines(), IsEmpty());
}

TEST_F(ListenerTest, WritesOnlyTheSeparatorsWhenItsSubsystemIsOff) {
  defaults.setBool("LOG_SUBSYS_LISTENER", false);
  start();
  EXPECT_THAT(startLines, ElementsAre(kStartSeparator, kStartSeparator));
}

TEST_F(ListenerTest, LetsAnExceptionOfAnotherKindThroughTheStart) {
  tasks.onStart([](RecordingTask&) { throw std::runtime_error("not a platform exception"); });
  EXPECT_THROW(start(), std::runtime_error);
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
  for (const auto& [version, recovers] :
       std::vector<std::pair<std::uint32_t, bool>>{{0, false},
                                                   {0x105F, false},
                                                   {0x1060, true},
                                                   {0x1061, true},
                                                   {0x1062, true},
                                                   {0x1063, true},
                                                   {0x1064, false},
                                                   {0x1070, false}}) {
    const int before = imageCapture.registrations;
    start(version);
    EXPECT_EQ(imageCapture.registrations - before > 0 && startLines.front() == "handle ICA AVI bug",
              recovers)
        << std::hex << version;
    listener.reset();
  }
}

TEST_F(ListenerTest, StartsAllTheSameWhenTheRecoveryCannotRegister) {
  pictureDevices.registeredForDeviceAdded = true;
  imageCapture.registrationStatus[ica::kDeviceAdded] = status::kIOError;
  start(0x1062);
  ASSERT_NE(listener, nullptr);
  EXPECT_EQ(startLines.at(0), "handle ICA AVI bug");
  EXPECT_EQ(startLines.at(1), "ERROR ---- ICARegisterEventNotification failed");
  EXPECT_EQ(startLines.at(2), "Launch WRLApp");
}

TEST_F(ListenerTest, HearsNothingOnceItIsGone) {
  start(0x1062);
  listener->startLostDevTimer();
  listener.reset();
  takeLines();
  arrive(camera());
  arriveMSC(nullptr);
  resignActive();
  distributed.postFromElsewhere("LaunchWRLAppNotification");
  loop.advance(10s);
  EXPECT_THAT(takeLines(), IsEmpty());
  EXPECT_EQ(tasks.count(), 1u);
}

}  // namespace
}  // namespace tarvo::test
