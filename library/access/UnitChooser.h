// Which mass-storage units are there.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "library/access/OpenedDevice.h"
#include "msc/TarvoMSCDevice.h"

namespace tarvo::library {

struct UnitSummary : Summary {
  std::shared_ptr<TarvoMSCDevice> unit;
};

/// In order of arrival.
std::vector<UnitSummary> presentUnits(Platform& platform);
/// The unit that is `wanted`; without that the only one. Raises as onlyOne().
UnitSummary chooseUnit(Platform& platform, const std::string& wanted);

}  // namespace tarvo::library
