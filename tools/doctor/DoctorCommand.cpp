// doctor: what this computer needs for devices to work, whether it is there, and how to mend it.
#include <gio/gio.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

/// What a look at one thing has shown.
struct Finding {
  bool isWell = false;
  std::string found{};  ///< a clause
  std::string mend{};   ///< what to do, a sentence; of what is not well
};

constexpr const char* kRules = "70-tarvo.rules";
constexpr const char* kUnit = "tarvo-agent.service";
constexpr const char* kAgent = "com.tarvo.Agent";
constexpr const char* kDisks = "org.freedesktop.UDisks2";
constexpr int kMostMilliseconds = 3000;

/// As udev looks for its rules, from what counts most.
constexpr std::array kRuleFolders = {"/etc/udev/rules.d", "/run/udev/rules.d",
                                     "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                     "/lib/udev/rules.d"};

Finding lookAtRules(const ToolContext&) {
  for (const std::string folder : kRuleFolders) {
    const fs::path file = fs::path(folder) / kRules;
    std::error_code error;
    const auto size = fs::file_size(file, error);
    // A link to /dev/null takes the place of those below it.
    if (fs::exists(file) && (error || size == 0))
      return {.found = file.string() + " masks them", .mend = "Remove that file."};
    if (!error) return {.isWell = true, .found = file.string()};
  }
  return {.found = std::string(kRules) + " is not installed",
          .mend =
              "Run 'sudo cmake --install build/release', then 'sudo udevadm control "
              "--reload', and plug the device in again."};
}

std::string firstLineOf(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

/// The USB device nodes of the maker's devices.
std::vector<std::string> nodesOf(std::uint16_t vendor) {
  std::vector<std::string> nodes;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/sys/bus/usb/devices", error)) {
    if (firstLineOf(entry.path() / "idVendor") != formatted("%04x", unsigned{vendor})) continue;
    const int bus = std::atoi(firstLineOf(entry.path() / "busnum").c_str());
    const int number = std::atoi(firstLineOf(entry.path() / "devnum").c_str());
    nodes.push_back(formatted("/dev/bus/usb/%03d/%03d", bus, number));
  }
  return nodes;
}

Finding lookAtAccess(const ToolContext& context) {
  const auto nodes = nodesOf(context.session().makerVendor());
  for (const auto& node : nodes)
    if (::access(node.c_str(), R_OK | W_OK) != 0)
      return {.found = "you may not use " + node,
              .mend =
                  "Install the udev rules, plug the device in again, and work in the session "
                  "at the screen."};
  return {.isWell = true,
          .found = nodes.empty() ? "no device is connected to try it with" : joined(nodes)};
}

Finding lookAtPreferences(const ToolContext& context) {
  std::vector<std::string> files = {context.options.configFile.value_or(
      std::string(g_get_user_config_dir()) + "/tarvo/agent.conf")};
  for (const char* const* folder = g_get_system_config_dirs(); *folder; ++folder)
    files.push_back(std::string(*folder) + "/tarvo/agent.conf");
  std::vector<std::string> read;
  for (const auto& file : files) {
    g_autoptr(GKeyFile) keys = g_key_file_new();
    g_autoptr(GError) error = nullptr;
    if (g_key_file_load_from_file(keys, file.c_str(), G_KEY_FILE_NONE, &error)) {
      read.push_back(file);
    } else if (!g_error_matches(error, G_FILE_ERROR, G_FILE_ERROR_NOENT)) {
      return {.found = file + " cannot be read: " + error->message,
              .mend = "Correct that file, or remove it: nothing needs to be configured."};
    }
  }
  return {.isWell = true, .found = read.empty() ? "none, which is fine" : joined(read)};
}

Finding lookAtModels(const ToolContext& context) {
  return {.isWell = true,
          .found = counted(context.session().supportedCameras().size(), "models known")};
}

Finding lookAtRelay(const ToolContext&) {
  const char* named = std::getenv("TARVO_AGENT_BUNDLE");
  const auto bundle = fs::path(named && *named ? named : TARVO_INSTALLED_BUNDLE);
  const auto program = (bundle / "../Tarvo Relay").lexically_normal().string();
  if (::access(program.c_str(), X_OK) == 0) return {.isWell = true, .found = program};
  return {.found = program + " is no program that can be started",
          .mend =
              "Install the Relay application there; without it nothing happens when a device "
              "is plugged in, but tarvoctl works."};
}

/// Null, with the reason, where it cannot be reached. No bus is started for it.
GDBusConnection* busOf(GBusType type, std::string& why) {
  const fs::path runtime = g_get_user_runtime_dir();
  const bool isNamed = std::getenv("DBUS_SESSION_BUS_ADDRESS") || fs::exists(runtime / "bus");
  if (type == G_BUS_TYPE_SESSION && !isNamed) {
    why = "there is none";
    return nullptr;
  }
  g_autoptr(GError) error = nullptr;
  g_autofree char* address = g_dbus_address_get_for_bus_sync(type, nullptr, &error);
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  auto* const bus =
      address ? g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, &error)
              : nullptr;
  if (!bus) why = "it cannot be reached: " + std::string(error->message);
  return bus;
}

/// The answer of a service; null, with the reason, where there is none.
GVariant* answerOf(GDBusConnection* bus, const char* name, const char* path, const char* interface,
                   const char* method, GVariant* arguments, std::string& why) {
  g_autoptr(GError) error = nullptr;
  GVariant* answer =
      g_dbus_connection_call_sync(bus, name, path, interface, method, arguments, nullptr,
                                  G_DBUS_CALL_FLAGS_NONE, kMostMilliseconds, nullptr, &error);
  if (!answer) {
    g_dbus_error_strip_remote_error(error);
    why = error->message;
  }
  return answer;
}

/// Whether `method` of the bus itself lists that name: those that run, or that can be started.
bool lists(GDBusConnection* bus, const char* method, const char* name) {
  std::string why;
  g_autoptr(GVariant) answer = answerOf(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                        "org.freedesktop.DBus", method, nullptr, why);
  if (!answer) return false;
  g_autofree const char** names = nullptr;
  g_variant_get(answer, "(^a&s)", &names);
  return g_strv_contains(names, name) != FALSE;
}

Finding lookAtSessionBus(const ToolContext&) {
  std::string why;
  g_autoptr(GDBusConnection) bus = busOf(G_BUS_TYPE_SESSION, why);
  if (bus) return {.isWell = true, .found = "it answers"};
  return {.found = why,
          .mend =
              "Log in at the screen; a session without a desktop needs the package "
              "dbus-user-session."};
}

Finding lookAtUnit(const ToolContext&) {
  constexpr const char* kEnable = "Run 'systemctl --user enable --now tarvo-agent.service'.";
  std::string why;
  g_autoptr(GDBusConnection) bus = busOf(G_BUS_TYPE_SESSION, why);
  g_autoptr(GVariant) answer =
      bus ? answerOf(bus, "org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                     "org.freedesktop.systemd1.Manager", "GetUnitFileState",
                     g_variant_new("(s)", kUnit), why)
          : nullptr;
  if (!answer)
    return {.found = std::string(kUnit) + ": " + why,
            .mend =
                "Install it with 'sudo cmake --install build/release', log in anew, and run "
                "doctor again."};
  const char* state = "";
  g_variant_get(answer, "(&s)", &state);
  const bool isEnabled = std::string(state) == "enabled";
  return {.isWell = isEnabled, .found = std::string(kUnit) + " is " + state, .mend = kEnable};
}

Finding lookAtAgent(const ToolContext&) {
  std::string why;
  g_autoptr(GDBusConnection) bus = busOf(G_BUS_TYPE_SESSION, why);
  if (bus && lists(bus, "ListNames", kAgent)) return {.isWell = true, .found = "it runs"};
  return {.found = "it does not run",
          .mend =
              "Run 'systemctl --user start tarvo-agent.service'; 'journalctl --user -u "
              "tarvo-agent' tells why it ended."};
}

Finding lookAtDisks(const ToolContext&) {
  std::string why;
  g_autoptr(GDBusConnection) bus = busOf(G_BUS_TYPE_SYSTEM, why);
  if (bus && (lists(bus, "ListNames", kDisks) || lists(bus, "ListActivatableNames", kDisks)))
    return {.isWell = true, .found = "it is there"};
  if (!bus)
    return {.found = "the system bus: " + why,
            .mend = "Run 'sudo systemctl start dbus'; without it no card is unmounted or ejected."};
  return {.found = "it is not installed",
          .mend = "Run 'sudo apt install udisks2'; without it no card is unmounted or ejected."};
}

struct Check {
  const char* name;  ///< as JSON has it
  const char* title;
  Finding (*look)(const ToolContext& context);
};

constexpr Check kChecks[] = {{"rules", "udev rules", lookAtRules},
                             {"access", "access to devices", lookAtAccess},
                             {"preferences", "preferences", lookAtPreferences},
                             {"models", "list of models", lookAtModels},
                             {"sessionBus", "session bus", lookAtSessionBus},
                             {"unit", "the agent's unit", lookAtUnit},
                             {"agent", "the agent", lookAtAgent},
                             {"relay", "Relay application", lookAtRelay},
                             {"disks", "disk service (udisks2)", lookAtDisks}};

Finding lookedAt(const Check& check, const ToolContext& context) {
  try {
    return check.look(context);
  } catch (const Error& error) {
    return {.found = error.reason().empty() ? error.what() : error.reason(),
            .mend = error.advice()};
  }
}

/// Looks at one thing after the other; 1 where anything is missing.
int runDoctor(ToolContext& context) {
  bool isWell = true;
  context.output.beginList();
  for (const auto& check : kChecks) {
    const Finding finding = lookedAt(check, context);
    isWell = isWell && finding.isWell;
    PropertyDictionary json = {
        {"check", check.name}, {"ok", finding.isWell}, {"found", validUTF8(finding.found)}};
    if (!finding.isWell) json["mend"] = validUTF8(finding.mend);
    context.output.item(json);
    context.output.line((finding.isWell ? "ok       " : "missing  ") + std::string(check.title) +
                        ": " + finding.found);
    if (!finding.isWell && !finding.mend.empty()) context.output.line("         " + finding.mend);
  }
  context.output.endList();
  return isWell ? kDone : kFailed;
}

}  // namespace

void addDoctorCommand(CommandGroup& root) {
  root.command("doctor", "What this computer needs, and how to mend what is missing",
               "tarvoctl doctor", runDoctor)
      .more("No device is opened. The exit status is 1 where anything is missing.");
}

}  // namespace tarvo::tools
