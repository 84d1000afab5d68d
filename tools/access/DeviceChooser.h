// Which devices are there, and which of them a command is for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/imagecapture/ImageCapture.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// A device as it can be told without opening it.
struct DeviceSummary {
  ICAObject object = 0;
  std::string name{};
  bool speaksPTP = false;  ///< else it is a volume
  std::int32_t vendor = 0;
  std::int32_t product = 0;
  std::optional<std::int32_t> location{};  ///< of the USB device
  std::string serial{};                    ///< of the USB device; empty where it has none
  std::string path{};                      ///< where a volume is mounted
  bool isOfMaker = false;
  bool isSupported = false;  ///< by the model table, or by what lies on the volume
};

/// Keys "name", "type" ("PTP" or "volume"), "location", "locationHex", "vendor", "product",
/// "serial", "path", "supported"; what is not known is left out.
PropertyDictionary asJSON(const DeviceSummary& device);
/// "SERIAL (NAME, location 0x01100000)".
std::string inWords(const DeviceSummary& device);
/// "0x01100000"; empty without one.
std::string locationInHex(const DeviceSummary& device);
std::string locationInHex(std::optional<std::int32_t> location);
/// A location as a user writes it: signed decimal, or 0x...; none for anything else.
std::optional<std::int32_t> locationFrom(std::string_view text);

/// Every PTP device and every volume of a USB device, in order of arrival.
std::vector<DeviceSummary> presentDevices(ToolPlatform& platform);
/// One of them; none when it has gone.
std::optional<DeviceSummary> summaryOf(ToolPlatform& platform, ICAObject object);

/// The device that --device names; without it the only PTP device of the maker. Raises a ToolError:
/// kNoDevice where there is none, kBadUsage, with a list, where there are several.
DeviceSummary chooseDevice(ToolContext& context, const std::string& operation);

/// The volume that --device names, by serial number, location or its own name (a unit can have
/// several); without it the only one. Raises as chooseDevice().
DeviceSummary chooseVolume(ToolContext& context, const std::string& operation);

}  // namespace tarvo::tools
