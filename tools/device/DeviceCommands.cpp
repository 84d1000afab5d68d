// devices, events, clock and reset: a device as a whole.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
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

struct EventOptions {
  std::optional<std::uint64_t> count{};  ///< ends after so many; none: until it is interrupted
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

/// What comes while somebody watches, told one after the other.
template <typename Event>
class Watch {
 public:
  /// Ends after `most` of them, where that is given.
  Watch(ToolContext& context, std::optional<std::uint64_t> most) : context_(context), most_(most) {}

  void add(Event event) { events_.push_back(std::move(event)); }
  /// Those that were not told yet.
  const std::vector<Event>& events() const { return events_; }
  /// Calls `tell` for each, until it is enough or interrupted. Gives the exit status: Ctrl-C is how
  /// it ends, so that nothing has failed.
  int run(const std::function<void(const Event&)>& tell) {
    for (;;) {
      for (const Event& event : std::exchange(events_, {})) {
        if (isEnough()) break;
        tell(event);
        ++told_;
        context_.output.flush();
      }
      if (context_.interrupt.isSet()) return kInterrupted;
      if (isEnough()) return kDone;
      context_.session().wait();
    }
  }

 private:
  bool isEnough() const { return most_ && told_ >= *most_; }

  ToolContext& context_;
  std::optional<std::uint64_t> most_;
  std::vector<Event> events_;
  std::uint64_t told_ = 0;
};

/// Tells what is there, what comes and what goes.
int watchDevices(ToolContext& context, const DevicesOptions& options) {
  using Event = std::pair<Presence, DeviceInfo>;
  auto columns = kDeviceColumns;
  columns.insert(columns.begin(), Column{"EVENT", 7});
  Listing listing(context.output, columns, Listing::kStreamed);
  const auto tell = [&](const char* event, const DeviceInfo& device) {
    PropertyDictionary json = asJSON(device);
    json["event"] = event;
    auto cells = cellsOf(json);
    cells.insert(cells.begin(), event);
    listing.add(json, std::move(cells));
  };
  Watch<Event> watch(context, options.count);
  const auto subscription =
      context.session().onDevice([&](Presence presence, const DeviceInfo& device) {
        watch.add({presence, device});
      });
  for (const auto& device : context.session().devices()) {
    // It may have come while the others were looked for.
    const bool hasCome = std::ranges::any_of(watch.events(), [&](const Event& event) {
      return event.first == Presence::kCame && event.second.id() == device.id();
    });
    if (!hasCome) tell("present", device);
  }
  context.output.flush();
  const int exitCode = watch.run([&](const Event& event) {
    tell(event.first == Presence::kCame ? "added" : "removed", event.second);
  });
  listing.finish();
  return exitCode;
}

/// Every camera, card and unit that is connected, without opening it.
int runDevices(ToolContext& context, const DevicesOptions& options) {
  if (options.watch) return watchDevices(context, options);
  auto all = PropertyDictionary::array();
  for (const auto& device : context.session().devices())
    all.push_back(asJSON(device));
  for (const auto& unit : context.session().units())
    all.push_back(asJSON(unit));
  Listing listing(context.output, kDeviceColumns, Listing::kFitting);
  for (const auto& device : all)
    listing.add(device, cellsOf(device));
  return listing.finish("No camera, no card and no dock is connected.");
}

/// On USB an event does not say which session it belongs to.
constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

/// Handles, store ids and property codes, whichever it is.
std::string parametersInWords(const DeviceEvent& event) {
  std::vector<std::string> words;
  for (const std::uint32_t parameter : event.parameters())
    words.push_back(event.code() == ptp::kDevicePropChanged && words.empty()
                        ? propertyName(static_cast<std::uint16_t>(parameter))
                        : handleText(parameter));
  return joined(words, " ");
}

/// Shows each event as it comes, until Ctrl-C, the count, or the device's end, which is a failure.
int runEvents(ToolContext& context, const EventOptions& options) {
  Device device = openCamera(context);
  Listing listing(context.output, {{"TIME", 8}, {"EVENT", 22}, {"PARAMETERS"}}, Listing::kStreamed);
  Watch<DeviceEvent> watch(context, options.count);
  const auto subscription = device.onEvent([&](const DeviceEvent& event) { watch.add(event); });
  const std::string description = device.info().description();
  context.output.message("Watching " + description + "; Ctrl-C ends it.");
  const int exitCode = watch.run([&](const DeviceEvent& event) {
    if (event.isGone()) throw ToolError({.object = description, .status = status::kICADeviceGone});
    const std::string name = eventName(event.code());
    listing.add({{"code", event.code()},
                 {"name", name},
                 {"session", kNoSession},
                 {"transaction", event.transaction()},
                 {"params", event.parameters()}},
                {localDateText(std::time(nullptr), "%H:%M:%S"), name, parametersInWords(event)});
  });
  listing.finish();
  return exitCode;
}

PropertyDictionary clockAsJSON(const std::string& date) {
  PropertyDictionary json = {{"dateTime", date}};
  if (const auto seconds = secondsAhead(date)) json["secondsAhead"] = *seconds;
  return json;
}

void runClockGet(ToolContext& context) {
  Device device = openCamera(context);
  const auto date = device.clock();
  if (!date)
    throw ToolError({.object = device.info().description(),
                     .status = status::kPTPDevicePropNotSupported,
                     .why = "it has no clock that can be read"});
  context.output.result(clockAsJSON(*date), clockInWords(*date));
}

void runClockSet(ToolContext& context) {
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
}

void runReset(ToolContext& context) {
  Device device = openCamera(context);
  device.reset();
  context.output.result({{"reset", true}}, device.info().description() + " was reset.");
}

}  // namespace

void addDeviceCommands(CommandGroup& root) {
  auto [devices, options] =
      root.command("devices", "Cameras, cards and docks, and what can be done with them",
                   "tarvoctl devices", runDevices);
  devices.flag("--watch", options.watch, "Go on with what comes and goes, until Ctrl-C")
      .count("--count", options.count, "End after N arrivals and removals")
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

void addEventCommand(CommandGroup& root) {
  auto [command, options] =
      root.command("events", "What the device reports by itself, until Ctrl-C",
                   "tarvoctl events --count 1", runEvents);
  command.count("--count", options.count, "End after N events");
}

}  // namespace tarvo::tools
