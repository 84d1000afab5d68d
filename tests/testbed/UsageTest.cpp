// The programs as a person or a session starts them: arguments, exit codes, and the agent's name on
// the session bus; and what it says where the surroundings are missing or broken.
#include <sys/mount.h>
#include <sys/wait.h>

#include "agent/AgentProcess.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// Exit code of a shell line outside of this testbed, in which $AGENT and $SIM are the programs.
/// What they say is in "output".
int run(const TemporaryFolder& folder, const std::string& line) {
  std::filesystem::create_directories(folder.path("tmp"));
  const auto script = folder.writeScript(
      "line", "export AGENT='" AGENT_PROGRAM "' SIM='" SIMULATOR_PROGRAM
              "' TARVO_SIMULATOR_SOCKET='" +
                  folder.path("sock") + "' TMPDIR='" + folder.path("tmp") + "'\n" + line + "\n");
  const int status = std::system(
      ("unset UMOCKDEV_DIR; LD_PRELOAD= '" + script + "' > '" + folder.path("output") + "' 2>&1")
          .c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Programs, TellAMistakeFromAFailureByTheirExitCodes) {
  const std::pair<const char*, int> rows[] = {
      {"$AGENT --nonsense", kExitUsage},
      {"$AGENT argument", kExitUsage},
      {"$AGENT --config /none", kExitUsage},
      {"$AGENT --help", kExitNormal},
      {"$AGENT --version", kExitNormal},
      {"$SIM --help", 0},
      {"$SIM juggle", 2},
      {"$SIM list", 1},
      {"$SIM serve --device nothing-like-it -- true", 1},
      {"$SIM serve -- sh -c '$SIM plug tarvo-camera && $SIM fault 1-1 explode'", 1},
      {"$SIM serve -- sh -c '$SIM plug tarvo-camera && $SIM fault 1-1 delay=5'", 0},
  };
  const TemporaryFolder folder;
  for (const auto& [line, expected] : rows) {
    EXPECT_EQ(run(folder, line), expected) << line << folder.read("output");
    if (std::string(line).starts_with("$AGENT")) {
      EXPECT_THAT(folder.read("output"), HasSubstr("tarvo-agent")) << line;
    }
  }
}

TEST(Programs, TheSimulatorRunsACommandInItsTestbedAndLeavesNothing) {
  const TemporaryFolder folder;
  EXPECT_EQ(run(folder,
                "$SIM serve --device tarvo-camera -- sh -c '$SIM plug msc-camera --port 250-2; "
                "$SIM list; $SIM run -- echo [a,b]; cat /proc/self/mounts; exit 7'"),
            7)
      << folder.read("output");
  for (const char* part :
       {"1-1      tarvo-camera       0xF055:0x0302", "[a,b]\n", "/dev/sdb1 /media/"})
    EXPECT_THAT(folder.read("output"), HasSubstr(part));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path("tmp"))) << "the testbed's folder is left";
  EXPECT_FALSE(folder.exists("sock"));
}

class Usage : public AgentTestbed {
 protected:
  /// What the agent that owns the name shows as "Active"; empty text while nobody owns it.
  std::string active() const {
    const auto client = sessionBus_.connect();
    const GVariantPtr value(g_dbus_connection_call_sync(
        client.get(), kAgentBusName, kAgentObjectPath, "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", kAgentInterface, "Active"), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
        5000, nullptr, nullptr));
    return value ? takeText(g_variant_print(value.get(), FALSE)) : "";
  }
};

TEST_F(Usage, TheNameAndTheStatusAreThereWheneverABusIs) {
  sessionBus_.stop();
  startAgent();
  for (int times = 0; times < 2; ++times) {
    sessionBus_.start();
    EXPECT_TRUE(waitUntil([&] { return active() == "(<true>,)"; }));
    sessionBus_.stop();
  }
}

TEST_F(Usage, AnAgentEndsWhereAnotherOneIsOnTheBusAlsoWhenTheBusComesLater) {
  startAgent();
  const auto later = folder_.path("later");
  setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + later);
  const auto second = makeProgram("second.log");
  EXPECT_TRUE(waitUntil([&] { return second->output().find(" ready") != std::string::npos; }));
  std::filesystem::create_symlink(sessionBus_.socketPath(), later);
  EXPECT_EQ(second->waitForEnd(), kExitNameRefused);
  const auto owned = "The name com.tarvo.Agent on the session bus is owned already, by process " +
                     std::to_string(agent().pid()) + ": " + AGENT_PROGRAM + "\n";
  EXPECT_THAT(second->output(), HasSubstr(owned));
  const auto third = makeProgram("third.log");
  EXPECT_EQ(third->waitForEnd(), kExitNameRefused);
  EXPECT_THAT(third->output(), HasSubstr(owned));
  EXPECT_THAT(third->output(), Not(HasSubstr("Launch WRLApp"))) << "it has started something";
  EXPECT_TRUE(agent().isRunning());
}

TEST_F(Usage, AnAgentWhoseNameTheBusDeniesSaysSoAndExitsWithOne) {
  sessionBus_.stop();
  sessionBus_.start("com.tarvo.Agent");
  const auto agent = makeProgram("denied.log");
  EXPECT_EQ(agent->waitForEnd(), 1);
  EXPECT_THAT(agent->output(), HasSubstr("The name com.tarvo.Agent cannot be owned: "));
}

TEST_F(Usage, WithoutADesktopEntryTheRelayThatTheAgentStartedIsRecognised) {
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

TEST_F(Usage, WithoutUdevTheAgentSaysSo) {
  startAgent();
  EXPECT_FALSE(hasLogged("udev does not run"));
  agent().signal(SIGTERM);
  EXPECT_EQ(agent().waitForEnd(), 0);
  ASSERT_EQ(::mount("none", "/run/udev", "tmpfs", 0, nullptr), 0);
  startAgent();
  EXPECT_TRUE(waitForLog("udev does not run (no /run/udev/control): devices may not be noticed"));
  ::umount2("/run/udev", MNT_DETACH);
}

TEST_F(Usage, WithoutItsListOfModelsTheAgentSaysSoAndSupportsNoCamera) {
  std::filesystem::remove(bundle_.models);
  startAgent();
  EXPECT_TRUE(hasLogged("No camera will be recognised"));
  plug("tarvo-camera");
  EXPECT_TRUE(waitForLog("ignoring invalid mass storage device."));
  EXPECT_THAT(launches(kRelay), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
