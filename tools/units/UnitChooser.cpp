#include "tools/units/UnitChooser.h"

#include <algorithm>

#include "Utilities/NSStringUtilsCategory.h"
#include "identify/DeviceInfoSupport.h"
#include "msc/TarvoMSCDeviceList.h"

namespace tarvo::tools {
namespace {

UnitSummary summaryOf(const std::shared_ptr<TarvoMSCDevice>& unit) {
  UnitSummary summary{{.name = unit->massStorageModel()}, unit};
  const auto usbDevice = DeviceInfoSupport::getRootUSBDictionaryForService(unit->iokitService());
  if (!usbDevice) return summary;
  summary.location = int32ForKey(*usbDevice, "locationID");
  summary.serial = textForKey(*usbDevice, "USB Serial Number").value_or("");
  return summary;
}

}  // namespace

std::vector<UnitSummary> presentUnits(ToolPlatform& platform) {
  std::vector<UnitSummary> units;
  for (const auto& unit : platform.massStorage().devices())
    units.push_back(summaryOf(unit));
  return units;
}

PropertyDictionary asJSON(const UnitSummary& unit) {
  PropertyDictionary json = {{"name", validUTF8(unit.name)}};
  if (unit.location) {
    json["location"] = *unit.location;
    json["locationHex"] = locationInHex(unit);
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
  const auto location = locationFrom(wanted);
  auto meant = units;
  if (!wanted.empty()) {
    std::erase_if(meant, [&](const UnitSummary& unit) {
      return unit.serial != wanted && !(location && unit.location == location);
    });
    if (meant.size() > 1) meant.erase(meant.begin() + 1, meant.end());
  }
  return onlyOne(operation, wanted,
                 {.kind = "unit",
                  .none = "no Tarvo device is connected that shows itself as a disk",
                  .noneAdvice = "'tarvoctl devices' shows what is connected.",
                  .look = "'tarvoctl msc list' shows what is connected."},
                 units, meant);
}

}  // namespace tarvo::tools
