// Every value that is left to configuration, with its default. Group [Maker] of agent.conf
// overrides any of them under the key named like the field.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

struct MakerConstants {
  std::uint16_t usbVendorID = 0xF055;
  std::uint32_t ptpVendorExtensionID = 0x00005452;
  std::string manufacturer = "Tarvo Imaging";
  std::vector<std::string> legacyModels = {"Tarvo Lumo 100", "Tarvo Lumo 200", "Tarvo Lumo 300"};
  std::vector<std::string> undefinedFormatModels = {"Tarvo N10", "Tarvo N20"};
  std::vector<std::string> undefinedFormatModelsWithFamily = {"Tarvo Lumo N10", "Tarvo Lumo N20"};
  std::string relayBundleIdentifier = "com.tarvo.Relay";
  std::string helperBundleIdentifier = "com.tarvo.Helper";
  std::string volumeSerialPlaceholder = "(volume: no serial number)";
  std::string agentBundlePath;  ///< absolute; the default is the installed bundle

  /// The defaults, overridden by `defaults` (lists are separated by ';', numbers are decimal or
  /// 0x...) and by the environment variable TARVO_AGENT_BUNDLE. A value that cannot be read is
  /// reported to `log` by its key and leaves the default.
  static MakerConstants load(const UserDefaults& defaults, const LogSink& log);
};

}  // namespace tarvo
