#include "tools/access/Devices.h"

#include <glib.h>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

constexpr const char* kLook = "'tarvoctl devices' shows what is connected.";
constexpr const char* kConnect = "Connect one, switch it on, and see 'tarvoctl devices'.";

/// What can be done with a unit where a camera or a volume is looked for.
constexpr const char* kWithUnit =
    "'tarvoctl msc mode set camera --power-down' makes a camera of it, 'tarvoctl msc mount' mounts "
    "its card, 'tarvoctl eject' lets it go.";

/// Finds the device that is meant; where that fails, commands help. `none` is the advice where
/// there is none at all.
template <typename Info>
Info found(const ToolContext& context, const char* none, Info (Session::*find)(std::string_view)) {
  try {
    return (context.session().*find)(context.options.device);
  } catch (const Error& error) {
    Failure failure = failureOf(error);
    if (error.kind() == ErrorKind::kAmbiguous) {
      failure.advice = "Choose one with --device and its serial number, location or name.";
      throw ToolError(failure, kBadUsage);
    }
    if (error.kind() != ErrorKind::kNotFound) throw;
    // What is said of a volume in the place of a camera helps more.
    const bool isNamed = error.reason().starts_with("there is no ");
    const bool isPlain = error.advice().starts_with("Connect one") || error.advice().empty();
    if (isNamed || isPlain) failure.advice = isNamed ? kLook : none;
    if (!isNamed && !context.session().units().empty()) failure.advice = kWithUnit;
    throw ToolError(failure, kNoDevice);
  }
}

/// A card beside the camera that was taken for the only device.
void tellOfCards(const ToolContext& context) {
  for (const auto& device : context.session().devices()) {
    if (device.kind() != DeviceKind::kVolume || !device.isSupported()) continue;
    context.output.message("The card " + device.name() +
                           " is connected, too; --device chooses it by its name.");
  }
}

/// What can be done with a device, by the words of people.
std::vector<std::string> abilitiesOf(const DeviceInfo& device) {
  if (device.kind() == DeviceKind::kVolume) return {"list", "get", "remove", "eject"};
  if (!device.isOfMaker()) return {"list", "get"};
  return {"list", "get", "put", "orders"};
}

}  // namespace

DeviceInfo findDevice(const ToolContext& context) {
  return found(context, kConnect, &Session::findDevice);
}

Device openDevice(const ToolContext& context, bool onlyVolumes) {
  if (onlyVolumes) return openVolume(context);
  const auto info = findDevice(context);
  if (context.options.device.empty() && info.kind() == DeviceKind::kCamera) tellOfCards(context);
  return context.session().open(info);
}

Device openCamera(const ToolContext& context) {
  return context.session().open(found(context, kConnect, &Session::findCamera));
}

Device openVolume(const ToolContext& context) {
  return context.session().open(
      found(context, "Connect one, mount it, and see 'tarvoctl devices'.", &Session::findVolume));
}

Unit openUnit(const ToolContext& context) {
  return context.session().open(found(context, kLook, &Session::findUnit));
}

std::string nameOf(const Device& device) {
  return device.info().kind() == DeviceKind::kCamera ? device.facts().name() : device.info().name();
}

PropertyDictionary asJSON(const DeviceInfo& device) {
  PropertyDictionary json = {{"name", device.name()},
                             {"type", device.kind() == DeviceKind::kCamera ? "PTP" : "volume"},
                             {"vendor", device.vendor()},
                             {"product", device.product()},
                             {"supported", device.isSupported()}};
  if (device.location()) {
    json["location"] = *device.location();
    json["locationHex"] = locationInHex(device.location());
  }
  if (!device.serial().empty()) json["serial"] = device.serial();
  if (!device.path().empty()) json["path"] = device.path();
  json["kind"] = device.kind() == DeviceKind::kCamera ? "camera" : "card";
  json["can"] = abilitiesOf(device);
  return json;
}

PropertyDictionary asJSON(const UnitInfo& unit) {
  PropertyDictionary json = {
      {"name", validUTF8(unit.name())}, {"kind", "unit"}, {"can", {"switch mode", "eject"}}};
  if (unit.location()) {
    json["location"] = *unit.location();
    json["locationHex"] = locationInHex(unit.location());
  }
  if (!unit.serial().empty()) json["serial"] = unit.serial();
  if (!unit.disk().empty()) json["bsdName"] = unit.disk();
  if (!unit.cardDisk().empty()) {
    json["volumeBSDName"] = unit.cardDisk();
    json["volume"] = validUTF8(unit.cardName());
  }
  return json;
}

std::string locationInHex(std::optional<std::int32_t> location) {
  return location ? formatted("0x%08x", static_cast<unsigned>(*location)) : "";
}

std::string objectInWords(const ObjectInfo& object) {
  return object.path() + (object.handle() == 0 ? "" : " (" + handleText(object.handle()) + ")");
}

PropertyDictionary identityOf(const ObjectInfo& object, const char* pathKey) {
  PropertyDictionary json = {{"name", validUTF8(object.name())},
                             {pathKey, validUTF8(object.path())}};
  if (object.handle() != 0) json["handle"] = object.handle();
  return json;
}

std::string pathArgument(const std::string& text) {
  const auto first = text.find_first_not_of('/');
  const auto last = text.find_last_not_of('/');
  return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

ObjectInfo objectArgument(const ToolContext& context, Device& device, const std::string& text,
                          bool ignoringCase) {
  std::optional<ObjectInfo> found;
  ObjectVisitor visitor([&](const ObjectInfo& object) {
    found = object;
    return false;
  });
  device.visit(ObjectChoice().names({text}).ignoringCase(ignoringCase), visitor);
  endIfInterrupted(context);
  return found.value();
}

std::uint32_t storeArgument(Device& device, const std::string& text) {
  if (const auto id = handleArgument(text)) return *id;
  std::vector<std::string> known;
  std::vector<std::uint32_t> meant;
  for (const std::uint32_t id : device.storeIDs()) {
    const std::string label = device.store(id).label();
    known.push_back(handleText(id) + (label.empty() ? "" : " (" + label + ")"));
    if (g_ascii_strcasecmp(label.c_str(), text.c_str()) == 0) meant.push_back(id);
  }
  if (meant.size() == 1) return meant.front();
  refuseUsage((meant.empty() ? "no store" : "more than one store") +
              std::string(" has the label '") + text + "': " + joined(known));
}

PropertyDictionary asJSON(const Unread& entry) {
  PropertyDictionary json = {{"unread", entry.what()}};
  if (entry.handle() != 0) json["handle"] = entry.handle();
  return json;
}

Failure failureOf(const ToolContext& context, const Unread& entry) {
  const bool isOfBook =
      entry.what() == "contact" || entry.what() == "group" || entry.what() == "address-book file";
  const std::string remover = isOfBook ? "addressbook delete" : "orders delete";
  return {.operation = context.operation,
          .why = entry.description(),
          .advice = entry.handle() == 0 ? "Try again."
                                        : "Try again; 'tarvoctl " + remover + " " +
                                              handleText(entry.handle()) + "' removes it."};
}

bool addFailure(const ToolContext& context, Listing& listing, PropertyDictionary json,
                const Error& error, const std::string& object) {
  endIfInterrupted(context);
  listing.addFailure(std::move(json), failureOf(context, error, object));
  return !error.endsDevice();
}

std::optional<std::uint32_t> handleArgument(const std::string& text) {
  const auto number = numberOf(text, 0xFFFFFFFF);
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

}  // namespace tarvo::tools
