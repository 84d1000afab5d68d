// collection, shoebox, wireless-config and display: small things that a device is given or asked.
#include <memory>
#include <optional>
#include <string>

#include "Utilities/NSStringUtilsCategory.h"
#include "tarvo/Vendor.h"
#include "tools/access/Devices.h"
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

PropertyDictionary jsonOfID(const std::optional<std::string>& id) {
  PropertyDictionary json = {{"collectionID", nullptr}};
  if (id) json["collectionID"] = validUTF8(*id);
  return json;
}

/// Sends a file by `send`, and says so.
int sendFile(ToolContext& context, const std::string& file,
             void (VendorExtension::*send)(const std::string&)) {
  // What cannot be read is found before the device is touched. It is sent by its path, and read
  // again for that.
  const std::size_t size = readInput(context, context.operation, file).size();
  Device device = openCamera(context);
  (VendorExtension(device).*send)(file);
  context.output.result({{"file", validUTF8(file)}, {"size", size}}, file);
  return kDone;
}

/// The id under which the device files what it gets.
int runCollectionGet(ToolContext& context) {
  Device device = openCamera(context);
  const auto id = VendorExtension(device).collectionID();
  if (!id) context.output.message("The device has no collection id.");
  if (id || context.output.isJSON()) context.output.result(jsonOfID(id), id.value_or(""));
  return kDone;
}

int runCollectionSet(ToolContext& context, const CollectionSetOptions& options) {
  if (options.clear == !options.id.empty())
    refuseUsage(context.operation, "give an id, or --clear to take it away");
  if (!options.clear && !VendorExtension::isCollectionID(options.id))
    refuseUsage(context.operation, "'" + options.id +
                                       "' is no id, which looks like "
                                       "00112233-4455-6677-8899-AABBCCDDEEFF");
  Device device = openCamera(context);
  const auto id = options.clear ? std::nullopt : std::optional(options.id);
  const auto now = VendorExtension(device).setCollectionID(id);
  context.output.result(jsonOfID(now), now.value_or("The device has no collection id now."));
  return kDone;
}

/// A shoebox file for the device.
int runShoeboxSend(ToolContext& context, const FileOptions& options) {
  return sendFile(context, options.file, &VendorExtension::sendShoebox);
}

/// A picture for the device's shoebox.
int runShoeboxAdd(ToolContext& context, const FileOptions& options) {
  return sendFile(context, options.file, &VendorExtension::addToShoebox);
}

/// The device's settings for a wireless network, as the device keeps them.
int runWirelessConfigShow(ToolContext& context) {
  Device device = openCamera(context);
  const auto data = VendorExtension(device).wirelessSettings();
  if (!data)
    throw ToolError({.operation = context.operation,
                     .object = device.facts().name(),
                     .status = status::kFileNotFound,
                     .why = "it holds no settings for a wireless network",
                     .advice = "They are made on the device."});
  // Shown as it is. What it means is the device's own.
  const std::string text(reinterpret_cast<const char*>(data->data()), data->size());
  if (context.output.isJSON())
    context.output.document({{"name", "NETCONF.XML"}, {"text", validUTF8(text)}});
  context.output.lines(text);
  return kDone;
}

/// Sends a display request, whose bytes the file holds. What a device understands depends on its
/// maker's version of them.
int runDisplay(ToolContext& context, const FileOptions& options) {
  const auto content = readInput(context, context.operation, options.file);
  Device device = openCamera(context);
  try {
    VendorExtension(device).display(content);
  } catch (const Error& error) {
    endIfInterrupted(context, context.operation);
    throw ToolError(failureOf(context, error, error.object().empty() ? options.file : ""));
  }
  context.output.result({{"file", validUTF8(options.file)}, {"size", content.size()}},
                        options.file);
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
