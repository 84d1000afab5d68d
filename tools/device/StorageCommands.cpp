// storage: the stores of a device.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct FormatOptions {
  std::string store{};  ///< id; empty: the only one
  bool yes = false;     ///< does not ask
};

constexpr std::uint32_t kUnknownImages = 0xFFFFFFFF;

std::vector<std::uint32_t> storesOf(const OpenedDevice& device) {
  const auto stores = device.transactions().storageIDs();
  if (!stores) device.failWithout("the stores");
  return *stores;
}

std::string imagesText(const PTPStorageInfo& info) {
  return info.freeSpaceInImages == kUnknownImages ? "" : std::to_string(info.freeSpaceInImages);
}

std::uint32_t storeToFormat(const OpenedDevice& device, const std::string& chosen) {
  if (!chosen.empty()) return numberArgument(device.operation(), "store id", chosen);
  const auto stores = storesOf(device);
  if (stores.size() == 1) return stores.front();
  std::string known;
  for (const std::uint32_t store : stores)
    known += (known.empty() ? "" : ", ") + handleText(store);
  refuseUsage(device.operation(),
              stores.empty() ? "the device has no store" : "say which store: " + known);
}

/// ", 12 objects, 1.2 GB,": as far as the device tells.
std::string contentInWords(const OpenedDevice& device, std::uint32_t store) {
  std::string words;
  const auto objects = device.transactions().numberOfObjectsOnStore(store, 0);
  if (objects >= 0) words += ", " + counted(static_cast<std::uint64_t>(objects), "objects");
  const auto info = device.transactions().storageInfo(store);
  const auto used = info ? usedSpaceInWords(*info) : "";
  if (!used.empty()) words += ", " + used;
  return words.empty() ? words : words + ",";
}

/// Every store with its room; one that cannot be read is said and does not end the list.
int runStorageList(ToolContext& context) {
  const OpenedDevice device(context, "storage list");
  Listing listing(context.output,
                  {{"STORE"},
                   {"TYPE"},
                   {"ACCESS"},
                   {"SIZE", 0, true},
                   {"FREE", 0, true},
                   {"PICTURES", 0, true}},
                  Listing::kWhole);
  int exitCode = kDone;
  for (const std::uint32_t store : storesOf(device)) {
    const auto info = device.transactions().storageInfo(store);
    endIfInterrupted(context, device.operation());
    const Status status = device.explained(device.transactions().lastOutcome());
    if (!info && (status == status::kPTPStoreNotAvailable || !ptp::hasLogicalStore(store))) {
      listing.add({{"storageID", store}, {"empty", true}},
                  {handleText(store), "no card", "", "", "", ""});
      continue;
    }
    if (!info) {
      exitCode = kFailed;
      listing.addFailure({{"storageID", store}}, device.failure(handleText(store), status));
      if (device.isLost(status)) break;
      continue;
    }
    PropertyDictionary json = jsonFromStorageInfo(*info);
    json["storageID"] = store;
    listing.add(json, {handleText(store), storageTypeInWords(info->storageType),
                       accessInWords(info->accessCapability), capacityInWords(*info),
                       freeSpaceInWords(*info), imagesText(*info)});
  }
  listing.finish();
  return exitCode;
}

/// Deletes everything in a store, after a question. Without a terminal to ask on it needs --yes.
int runStorageFormat(ToolContext& context, const FormatOptions& options) {
  const std::string operation = "storage format";
  const Consent consent(context, operation, options.yes, "delete everything in the store");
  const OpenedDevice device(context, operation);
  const std::uint32_t store = storeToFormat(device, options.store);
  consent.require("Delete everything in store " + handleText(store) +
                      contentInWords(device, store) + " of " + device.device().name() + "?",
                  "nothing was deleted");
  device.require(device.device().formatStore(store), "store " + handleText(store));
  if (context.output.isJSON()) {
    context.output.document({{"storageID", store}, {"formatted", true}});
  } else {
    context.output.line("Store " + handleText(store) + " is empty.");
  }
  return kDone;
}

}  // namespace

void addStorageCommands(CommandGroup& root) {
  auto storage = root.group("storage", "The stores of the device", "tarvoctl storage list");
  storage.command("list", "Every store with its room", "tarvoctl storage list", runStorageList);
  const auto options = std::make_shared<FormatOptions>();
  storage
      .command("format", "Delete everything in a store", "tarvoctl storage format 0x00010001 --yes",
               [options](ToolContext& context) { return runStorageFormat(context, *options); })
      .operand("STORE", options->store, "Store id; the only store where there is one")
      .flag("--yes", options->yes, "Do not ask");
}

}  // namespace tarvo::tools
