// What the agent needs around it, missing or broken.
#include <sys/mount.h>

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

TEST_F(Surroundings, AnAgentWhoseNameTheBusDeniesSaysSoAndExitsWithOne) {
  sessionBus_.stop();
  sessionBus_.start("com.tarvo.Agent");
  const auto agent = makeAgent("denied.log");
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
  plug("second-camera", "1-7");
  EXPECT_EQ(relayArguments(1), commandLine("PTP", 0x01700000));
}

TEST_F(Surroundings, TheSessionBusMayBeAbsentComeAndBeLost) {
  sessionBus_.stop();
  startAgent();
  EXPECT_TRUE(waitForLog("session bus is absent"));
  plug("tarvo-camera", "1-1");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
  sessionBus_.start();
  EXPECT_TRUE(waitForLog("session bus is there"));
  listenToDistributed();
  ASSERT_NO_FATAL_FAILURE(endRelay(0));
  EXPECT_TRUE(waitUntil([&] { return !heard().empty(); }));
  EXPECT_THAT(heard(), ElementsAre("kRLADoneNotification"));
  sessionBus_.stop();
  EXPECT_TRUE(waitForLog("session bus is lost"));
  plug("second-camera", "1-5");
  EXPECT_EQ(relayArguments(1), commandLine("PTP", 0x01500000));
}

TEST_F(Surroundings, WithoutASessionServiceTheSessionIsActive) {
  systemBus_.start();
  startAgent();
  EXPECT_TRUE(waitForLog("session state is not told, the session counts as active: "));
  plug("tarvo-camera");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
}

TEST_F(Surroundings, WithoutUdevTheAgentSaysSo) {
  startAgent();
  EXPECT_FALSE(hasLogged("udev does not run"));
  agent().signal(SIGTERM);
  agent().waitForEnd();
  ASSERT_EQ(::mount("none", "/run/udev", "tmpfs", 0, nullptr), 0);
  startAgent();
  EXPECT_TRUE(waitForLog("udev does not run (no /run/udev/control): devices may not be noticed"));
  ::umount2("/run/udev", MNT_DETACH);
}

TEST_F(Surroundings, AMalformedConfigurationIsReportedAndIgnored) {
  configure("Preferences", "no equals sign here\nLOG_SUBSYS_LISTENER", "true");
  startAgent();
  EXPECT_TRUE(waitForLog("neither a group nor \"key=value\"; the file is ignored"));
  plug("tarvo-camera");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
  EXPECT_FALSE(hasLogged("RLA_Listener"));  // its key stands in that file
}

TEST_F(Surroundings, ARelayThatCannotBeStartedIsLoggedAndTriedAgainAtTheNextArrival) {
  startAgent();
  std::filesystem::permissions(bundle_.relay, std::filesystem::perms::owner_read);
  plug("tarvo-camera", "1-1");
  EXPECT_TRUE(waitForLog("caught exception: launch path not accessible: "));
  std::filesystem::remove(bundle_.relay);
  plug("second-camera", "1-5");
  EXPECT_TRUE(waitForLog("caught exception: launch path not accessible: ", 2));
  leaveOutOfBundle({});
  plug("msc-camera", "1-7");
  EXPECT_EQ(relayArguments(0)[0], "MSC");
}

TEST_F(Surroundings, AMissingWirelessUtilityIsNoMatter) {
  leaveOutOfBundle({"wireless"});
  startAgent();
  EXPECT_EQ(timesLogged("launchWRLApp - caught exception: "), 1U);
  plug("tarvo-camera");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
}

TEST_F(Surroundings, TheAgentEndsCleanlyOnEitherSignal) {
  for (const int number : {SIGTERM, SIGINT}) {
    startAgent();
    agent().signal(number);
    EXPECT_EQ(agent().waitForEnd(), 0) << "signal " << number;
    std::filesystem::remove(folder_.path("agent.log"));
  }
}

struct ModelListCase {
  const char* name;
  std::function<void(std::string&)> edit;
  bool listed;  ///< whether a camera that only the list names is supported
  bool fixed;   ///< whether one that every list has is
};

class ModelList : public AgentTestbed, public ::testing::WithParamInterface<ModelListCase> {};

TEST_P(ModelList, DecidesWhichCamerasAreSupported) {
  const auto& row = GetParam();
  std::string text = fileContent(bundle_.models);
  row.edit(text);
  std::filesystem::remove(bundle_.models);
  if (!text.empty()) std::ofstream(bundle_.models, std::ios::binary) << text;
  startAgent();
  EXPECT_EQ(hasLogged("No camera will be recognised"), !row.fixed);
  auto camera = description("unsupported-model");
  camera.usb.product = 0x0401;
  plug(camera, "1-1");
  if (row.listed) {
    EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
    ASSERT_NO_FATAL_FAILURE(endRelay(0));
  } else {
    EXPECT_TRUE(waitForLog("ignoring invalid mass storage device."));
  }
  plug("tarvo-camera", "1-5");
  if (row.fixed) {
    EXPECT_EQ(relayArguments(row.listed ? 1 : 0), commandLine("PTP", 0x01500000));
  } else {
    EXPECT_TRUE(waitForLog("ignoring invalid mass storage device.", 2));
    EXPECT_THAT(launches(kRelay), IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, ModelList,
    ::testing::Values(
        ModelListCase{"AsShipped", [](auto&) {}, true, true},
        ModelListCase{"Missing", [](auto& text) { text.clear(); }, false, false},
        ModelListCase{"WithLFEnds", [](auto& text) { std::erase(text, '\r'); }, false, false},
        ModelListCase{"WithACommentFirst", [](auto& text) { text.insert(0, "; x\r\n"); }, true,
                      true},
        ModelListCase{"WithACommentFirstInTheSection",
                      [](auto& text) { text.insert(text.find("%MfgName%=QRS"), "; x\r\n"); }, false,
                      true}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace tarvo::test
