// events: what a device reports by itself.
#include <glib.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct EventOptions {
  std::optional<std::uint64_t> count{};  ///< ends after so many; none: until it is interrupted
};

constexpr const char* kEvents = "events";

std::string nowText() {
  GDateTime* now = g_date_time_new_now_local();
  std::string text = takeText(g_date_time_format(now, "%H:%M:%S"));
  g_date_time_unref(now);
  return text;
}

/// Handles, store ids and property codes, whichever it is.
std::string parametersInWords(std::uint16_t code, const PropertyDictionary& parameters) {
  std::string words;
  for (const auto& parameter : parameters) {
    if (!parameter.is_number_unsigned() && !parameter.is_number_integer()) continue;
    const auto number = parameter.get<std::uint32_t>();
    words += words.empty() ? "" : " ";
    words += code == ptp::kDevicePropChanged && words.empty()
                 ? propertyName(static_cast<std::uint16_t>(number))
                 : handleText(number);
  }
  return words;
}

class EventWatch {
 public:
  EventWatch(ToolContext& context, const EventOptions& options)
      : context_(context),
        options_(options),
        device_(context, kEvents),
        listing_(context.output, {{"TIME", 8}, {"EVENT", 22}, {"PARAMETERS"}}, Listing::kStreamed) {
  }
  ~EventWatch() {
    listen(ica::kExtended, {});
    listen(ica::kDeviceRemoved, {});
  }
  EventWatch(const EventWatch&) = delete;
  EventWatch& operator=(const EventWatch&) = delete;

  int run() {
    // Listened to first: an event that comes meanwhile is not lost.
    listen(ica::kDeviceRemoved, [this](const ICAEvent&) { isGone_ = true; });
    device_.require(listen(ica::kExtended, [this](const ICAEvent& event) { tell(event); }),
                    inWords(device_.summary()));
    context_.output.message("Watching " + inWords(device_.summary()) + "; Ctrl-C ends it.");
    while (!context_.interrupt.isSet() && !isGone_ && !isEnough())
      g_main_context_iteration(nullptr, TRUE);
    if (failure_) std::rethrow_exception(failure_);
    endIfInterrupted(context_, kEvents);
    if (isGone_)
      throw ToolError(device_.failure(inWords(device_.summary()), status::kICADeviceGone));
    listing_.finish();
    return kDone;
  }

 private:
  Status listen(FourCharCode type, ImageCapture::EventCallback callback) {
    return context_.platform.services().imageCapture.registerForEventNotification(
        device_.summary().object, type, std::move(callback));
  }
  bool isEnough() const { return failure_ || (options_.count && told_ >= *options_.count); }

  /// From the main loop, whose guard must not swallow what ends the command.
  void tell(const ICAEvent& event) {
    if (isEnough()) return;
    try {
      ++told_;
      add(event.dictionary);
      context_.output.flush();
    } catch (...) {
      failure_ = std::current_exception();
    }
  }

  void add(const PropertyDictionary& event) {
    const auto code = static_cast<std::uint16_t>(int32ForKey(event, "code").value_or(0));
    PropertyDictionary json = event;
    json["name"] = eventName(code);
    const auto parameters = event.find("params");
    listing_.add(json, {nowText(), eventName(code),
                        parameters == event.end() ? "" : parametersInWords(code, *parameters)});
  }

  ToolContext& context_;
  const EventOptions& options_;
  OpenedDevice device_;
  Listing listing_;
  std::uint64_t told_ = 0;
  bool isGone_ = false;
  std::exception_ptr failure_;
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
