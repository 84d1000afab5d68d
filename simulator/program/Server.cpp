#include "simulator/program/Server.h"

#include <glib-unix.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "Utilities/Format.h"
#include "simulator/Bundle.h"
#include "simulator/program/DeviceFiles.h"
#include "simulator/program/ObjectRequests.h"
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

std::string hexText(const Bytes& bytes) {
  std::string text;
  for (const auto byte : bytes)
    text += formatted("%02x", std::to_integer<unsigned>(byte));
  return text;
}

nlohmann::json described(const MassStorageUnit& unit) {
  const auto state = unit.state();
  auto commands = nlohmann::json::array();
  for (const auto& command : unit.commands()) {
    nlohmann::json entry = {{"block", hexText(command.block)}};
    if (!command.data.empty()) entry["data"] = hexText(command.data);
    commands.push_back(std::move(entry));
  }
  return {{"flags", state.mode.flags},      {"powerDown", state.mode.powerDown},
          {"delay", state.mode.delay},      {"clock", state.clock},
          {"trayOpen", state.isTrayOpen},   {"locked", state.isLocked},
          {"commands", std::move(commands)}};
}

nlohmann::json described(const HostedDevice& device) {
  nlohmann::json entry = {
      {"id", device.id},
      {"name", device.name},
      {"kind", device.camera ? "ptp" : "massStorage"},
      {"vendor", formatted("0x%04X", device.description.usb.vendor)},
      {"product", formatted("0x%04X", device.description.usb.product)},
      {"location", static_cast<std::int32_t>(device.port.locationID())},
  };
  if (!device.node.empty()) entry["node"] = device.node;
  if (!device.mountPoint.empty()) entry["volume"] = device.mountPoint;
  entry["violations"] = device.device->violations();
  if (device.unit) entry["unit"] = described(*device.unit);
  if (!device.camera) return entry;
  const auto counts = device.camera->counts();
  entry["statistics"] = {{"transactions", counts.transactions},
                         {"bytesFromHost", counts.bytesFromHost},
                         {"bytesToHost", counts.bytesToHost}};
  entry["operations"] = device.camera->operations();
  return entry;
}

}  // namespace

Server::Server(ServeOptions options)
    : options_(std::move(options)),
      loop_(g_main_loop_new(nullptr, FALSE), &g_main_loop_unref),
      testbed_(volumesFolder(options_)),
      control_(options_.socket, [this](const auto& request) { return handle(request); }) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    sources_.push_back(g_unix_signal_add(signal, &Server::signalled, this));
  }
  testbed_.onVanished([](const std::string& id) {
    std::printf("%s has vanished\n", id.c_str());
    std::fflush(stdout);
  });
  for (const auto& device : options_.devices) {
    const auto file = findDeviceFile(device);
    testbed_.plug(DeviceDescription::fromFile(file), file.stem().string());
  }
}

Server::~Server() {
  for (const auto source : sources_)
    g_source_remove(source);
  if (command_ == 0) return;
  ::kill(command_, SIGTERM);
  ::waitpid(command_, nullptr, 0);
}

int Server::run() {
  if (options_.command.empty()) {
    printEnvironment();
  } else {
    startCommand();
  }
  g_main_loop_run(loop_.get());
  for (const auto* device : testbed_.devices())
    reportViolations(*device);
  return violated_ && options_.strict && exitCode_ == 0 ? 1 : exitCode_;
}

void Server::reportViolations(const HostedDevice& device) {
  for (const auto& violation : device.device->violations()) {
    std::fprintf(stderr, "tarvo-simulator: %s: the host broke the protocol: %s\n",
                 device.id.c_str(), violation.c_str());
    violated_ = true;
  }
}

nlohmann::json Server::unplug(const std::string& id) {
  const auto* device = testbed_.device(id);
  if (device != nullptr) reportViolations(*device);
  testbed_.unplug(id);
  return nlohmann::json::object();
}

gboolean Server::signalled(gpointer self) {
  g_main_loop_quit(static_cast<Server*>(self)->loop_.get());
  return G_SOURCE_CONTINUE;
}

void Server::printEnvironment() const {
  std::printf("# Serving. Start programs in the testbed with: tarvo-simulator run -- COMMAND\n");
  for (const auto& [key, value] : TestbedProcess::environment(testbed_)) {
    std::printf("export %s='%s'\n", key.c_str(), value.c_str());
  }
  std::printf("export TARVO_SIMULATOR_SOCKET='%s'\n", control_.path().c_str());
  std::printf("# volumes: %s\n", testbed_.volumes().c_str());
  std::fflush(stdout);
}

void Server::startCommand() {
  // The command is started by `run`, which asks here for its environment.
  std::vector<std::string> words = {"/proc/self/exe", "run", "--socket", control_.path(), "--"};
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
  sources_.push_back(g_child_watch_add(command_, &Server::commandEnded, this));
}

void Server::commandEnded(GPid, gint status, gpointer self) {
  auto& server = *static_cast<Server*>(self);
  server.sources_.pop_back();  // the watch, which ends with its one call
  server.command_ = 0;
  server.exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  g_main_loop_quit(server.loop_.get());
}

nlohmann::json Server::handle(const nlohmann::json& request) {
  const auto command = request.at("command").get<std::string>();
  if (command == "plug") return plug(request);
  if (command == "unplug") return unplug(request.at("id").get<std::string>());
  if (command == "list") return list();
  if (command == "fault") return setFault(request);
  if (command == "event") return sendEvent(request);
  if (command == "client") return client();
  if (request.contains("id")) {
    if (auto answer = answerObjectRequest(camera(request), request)) return *answer;
  }
  throw std::runtime_error("unknown command \"" + command + "\"");
}

nlohmann::json Server::plug(const nlohmann::json& request) {
  std::optional<std::string> port;
  if (request.contains("port")) port = request["port"].get<std::string>();
  const auto id = testbed_.plug(DeviceDescription::fromJson(request.at("description")),
                                request.value("name", "device"), port);
  return {{"id", id}, {"device", described(*testbed_.device(id))}};
}

nlohmann::json Server::list() const {
  auto devices = nlohmann::json::array();
  for (const auto* device : testbed_.devices())
    devices.push_back(described(*device));
  return {{"devices", devices}};
}

HostedDevice& Server::device(const nlohmann::json& request) {
  const auto id = request.at("id").get<std::string>();
  auto* device = testbed_.device(id);
  if (device == nullptr) throw std::runtime_error("no device \"" + id + "\" is plugged in");
  return *device;
}

PTPCamera& Server::camera(const nlohmann::json& request) {
  const auto& named = device(request);
  if (!named.camera) throw std::runtime_error("device \"" + named.id + "\" is no PTP device");
  return *named.camera;
}

nlohmann::json Server::setFault(const nlohmann::json& request) {
  const auto problem = device(request).device->setFault(request.at("name").get<std::string>(),
                                                        request.value("value", ""));
  if (!problem.empty()) throw std::runtime_error(problem);
  return nlohmann::json::object();
}

nlohmann::json Server::sendEvent(const nlohmann::json& request) {
  camera(request).sendEvent(request.at("code").get<std::uint16_t>(),
                            request.value("parameters", std::vector<std::uint32_t>()));
  return nlohmann::json::object();
}

nlohmann::json Server::client() {
  auto environment = nlohmann::json::object();
  for (const auto& [key, value] : TestbedProcess::environment(testbed_))
    environment[key] = value;
  environment["TARVO_SIMULATOR_SOCKET"] = control_.path();
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
