#include "tools/units/UnitChooser.h"

#include <algorithm>

#include "Utilities/NSStringUtilsCategory.h"
#include "identify/DeviceInfoSupport.h"
#include "msc/TarvoMSCDeviceList.h"
#include "tools/access/OpenedDevice.h"
#include "tools/output/ToolError.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

UnitSummary summaryOf(const std::shared_ptr<TarvoMSCDevice>& unit) {
  UnitSummary summary{.unit = unit};
  const auto usbDevice = DeviceInfoSupport::getRootUSBDictionaryForService(unit->iokitService());
  if (!usbDevice) return summary;
  summary.location = int32ForKey(*usbDevice, "locationID");
  summary.serial = textForKey(*usbDevice, "USB Serial Number").value_or("");
  return summary;
}

std::string listInWords(const std::vector<UnitSummary>& units) {
  std::vector<std::string> words;
  words.reserve(units.size());
  for (const auto& unit : units)
    words.push_back(inWords(unit));
  return joined(words);
}

}  // namespace

std::vector<UnitSummary> presentUnits(ToolPlatform& platform) {
  std::vector<UnitSummary> units;
  for (const auto& unit : platform.massStorage().devices())
    units.push_back(summaryOf(unit));
  return units;
}

std::string inWords(const UnitSummary& unit) {
  const std::string location = locationInHex(unit.location);
  return (unit.serial.empty() ? "(no serial number)" : unit.serial) + " (" +
         unit.unit->massStorageModel() + (location.empty() ? "" : ", location " + location) + ")";
}

PropertyDictionary asJSON(const UnitSummary& unit) {
  PropertyDictionary json = {{"name", validUTF8(unit.unit->massStorageModel())}};
  if (unit.location) {
    json["location"] = *unit.location;
    json["locationHex"] = locationInHex(unit.location);
  }
  if (!unit.serial.empty()) json["serial"] = unit.serial;
  if (const auto disk = unit.unit->bsdName()) json["bsdName"] = *disk;
  if (const auto card = unit.unit->dcfVolumeBSDName()) {
    json["volumeBSDName"] = *card;
    json["volume"] = validUTF8(unit.unit->dcfVolumeName().value_or(""));
  }
  return json;
}

UnitSummary chooseUnit(ToolContext& context, const std::string& operation) {
  const auto units = presentUnits(context.platform);
  const std::string& wanted = context.options.device;
  if (wanted.empty()) {
    if (units.size() == 1) return units.front();
    if (units.size() > 1)
      throw ToolError({.operation = operation,
                       .why = "several units are connected: " + listInWords(units),
                       .advice = "Choose one with --device SERIAL or --device LOCATION."},
                      kBadUsage);
    throw ToolError({.operation = operation,
                     .why = "no Tarvo device is connected that shows itself as a disk",
                     .advice = "'tarvoctl devices' shows what is connected."},
                    kNoDevice);
  }
  const auto location = locationFrom(wanted);
  const auto found = std::ranges::find_if(units, [&](const UnitSummary& unit) {
    return unit.serial == wanted || (location && unit.location == location);
  });
  if (found != units.end()) return *found;
  throw ToolError({.operation = operation,
                   .why = "there is no unit with the serial number or location '" + wanted + "'" +
                          (units.empty() ? "" : "; connected: " + listInWords(units)),
                   .advice = "'tarvoctl msc list' shows what is connected."},
                  kNoDevice);
}

}  // namespace tarvo::tools
