// Turns a device into the facts that the agent passes on: launch type, USB location and path.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

class XTImageCaptureMSCDevice;

/// Main thread only. Nothing here raises.
class DeviceInfoSupport {
 public:
  DeviceInfoSupport() = delete;

  /// Writes the launch type ("PTP", "MSC", "card", or empty for an unsupported device), the USB
  /// location id and the volume path. A PTP device that is not supported leaves `locID` and `path`
  /// as they are; a missing device leaves all three. Arguments may be null.
  static void getInfoForDevice(const std::shared_ptr<XTPictureDevice>& device, std::string* type,
                               std::int32_t* locID, std::string* path);

  /// Properties of the USB device at or above a registry entry; none when there is no such device.
  static std::optional<PropertyDictionary> getRootUSBDictionaryForService(ServiceHandle service);

  /// The checks of the supported-model table; false without one.
  static bool isValidDscVid(std::int32_t vid, std::int32_t pid);
  static bool isValidPVC(const XTImageCaptureMSCDevice& device);
  static bool isValidCard(const XTImageCaptureMSCDevice* device);
};

}  // namespace tarvo
