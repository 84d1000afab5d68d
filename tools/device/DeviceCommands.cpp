// devices, clock and reset: a device as a whole.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Utilities/PTPCodes.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct DevicesOptions {
  bool watch = false;                    ///< goes on with what comes and goes
  std::optional<std::uint64_t> count{};  ///< of arrivals and removals to watch
};

/// Of what asJSON() says, for all kinds alike.
std::vector<std::string> cellsOf(const PropertyDictionary& device) {
  const auto can = device["can"].get<std::vector<std::string>>();
  // The agent starts nothing for it. Of a card it says little.
  const bool isUnknown = device["kind"] == "camera" && !device["supported"].get<bool>();
  return {device["kind"].get<std::string>(), device["name"].get<std::string>(),
          device.value("serial", ""), device.value("locationHex", ""),
          joined(can) + (isUnknown ? " (model not supported)" : "")};
}

const std::vector<Column> kDeviceColumns = {
    {"KIND", 6}, {"NAME", 14}, {"SERIAL", 12}, {"LOCATION", 10}, {"CAN"}};

/// devices --watch: tells what is there, what comes and what goes, until it is interrupted.
class DeviceWatch {
 public:
  DeviceWatch(ToolContext& context, const DevicesOptions& options)
      : context_(context),
        options_(options),
        listing_(context.output, columns(), Listing::kStreamed) {}

  int run() {
    Session& session = context_.session();
    const auto subscription = session.onDevice([this](Presence presence, const DeviceInfo& device) {
      events_.emplace_back(presence, device);
    });
    for (const auto& device : session.devices())
      if (!hasCome(device)) tell("present", device);
    context_.output.flush();
    for (tellEvents(); !context_.interrupt.isSet() && !isEnough(); tellEvents())
      session.wait();
    // Ctrl-C is how it ends, so that nothing has failed.
    listing_.finish();
    return context_.interrupt.isSet() ? kInterrupted : kDone;
  }

 private:
  using Event = std::pair<Presence, DeviceInfo>;

  static std::vector<Column> columns() {
    std::vector<Column> all = {{"EVENT", 7}};
    all.insert(all.end(), kDeviceColumns.begin(), kDeviceColumns.end());
    return all;
  }

  bool isEnough() const { return options_.count && told_ >= *options_.count; }
  /// Whether it came while the others were looked for.
  bool hasCome(const DeviceInfo& device) const {
    return std::ranges::any_of(events_, [&](const Event& event) {
      return event.first == Presence::kCame && event.second.id() == device.id();
    });
  }

  void tellEvents() {
    for (const auto& [presence, device] : std::exchange(events_, {})) {
      if (isEnough()) return;
      tell(presence == Presence::kCame ? "added" : "removed", device);
      ++told_;
      context_.output.flush();
    }
  }
  void tell(const char* event, const DeviceInfo& device) {
    PropertyDictionary json = asJSON(device);
    json["event"] = event;
    auto cells = cellsOf(json);
    cells.insert(cells.begin(), event);
    listing_.add(json, std::move(cells));
  }

  ToolContext& context_;
  const DevicesOptions& options_;
  Listing listing_;
  std::vector<Event> events_;  ///< not told yet
  std::uint64_t told_ = 0;
};

/// Every camera, card and unit that is connected, without opening it.
int runDevices(ToolContext& context, const DevicesOptions& options) {
  if (options.watch) return DeviceWatch(context, options).run();
  auto all = PropertyDictionary::array();
  for (const auto& device : context.session().devices())
    all.push_back(asJSON(device));
  for (const auto& unit : context.session().units())
    all.push_back(asJSON(unit));
  Listing listing(context.output, kDeviceColumns, Listing::kFitting);
  for (const auto& device : all)
    listing.add(device, cellsOf(device));
  listing.finish();
  if (all.empty()) context.output.message("No camera, no card and no dock is connected.");
  return kDone;
}

PropertyDictionary clockAsJSON(const std::string& date) {
  PropertyDictionary json = {{"dateTime", date}};
  if (const auto seconds = secondsAhead(date)) json["secondsAhead"] = *seconds;
  return json;
}

int runClockGet(ToolContext& context) {
  Device device = openCamera(context);
  const auto date = device.clock();
  if (!date)
    throw ToolError({.operation = context.operation,
                     .object = device.info().description(),
                     .status = status::kPTPDevicePropNotSupported,
                     .why = "it has no clock that can be read"});
  context.output.result(clockAsJSON(*date), clockInWords(*date));
  return kDone;
}

/// Sets the device's clock to the time of this host.
int runClockSet(ToolContext& context) {
  Device device = openCamera(context);
  device.setClock();
  std::optional<std::string> now;
  try {
    now = device.clock();
  } catch (const Error& error) {
    context.output.message("What the clock says now is left out, which the device tells wrongly: " +
                           error.reason());
  }
  context.output.result({{"dateTime", now.value_or("")}},
                        "The clock is set" + (now ? ": " + dateInWords(*now) : std::string(".")));
  return kDone;
}

/// Puts the device into the state after switching on.
int runReset(ToolContext& context) {
  Device device = openCamera(context);
  device.reset();
  context.output.result({{"reset", true}}, device.info().description() + " was reset.");
  return kDone;
}

}  // namespace

void addDeviceCommands(CommandGroup& root) {
  const auto options = std::make_shared<DevicesOptions>();
  root.command("devices", "Cameras, cards and docks, and what can be done with them",
               "tarvoctl devices",
               [options](ToolContext& context) { return runDevices(context, *options); })
      .flag("--watch", options->watch, "Go on with what comes and goes, until Ctrl-C")
      .count("--count", options->count, "End after N arrivals and removals")
      .more(
          "No device is opened for it. A unit is a camera in disk mode, a frame or a dock,\n"
          "whose card is listed by itself once it is mounted. --watch tells of cameras and\n"
          "cards.");
  auto clock = root.group("clock", "The device's clock", "tarvoctl clock set");
  clock.command("get", "The time it shows, and how far off it is", "tarvoctl clock get",
                runClockGet);
  clock.command("set", "Set it to the time of this computer", "tarvoctl clock set", runClockSet);
  root.command("reset", "Put the device into the state after switching on", "tarvoctl reset",
               runReset);
}

}  // namespace tarvo::tools
