// The unmodified program as a process of its own, on a bus of its own and among no devices at all.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "agent/AgentName.h"
#include "agent/AgentProcess.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

std::string contentOf(const fs::path& file) {
  std::ostringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

std::size_t countIn(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
    ++count;
  return count;
}

class AgentProgram : public ::testing::Test {
 protected:
  /// A running or ended agent, its standard error in a file.
  class Agent {
   public:
    Agent(GObjectPtr<GSubprocess> process, fs::path log)
        : process_(std::move(process)), log_(std::move(log)) {}
    ~Agent() { g_subprocess_force_exit(process_.get()); }

    bool says(std::string_view part) const {
      return waitUntil([&] { return log().find(part) != std::string::npos; });
    }
    std::string log() const { return contentOf(log_); }
    void signal(int number) { g_subprocess_send_signal(process_.get(), number); }
    /// Exit status; -1 when it did not exit by itself.
    int wait() {
      g_subprocess_wait(process_.get(), nullptr, nullptr);
      return g_subprocess_get_if_exited(process_.get())
                 ? g_subprocess_get_exit_status(process_.get())
                 : -1;
    }

   private:
    GObjectPtr<GSubprocess> process_;
    fs::path log_;
  };

  AgentProgram() {
    std::string pattern = (fs::temp_directory_path() / "agent.XXXXXX").string();
    folder = ::mkdtemp(pattern.data());
    fs::create_directories(folder / "testbed/sys/bus");
    fs::create_directories(folder / "testbed/dev");
    fs::create_directories(folder / "config/tarvo");
    fs::create_directories(bundle() / "Resources");
    std::ofstream(bundle() / "Resources/ggcam.inf") << "[Models.NTx86]\r\n";
    writePreferences("LOG_SUBSYS_LISTENER=true\n");
  }
  ~AgentProgram() override { fs::remove_all(folder); }

  fs::path bundle() const {
    return folder / "lib/Tarvo Relay.app/Contents/Library/Tarvo Agent.app";
  }
  void writePreferences(const std::string& lines) {
    std::ofstream(folder / "config/tarvo/agent.conf") << "[Preferences]\n" << lines;
  }
  /// A wireless utility that writes one line into the file that is given back.
  fs::path installWirelessUtility() {
    const fs::path program =
        folder / "lib/TARVO Wireless Utility.app/Contents/MacOS/TARVO Wireless Utility";
    fs::create_directories(program.parent_path());
    std::ofstream(program) << "#!/bin/sh\necho started >> '" << (folder / "wireless").string()
                           << "'\n";
    ::chmod(program.c_str(), 0755);
    return folder / "wireless";
  }

  std::unique_ptr<Agent> run(const std::string& busAddress,
                             const std::vector<std::string>& arguments = {}) {
    const fs::path log = folder / ("log" + std::to_string(++agents_));
    const GObjectPtr<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_SILENCE));
    g_subprocess_launcher_set_stderr_file_path(launcher.get(), log.c_str());
    const std::pair<const char*, std::string> environment[] = {
        {"LD_PRELOAD", "libumockdev-preload.so.0"},
        {"UMOCKDEV_DIR", (folder / "testbed").string()},
        {"ASAN_OPTIONS", "verify_asan_link_order=0"},
        {"XDG_CONFIG_HOME", (folder / "config").string()},
        {"XDG_CONFIG_DIRS", (folder / "none").string()},
        {"TARVO_AGENT_BUNDLE", bundle().string()},
        {"DBUS_SESSION_BUS_ADDRESS", busAddress},
        {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (folder / "none").string()}};
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
    return std::make_unique<Agent>(std::move(process), log);
  }

  static bool isOwned(GDBusConnection* client) {
    const GVariantPtr owner(g_dbus_connection_call_sync(
        client, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetNameOwner", g_variant_new("(s)", kAgentBusName), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000,
        nullptr, nullptr));
    return owner != nullptr;
  }

  fs::path folder;

 private:
  int agents_ = 0;
};

TEST_F(AgentProgram, EndsCleanlyOnEitherTerminationSignal) {
  for (const int number : {SIGTERM, SIGINT}) {
    const RunningBus bus;
    const auto agent = run(bus.address());
    ASSERT_TRUE(agent->says(" ready")) << agent->log();
    agent->signal(number);
    EXPECT_EQ(agent->wait(), kExitNormal) << agent->log();
  }
}

TEST_F(AgentProgram, LeavesTheFieldToTheAgentThatIsThere) {
  const fs::path started = installWirelessUtility();
  const RunningBus bus;
  const auto first = run(bus.address());
  ASSERT_TRUE(first->says(" ready")) << first->log();
  ASSERT_TRUE(waitUntil([&] { return contentOf(started) == "started\n"; }));
  const auto second = run(bus.address());
  EXPECT_EQ(second->wait(), kExitNameTaken);
  EXPECT_THAT(second->log(), HasSubstr("Another agent is running"));
  EXPECT_THAT(second->log(), Not(HasSubstr("Launch WRLApp")));
  EXPECT_EQ(contentOf(started), "started\n");
}

TEST_F(AgentProgram, StartsTheWirelessUtilityAgainWhenAnotherProcessAsks) {
  const fs::path started = installWirelessUtility();
  const RunningBus bus;
  const auto agent = run(bus.address());
  ASSERT_TRUE(agent->says("got WRLA died notification")) << agent->log();
  const auto other = bus.connect();
  g_dbus_connection_emit_signal(other.get(), nullptr, "/com/tarvo/DistributedNotification",
                                "com.tarvo.DistributedNotification", "LaunchWRLAppNotification",
                                nullptr, nullptr);
  EXPECT_TRUE(waitUntil([&] { return contentOf(started) == "started\nstarted\n"; }))
      << agent->log();
}

TEST_F(AgentProgram, RunsWithoutABusAndTakesItsNameWheneverOneComes) {
  const std::string address = "unix:path=" + (folder / "bus").string();
  const auto agent = run(address);
  ASSERT_TRUE(agent->says(" ready")) << agent->log();
  EXPECT_EQ(countIn(agent->log(), "session bus"), 1u) << agent->log();
  for (int times = 0; times < 2; ++times) {
    const RunningBus bus((folder / "bus").string());
    const auto client = bus.connect();
    ASSERT_TRUE(client);
    EXPECT_TRUE(waitUntil([&] { return isOwned(client.get()); })) << agent->log();
    const GVariantPtr active(g_dbus_connection_call_sync(
        client.get(), kAgentBusName, kAgentObjectPath, "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", kAgentInterface, "Active"), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000,
        nullptr, nullptr));
    ASSERT_TRUE(active) << "the name is there before its object";
    EXPECT_EQ(takeText(g_variant_print(active.get(), FALSE)), "(<true>,)");
    fs::remove(folder / "bus");
  }
  agent->signal(SIGTERM);
  EXPECT_EQ(agent->wait(), kExitNormal) << agent->log();
}

TEST_F(AgentProgram, EndsWhenTheBusComesAndAnotherAgentIsOnIt) {
  const auto agent = run("unix:path=" + (folder / "bus").string());
  ASSERT_TRUE(agent->says(" ready")) << agent->log();
  const RunningBus bus((folder / "elsewhere").string());
  const auto first = run(bus.address());
  ASSERT_TRUE(first->says(" ready")) << first->log();
  fs::rename(folder / "elsewhere", folder / "bus");
  EXPECT_EQ(agent->wait(), kExitNameTaken);
  EXPECT_THAT(agent->log(), HasSubstr("Another agent is running"));
}

TEST_F(AgentProgram, SaysWhereTheListOfModelsShouldBe) {
  fs::remove(bundle() / "Resources/ggcam.inf");
  const RunningBus bus;
  const auto agent = run(bus.address());
  ASSERT_TRUE(agent->says(" ready"));
  EXPECT_THAT(agent->log(), HasSubstr((bundle() / "Resources/ggcam.inf").string()));
}

TEST_F(AgentProgram, StartsWithPreferencesThatMakeNoSense) {
  writePreferences("LOG_SUBSYS_LISTENER=perhaps\nno key at all\n[Platform\nSystemVersion=x\n");
  const RunningBus bus;
  const auto agent = run(bus.address());
  EXPECT_TRUE(agent->says(" ready")) << agent->log();
  EXPECT_THAT(agent->log(), HasSubstr("agent.conf"));
}

TEST_F(AgentProgram, RefusesBadUsage) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"--nonsense"}, {"argument"}, {"--config"}, {"--config", folder / "none"}}) {
    const auto agent = run("unix:path=" + (folder / "none").string(), arguments);
    EXPECT_EQ(agent->wait(), kExitUsage) << arguments.front();
    EXPECT_THAT(agent->log(), HasSubstr("tarvo-agent: "));
  }
  for (const char* argument : {"--help", "-h", "--version"})
    EXPECT_EQ(run("unix:path=/nonexistent", {argument})->wait(), kExitNormal) << argument;
}

}  // namespace
}  // namespace tarvo::test
