// The agent as a program: its arguments, its preferences and its name on the session bus.
#include <sys/wait.h>

#include "agent/AgentProcess.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;

class Usage : public AgentTestbed {
 protected:
  /// Exit code of an agent that is not to come as far as the devices.
  int run(const std::string& arguments) {
    const int status = std::system(("LD_PRELOAD= '" AGENT_PROGRAM "' " + arguments + " > '" +
                                    folder_.path("output") + "' 2>&1")
                                       .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

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

TEST_F(Usage, BadArgumentsAreExplainedAndQuestionsAnswered) {
  for (const char* arguments : {"--nonsense", "argument", "--config", "--config /none"}) {
    EXPECT_EQ(run(arguments), kExitUsage) << arguments;
    EXPECT_THAT(folder_.read("output"), HasSubstr("tarvo-agent: "));
  }
  for (const char* arguments : {"--help", "-h", "--version"}) {
    EXPECT_EQ(run(arguments), kExitNormal) << arguments;
    EXPECT_THAT(folder_.read("output"), HasSubstr("tarvo-agent "));
  }
}

TEST_F(Usage, MalformedPreferencesAreNamedAndTheAgentStarts) {
  configure("Preferences", "LOG_SUBSYS_LISTENER", "perhaps");
  configure("Maker", "usbVendorID", "0x10000");
  configure("Platform", "SystemVersion", "new");
  configure("Platform", "VolumesFolder", "here");
  configure("Platform", "DefaultEncoding", "UTF-16");
  startAgent();
  for (const char* key : {"LOG_SUBSYS_LISTENER", "[Maker] usbVendorID", "[Platform] SystemVersion",
                          "[Platform] VolumesFolder", "[Platform] DefaultEncoding"})
    EXPECT_TRUE(hasLogged(std::string(key) + " is ignored: ")) << key;
}

TEST_F(Usage, TheNameAndTheStatusAreThereWheneverABusIs) {
  sessionBus_.stop();
  startAgent();
  for (int times = 0; times < 2; ++times) {
    sessionBus_.start();
    EXPECT_TRUE(waitUntil([&] { return active() == "(<true>,)"; }));
    sessionBus_.stop();
  }
}

TEST_F(Usage, AnAgentEndsWhenTheBusComesAndAnotherAgentIsOnIt) {
  startAgent();
  const auto later = folder_.path("later");
  setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + later);
  const auto second = makeAgent("second.log");
  EXPECT_TRUE(waitUntil([&] { return second->output().find(" ready") != std::string::npos; }));
  std::filesystem::create_symlink(sessionBus_.socketPath(), later);
  EXPECT_EQ(second->waitForEnd(), kExitNameRefused);
  EXPECT_THAT(second->output(), HasSubstr("Another agent is running"));
}

}  // namespace
}  // namespace tarvo::test
