// models: which USB ids are supported, without a device.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Utilities/Format.h"
#include "Utilities/Numbers.h"
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
  const auto number = numberOf("0x" + std::string(text), kLargestID);
  return number ? std::optional(static_cast<std::uint16_t>(*number)) : std::nullopt;
}

PropertyDictionary modelAsJSON(std::uint16_t vendor, std::uint16_t product, bool isPTP,
                               bool isMassStorage) {
  return {{"vendor", vendor}, {"product", product}, {"ptp", isPTP}, {"massStorage", isMassStorage}};
}

std::string idText(std::uint16_t vendor, std::uint16_t product) {
  return formatted("%04x:%04x", unsigned{vendor}, unsigned{product});
}

void runModelsList(ToolContext& context) {
  Session& session = context.session();
  const std::uint16_t vendor = session.makerVendor();
  Listing listing(context.output, {{"USB ID"}, {"CONNECTS AS"}});
  const auto add = [&](std::uint16_t product, bool isPTP) {
    listing.add(modelAsJSON(vendor, product, isPTP, !isPTP),
                {idText(vendor, product), isPTP ? "PTP camera" : "mass storage"});
  };
  for (const std::uint16_t product : session.supportedCameras())
    add(product, true);
  for (std::uint32_t product = 0; product <= kLargestID; ++product) {
    const auto id = static_cast<std::uint16_t>(product);
    if (session.isSupportedVolume(vendor, id)) add(id, false);
  }
  listing.finish();
}

/// Whether the ids are those of a camera that speaks PTP ("ptp") and of a device that appears as
/// mass storage ("massStorage"). Being no model is an answer, no failure.
void runModelsCheck(ToolContext& context, const ModelCheckOptions& options) {
  const auto colon = options.ids.find(':');
  const auto vendor = hexID(std::string_view(options.ids).substr(0, colon));
  const auto product = colon == std::string::npos
                           ? std::nullopt
                           : hexID(std::string_view(options.ids).substr(colon + 1));
  if (!vendor || !product) refuseUsage("'" + options.ids + "' is no VID:PID in hexadecimal");
  const bool isMassStorage = context.session().isSupportedVolume(*vendor, *product);
  const bool isPTP = context.session().isSupportedCamera(*vendor, *product);
  showFields(context.output, modelAsJSON(*vendor, *product, isPTP, isMassStorage),
             {{"USB id", idText(*vendor, *product)},
              {"PTP camera", isPTP ? "supported" : "not supported"},
              {"Mass storage", isMassStorage ? "supported" : "not supported"}});
}

}  // namespace

void addModelCommands(CommandGroup& root) {
  auto group =
      root.group("models", "Which models are supported", "tarvoctl models check F055:0302");
  group.command("list", "Every supported USB id", "tarvoctl models list", runModelsList);
  auto [check, options] = group.command("check", "Whether a USB id is supported",
                                        "tarvoctl models check F055:0302", runModelsCheck);
  check.required("VID:PID", options.ids, "USB id in hexadecimal, as lsusb shows it")
      .more(
          "It tells for what: as a camera that speaks PTP (ptp), as mass storage\n"
          "(massStorage).");
}

}  // namespace tarvo::tools
