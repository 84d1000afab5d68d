#include "simulator/program/TestbedServer.h"

#include <pwd.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "simulator/testbed/Bundle.h"
#include "simulator/testbed/Testbed.h"
#include "simulator/testbed/TestbedProcess.h"

namespace tarvo::simulator {
namespace {

std::string volumesFolder(const ServeOptions& options) {
  if (!options.volumes.empty()) return std::filesystem::absolute(options.volumes).string();
  const passwd* user = ::getpwuid(::geteuid());
  // Nothing of this reaches the machine's own /media: the mount is seen in the testbed only.
  ::mount("tarvo-simulator", "/media", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
  return std::string("/media/") + (user != nullptr ? user->pw_name : "user");
}

}  // namespace

TestbedServer::TestbedServer(const ServeOptions& options)
    : Server(options.server, std::make_unique<Testbed>(volumesFolder(options))),
      options_(options),
      testbed_(static_cast<Testbed&>(host())) {}

TestbedServer::~TestbedServer() {
  if (command_ == 0) return;
  g_source_remove(watch_);
  ::kill(command_, SIGTERM);
  ::waitpid(command_, nullptr, 0);
}

void TestbedServer::start() {
  if (options_.command.empty()) {
    printEnvironment();
  } else {
    startCommand();
  }
}

std::optional<nlohmann::json> TestbedServer::answerMore(const nlohmann::json& request) {
  if (request.at("command") == "client") return client();
  return std::nullopt;
}

void TestbedServer::printEnvironment() const {
  std::printf("# Serving. Start programs in the testbed with: tarvo-simulator run -- COMMAND\n");
  for (const auto& [key, value] : TestbedProcess::environment(testbed_)) {
    std::printf("export %s='%s'\n", key.c_str(), value.c_str());
  }
  std::printf("export TARVO_SIMULATOR_SOCKET='%s'\n", socketPath().c_str());
  std::printf("# volumes: %s\n", testbed_.volumes().c_str());
  std::fflush(stdout);
}

void TestbedServer::startCommand() {
  // The command is started by `run`, which asks here for its environment.
  std::vector<std::string> words = {"/proc/self/exe", "run", "--socket", socketPath(), "--"};
  words.insert(words.end(), options_.command.begin(), options_.command.end());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (auto& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  GErrorSlot error;
  const auto flags = GSpawnFlags(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_CHILD_INHERITS_STDIN);
  if (g_spawn_async(nullptr, arguments.data(), nullptr, flags, nullptr, nullptr, &command_,
                    error.address()) == FALSE) {
    throw std::runtime_error(std::string("cannot start the command: ") + error.message());
  }
  watch_ = g_child_watch_add(command_, &TestbedServer::commandEnded, this);
}

void TestbedServer::commandEnded(GPid, gint status, gpointer self) {
  auto& server = *static_cast<TestbedServer*>(self);
  server.command_ = 0;
  server.end(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

nlohmann::json TestbedServer::client() {
  auto environment = nlohmann::json::object();
  for (const auto& [key, value] : TestbedProcess::environment(testbed_))
    environment[key] = value;
  environment["TARVO_SIMULATOR_SOCKET"] = socketPath();
  environment["TARVO_SIMULATOR_VOLUMES"] = testbed_.volumes().string();
  if (!options_.bundle.empty()) {
    const BundlePaths paths(std::filesystem::absolute(options_.bundle));
    environment["TARVO_AGENT_BUNDLE"] = paths.agent.string();
    const char* others = std::getenv("XDG_DATA_DIRS");
    environment["XDG_DATA_DIRS"] = paths.dataFolder.string() + ":" +
                                   (others != nullptr ? others : "/usr/local/share:/usr/share");
  }
  return {{"pid", ::getpid()}, {"slot", testbed_.nextClientSlot()}, {"environment", environment}};
}

}  // namespace tarvo::simulator
