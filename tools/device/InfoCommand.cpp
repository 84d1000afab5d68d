// info: what a device is, how it does, and what it holds.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "library/Records.h"
#include "platform/files/FilePlace.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct InfoOptions {
  bool isLong = false;  ///< also what only those ask for who write programs
};

/// Pictures and films.
struct Pictures {
  std::uint64_t pictures = 0;
  std::uint64_t films = 0;
};

/// What is looked at one by one where nothing counts, so that it stays a matter of a second.
constexpr std::uint32_t kMostLookedAt = 500;
constexpr std::uint64_t kMostFiles = 100'000;

bool isPictureFormat(std::uint16_t format) {
  // Those of the standard, and those that MTP has added.
  return (format & 0xFF00U) == 0x3800 || (format & 0xFF00U) == 0xB800;
}

bool isFilmFormat(std::uint16_t format) {
  return (format >= 0x300A && format <= 0x300D) || (format & 0xFFF0U) == 0xB980;
}

/// One run of info: each part that the device cannot tell, or tells wrongly, is left out.
class DeviceInformation {
 public:
  DeviceInformation(ToolContext& context, const InfoOptions& options)
      : context_(context), options_(options), device_(openDevice(context)) {}

  void run() {
    if (device_.info().kind() == DeviceKind::kVolume) {
      takeVolume();
    } else {
      takeCamera();
    }
    endIfInterrupted(context_);
    showFields(context_.output, json_, fields_);
  }

 private:
  void field(const std::string& name, const std::string& value) {
    if (!value.empty()) fields_.emplace_back(name, value);
  }
  void longField(const std::string& name, const std::string& value) {
    if (options_.isLong) field(name, value);
  }

  /// Runs `take`, after which the device may have told nothing of use.
  template <typename Take>
  void part(const std::string& what, const Take& take) {
    try {
      take();
    } catch (const Exception& exception) {
      leaveOut(what, exception.reason());
    } catch (const Error& error) {
      endIfInterrupted(context_);
      if (error.kind() == ErrorKind::kHost && error.reason().empty()) throw;
      // What it merely refuses to tell goes without saying.
      if (!error.reason().empty()) leaveOut(what, error.reason());
    }
  }
  void leaveOut(const std::string& what, const std::string& why) {
    json_["leftOut"].push_back({{"what", what}, {"why", validUTF8(why)}});
    context_.output.message("Left out: " + what + ", which the device tells wrongly: " + why);
  }

  void takeCamera() {
    const DeviceFacts facts = device_.facts();
    const auto bytes = device_.deviceInfo();
    part("the device information", [&] { json_ = jsonFromDeviceInfo(bytes); });
    field("Name", facts.name());
    field("Manufacturer", facts.manufacturer());
    field("Model", facts.model());
    field("Version", facts.version());
    field("Serial number", facts.serial());
    field("Supported model", device_.info().isSupported() ? "yes" : "no");
    json_["device"] = asJSON(device_.info());
    takeState(facts);
    takeStores();
    takeObjects(facts);
    takeLists(facts);
  }

  void takeLists(const DeviceFacts& facts) {
    longField("Location", locationInHex(device_.info().location()));
    longField("Operations", listed(facts.operations(), operationName));
    longField("Properties", listed(facts.properties(), propertyName));
    longField("Image formats", listed(facts.imageFormats(), formatInWords));
    std::vector<std::string> words;
    for (const auto& [name, has] : facts.capabilities()) {
      json_["capabilities"][name] = has;
      if (has) words.push_back(name);
    }
    longField("Can", joined(words));
  }

  void takeState(const DeviceFacts& facts) {
    part("the battery level", [&] {
      if (std::ranges::count(facts.properties(), ptp::kBatteryLevel) == 0) return;
      const std::uint8_t level = device_.batteryLevel();
      const bool isKnown = level != kUnknownBatteryLevel;
      json_["batteryLevel"] = isKnown ? PropertyDictionary(level) : nullptr;
      field("Battery", isKnown ? std::to_string(level) + " %" : "unknown");
    });
    part("the clock", [&] {
      const auto date = device_.clock();
      if (!date) return;
      json_["dateTime"] = *date;
      if (const auto seconds = secondsAhead(*date)) json_["secondsAhead"] = *seconds;
      field("Clock", clockInWords(*date));
    });
  }

  void takeStores() {
    json_["stores"] = PropertyDictionary::array();
    part("the stores", [&] {
      for (const std::uint32_t id : device_.storeIDs())
        part("store " + handleText(id), [&] { takeStore(id); });
    });
  }

  void takeStore(std::uint32_t id) {
    const StoreInfo store = device_.store(id);
    if (store.isEmpty()) return;
    PropertyDictionary json = jsonFromStorageInfo(library::recordOf(store));
    json["storageID"] = id;
    std::string name = handleText(id);
    if (const std::string label = store.label(); !label.empty()) {
      json["label"] = validUTF8(label);
      name = label + (options_.isLong ? " (" + name + ")" : "");
    }
    json_["stores"].push_back(std::move(json));
    const std::string used = usedSpaceInWords(store);
    field("Store " + name, (used.empty() ? "" : used + " used, ") + freeSpaceInWords(store) +
                               " free of " + capacityInWords(store) + ", " +
                               storageTypeInWords(store.type()));
  }

  void takeObjects(const DeviceFacts& facts) {
    const auto objects = device_.count();
    if (objects) json_["objects"] = *objects;
    std::optional<Pictures> sum;
    part("the pictures", [&] {
      sum = countedByFormat(facts, objects);
      if (!sum && objects && *objects <= kMostLookedAt) sum = countedOneByOne();
    });
    std::vector<std::string> words;
    if (sum) words.push_back(told(*sum));
    if (objects) words.push_back(counted(*objects, "objects in all"));
    if (!sum && objects) words.emplace_back("not counted by kind, as the device does not");
    field("Holds", joined(words));
  }

  /// By one question a format; none of a device that passes over what it is asked for.
  std::optional<Pictures> countedByFormat(const DeviceFacts& facts,
                                          std::optional<std::uint32_t> objects) {
    std::vector<std::uint16_t> formats = facts.imageFormats();
    formats.insert(formats.end(), {0x3801, 0x300A, 0x300B, 0x300C, 0x300D});
    std::ranges::sort(formats);
    formats.erase(std::unique(formats.begin(), formats.end()), formats.end());
    Pictures sum;
    for (const std::uint16_t format : formats) {
      if (!isPictureFormat(format) && !isFilmFormat(format)) continue;
      const auto count = objects ? device_.count(0, format) : std::nullopt;
      if (!count) return std::nullopt;
      (isFilmFormat(format) ? sum.films : sum.pictures) += *count;
    }
    if (sum.pictures + sum.films > *objects) return std::nullopt;
    return sum;
  }

  std::optional<Pictures> countedOneByOne() {
    Pictures sum;
    const Search search(context_.output, device_.info().name());
    device_.visit(ObjectQuery().recursive(),
                  ObjectVisitor([&](const ObjectInfo& object) {
                    if (isPictureFormat(object.format())) ++sum.pictures;
                    if (isFilmFormat(object.format())) ++sum.films;
                    return !context_.interrupt.isSet();
                  }).onUnreadable([](auto, const auto&, const auto&) { return true; }));
    return sum;
  }

  std::string told(const Pictures& sum) {
    json_["pictures"] = sum.pictures;
    json_["films"] = sum.films;
    return counted(sum.pictures, "pictures") + ", " + counted(sum.films, "films");
  }

  void takeVolume() {
    const DeviceInfo& info = device_.info();
    json_["device"] = asJSON(info);
    field("Card", info.name());
    field("Serial number", info.serial());
    field("Mounted at", info.path());
    field("Supported model", info.isSupported() ? "yes" : "no");
    longField("Location", locationInHex(info.location()));
    if (const auto size = fileSystemSizeOf(info.path())) {
      json_["stores"].push_back({{"label", validUTF8(info.name())},
                                 {"maxCapacity", size->whole},
                                 {"freeSpaceInBytes", size->free}});
      field("Room", sizeInWords(size->whole - std::min(size->free, size->whole)) + " used, " +
                        sizeInWords(size->free) + " free of " + sizeInWords(size->whole));
    }
    part("the pictures", [this] { takeFiles(); });
  }

  /// By their names alone, which a card tells as fast as a disk.
  void takeFiles() {
    Pictures sum;
    std::uint64_t looked = 0;
    Search search(context_.output, device_.info().name());
    device_.visit(ObjectQuery().namesOnly(),
                  ObjectVisitor([&](const ObjectInfo& file) {
                    if (!file.isFolder() && isPictureOrFilm(file.name()))
                      ++(isFilm(file.name()) ? sum.films : sum.pictures);
                    return ++looked < kMostFiles && !context_.interrupt.isSet();
                  })
                      .onLooked(search.counter())
                      .onUnreadable([](auto, const auto&, const auto&) { return true; }));
    field("Holds", looked < kMostFiles
                       ? told(sum)
                       : "more than " + counted(kMostFiles, "files") + ", which are not counted");
  }

  static std::string listed(const std::vector<std::uint16_t>& codes,
                            std::string (*nameOf)(std::uint16_t)) {
    std::vector<std::string> names;
    names.reserve(codes.size());
    for (const std::uint16_t code : codes)
      names.push_back(nameOf(code) + formatted(" (0x%04x)", unsigned{code}));
    return joined(names);
  }

  ToolContext& context_;
  const InfoOptions& options_;
  Device device_;
  PropertyDictionary json_ = PropertyDictionary::object();
  Fields fields_;
};

void runInfo(ToolContext& context, const InfoOptions& options) {
  DeviceInformation(context, options).run();
}

}  // namespace

void addInfoCommand(CommandGroup& root) {
  auto [command, options] = root.command(
      "info", "What the device is, how it does, and what it holds", "tarvoctl info", runInfo);
  command.flag("--long", options.isLong, "Also operations, properties, formats and the location")
      .more("Of a mounted card, too. With --json all of it is there.");
}

}  // namespace tarvo::tools
