#include "library/access/UnitChooser.h"

#include "Utilities/NSStringUtilsCategory.h"
#include "identify/DeviceInfoSupport.h"
#include "msc/TarvoMSCDeviceList.h"

namespace tarvo::library {
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

std::vector<UnitSummary> presentUnits(Platform& platform) {
  std::vector<UnitSummary> units;
  for (const auto& unit : platform.massStorage().devices())
    units.push_back(summaryOf(unit));
  return units;
}

UnitSummary chooseUnit(Platform& platform, const std::string& wanted) {
  const auto units = presentUnits(platform);
  return onlyOne(wanted,
                 {.kind = "unit",
                  .none = "no Tarvo device is connected that shows itself as a disk",
                  .noneAdvice = ""},
                 units, wanted.empty() ? units : fitting(units, wanted));
}

}  // namespace tarvo::library
