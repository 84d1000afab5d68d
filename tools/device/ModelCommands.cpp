// models: which USB ids are supported, without a device.
#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Utilities/Format.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"

namespace tarvo::tools {
namespace {

struct ModelCheckOptions {
  std::string ids{};  ///< "VID:PID", hexadecimal
};

constexpr std::uint16_t kLargestID = 0xFFFF;

/// Four hexadecimal digits at most, as lsusb writes them, with or without "0x".
std::optional<std::uint16_t> hexID(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  std::uint16_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

std::string idText(std::uint16_t vendor, std::uint16_t product) {
  return formatted("%04x:%04x", unsigned{vendor}, unsigned{product});
}

/// Every supported product id.
int runModelsList(ToolContext& context) {
  Session& session = context.session();
  const std::uint16_t vendor = session.makerVendor();
  Listing listing(context.output, {{"USB ID"}, {"CONNECTS AS"}}, Listing::kWhole);
  const auto add = [&](std::uint16_t product, bool isPTP) {
    listing.add({{"vendor", vendor}, {"product", product}, {"ptp", isPTP}, {"massStorage", !isPTP}},
                {idText(vendor, product), isPTP ? "PTP camera" : "mass storage"});
  };
  for (const std::uint16_t product : session.supportedCameras())
    add(product, true);
  for (std::uint32_t product = 0; product <= kLargestID; ++product) {
    const auto id = static_cast<std::uint16_t>(product);
    if (session.isSupportedVolume(vendor, id)) add(id, false);
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
  const bool isMassStorage = context.session().isSupportedVolume(*vendor, *product);
  const bool isPTP = context.session().isSupportedCamera(*vendor, *product);
  if (context.output.isJSON())
    context.output.document({{"vendor", *vendor},
                             {"product", *product},
                             {"ptp", isPTP},
                             {"massStorage", isMassStorage}});
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
