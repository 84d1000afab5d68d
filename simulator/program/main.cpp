// tarvo-simulator: virtual devices that unmodified programs see as USB and SCSI hardware.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>

#include "Utilities/Format.h"
#include "Utilities/TypedWords.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/program/ControlSocket.h"
#include "simulator/program/ObjectCommands.h"
#include "simulator/program/Server.h"
#include "simulator/program/TestbedServer.h"
#include "simulator/testbed/Bundle.h"
#include "simulator/testbed/TestbedProcess.h"
#include "simulator/usbip/UsbipHost.h"

namespace {

using namespace tarvo::simulator;
using nlohmann::json;

constexpr std::uint16_t kDefaultUsbipPort = 3240;  // registered for USB/IP

struct Options {
  std::string socket = defaultSocketPath();
  ServeOptions serve;
  UsbipOptions usbip;
  std::string device;
  std::string port;
  std::string id;
  std::string fault;
  std::string eventCode;
  std::vector<std::string> eventParameters;
  bool asJson = false;
  bool violations = false;
  ObjectOptions objects;
  std::vector<std::string> command;
  int slot = -1;
  std::string folder;
  std::string standins;
  std::string models;
  std::string relay;
  std::string viewer;
  std::string page;
  std::vector<std::string> without;
};

int serve(char** argv, Options& options) {
  TestbedProcess::enter(argv);
  options.serve.server.socket = options.socket;
  options.serve.command = options.command;
  return TestbedServer(options.serve).run();
}

int usbip(Options& options) {
  // Without --attach there must be a way to the devices.
  if (!options.usbip.attaches && !options.usbip.listenPort) {
    options.usbip.listenPort = kDefaultUsbipPort;
  }
  options.serve.server.socket = options.socket;
  return Server(options.serve.server, std::make_unique<UsbipHost>(options.usbip)).run();
}

int plug(const Options& options) {
  const auto file = findDeviceFile(options.device);
  // Checked here, so that what is wrong is said with the file's name.
  DeviceDescription::fromFile(file);
  json request = {{"command", "plug"}, {"name", file.stem().string()}};
  request["description"] = DeviceDescription::jsonFromFile(file);
  if (!options.port.empty()) request["port"] = options.port;
  std::cout << ask(options.socket, request).at("id").get<std::string>() << "\n";
  return 0;
}

int unplug(const Options& options) {
  ask(options.socket, {{"command", "unplug"}, {"id", options.id}});
  return 0;
}

void printDevice(const json& device) {
  std::string line = tarvo::formatted(
      "%-8s %-18s %s:%s  %s", device["id"].get<std::string>().c_str(),
      device["name"].get<std::string>().c_str(), device["vendor"].get<std::string>().c_str(),
      device["product"].get<std::string>().c_str(), device.value("node", "").c_str());
  if (device.contains("volume")) line += "  " + device["volume"].get<std::string>();
  if (device.contains("statistics")) {
    line += tarvo::formatted(
        "  %llu transactions",
        static_cast<unsigned long long>(device["statistics"]["transactions"].get<std::uint64_t>()));
  }
  std::cout << line << "\n";
}

/// What the hosts did against the protocol; a script sees by the exit code whether there was any.
int printViolations(const json& devices) {
  int found = 0;
  for (const auto& device : devices) {
    for (const auto& violation : device.value("violations", json::array())) {
      std::cout << device["id"].get<std::string>() << ": " << violation.get<std::string>() << "\n";
      found = 1;
    }
  }
  return found;
}

int list(const Options& options) {
  const auto devices = ask(options.socket, {{"command", "list"}}).at("devices");
  if (options.violations) return printViolations(devices);
  if (options.asJson) {
    std::cout << devices.dump(2) << "\n";
  } else {
    for (const auto& device : devices)
      printDevice(device);
  }
  return 0;
}

int fault(const Options& options) {
  const auto equals = options.fault.find('=');
  json request = {{"command", "fault"}, {"id", options.id}};
  request["name"] = options.fault.substr(0, equals);
  if (equals != std::string::npos) request["value"] = options.fault.substr(equals + 1);
  ask(options.socket, request);
  return 0;
}

int event(const Options& options) {
  json request = {{"command", "event"}, {"id", options.id}};
  request["code"] = numberArgument(options.eventCode, 0xFFFF);
  request["parameters"] = json::array();
  for (const auto& text : options.eventParameters) {
    request["parameters"].push_back(numberArgument(text, 0xFFFFFFFF));
  }
  ask(options.socket, request);
  return 0;
}

int run(const Options& options) {
  if (options.slot >= 0) runInSlot(static_cast<unsigned>(options.slot), options.command);
  runClient(options.socket, options.command);
}

int bundle(const Options& options) {
  BundleOptions made;
  made.standins = options.standins.empty() ? installedStandins().string() : options.standins;
  made.models = options.models.empty() ? findModelsFile().string() : options.models;
  made.without.insert(options.without.begin(), options.without.end());
  made.relay = options.relay;
  made.viewer = options.viewer;
  made.page = options.page;
  const auto paths = makeBundle(options.folder, made);
  std::cout << "TARVO_AGENT_BUNDLE='" << paths.agent.string() << "'\n"
            << "XDG_DATA_DIRS='" << paths.dataFolder.string() << "'\n";
  return 0;
}

void addServe(CLI::App& app, Options& options) {
  auto* command = app.add_subcommand("serve", "Run a testbed until SIGTERM, or for one command");
  command->add_option("--volumes", options.serve.volumes,
                      "Folder under which volumes are mounted (default: /media/USER)");
  command->add_option("--bundle", options.serve.bundle,
                      "Folder made by 'bundle', shown to the agent");
  command->add_flag("--strict", options.serve.server.strict,
                    "Exit with 1 where a program broke the protocol");
  command
      ->add_option("--device", options.serve.server.devices,
                   "Description file or name to plug in at the start; may be repeated")
      ->allow_extra_args(false);
  command->add_option("command", options.command, "Program to run in the testbed, after --");
}

void addUsbip(CLI::App& app, Options& options) {
  auto* command = app.add_subcommand(
      "usbip", "Export devices over USB/IP, or attach them to this machine, until SIGTERM");
  command->add_flag("--attach", options.usbip.attaches,
                    "Hand every device to this machine's kernel (vhci_hcd; needs root)");
  command->add_option(
      "--listen", options.usbip.listenPort,
      "Port of 127.0.0.1 for `usbip attach`; 0: any (default without --attach: 3240)");
  command
      ->add_option("--device", options.serve.server.devices,
                   "Description file or name to plug in at the start; may be repeated")
      ->allow_extra_args(false);
  command->add_flag("--strict", options.serve.server.strict,
                    "Exit with 1 where a program broke the protocol");
}

void addDeviceCommands(CLI::App& app, Options& options) {
  auto* plugged = app.add_subcommand("plug", "Plug a device in; prints its id");
  plugged->add_option("device", options.device, "Description file, or the name of a shipped one")
      ->required();
  plugged->add_option("--port", options.port, "BUS-PORT, for example 1-4.2");
  auto* unplugged = app.add_subcommand("unplug", "Unplug a device");
  unplugged->add_option("id", options.id, "Id as 'plug' and 'list' print it")->required();
  auto* listed = app.add_subcommand("list", "Show what is plugged in");
  listed->add_flag("--json", options.asJson, "One JSON document, with statistics and violations");
  listed->add_flag("--violations", options.violations,
                   "What hosts did against the protocol; exit code 1 where there is any");
  auto* faulty = app.add_subcommand("fault", "Set a fault of a device, or take it off");
  faulty->add_option("id", options.id, "Id of the device")->required();
  faulty->add_option("fault", options.fault, "NAME[=VALUE] or NAME=off")->required();
  faulty->footer("Faults of a PTP device:\n" + Faults::help(FaultTarget::kPTP) +
                 "Faults of a mass-storage unit:\n" + Faults::help(FaultTarget::kUnit));
  auto* sent = app.add_subcommand("event", "Let a PTP device send an event");
  sent->add_option("id", options.id, "Id of the device")->required();
  sent->add_option("code", options.eventCode, "Event code, for example 0x4002")->required();
  sent->add_option("parameters", options.eventParameters, "Event parameters");
}

void addRun(CLI::App& app, Options& options) {
  auto* command = app.add_subcommand("run", "Run a program in the testbed that is being served");
  command->add_option("--slot", options.slot)->group("");
  command->add_option("command", options.command, "Program and arguments, after --")->required();
}

void addBundle(CLI::App& app, Options& options) {
  auto* command = app.add_subcommand("bundle", "Lay out stand-ins for the installed applications");
  command->add_option("folder", options.folder, "Folder to make")->required();
  command->add_option("--standins", options.standins, "Folder of the stand-in programs");
  command->add_option("--models", options.models, "The ggcam.inf to copy");
  command->add_option("--relay", options.relay, "The real Relay in place of its stand-in");
  command->add_option("--viewer", options.viewer, "The real viewer in place of its stand-in");
  command->add_option("--page", options.page, "The busy page to copy");
  command
      ->add_option("--without", options.without,
                   "Leave out relay, wireless, viewer, page or models; may be repeated")
      ->allow_extra_args(false)
      ->check(CLI::IsMember({"relay", "wireless", "viewer", "page", "models"}));
}

int dispatch(const CLI::App& app, char** argv, Options& options) {
  const auto name = app.get_subcommands().front()->get_name();
  if (name == "serve") return serve(argv, options);
  if (name == "usbip") return usbip(options);
  if (name == "plug") return plug(options);
  if (name == "unplug") return unplug(options);
  if (name == "list") return list(options);
  if (name == "fault") return fault(options);
  if (name == "event") return event(options);
  if (runObjectCommand(name, options.socket, options.objects)) return 0;
  if (name == "run") return run(options);
  return bundle(options);
}

int runProgram(int argc, char** argv) {
  Options options;
  CLI::App app("Virtual devices that unmodified programs see as USB and SCSI hardware.");
  app.set_version_flag("--version", std::string("tarvo-simulator ") + TARVO_VERSION);
  app.add_option("--socket", options.socket, "Control socket")->capture_default_str();
  app.require_subcommand(1);
  app.fallthrough();
  addServe(app, options);
  addUsbip(app, options);
  addDeviceCommands(app, options);
  addObjectCommands(app, options.objects);
  addRun(app, options);
  addBundle(app, options);
  try {
    tarvo::parseAsTyped(app, argc, argv);
    return dispatch(app, argv, options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runProgram(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarvo-simulator: %s\n", error.what());
    return 1;
  }
}
