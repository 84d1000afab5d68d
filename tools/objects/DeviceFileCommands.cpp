// collection, shoebox, wireless-config, display and query: small things that a device is given or
// asked.
#include <glib.h>

#include <optional>
#include <string>
#include <string_view>

#include "Utilities/Format.h"
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

struct QueryOptions {
  std::string sql{};
};

PropertyDictionary jsonOfID(const std::optional<std::string>& id) {
  PropertyDictionary json = {{"collectionID", nullptr}};
  if (id) json["collectionID"] = validUTF8(*id);
  return json;
}

/// Sends a file by `send`, and says so.
template <void (VendorExtension::*send)(const std::string&)>
void sendFile(ToolContext& context, const FileOptions& options) {
  // What cannot be read is found before the device is touched. It is sent by its path, and read
  // again for that.
  const std::size_t size = readInput(context, options.file).size();
  Device device = openCamera(context);
  (VendorExtension(device).*send)(options.file);
  context.output.result({{"file", validUTF8(options.file)}, {"size", size}}, options.file);
}

void runCollectionGet(ToolContext& context) {
  Device device = openCamera(context);
  const auto id = VendorExtension(device).collectionID();
  if (!id) context.output.message("The device has no collection id.");
  if (id || context.output.isJSON()) context.output.result(jsonOfID(id), id.value_or(""));
}

void runCollectionSet(ToolContext& context, const CollectionSetOptions& options) {
  if (options.clear == !options.id.empty()) refuseUsage("give an id, or --clear to take it away");
  if (!options.clear && !VendorExtension::isCollectionID(options.id))
    refuseUsage("'" + options.id +
                "' is no id, which looks like 00112233-4455-6677-8899-AABBCCDDEEFF");
  Device device = openCamera(context);
  const auto id = options.clear ? std::nullopt : std::optional(options.id);
  const auto now = VendorExtension(device).setCollectionID(id);
  context.output.result(jsonOfID(now), now.value_or("The device has no collection id now."));
}

void runWirelessConfigShow(ToolContext& context) {
  Device device = openCamera(context);
  const auto data = VendorExtension(device).wirelessSettings();
  if (!data)
    throw ToolError({.object = device.facts().name(),
                     .status = status::kFileNotFound,
                     .why = "it holds no settings for a wireless network",
                     .advice = "They are made on the device."});
  // Shown as it is. What it means is the device's own.
  const std::string text(reinterpret_cast<const char*>(data->data()), data->size());
  if (context.output.isJSON())
    context.output.document({{"name", "NETCONF.XML"}, {"text", validUTF8(text)}});
  context.output.lines(text);
}

/// Sends a display request, whose bytes the file holds. What a device understands depends on its
/// maker's version of them.
void runDisplay(ToolContext& context, const FileOptions& options) {
  const auto content = readInput(context, options.file);
  Device device = openCamera(context);
  try {
    VendorExtension(device).display(content);
  } catch (const Error& error) {
    endIfInterrupted(context);
    throw ToolError(failureOf(error, error.object().empty() ? options.file : ""));
  }
  context.output.result({{"file", validUTF8(options.file)}, {"size", content.size()}},
                        options.file);
}

std::string asHex(const std::string& bytes) {
  std::string hex;
  for (const char byte : bytes)
    hex += formatted("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return hex;
}

PropertyDictionary rowsAsJSON(const std::string& sql, const std::string& rows) {
  PropertyDictionary json = {{"query", sql}, {"size", rows.size()}};
  const bool isText = g_utf8_validate(rows.data(), static_cast<gssize>(rows.size()), nullptr) != 0;
  if (isText) {
    json["rows"] = rows;
  } else {
    json["rowsHex"] = asHex(rows);
  }
  return json;
}

/// The rows as the device gives them: bytes for a person, one text (or hexadecimal digits where it
/// is none) with --json.
void runQuery(ToolContext& context, const QueryOptions& options) {
  Device device = openCamera(context);
  std::string all;
  VendorExtension(device).query(options.sql, [&](std::string_view rows) {
    if (context.output.isJSON()) {
      all += rows;
    } else {
      context.output.text(rows);
    }
    return true;
  });
  if (context.output.isJSON()) context.output.document(rowsAsJSON(options.sql, all));
}

}  // namespace

void addDeviceFileCommands(CommandGroup& root) {
  auto collection = root.group("collection", "The id under which the device files what it gets",
                               "tarvoctl collection get");
  collection.command("get", "Show it", "tarvoctl collection get", runCollectionGet);
  auto [set, id] = collection.command(
      "set", "Set it, or take it away",
      "tarvoctl collection set 00112233-4455-6677-8899-AABBCCDDEEFF", runCollectionSet);
  set.operand("ID", id.id, "A GUID").flag("--clear", id.clear, "Take it away");
  auto shoebox =
      root.group("shoebox", "The device's shoebox of pictures", "tarvoctl shoebox add photo.jpg");
  auto [send, box] =
      shoebox.command("send", "Send a shoebox file", "tarvoctl shoebox send pictures.sbx",
                      sendFile<&VendorExtension::sendShoebox>);
  send.required("FILE", box.file, "A shoebox file (.sbx)");
  auto [add, picture] =
      shoebox.command("add", "Add a picture to it", "tarvoctl shoebox add photo.jpg",
                      sendFile<&VendorExtension::addToShoebox>);
  add.required("FILE", picture.file, "A picture");
  root.group("wireless-config", "Settings for a wireless network", "tarvoctl wireless-config show")
      .command("show", "Show them, passwords included", "tarvoctl wireless-config show",
               runWirelessConfigShow);
  auto [display, request] = root.command("display", "Show something on the back of the camera",
                                         "tarvoctl display request.bin", runDisplay);
  display.required("FILE", request.file, "The bytes of a display request; '-' is standard input")
      .more("What a camera makes of them is its maker's.");
}

void addQueryCommand(CommandGroup& root) {
  auto [command, options] = root.command("query", "Rows of the device's own database",
                                         "tarvoctl query 'SELECT * FROM pictures'", runQuery);
  command.required("SQL", options.sql, "The query");
}

}  // namespace tarvo::tools
