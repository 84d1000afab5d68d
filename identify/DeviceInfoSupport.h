// Turns a device into the facts that the agent passes on: launch type, USB location and path.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/MountTable.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

class XTImageCaptureMSCDevice;

/// Main thread only. Nothing here raises.
///
///   std::string type, path;
///   std::int32_t location = 0;
///   DeviceInfoSupport::getInfoForDevice(device, &type, &location, &path);
///   if (!type.empty()) launch(type, location, path);
class DeviceInfoSupport {
 public:
  DeviceInfoSupport() = delete;

  /// Writes the launch type ("PTP", "MSC", "card", or empty for an unsupported device), the USB
  /// location id and the volume path. A PTP device that is not supported leaves `locID` and `path`
  /// as they are; a missing device leaves all three. Arguments may be null.
  static void getInfoForDevice(const std::shared_ptr<XTPictureDevice>& device, std::string* type,
                               std::int32_t* locID, std::string* path);

  /// Properties of the USB device at or above a registry entry; none when there is no such device.
  /// The nearest one counts, which is the unit and not the hub. Entries that cannot be read are
  /// passed over. None without an IdentifyRoom.
  static std::optional<PropertyDictionary> getRootUSBDictionaryForService(ServiceHandle service);

  /// The checks of the supported-model table; false without one.
  /// By USB vendor and product id: cameras that speak PTP (Dsc), cameras as mass storage (PVC), and
  /// cards, which are known by what lies on them.
  static bool isValidDscVid(std::int32_t vid, std::int32_t pid);
  static bool isValidPVC(const XTImageCaptureMSCDevice& device);
  static bool isValidCard(const XTImageCaptureMSCDevice* device);
};

// What device identification uses of the platform. The owner of the process makes one room and
// holds it for its life.

/// Lent for the life of the room.
struct IdentifyServices {
  ImageCapture& imageCapture;
  Registry& registry;
  MountTable& mounts;
};

/// Main thread only.
///
///   const IdentifyRoom room({imageCapture, registry, mounts});
///   const auto volumes = GetICABSDNames();
class IdentifyRoom {
 public:
  explicit IdentifyRoom(IdentifyServices services);
  ~IdentifyRoom();
  IdentifyRoom(const IdentifyRoom&) = delete;
  IdentifyRoom& operator=(const IdentifyRoom&) = delete;

  /// The room that lives now; null when there is none.
  static IdentifyRoom* current();

  const IdentifyServices& services() const { return services_; }

 private:
  IdentifyServices services_;
};

}  // namespace tarvo
