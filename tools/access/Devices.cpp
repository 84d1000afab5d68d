#include "tools/access/Devices.h"

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct ChoiceAdvice {
  const char* none;    ///< where there is none at all
  const char* look;    ///< where none has the name
  const char* choose;  ///< where there are several
};

/// Finds the device that is meant; where that fails, commands help.
template <typename Find>
auto found(const ToolContext& context, const ChoiceAdvice& advice, const Find& find) {
  const std::string& wanted = context.options.device;
  try {
    return find(wanted);
  } catch (const Error& error) {
    Failure failure = failureOf(context, error);
    if (error.kind() == ErrorKind::kAmbiguous) {
      failure.advice = advice.choose;
      throw ToolError(failure, kBadUsage);
    }
    if (error.kind() != ErrorKind::kNotFound) throw;
    // What is said of a volume in the place of a camera helps more.
    const bool isNamed = error.reason().starts_with("there is no ");
    const bool isPlain = error.advice().starts_with("Connect one") || error.advice().empty();
    if (isNamed || isPlain) failure.advice = isNamed ? advice.look : advice.none;
    throw ToolError(failure, kNoDevice);
  }
}

constexpr const char* kLook = "'tarvoctl devices' shows what is connected.";

}  // namespace

Device openCamera(const ToolContext& context) {
  Session& session = context.session();
  return session.open(found(context,
                            {.none = "Connect one, switch it on, and see 'tarvoctl devices'.",
                             .look = kLook,
                             .choose = "Choose one with --device SERIAL or --device LOCATION."},
                            [&](const auto& wanted) { return session.findCamera(wanted); }));
}

Device openVolume(const ToolContext& context) {
  Session& session = context.session();
  return session.open(
      found(context,
            {.none = "Connect one, mount it, and see 'tarvoctl devices'.",
             .look = kLook,
             .choose = "Choose one with --device SERIAL, LOCATION or the volume's name."},
            [&](const auto& wanted) { return session.findVolume(wanted); }));
}

Unit openUnit(const ToolContext& context) {
  Session& session = context.session();
  return session.open(found(context,
                            {.none = kLook,
                             .look = "'tarvoctl msc list' shows what is connected.",
                             .choose = "Choose one with --device SERIAL or --device LOCATION."},
                            [&](const auto& wanted) { return session.findUnit(wanted); }));
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
  return json;
}

PropertyDictionary asJSON(const UnitInfo& unit) {
  PropertyDictionary json = {{"name", validUTF8(unit.name())}};
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

ObjectChoice chosen(const std::vector<std::string>& names, bool all) {
  return ObjectChoice().names(names).others(all ? ObjectChoice::Others::kEverything
                                                : ObjectChoice::Others::kNone);
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

std::uint32_t numberArgument(const std::string& operation, const std::string& what,
                             const std::string& text, std::uint32_t maximum) {
  const auto number = numberOf(text, maximum);
  if (!number) refuseUsage(operation, "'" + text + "' is no " + what);
  return static_cast<std::uint32_t>(*number);
}

}  // namespace tarvo::tools
