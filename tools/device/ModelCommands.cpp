// models: which USB ids are supported, without a device.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Format.h"
#include "msc/TarvoMSCDeviceList.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"

namespace tarvo::tools {
namespace {

struct ModelCheckOptions {
  std::string ids{};  ///< "VID:PID", hexadecimal
};

constexpr std::int32_t kLargestID = 0xFFFF;

/// Four hexadecimal digits at most, as lsusb writes them, with or without "0x".
std::optional<std::int32_t> hexID(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && number >= 0 && number <= kLargestID ? std::optional(number) : std::nullopt;
}

std::string idText(std::int32_t vendor, std::int32_t product) {
  return formatted("%04x:%04x", static_cast<unsigned>(vendor), static_cast<unsigned>(product));
}

/// Raises where the list is not there: every camera would count as unknown.
SupportedModels& readModels(ToolContext& context, const std::string& operation) {
  SupportedModels& models = context.platform.models();
  models.getValidDscPids();
  if (!models.pidList())
    throw ToolError({.operation = operation,
                     .status = status::kFileNotFound,
                     .why = "the list of models cannot be read from " +
                            context.platform.maker().agentBundlePath + "/Resources/ggcam.inf",
                     .advice = "Install tarvo, or set TARVO_AGENT_BUNDLE to the agent's bundle."});
  return models;
}

/// Every supported product id. Raises a ToolError where the list of models cannot be read.
int runModelsList(ToolContext& context) {
  SupportedModels& models = readModels(context, "models list");
  const std::int32_t vendor = context.platform.maker().usbVendorID;
  Listing listing(context.output, {{"USB ID"}, {"CONNECTS AS"}}, Listing::kWhole);
  const auto add = [&](std::int32_t product, bool isPTP) {
    listing.add({{"vendor", vendor}, {"product", product}, {"ptp", isPTP}, {"massStorage", !isPTP}},
                {idText(vendor, product), isPTP ? "PTP camera" : "mass storage"});
  };
  // The file may name an id twice, and the fixed range names some again.
  auto products = *models.pidList();
  std::ranges::sort(products);
  products.erase(std::unique(products.begin(), products.end()), products.end());
  for (const std::int32_t product : products)
    add(product, true);
  for (std::int32_t product = 0; product <= kLargestID; ++product) {
    if (models.isValidPVC(vendor, product)) add(product, false);
  }
  listing.finish();
  return kDone;
}

/// Whether the ids are those of a camera that speaks PTP ("ptp") and of a device that appears as
/// mass storage ("massStorage"). Being no model is an answer, no failure.
int runModelsCheck(ToolContext& context, const ModelCheckOptions& options) {
  const auto colon = options.ids.find(':');
  const auto vendor = hexID(std::string_view(options.ids).substr(0, colon));
  const auto product = colon == std::string::npos
                           ? std::nullopt
                           : hexID(std::string_view(options.ids).substr(colon + 1));
  if (!vendor || !product)
    refuseUsage("models check", "'" + options.ids + "' is no VID:PID in hexadecimal");
  SupportedModels& models = context.platform.models();
  const bool isMassStorage = models.isValidPVC(*vendor, *product);
  // Of the maker's other ids the list alone knows.
  if (!isMassStorage && *vendor == context.platform.maker().usbVendorID)
    readModels(context, "models check");
  const bool isPTP = models.isValidDscVid(*vendor, *product);
  if (context.output.isJSON()) {
    context.output.document({{"vendor", *vendor},
                             {"product", *product},
                             {"ptp", isPTP},
                             {"massStorage", isMassStorage}});
    return kDone;
  }
  showFields(context.output, {{"USB id", idText(*vendor, *product)},
                              {"PTP camera", isPTP ? "supported" : "not supported"},
                              {"Mass storage", isMassStorage ? "supported" : "not supported"}});
  return kDone;
}

}  // namespace

void addModelCommands(CommandGroup& root) {
  auto group =
      root.group("models", "Which models are supported", "tarvoctl models check F055:0302");
  group.command("list", "Every supported USB id", "tarvoctl models list", runModelsList);
  const auto options = std::make_shared<ModelCheckOptions>();
  group
      .command("check", "Whether a USB id is supported", "tarvoctl models check F055:0302",
               [options](ToolContext& context) { return runModelsCheck(context, *options); })
      .operand("VID:PID", options->ids, "USB id in hexadecimal, as lsusb shows it")
      .required()
      .more(
          "It tells for what: as a camera that speaks PTP (ptp), as mass storage\n"
          "(massStorage).");
}

}  // namespace tarvo::tools
