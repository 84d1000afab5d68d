// events: what a device reports by itself.
#include <cstdint>
#include <ctime>
#include <memory>
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

struct EventOptions {
  std::optional<std::uint64_t> count{};  ///< ends after so many; none: until it is interrupted
};

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

class EventWatch {
 public:
  EventWatch(ToolContext& context, const EventOptions& options)
      : context_(context),
        options_(options),
        device_(openCamera(context)),
        listing_(context.output, {{"TIME", 8}, {"EVENT", 22}, {"PARAMETERS"}}, Listing::kStreamed) {
  }

  int run() {
    const auto subscription =
        device_.onEvent([this](const DeviceEvent& event) { events_.push_back(event); });
    const std::string device = device_.info().description();
    context_.output.message("Watching " + device + "; Ctrl-C ends it.");
    for (tellEvents(); !context_.interrupt.isSet() && !isGone_ && !isEnough(); tellEvents())
      context_.session().wait();
    // Ctrl-C is how it ends, so that nothing has failed.
    if (isGone_)
      throw ToolError(
          {.operation = context_.operation, .object = device, .status = status::kICADeviceGone});
    listing_.finish();
    return context_.interrupt.isSet() ? kInterrupted : kDone;
  }

 private:
  bool isEnough() const { return options_.count && told_ >= *options_.count; }

  void tellEvents() {
    for (const DeviceEvent& event : std::exchange(events_, {})) {
      isGone_ = event.isGone() && !isEnough();
      if (isGone_ || isEnough()) return;
      ++told_;
      tell(event);
      context_.output.flush();
    }
  }

  void tell(const DeviceEvent& event) {
    const std::string name = eventName(event.code());
    listing_.add({{"code", event.code()},
                  {"name", name},
                  {"session", kNoSession},
                  {"transaction", event.transaction()},
                  {"params", event.parameters()}},
                 {localDateText(std::time(nullptr), "%H:%M:%S"), name, parametersInWords(event)});
  }

  ToolContext& context_;
  const EventOptions& options_;
  Device device_;
  Listing listing_;
  std::vector<DeviceEvent> events_;  ///< not told yet
  std::uint64_t told_ = 0;
  bool isGone_ = false;
};

/// Shows each event as it comes, until Ctrl-C, the count, or the device's end, which is a failure.
int runEvents(ToolContext& context, const EventOptions& options) {
  return EventWatch(context, options).run();
}

}  // namespace

void addEventCommand(CommandGroup& root) {
  const auto options = std::make_shared<EventOptions>();
  root.command("events", "What the device reports by itself, until Ctrl-C",
               "tarvoctl events --count 1",
               [options](ToolContext& context) { return runEvents(context, *options); })
      .count("--count", options->count, "End after N events");
}

}  // namespace tarvo::tools
