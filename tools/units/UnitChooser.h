// Which mass-storage units are there, and which of them a command is for.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "msc/TarvoMSCDevice.h"
#include "tools/access/OpenedDevice.h"

namespace tarvo::tools {

struct UnitSummary : Summary {
  std::shared_ptr<TarvoMSCDevice> unit;
};

/// In order of arrival.
std::vector<UnitSummary> presentUnits(ToolPlatform& platform);
/// Keys "name", "location", "locationHex", "serial", "bsdName", "volume", "volumeBSDName"; what is
/// not known is left out.
PropertyDictionary asJSON(const UnitSummary& unit);

/// The unit that --device names; without it the only one. Raises as onlyOne().
UnitSummary chooseUnit(ToolContext& context, const std::string& operation);

}  // namespace tarvo::tools
