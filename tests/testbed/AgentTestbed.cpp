#include "tests/testbed/AgentTestbed.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& added) {
  std::vector<std::string> lines;
  for (char** line = environ; *line != nullptr; ++line) {
    const std::string text = *line;
    if (!added.contains(text.substr(0, text.find('=')))) lines.push_back(text);
  }
  for (const auto& [name, value] : added)
    lines.push_back(std::string(name).append("=").append(value));
  return lines;
}

std::vector<char*> pointers(std::vector<std::string>& lines) {
  std::vector<char*> list;
  list.reserve(lines.size() + 1);
  for (auto& line : lines)
    list.push_back(line.data());
  list.push_back(nullptr);
  return list;
}

}  // namespace

TestbedProgram::TestbedProgram(simulator::Testbed& testbed, const std::vector<std::string>& command,
                               const std::map<std::string, std::string>& environment,
                               std::string output)
    : output_(std::move(output)) {
  // `run` takes descriptors, so that two listeners for device events stay apart.
  std::vector<std::string> words = {SIMULATOR_PROGRAM, "run", "--slot",
                                    std::to_string(testbed.nextClientSlot()), "--"};
  words.insert(words.end(), command.begin(), command.end());
  auto all = simulator::TestbedProcess::environment(testbed);
  all.insert(environment.begin(), environment.end());
  auto lines = environmentWith(all);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  const int error = ::posix_spawn(&pid_, SIMULATOR_PROGRAM, &actions, nullptr,
                                  pointers(words).data(), pointers(lines).data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + command.front());
}

TestbedProgram::~TestbedProgram() {
  if (!isRunning()) return;
  signal(SIGTERM);
  if (!waitForEnd()) {
    signal(SIGKILL);
    reap(0);
  }
}

std::string TestbedProgram::output() const {
  return fileContent(output_);
}

void TestbedProgram::reap(int options) {
  int status = 0;
  if (exitCode_ || ::waitpid(pid_, &status, options) != pid_) return;
  exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool TestbedProgram::isRunning() {
  reap(WNOHANG);
  return !exitCode_;
}

void TestbedProgram::signal(int number) const {
  ::kill(pid_, number);
}

std::optional<int> TestbedProgram::waitForEnd() {
  waitUntil([this] { return !isRunning(); });
  return exitCode_;
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
  for (const char* program : {kRelay, kWireless, kViewer}) {
    for (const auto& launch : launches(program))
      end(launch);
  }
  if (subscription_ != 0) {
    g_dbus_connection_signal_unsubscribe(distributed_.get(), subscription_);
  }
  if (HasFailure()) std::printf("the agent's log:\n%s\n", log().c_str());
}

void AgentTestbed::configure(const std::string& group, const std::string& key,
                             const std::string& value) {
  configuration_[group][key] = value;
}

void AgentTestbed::leaveOutOfBundle(const std::set<std::string>& parts) {
  std::filesystem::remove_all(folder_.path("installed"));
  simulator::makeBundle(folder_.path("installed"), {STANDINS_FOLDER, MODELS_FILE, parts});
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

std::unique_ptr<TestbedProgram> AgentTestbed::makeAgent(const std::string& logName) {
  writeConfiguration();
  return std::make_unique<TestbedProgram>(*testbed_, std::vector<std::string>{AGENT_PROGRAM},
                                          environment_, folder_.path(logName));
}

void AgentTestbed::startAgent() {
  agent_ = makeAgent("agent.log");
  ASSERT_TRUE(waitForLog("ready"));
}

std::string AgentTestbed::log() const {
  return folder_.read("agent.log");
}

std::size_t AgentTestbed::timesLogged(const std::string& text) const {
  return occurrences(log(), text);
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

void AgentTestbed::listenToDistributed() {
  if (!distributed_) distributed_ = sessionBus_.connect();
  const auto hear = [](GDBusConnection*, const char*, const char*, const char*, const char* member,
                       GVariant*, gpointer self) {
    static_cast<AgentTestbed*>(self)->heard_.emplace_back(member);
  };
  subscription_ = g_dbus_connection_signal_subscribe(
      distributed_.get(), nullptr, "com.tarvo.DistributedNotification", nullptr,
      "/com/tarvo/DistributedNotification", nullptr, G_DBUS_SIGNAL_FLAGS_NONE, hear, this, nullptr);
}

void AgentTestbed::postDistributed(const std::string& name) {
  if (!distributed_) distributed_ = sessionBus_.connect();
  g_dbus_connection_emit_signal(distributed_.get(), nullptr, "/com/tarvo/DistributedNotification",
                                "com.tarvo.DistributedNotification", name.c_str(), nullptr,
                                nullptr);
  g_dbus_connection_flush_sync(distributed_.get(), nullptr, nullptr);
}

}  // namespace tarvo::test
