// What the agent needs around it, missing or broken.
#include <sys/mount.h>

#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Surroundings : public AgentTestbed {};

TEST_F(Surroundings, ASecondAgentSaysSoAndExitsWithOne) {
  startAgent();
  const auto second = makeProgram("second.log");
  EXPECT_EQ(second->waitForEnd(), 1);
  EXPECT_THAT(second->output(), HasSubstr("Another agent is running"));
  EXPECT_THAT(second->output(), Not(HasSubstr("Launch WRLApp"))) << "it has started something";
  EXPECT_TRUE(agent().isRunning());
}

TEST_F(Surroundings, AnAgentWhoseNameTheBusDeniesSaysSoAndExitsWithOne) {
  sessionBus_.stop();
  sessionBus_.start("com.tarvo.Agent");
  const auto agent = makeProgram("denied.log");
  EXPECT_EQ(agent->waitForEnd(), 1);
  EXPECT_THAT(agent->output(), HasSubstr("The name com.tarvo.Agent cannot be owned: "));
}

TEST_F(Surroundings, WithoutADesktopEntryTheRelayThatTheAgentStartedIsRecognised) {
  std::filesystem::remove(bundle_.desktopEntry);
  startAgent();
  EXPECT_EQ(timesLogged("no desktop entry com.tarvo.Relay.desktop names a program"), 1U);
  plug("tarvo-camera", "1-1");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
  plug("second-camera", "1-5");
  EXPECT_TRUE(waitForLog("RelayApp is already running. Ignoring this camera event."));
  ASSERT_NO_FATAL_FAILURE(endRelay(0));
  plug("msc-camera", "1-7");
  EXPECT_EQ(relayArguments(1)[0], "MSC");
}

TEST_F(Surroundings, WithoutUdevTheAgentSaysSo) {
  startAgent();
  EXPECT_FALSE(hasLogged("udev does not run"));
  agent().signal(SIGTERM);
  EXPECT_EQ(agent().waitForEnd(), 0);
  ASSERT_EQ(::mount("none", "/run/udev", "tmpfs", 0, nullptr), 0);
  startAgent();
  EXPECT_TRUE(waitForLog("udev does not run (no /run/udev/control): devices may not be noticed"));
  ::umount2("/run/udev", MNT_DETACH);
}

TEST_F(Surroundings, WithoutItsListOfModelsTheAgentSaysSoAndSupportsNoCamera) {
  std::filesystem::remove(bundle_.models);
  startAgent();
  EXPECT_TRUE(hasLogged("No camera will be recognised"));
  plug("tarvo-camera");
  EXPECT_TRUE(waitForLog("ignoring invalid mass storage device."));
  EXPECT_THAT(launches(kRelay), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
