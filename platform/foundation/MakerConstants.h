// Every value that is left to configuration, with its default. Group [Maker] of agent.conf
// overrides any of them under the key named like the field.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

/// A plain value, made once at start and handed to whoever needs it.
struct MakerConstants {
  /// USB vendor ID by which the maker's devices are told from others (idVendor of the device
  /// descriptor, USB 2.0, 9.6.1).
  std::uint16_t usbVendorID = 0xF055;
  /// VendorExtensionID of the DeviceInfo data set of a device that speaks the maker's operations
  /// (ISO 15740, 5.5.1).
  std::uint32_t ptpVendorExtensionID = 0x00005452;
  /// Manufacturer as the devices' DeviceInfo has it.
  std::string manufacturer = "Tarvo Imaging";
  /// Models of the earliest series, which lack what later ones offer.
  std::vector<std::string> legacyModels = {"Tarvo Lumo 100", "Tarvo Lumo 200", "Tarvo Lumo 300"};
  /// Models to which every file is sent as an undefined object (format 0x3000, ISO 15740), under
  /// their name with the maker in front and with maker and family in front.
  std::vector<std::string> undefinedFormatModels = {"Tarvo N10", "Tarvo N20"};
  std::vector<std::string> undefinedFormatModelsWithFamily = {"Tarvo Lumo N10", "Tarvo Lumo N20"};
  /// Device properties for which PTP has no code of its own, by the code that the device uses; 0
  /// where there is none. The language that a device shows is a text, whether it sits in its dock a
  /// byte that is not 0.
  std::uint16_t uiLanguageProperty = 0;
  std::uint16_t dockedProperty = 0;
  /// Desktop-entry ids of the applications that the agent launches and is launched by.
  std::string relayBundleIdentifier = "com.tarvo.Relay";
  std::string helperBundleIdentifier = "com.tarvo.Helper";
  /// Stands where the serial number of a volume device is shown: a volume has none.
  std::string volumeSerialPlaceholder = "(volume: no serial number)";
  std::string agentBundlePath;  ///< absolute; the default is the installed bundle

  /// The defaults, overridden by `defaults` (lists are separated by ';', numbers are decimal or
  /// 0x...) and by the environment variable TARVO_AGENT_BUNDLE. A value that cannot be read is
  /// reported to `log` by its key and leaves the default.
  static MakerConstants load(const UserDefaults& defaults, const LogSink& log);
};

}  // namespace tarvo
