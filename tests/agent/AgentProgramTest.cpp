// The unmodified program as a process of its own, on a bus of its own and among no devices at all.
#include <gmock/gmock.h>

#include "agent/AgentName.h"
#include "agent/AgentProcess.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class AgentProgram : public ::testing::Test {
 protected:
  /// A running or ended agent, its standard error in a file of the test's folder.
  struct Agent {
    ~Agent() { g_subprocess_force_exit(process.get()); }

    std::string log() const { return folder.read(logName); }
    bool says(std::string_view part) const {
      return waitUntil([&] { return log().find(part) != std::string::npos; });
    }
    /// Exit status; -1 when it did not exit by itself.
    int wait() const {
      g_subprocess_wait(process.get(), nullptr, nullptr);
      const bool exited = g_subprocess_get_if_exited(process.get()) != 0;
      return exited ? g_subprocess_get_exit_status(process.get()) : -1;
    }

    const TemporaryFolder& folder;
    std::string logName;
    GObjectPtr<GSubprocess> process;
  };

  AgentProgram() {
    std::filesystem::create_directories(folder.path("testbed/sys/bus"));
    std::filesystem::create_directories(folder.path("testbed/dev"));
    folder.write("bundle/Resources/ggcam.inf", "[Models.NTx86]\r\n");
    writePreferences("LOG_SUBSYS_LISTENER=true\n");
  }

  void writePreferences(const std::string& lines) {
    folder.write("config/tarvo/agent.conf", "[Preferences]\n" + lines);
  }

  std::unique_ptr<Agent> run(const std::string& busAddress,
                             const std::vector<std::string>& arguments = {}) {
    const std::string logName = "log" + std::to_string(++agents_);
    const GObjectPtr<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_SILENCE));
    g_subprocess_launcher_set_stderr_file_path(launcher.get(), folder.path(logName).c_str());
    const std::pair<const char*, std::string> environment[] = {
        {"LD_PRELOAD", "libumockdev-preload.so.0"},
        {"UMOCKDEV_DIR", folder.path("testbed")},
        {"ASAN_OPTIONS", "verify_asan_link_order=0"},
        {"XDG_CONFIG_HOME", folder.path("config")},
        {"XDG_CONFIG_DIRS", folder.path("none")},
        {"TARVO_AGENT_BUNDLE", folder.path("bundle")},
        {"DBUS_SESSION_BUS_ADDRESS", busAddress},
        {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + folder.path("none")}};
    for (const auto& [name, value] : environment)
      g_subprocess_launcher_setenv(launcher.get(), name, value.c_str(), TRUE);
    std::vector<const char*> argv = {TARVO_AGENT_PROGRAM};
    for (const std::string& argument : arguments)
      argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    GErrorHolder error;
    GObjectPtr<GSubprocess> process(
        g_subprocess_launcher_spawnv(launcher.get(), argv.data(), error.out()));
    EXPECT_TRUE(process) << error.message();
    return std::make_unique<Agent>(folder, logName, std::move(process));
  }

  /// What the agent that owns the name shows as "Active"; empty text while nobody owns it.
  static std::string activeOn(GDBusConnection* client) {
    const GVariantPtr active(g_dbus_connection_call_sync(
        client, kAgentBusName, kAgentObjectPath, "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", kAgentInterface, "Active"), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
        5000, nullptr, nullptr));
    return active ? takeText(g_variant_print(active.get(), FALSE)) : "";
  }

  TemporaryFolder folder;
  PrivateBus bus;

 private:
  int agents_ = 0;
};

TEST_F(AgentProgram, RunsWithoutABusAndShowsItselfWheneverOneComes) {
  const auto agent = run(bus.address());
  ASSERT_TRUE(agent->says(" ready")) << agent->log();
  for (int times = 0; times < 2; ++times) {
    bus.start();
    const auto client = bus.connect();
    EXPECT_TRUE(waitUntil([&] { return activeOn(client.get()) == "(<true>,)"; })) << agent->log();
    bus.stop();
  }
}

TEST_F(AgentProgram, LeavesTheFieldToTheAgentThatIsThereBeforeItStartsAnything) {
  bus.start();
  const auto first = run(bus.address());
  ASSERT_TRUE(first->says(" ready")) << first->log();
  const auto second = run(bus.address());
  EXPECT_EQ(second->wait(), kExitNameTaken);
  EXPECT_THAT(second->log(), HasSubstr("Another agent is running"));
  EXPECT_THAT(second->log(), Not(HasSubstr("Launch WRLApp")));
}

TEST_F(AgentProgram, EndsWhenTheBusComesAndAnotherAgentIsOnIt) {
  const auto agent = run("unix:path=" + folder.path("later"));
  ASSERT_TRUE(agent->says(" ready")) << agent->log();
  bus.start();
  const auto first = run(bus.address());
  ASSERT_TRUE(first->says(" ready")) << first->log();
  std::filesystem::create_symlink(bus.socketPath(), folder.path("later"));
  EXPECT_EQ(agent->wait(), kExitNameTaken);
  EXPECT_THAT(agent->log(), HasSubstr("Another agent is running"));
}

TEST_F(AgentProgram, StartsWithPreferencesThatMakeNoSenseAndSaysWhichTheyAre) {
  const std::pair<const char*, const char*> rows[] = {
      {"LOG_SUBSYS_LISTENER=perhaps\n", "agent.conf, line 2: LOG_SUBSYS_LISTENER is ignored"},
      {"no key at all\n", "agent.conf, line 2: neither a group nor"},
      {"[Maker]\nusbVendorID=0x10000\n", "[Maker] usbVendorID is ignored"},
      {"[Platform]\nSystemVersion=x\n", "[Platform] SystemVersion is ignored"},
      {"[Platform]\nVolumesFolder=x\n", "[Platform] VolumesFolder is ignored"}};
  for (const auto& [lines, said] : rows) {
    writePreferences(lines);
    const auto agent = run(bus.address());
    EXPECT_TRUE(agent->says(" ready")) << agent->log();
    EXPECT_THAT(agent->log(), HasSubstr(said));
  }
}

TEST_F(AgentProgram, RefusesBadUsageAndAnswersQuestions) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"--nonsense"}, {"argument"}, {"--config"}, {"--config", folder.path("none")}}) {
    const auto agent = run(bus.address(), arguments);
    EXPECT_EQ(agent->wait(), kExitUsage) << arguments.front();
    EXPECT_THAT(agent->log(), HasSubstr("tarvo-agent: "));
  }
  for (const char* argument : {"--help", "-h", "--version"})
    EXPECT_EQ(run(bus.address(), {argument})->wait(), kExitNormal) << argument;
}

}  // namespace
}  // namespace tarvo::test
