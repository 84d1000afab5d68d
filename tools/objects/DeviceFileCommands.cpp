// collection, shoebox, wireless-config and display: small things that a device is given or asked.
#include <cctype>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"

namespace tarvo::tools {
namespace {

struct CollectionSetOptions {
  std::string id{};    ///< a GUID
  bool clear = false;  ///< takes it away
};

struct FileOptions {
  std::string file{};
};

/// A request is a page of text and pictures; no device has room for more.
constexpr std::size_t kLargestRequest = 1U << 20;
/// The property that holds it; a device without it keeps a file.
constexpr std::uint16_t kDefaultCollectionID = 0xD204;

bool isGUID(const std::string& text) {
  constexpr std::string_view kShape = "00000000-0000-0000-0000-000000000000";
  if (text.size() != kShape.size()) return false;
  for (std::size_t index = 0; index < kShape.size(); ++index) {
    const auto letter = static_cast<unsigned char>(text[index]);
    if (kShape[index] == '-' ? letter != '-' : std::isxdigit(letter) == 0) return false;
  }
  return true;
}

void sayDone(ToolContext& context, const PropertyDictionary& json, const std::string& line) {
  if (context.output.isJSON()) {
    context.output.document(json);
  } else {
    context.output.line(line);
  }
}

/// Whether the device has answered that there is no such thing, which is no failure.
bool saysNone(Status outcome) {
  return outcome == status::kOK || outcome == status::kPTPOK ||
         outcome == status::kPTPInvalidObjectFormatCode;
}

/// None where the device has none. Raises a ToolError where it cannot be asked, with `why`.
std::optional<std::string> collectionIDOf(const ToolContext& context, const OpenedDevice& device,
                                          const std::string& why = {}) {
  const auto id = device.device().defaultCollectionID();
  endIfInterrupted(context, device.operation());
  if (id) return id;
  const Status outcome = device.transactions().lastOutcome();
  const auto facts = device.transactions().facts();
  // The file that would hold it is read in pieces.
  // On a device with neither, an empty answer would say that there is none, which nobody knows.
  const bool canTell = containsCode(facts.properties, kDefaultCollectionID) ||
                       containsCode(facts.operations, ptp::kGetPartialObject);
  if (canTell && saysNone(outcome)) return std::nullopt;
  throw ToolError(device.failure("the collection id",
                                 canTell ? outcome : status::kPTPOperationNotSupported, why));
}

/// Says why there are no settings.
[[noreturn]] void failWithoutSettings(const OpenedDevice& device, Status outcome) {
  const std::string what = "NETCONF.XML";
  if (!saysNone(outcome)) throw ToolError(device.failure(what, outcome));
  // An object whose information cannot be read may be what was looked for.
  for (const std::uint32_t handle : device.objectHandles(ptp::XTD_WIRELESS_CONFIG, what)) {
    const auto [info, status, why] = readInfo(device.transactions(), handle);
    if (!info) throw ToolError(device.failure(handleText(handle), status, why));
  }
  throw ToolError({.operation = device.operation(),
                   .object = device.device().name(),
                   .status = status::kFileNotFound,
                   .why = "it holds no settings for a wireless network",
                   .advice = "They are made on the device."});
}

/// Sends a file by `send`, and says so.
template <typename Send>
int sendFile(ToolContext& context, const std::string& operation, const std::string& file,
             const Send& send) {
  // What cannot be read is found before the device is touched.
  // Sent by its path below, and read again there.
  const std::size_t size = readInput(context, operation, file).size();
  const OpenedDevice device(context, operation);
  device.require(send(device.device()), file);
  sayDone(context, {{"file", validUTF8(file)}, {"size", size}}, file);
  return kDone;
}

/// The id under which the device files what it gets.
int runCollectionGet(ToolContext& context) {
  const OpenedDevice device(context, "collection get");
  const auto id = collectionIDOf(context, device);
  if (context.output.isJSON()) {
    PropertyDictionary json = {{"collectionID", nullptr}};
    if (id) json["collectionID"] = validUTF8(*id);
    context.output.document(json);
  } else if (id) {
    context.output.line(*id);
  } else {
    context.output.message("The device has no collection id.");
  }
  return kDone;
}

int runCollectionSet(ToolContext& context, const CollectionSetOptions& options) {
  const std::string operation = "collection set";
  if (options.clear == !options.id.empty())
    refuseUsage(operation, "give an id, or --clear to take it away");
  if (!options.clear && !isGUID(options.id))
    refuseUsage(operation, "'" + options.id +
                               "' is no id, which looks like "
                               "00112233-4455-6677-8899-AABBCCDDEEFF");
  const OpenedDevice device(context, operation);
  const auto id = options.clear ? std::nullopt : std::optional(options.id);
  device.require(device.device().setDefaultCollectionID(id), options.id);
  // Read back: a device is free to keep something else.
  const auto now = collectionIDOf(context, device, "it was set, but cannot be read back");
  PropertyDictionary json = {{"collectionID", nullptr}};
  if (now) json["collectionID"] = validUTF8(*now);
  sayDone(context, json, now.value_or("The device has no collection id now."));
  return kDone;
}

/// A shoebox file for the device.
int runShoeboxSend(ToolContext& context, const FileOptions& options) {
  return sendFile(context, "shoebox send", options.file, [&](XTPictureDevice& device) {
    std::uint32_t handle = 0;
    return device.sendShoeboxPTP(options.file, &handle);
  });
}

/// A picture for the device's shoebox.
int runShoeboxAdd(ToolContext& context, const FileOptions& options) {
  return sendFile(context, "shoebox add", options.file,
                  [&](XTPictureDevice& device) { return device.addImageToShoebox(options.file); });
}

/// The device's settings for a wireless network, as the device keeps them.
int runWirelessConfigShow(ToolContext& context) {
  const OpenedDevice device(context, "wireless-config show");
  const auto data = device.ptpDevice().wirelessConfigData();
  endIfInterrupted(context, device.operation());
  if (!data) failWithoutSettings(device, device.transactions().lastOutcome());
  // Shown as it is. What it means is the device's own.
  const std::string text(reinterpret_cast<const char*>(data->data()), data->size());
  if (context.output.isJSON()) {
    context.output.document({{"name", "NETCONF.XML"}, {"text", validUTF8(text)}});
    return kDone;
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    context.output.line(line);
  }
  return kDone;
}

/// Sends a display request, whose bytes the file holds. What a device understands depends on its
/// maker's version of them.
int runDisplay(ToolContext& context, const FileOptions& options) {
  const std::string operation = "display";
  const auto content = readInput(context, operation, options.file);
  if (content.empty() || content.size() > kLargestRequest)
    throw ToolError({.operation = operation,
                     .object = options.file,
                     .status = status::kBadParameter,
                     .why = content.empty() ? "it is empty" : "it is larger than 1 MB"});
  const OpenedDevice device(context, operation);
  if (!device.device().supportsCameraBackDisplay())
    throw ToolError(device.failure(device.device().name(), status::kPTPOperationNotSupported,
                                   "it shows nothing that a computer sends"));
  auto request = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  request.appendBytes(content.data(), static_cast<std::uint32_t>(content.size()));
  device.require(device.transactions().displayRequest(request), options.file);
  sayDone(context, {{"file", validUTF8(options.file)}, {"size", content.size()}}, options.file);
  return kDone;
}

}  // namespace

void addDeviceFileCommands(CommandGroup& root) {
  auto collection = root.group("collection", "The id under which the device files what it gets",
                               "tarvoctl collection get");
  collection.command("get", "Show it", "tarvoctl collection get", runCollectionGet);
  const auto set = std::make_shared<CollectionSetOptions>();
  collection
      .command("set", "Set it, or take it away",
               "tarvoctl collection set 00112233-4455-6677-8899-AABBCCDDEEFF",
               [set](ToolContext& context) { return runCollectionSet(context, *set); })
      .operand("ID", set->id, "A GUID")
      .flag("--clear", set->clear, "Take it away");

  const auto options = std::make_shared<FileOptions>();
  const auto addFile = [&options](CommandGroup& group, const char* name, const char* description,
                                  const char* example, int (*run)(ToolContext&, const FileOptions&),
                                  const char* what) {
    return group
        .command(name, description, example,
                 [options, run](ToolContext& context) { return run(context, *options); })
        .operand("FILE", options->file, what)
        .required();
  };
  auto shoebox =
      root.group("shoebox", "The device's shoebox of pictures", "tarvoctl shoebox add photo.jpg");
  addFile(shoebox, "send", "Send a shoebox file", "tarvoctl shoebox send pictures.sbx",
          runShoeboxSend, "A shoebox file (.sbx)");
  addFile(shoebox, "add", "Add a picture to it", "tarvoctl shoebox add photo.jpg", runShoeboxAdd,
          "A picture");
  root.group("wireless-config", "Settings for a wireless network", "tarvoctl wireless-config show")
      .command("show", "Show them, passwords included", "tarvoctl wireless-config show",
               runWirelessConfigShow);
  addFile(root, "display", "Show something on the back of the camera",
          "tarvoctl display request.bin", runDisplay,
          "The bytes of a display request; '-' is standard input")
      .more("What a camera makes of them is its maker's.");
}

}  // namespace tarvo::tools
