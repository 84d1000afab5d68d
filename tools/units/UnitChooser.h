// Which mass-storage units are there, and which of them a command is for.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "msc/TarvoMSCDevice.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct UnitSummary {
  std::shared_ptr<TarvoMSCDevice> unit;
  std::optional<std::int32_t> location{};  ///< of the USB device
  std::string serial{};                    ///< of the USB device; empty where it has none
};

/// In order of arrival.
std::vector<UnitSummary> presentUnits(ToolPlatform& platform);
/// "SERIAL (NAME, location 0x01100000)".
std::string inWords(const UnitSummary& unit);
/// Keys "name", "location", "locationHex", "serial", "bsdName", "volume", "volumeBSDName"; what is
/// not known is left out.
PropertyDictionary asJSON(const UnitSummary& unit);

/// The unit that --device names; without it the only one. Raises a ToolError: kNoDevice where there
/// is none, kBadUsage, with a list, where there are several.
UnitSummary chooseUnit(ToolContext& context, const std::string& operation);

}  // namespace tarvo::tools
