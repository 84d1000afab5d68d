#include "tests/testbed/AgentTestbed.h"

#include <signal.h>

#include <fstream>
#include <sstream>

#include "simulator/testbed/TestbedProcess.h"

namespace tarvo::test {

namespace {

std::string fileContent(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

}  // namespace

TestbedProgram::TestbedProgram(simulator::Testbed& testbed, const std::vector<std::string>& command,
                               const std::map<std::string, std::string>& environment,
                               std::string output)
    : output_(std::move(output)) {
  // `run` takes descriptors, so that two listeners for device events stay apart.
  const auto slot = std::to_string(testbed.nextClientSlot());
  std::vector<const char*> words = {SIMULATOR_PROGRAM, "run", "--slot", slot.c_str(), "--"};
  for (const auto& word : command)
    words.push_back(word.c_str());
  words.push_back(nullptr);
  const GObjectPtr<GSubprocessLauncher> launcher(
      g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_MERGE));
  auto all = simulator::TestbedProcess::environment(testbed);
  all.insert(environment.begin(), environment.end());
  for (const auto& [name, value] : all)
    g_subprocess_launcher_setenv(launcher.get(), name.c_str(), value.c_str(), TRUE);
  g_subprocess_launcher_set_stdout_file_path(launcher.get(), output_.c_str());
  process_.reset(g_subprocess_launcher_spawnv(launcher.get(), words.data(), nullptr));
  if (!process_) throw std::runtime_error("cannot start " + command.front());
  // A program that has ended already has no identifier any more.
  if (const char* identifier = g_subprocess_get_identifier(process_.get()))
    pid_ = std::stoi(identifier);
}

TestbedProgram::~TestbedProgram() {
  signal(SIGTERM);
  if (!waitForEnd()) g_subprocess_force_exit(process_.get());
}

std::string TestbedProgram::output() const {
  return fileContent(output_);
}

bool TestbedProgram::isRunning() {
  return g_subprocess_get_identifier(process_.get()) != nullptr;
}

void TestbedProgram::signal(int number) const {
  g_subprocess_send_signal(process_.get(), number);
}

std::optional<int> TestbedProgram::waitForEnd() {
  if (!waitUntil([this] { return !isRunning(); })) return std::nullopt;
  if (g_subprocess_get_if_exited(process_.get()) != 0)
    return g_subprocess_get_exit_status(process_.get());
  return 128 + g_subprocess_get_term_sig(process_.get());
}

AgentTestbed::AgentTestbed()
    : testbed_(std::make_unique<simulator::Testbed>(folder_.path("volumes"))),
      bundle_(
          simulator::makeBundle(folder_.path("installed"), {STANDINS_FOLDER, MODELS_FILE, {}})) {
  std::filesystem::create_directories(testbed_->volumes());
  sessionBus_.start();
  configure("Preferences", "LOG_SUBSYS_LISTENER", "true");
  configure("Platform", "VolumesFolder", testbed_->volumes().string());
  environment_ = {{"TARVO_AGENT_BUNDLE", bundle_.agent.string()},
                  {"TARVO_STANDIN_LOG", folder_.path("launches")},
                  {"TARVO_STANDIN_CLAIM", "1"},
                  {"XDG_CONFIG_HOME", folder_.path("config")},
                  {"XDG_CONFIG_DIRS", folder_.path("none")},
                  {"XDG_DATA_DIRS", bundle_.dataFolder.string()},
                  {"XDG_DATA_HOME", folder_.path("none")},
                  {"DBUS_SESSION_BUS_ADDRESS", sessionBus_.address()},
                  {"DBUS_SYSTEM_BUS_ADDRESS", systemBus_.address()}};
}

// NOLINTNEXTLINE(bugprone-exception-escape): a test that cannot clean up may end the program
AgentTestbed::~AgentTestbed() {
  agent_.reset();
  for (const char* program : {kRelay, "TARVO Wireless Utility", "ViewerApp"}) {
    for (const auto& launch : launches(program))
      end(launch);
  }
  if (HasFailure()) std::printf("the agent's log:\n%s\n", log().c_str());
}

void AgentTestbed::configure(const std::string& group, const std::string& key,
                             const std::string& value) {
  configuration_[group][key] = value;
}

void AgentTestbed::writeConfiguration() const {
  std::string text;
  for (const auto& [group, keys] : configuration_) {
    text.append("[").append(group).append("]\n");
    for (const auto& [key, value] : keys)
      text.append(key).append("=").append(value).append("\n");
  }
  folder_.write("config/tarvo/agent.conf", text);
}

std::unique_ptr<TestbedProgram> AgentTestbed::makeProgram(const std::string& logName,
                                                          const std::vector<std::string>& command) {
  writeConfiguration();
  return std::make_unique<TestbedProgram>(*testbed_, command, environment_, folder_.path(logName));
}

void AgentTestbed::startAgent() {
  agent_ = makeProgram("agent.log");
  ASSERT_TRUE(waitForLog("ready"));
}

std::string AgentTestbed::log() const {
  return folder_.read("agent.log");
}

std::size_t AgentTestbed::timesLogged(const std::string& text) const {
  const auto all = log();
  std::size_t count = 0;
  for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1))
    ++count;
  return count;
}

bool AgentTestbed::waitForLog(const std::string& text, std::size_t count) {
  return waitUntil([&] { return timesLogged(text) >= count || !agent_->isRunning(); }) &&
         timesLogged(text) >= count;
}

simulator::DeviceDescription AgentTestbed::description(const std::string& name) {
  return simulator::DeviceDescription::fromFile(std::string(DEVICES_FOLDER) + "/" + name + ".json");
}

std::string AgentTestbed::plug(const std::string& name, const std::optional<std::string>& port) {
  return testbed_->plug(description(name), name, port);
}

std::string AgentTestbed::plug(simulator::DeviceDescription description,
                               const std::optional<std::string>& port) {
  return testbed_->plug(std::move(description), "device", port);
}

std::vector<nlohmann::json> AgentTestbed::launches(const std::string& program) const {
  std::vector<nlohmann::json> found;
  std::istringstream lines(folder_.read("launches"));
  std::string line;
  while (std::getline(lines, line)) {
    auto report = nlohmann::json::parse(line, nullptr, false);
    if (report.is_object() && report["program"] == program) found.push_back(std::move(report));
  }
  return found;
}

nlohmann::json AgentTestbed::relayLaunch(std::size_t index) {
  waitUntil([&] { return launches(kRelay).size() > index || !agent_->isRunning(); });
  const auto all = launches(kRelay);
  return index < all.size() ? all[index] : nlohmann::json();
}

std::vector<std::string> AgentTestbed::commandLine(const char* type, std::int32_t location,
                                                   const std::string& volume) {
  return {type, std::to_string(location), volume};
}

std::vector<std::string> AgentTestbed::relayArguments(std::size_t index) {
  const auto launch = relayLaunch(index);
  if (launch.is_null()) return {"(not launched)"};
  return launch["arguments"].get<std::vector<std::string>>();
}

void AgentTestbed::end(const nlohmann::json& launch) {
  const auto pid = launch["pid"].get<pid_t>();
  // The number may belong to another process by now.
  const auto words = fileContent("/proc/" + std::to_string(pid) + "/cmdline");
  if (words.find(launch["program"].get<std::string>()) != std::string::npos) {
    ::kill(pid, SIGTERM);
  }
}

void AgentTestbed::endRelay(std::size_t index) {
  const auto launch = relayLaunch(index);
  ASSERT_FALSE(launch.is_null());
  end(launch);
  ASSERT_TRUE(waitForLog("appDiedHandler - got RLA died notification", index + 1));
}

}  // namespace tarvo::test
