// devices, info, clock set and reset: a device as a whole.
#include <glib.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/OpenedDevice.h"
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

std::vector<std::string> cellsOf(const DeviceSummary& device) {
  return {device.speaksPTP ? "PTP" : "volume", locationInHex(device), device.serial,
          device.isSupported ? "yes" : "no",   device.name,           device.path};
}

const std::vector<Column> kDeviceColumns = {{"TYPE", 6},      {"LOCATION", 10}, {"SERIAL", 14},
                                            {"SUPPORTED", 9}, {"NAME", 16},     {"PATH"}};

/// devices --watch: tells what is there, what comes and what goes, until it is interrupted.
class DeviceWatch {
 public:
  DeviceWatch(ToolContext& context, const DevicesOptions& options)
      : context_(context),
        options_(options),
        listing_(context.output, columns(), Listing::kStreamed) {}
  ~DeviceWatch() {
    listen(ica::kDeviceAdded, {});
    listen(ica::kDeviceRemoved, {});
  }
  DeviceWatch(const DeviceWatch&) = delete;
  DeviceWatch& operator=(const DeviceWatch&) = delete;

  int run() {
    listen(ica::kDeviceAdded, [this](const ICAEvent& event) { came(event.object); });
    listen(ica::kDeviceRemoved, [this](const ICAEvent& event) { went(event.object); });
    for (const auto& device : presentDevices(context_.platform))
      tell("present", device);
    context_.output.flush();
    while (!context_.interrupt.isSet() && !isEnough())
      g_main_context_iteration(nullptr, TRUE);
    // What a listener met would not have come through the main loop.
    if (failure_) std::rethrow_exception(failure_);
    endIfInterrupted(context_, "devices");
    listing_.finish();
    return kDone;
  }

 private:
  static std::vector<Column> columns() {
    std::vector<Column> all = {{"EVENT", 7}};
    all.insert(all.end(), kDeviceColumns.begin(), kDeviceColumns.end());
    return all;
  }

  void listen(FourCharCode type, ImageCapture::EventCallback callback) {
    // Of all devices, which is never refused.
    (void)context_.platform.services().imageCapture.registerForEventNotification(
        0, type, std::move(callback));
  }
  bool isEnough() const { return failure_ || (options_.count && told_ >= *options_.count); }

  void came(ICAObject object) {
    guarded([&] {
      const auto device = summaryOf(context_.platform, object);
      if (device) tellEvent("added", *device);
    });
  }
  /// Its properties have gone with it, so that what was known of it is told.
  void went(ICAObject object) {
    guarded([&] {
      const auto known = known_.find(object);
      if (known != known_.end()) tellEvent("removed", known->second);
      known_.erase(object);
    });
  }
  template <typename Work>
  void guarded(const Work& work) {
    try {
      work();
    } catch (...) {
      failure_ = std::current_exception();
    }
  }

  void tellEvent(const char* event, const DeviceSummary& device) {
    if (isEnough()) return;
    tell(event, device);
    ++told_;
    context_.output.flush();
  }
  void tell(const char* event, const DeviceSummary& device) {
    known_[device.object] = device;
    PropertyDictionary json = asJSON(device);
    json["event"] = event;
    auto cells = cellsOf(device);
    cells.insert(cells.begin(), event);
    listing_.add(json, std::move(cells));
  }

  ToolContext& context_;
  const DevicesOptions& options_;
  Listing listing_;
  std::map<ICAObject, DeviceSummary> known_;
  std::uint64_t told_ = 0;
  std::exception_ptr failure_;
};

/// One run of info: each part that the device cannot tell, or tells wrongly, is left out.
class DeviceInformation {
 public:
  explicit DeviceInformation(ToolContext& context) : context_(context), device_(context, "info") {}

  int run() {
    takeDeviceInfo();
    takeIdentity();
    takeState();
    takeStores();
    endIfInterrupted(context_, "info");
    if (context_.output.isJSON()) {
      context_.output.document(json_);
    } else {
      showFields(context_.output, fields_);
    }
    return kDone;
  }

 private:
  void field(const std::string& name, const std::string& value) {
    if (!value.empty()) fields_.emplace_back(name, value);
  }

  /// Runs `take`, after which the device may have told nothing of use.
  template <typename Take>
  void part(const std::string& what, const Take& take) {
    try {
      take();
    } catch (const Exception& exception) {
      leaveOut(what, exception.reason());
    }
  }
  void leaveOut(const std::string& what, const std::string& why) {
    json_["leftOut"].push_back({{"what", what}, {"why", validUTF8(why)}});
    context_.output.message("Left out: " + what + ", which the device tells wrongly: " + why);
  }

  void takeDeviceInfo() {
    const auto record = device_.device().deviceInfoDataset();
    if (!record) device_.failWithout(inWords(device_.summary()));
    const auto room = record->data();
    part("the device information", [&] {
      json_ =
          jsonFromDeviceInfo(room.first(std::min<std::size_t>(room.size(), record->pb().dataSize)));
    });
  }

  void takeIdentity() {
    const auto& device = device_.device();
    field("Name", device.name());
    field("Manufacturer", device.manufacturer());
    field("Model", device.model());
    field("Version", device.deviceVersion());
    field("Serial number", device.serialNumber());
    field("Location", locationInHex(device_.summary()));
    field("Supported model", device_.summary().isSupported ? "yes" : "no");
    json_["device"] = asJSON(device_.summary());
    takeLists();
  }

  void takeLists() {
    const auto facts = device_.transactions().facts();
    field("Operations", listed(facts.operations, operationName));
    field("Properties", listed(facts.properties, propertyName));
    field("Image formats", listed(facts.imageFormats, formatInWords));
    const auto& can = facts.capabilities;
    PropertyDictionary capabilities = {{"addressBooks", can.deviceSupportsAddressBooks},
                                       {"albumNames", can.deviceSupportsAlbumNames},
                                       {"favourites", can.deviceSupportsBragbooks},
                                       {"capture", can.deviceSupportsCapture},
                                       {"acceptsFiles", can.deviceAcceptsFiles},
                                       {"display", can.deviceSupportsCameraBackDisplay}};
    std::string words;
    for (const auto& [name, has] : capabilities.items()) {
      if (has.get<bool>()) words += (words.empty() ? "" : ", ") + name;
    }
    field("Can", words);
    json_["capabilities"] = std::move(capabilities);
  }

  void takeState() {
    const auto& listed = device_.transactions().facts().properties;
    if (containsCode(listed, ptp::kBatteryLevel)) part("the battery level", [&] { takeBattery(); });
    if (containsCode(listed, ptp::kDateTime)) part("the clock", [&] { takeClock(); });
  }

  void takeBattery() {
    const std::uint8_t level = device_.device().batteryLevel();
    json_["batteryLevel"] = level;
    if (level == kUnknownBatteryLevel) json_["batteryLevel"] = nullptr;
    field("Battery", batteryInWords(level));
  }

  void takeClock() {
    const auto date = device_.device().stringProperty(ptp::kDateTime);
    if (!date) return;
    json_["dateTime"] = *date;
    field("Clock", dateInWords(*date));
  }

  void takeStores() {
    auto stores = PropertyDictionary::array();
    for (const std::uint32_t id :
         device_.transactions().storageIDs().value_or(std::vector<std::uint32_t>{})) {
      part("store " + handleText(id), [&] { takeStore(stores, id); });
    }
    json_["stores"] = std::move(stores);
    const std::int32_t objects = device_.transactions().numberOfObjectsOnStore(ptp::kAllStores, 0);
    if (objects < 0) return;
    json_["objects"] = objects;
    field("Objects", std::to_string(objects));
  }

  void takeStore(PropertyDictionary& stores, std::uint32_t id) {
    const auto info = device_.transactions().storageInfo(id);
    if (!info) return;
    PropertyDictionary store = jsonFromStorageInfo(*info);
    store["storageID"] = id;
    stores.push_back(std::move(store));
    field("Store " + handleText(id), storageTypeInWords(info->storageType) + ", " +
                                         freeSpaceInWords(*info) + " free of " +
                                         capacityInWords(*info));
  }

  static std::string listed(const CodeList& codes, std::string (*nameOf)(std::uint16_t)) {
    std::string words;
    for (const std::uint16_t code : codes)
      words += (words.empty() ? "" : ", ") + nameOf(code);
    return words;
  }

  ToolContext& context_;
  OpenedDevice device_;
  PropertyDictionary json_ = PropertyDictionary::object();
  std::vector<std::pair<std::string, std::string>> fields_;
};

/// Every camera and card that is connected, without opening it.
int runDevices(ToolContext& context, const DevicesOptions& options) {
  if (options.watch) return DeviceWatch(context, options).run();
  Listing listing(context.output, kDeviceColumns, Listing::kWhole);
  const auto devices = presentDevices(context.platform);
  for (const auto& device : devices)
    listing.add(asJSON(device), cellsOf(device));
  listing.finish();
  if (devices.empty()) context.output.message("No camera and no card is connected.");
  return kDone;
}

/// What the device says of itself and holds.
int runInfo(ToolContext& context) {
  return DeviceInformation(context).run();
}

/// Sets the device's clock to the time of this host.
int runClockSet(ToolContext& context) {
  const OpenedDevice device(context, "clock set");
  device.require(device.device().setDateTime(), inWords(device.summary()));
  std::optional<std::string> now;
  try {
    now = device.device().stringProperty(ptp::kDateTime);
  } catch (const Exception& exception) {
    context.output.message("What the clock says now is left out, which the device tells wrongly: " +
                           exception.reason());
  }
  if (context.output.isJSON()) {
    context.output.document({{"dateTime", now.value_or("")}});
  } else {
    context.output.line("The clock is set" + (now ? ": " + dateInWords(*now) : std::string(".")));
  }
  return kDone;
}

/// Puts the device into the state after switching on.
int runReset(ToolContext& context) {
  const OpenedDevice device(context, "reset");
  device.require(device.transactions().sendDeviceReset(), inWords(device.summary()));
  if (context.output.isJSON()) {
    context.output.document({{"reset", true}});
  } else {
    context.output.line(inWords(device.summary()) + " was reset.");
  }
  return kDone;
}

}  // namespace

void addDeviceCommands(CommandGroup& root) {
  const auto options = std::make_shared<DevicesOptions>();
  root.command("devices", "Cameras and cards that are connected", "tarvoctl devices",
               [options](ToolContext& context) { return runDevices(context, *options); })
      .flag("--watch", options->watch, "Go on with what comes and goes, until Ctrl-C")
      .count("--count", options->count, "End after N arrivals and removals")
      .more("No device is opened for it.");
  root.command("info", "What the device says of itself and holds", "tarvoctl info", runInfo);
  root.group("clock", "The device's clock", "tarvoctl clock set")
      .command("set", "Set it to the time of this computer", "tarvoctl clock set", runClockSet);
  root.command("reset", "Put the device into the state after switching on", "tarvoctl reset",
               runReset);
}

}  // namespace tarvo::tools
