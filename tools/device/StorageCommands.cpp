// storage: the stores of a device.
#include <cstdint>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "library/Records.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct FormatOptions {
  std::string store{};  ///< label or id; empty: the only one
  bool yes = false;     ///< does not ask
};

constexpr std::uint32_t kUnknownImages = 0xFFFFFFFF;

std::uint32_t storeToFormat(Device& device, const std::string& chosen) {
  if (!chosen.empty()) return storeArgument(device, chosen);
  const auto stores = device.storeIDs();
  if (stores.size() == 1) return stores.front();
  std::vector<std::string> known;
  known.reserve(stores.size());
  for (const std::uint32_t store : stores)
    known.push_back(handleText(store));
  refuseUsage(stores.empty() ? "the device has no store" : "say which store: " + joined(known));
}

/// ", 12 objects, 1.2 GB,": as far as the device tells.
std::string contentInWords(Device& device, std::uint32_t store) {
  std::string words;
  if (const auto objects = device.count(store)) words += ", " + counted(*objects, "objects");
  try {
    const StoreInfo info = device.store(store);
    const std::string used = info.isEmpty() ? "" : usedSpaceInWords(info);
    if (!used.empty()) words += ", " + used;
  } catch (const Error&) {  // NOLINT(bugprone-empty-catch): it may be formatted all the same
  }
  return words.empty() ? words : words + ",";
}

void list(Listing& listing, const StoreInfo& store) {
  PropertyDictionary json = {{"empty", true}};
  std::vector<std::string> cells = {handleText(store.id()), "no card", "", "", "", "", ""};
  if (!store.isEmpty()) {
    const bool isKnown = store.freePictures() != kUnknownImages;
    json = jsonFromStorageInfo(library::recordOf(store));
    json["label"] = validUTF8(store.label());
    cells = {handleText(store.id()),
             storageTypeInWords(store.type()),
             accessInWords(store.access()),
             capacityInWords(store),
             freeSpaceInWords(store),
             isKnown ? std::to_string(store.freePictures()) : "",
             store.label()};
  }
  json["storageID"] = store.id();
  listing.add(json, std::move(cells));
}

/// Every store with its room; one that cannot be read is said and does not end the list.
int runStorageList(ToolContext& context) {
  Device device = openCamera(context);
  Listing listing(context.output, {{"STORE"},
                                   {"TYPE"},
                                   {"ACCESS"},
                                   {"SIZE", 0, true},
                                   {"FREE", 0, true},
                                   {"PICTURES", 0, true},
                                   {"LABEL"}});
  for (const std::uint32_t store : device.storeIDs()) {
    try {
      list(listing, device.store(store));
    } catch (const Error& error) {
      if (!addFailure(context, listing, {{"storageID", store}}, error)) break;
    }
  }
  return listing.finish();
}

/// Deletes everything in a store, after a question. Without a terminal to ask on it needs --yes.
void runStorageFormat(ToolContext& context, const FormatOptions& options) {
  const Consent consent(context, options.yes, "delete everything in the store");
  Device device = openCamera(context);
  const std::uint32_t store = storeToFormat(device, options.store);
  consent.require("Delete everything in store " + handleText(store) +
                      contentInWords(device, store) + " of " + device.facts().name() + "?",
                  "nothing was deleted");
  device.formatStore(store);
  context.output.result({{"storageID", store}, {"formatted", true}},
                        "Store " + handleText(store) + " is empty.");
}

}  // namespace

void addStorageCommands(CommandGroup& root) {
  auto storage = root.group("storage", "The stores of the device", "tarvoctl storage list");
  storage.command("list", "Every store with its room", "tarvoctl storage list", runStorageList);
  auto [format, options] =
      storage.command("format", "Delete everything in a store",
                      "tarvoctl storage format 0x00010001 --yes", runStorageFormat);
  format.operand("STORE", options.store, "Its label or its id; the only store where there is one")
      .flag("--yes", options.yes, "Do not ask");
}

}  // namespace tarvo::tools
