#include "simulator/program/Server.h"

#include <glib-unix.h>
#include <csignal>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "Utilities/Format.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/program/ObjectCommands.h"
#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {
namespace {

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

Server::Server(ServerOptions options, std::unique_ptr<DeviceHost> host)
    : options_(std::move(options)),
      loop_(g_main_loop_new(nullptr, FALSE), &g_main_loop_unref),
      host_(std::move(host)),
      control_(options_.socket, [this](const auto& request) { return handle(request); }) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    sources_.push_back(g_unix_signal_add(signal, &Server::signalled, this));
  }
  host_->onVanished([](const std::string& id) {
    std::printf("%s has vanished\n", id.c_str());
    std::fflush(stdout);
  });
  for (const auto& device : options_.devices) {
    const auto file = findDeviceFile(device);
    host_->plug(DeviceDescription::fromFile(file), file.stem().string());
  }
}

Server::~Server() {
  for (const auto source : sources_)
    g_source_remove(source);
}

int Server::run() {
  start();
  g_main_loop_run(loop_.get());
  for (const auto* device : host_->devices())
    reportViolations(*device);
  return violated_ && options_.strict && exitCode_ == 0 ? 1 : exitCode_;
}

void Server::start() {
  std::printf("# Serving. TARVO_SIMULATOR_SOCKET='%s'\n", control_.path().c_str());
  std::fflush(stdout);
}

std::optional<nlohmann::json> Server::answerMore(const nlohmann::json&) {
  return std::nullopt;
}

void Server::end(int exitCode) {
  exitCode_ = exitCode;
  g_main_loop_quit(loop_.get());
}

void Server::reportViolations(const HostedDevice& device) {
  for (const auto& violation : device.device->violations()) {
    std::fprintf(stderr, "tarvo-simulator: %s: the host broke the protocol: %s\n",
                 device.id.c_str(), violation.c_str());
    violated_ = true;
  }
}

nlohmann::json Server::unplug(const std::string& id) {
  const auto* device = host_->device(id);
  if (device != nullptr) reportViolations(*device);
  host_->unplug(id);
  return nlohmann::json::object();
}

gboolean Server::signalled(gpointer self) {
  g_main_loop_quit(static_cast<Server*>(self)->loop_.get());
  return G_SOURCE_CONTINUE;
}

nlohmann::json Server::handle(const nlohmann::json& request) {
  const auto command = request.at("command").get<std::string>();
  if (command == "plug") return plug(request);
  if (command == "unplug") return unplug(request.at("id").get<std::string>());
  if (command == "list") return list();
  if (command == "fault") return setFault(request);
  if (command == "event") return sendEvent(request);
  if (auto answer = answerMore(request)) return *answer;
  if (request.contains("id")) {
    if (auto answer = answerObjectRequest(camera(request), request)) return *answer;
  }
  throw std::runtime_error("unknown command \"" + command + "\"");
}

nlohmann::json Server::plug(const nlohmann::json& request) {
  std::optional<std::string> port;
  if (request.contains("port")) port = request["port"].get<std::string>();
  const auto id = host_->plug(DeviceDescription::fromJson(request.at("description")),
                              request.value("name", "device"), port);
  return {{"id", id}, {"device", described(*host_->device(id))}};
}

nlohmann::json Server::list() const {
  auto devices = nlohmann::json::array();
  for (const auto* device : host_->devices())
    devices.push_back(described(*device));
  return {{"devices", devices}};
}

HostedDevice& Server::device(const nlohmann::json& request) {
  const auto id = request.at("id").get<std::string>();
  auto* device = host_->device(id);
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

namespace {

namespace fs = std::filesystem;

fs::path besideProgram(const char* relative) {
  return fs::read_symlink("/proc/self/exe").parent_path() / relative;
}

/// As installed, else as in the source tree that this was built from.
fs::path firstThatExists(const char* installed, const char* source) {
  auto path = besideProgram(installed);
  if (fs::exists(path)) return path;
  return fs::exists(source) ? fs::path(source) : fs::path();
}

}  // namespace

fs::path findDeviceFile(const std::string& text) {
  if (fs::is_regular_file(text)) return text;
  const auto folder = firstThatExists("../share/tarvo/simulator", TARVO_SOURCE_DEVICES);
  auto file = folder / (text + ".json");
  if (text.find('/') == std::string::npos && fs::exists(file)) return file;
  std::set<std::string> names;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    names.insert(entry.path().stem().string());
  }
  std::string known;
  for (const auto& name : names)
    known += " " + name;
  throw DescriptionError("no device description \"" + text + "\"; known names:" + known);
}

fs::path findModelsFile() {
  return firstThatExists(
      "../lib/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Agent.app/Resources/ggcam.inf",
      TARVO_SOURCE_MODELS);
}

}  // namespace tarvo::simulator
