// What the agent needs around it, missing or broken.
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Surroundings : public AgentTestbed {};

TEST_F(Surroundings, ASecondAgentSaysSoAndExitsWithOne) {
  startAgent();
  const auto second = makeAgent("second.log");
  EXPECT_EQ(second->waitForEnd(), 1);
  EXPECT_THAT(second->output(), HasSubstr("Another agent is running"));
  EXPECT_THAT(second->output(), Not(HasSubstr("Launch WRLApp"))) << "it has started something";
  EXPECT_TRUE(agent().isRunning());
}

TEST_F(Surroundings, TheSessionBusMayBeAbsentComeAndBeLost) {
  sessionBus_.stop();
  startAgent();
  EXPECT_TRUE(waitForLog("session bus is absent"));
  plug("tarvo-camera", "1-1");
  const auto launch = relayLaunch(0);
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01100000), ""));
  sessionBus_.start();
  EXPECT_TRUE(waitForLog("session bus is there"));
  listenToDistributed();
  end(launch);
  EXPECT_TRUE(waitUntil([&] { return !heard().empty(); }));
  EXPECT_THAT(heard(), ElementsAre("kRLADoneNotification"));
  sessionBus_.stop();
  EXPECT_TRUE(waitForLog("session bus is lost"));
  plug("second-camera", "1-5");
  EXPECT_THAT(relayArguments(1), ElementsAre("PTP", std::to_string(0x01500000), ""));
}

TEST_F(Surroundings, WithoutTheModelListEveryCameraIsIgnored) {
  leaveOutOfBundle({"models"});
  startAgent();
  EXPECT_TRUE(hasLogged("No camera will be recognised"));
  plug("tarvo-camera");
  EXPECT_TRUE(waitForLog("ignoring invalid mass storage device."));
  EXPECT_THAT(launches(kRelay), IsEmpty());
}

TEST_F(Surroundings, AMissingRelayIsLoggedAndTriedAgainAtTheNextArrival) {
  leaveOutOfBundle({"relay"});
  startAgent();
  plug("tarvo-camera", "1-1");
  EXPECT_TRUE(waitForLog("launch - caught exception: "));
  leaveOutOfBundle({});
  plug("second-camera", "1-5");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", std::to_string(0x01500000), ""));
}

TEST_F(Surroundings, AMissingWirelessUtilityIsNoMatter) {
  leaveOutOfBundle({"wireless"});
  startAgent();
  EXPECT_EQ(timesLogged("launchWRLApp - caught exception: "), 1U);
  plug("tarvo-camera");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", "17825792", ""));
}

TEST_F(Surroundings, WithoutTheirKeysLinesAreNotWritten) {
  configure("Preferences", "LOG_SUBSYS_LISTENER", "false");
  startAgent();
  plug("tarvo-camera");
  EXPECT_THAT(relayArguments(0), ElementsAre("PTP", "17825792", ""));
  EXPECT_FALSE(hasLogged("RLA_Listener"));
  EXPECT_FALSE(hasLogged("came: ")) << "details of the platform";
}

TEST_F(Surroundings, TheAgentEndsCleanlyOnEitherSignal) {
  for (const int number : {SIGTERM, SIGINT}) {
    startAgent();
    agent().signal(number);
    EXPECT_EQ(agent().waitForEnd(), 0) << "signal " << number;
    std::filesystem::remove(folder_.path("agent.log"));
  }
}

}  // namespace
}  // namespace tarvo::test
