// How a source of devices (PTP interfaces, mounted volumes) tells the service what came and went.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Utilities/PropertyDictionary.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/ptp/USBDevice.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// A device as its source describes it.
struct FoundDevice {
  PropertyDictionary dictionary;  ///< as copyObjectPropertyDictionary gives it
  /// The interface that its messages go to; none for a volume.
  std::optional<ptp::USBInterfaceAddress> interface;
};

/// Main thread only.
class DeviceSink {
 public:
  virtual ~DeviceSink() = default;
  /// Makes an object of the device and tells who is registered for it.
  /// The handle is never 0; listeners have been called when it is returned.
  virtual ICAObject deviceCame(FoundDevice device) = 0;
  /// Ends the object, tells who is registered for it, and lets the registrations go with it.
  virtual void deviceWent(ICAObject object) = 0;
};

/// Last components of the module paths by which clients tell the classes of devices apart.
namespace device_module {
inline constexpr std::string_view kPTPCamera = "PTPCamera.app";
inline constexpr std::string_view kMassStorageCamera = "MassStorageCamera.app";
inline constexpr std::string_view kMassStorage = "MassStorage.app";
}  // namespace device_module

/// Properties of the USB device above a registry entry; none when there is no such ancestor.
/// It is the nearest ancestor with a "USB Product Name", so that a hub is never taken for the
/// device.
std::optional<PropertyDictionary> usbDeviceAbove(Registry& registry, ServiceHandle service);

/// The dictionary that every device starts with: its name, its module and the identity of the USB
/// device behind it. "capa" is empty until the capabilities have been read from the device.
PropertyDictionary deviceDictionary(const std::string& name, std::string_view module,
                                    const PropertyDictionary& usbDevice);

}  // namespace tarvo
