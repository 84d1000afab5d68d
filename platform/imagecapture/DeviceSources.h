// Where the devices of the service come from: PTP interfaces of the device registry, and mounted
// volumes of removable USB disks. Each source tells the service, as its sink, what came and went.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/LogSink.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/MountTable.h"
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

/// Properties of the USB device above a registry entry; none when there is no such ancestor.
/// It is the nearest ancestor with a "USB Product Name", so that a hub is never taken for the
/// device.
std::optional<PropertyDictionary> usbDeviceAbove(Registry& registry, ServiceHandle service);

/// The dictionary that every device starts with: its name, its module and the identity of the USB
/// device behind it. "capa" is empty until the capabilities have been read from the device.
PropertyDictionary deviceDictionary(const std::string& name, std::string_view module,
                                    const PropertyDictionary& usbDevice);

// Finds PTP cameras: every USB interface of class 6, subclass 1, protocol 1 is a device, whoever
// made it.

/// Main thread only.
/// The triple is that of the USB Still Image Capture Device Definition: base class 6, subclass
/// 1, protocol 1.
class PTPSource {
 public:
  /// Reports what is there at once, and what comes and goes while it lives.
  /// Both must outlive the source. Devices that are there when it goes are not reported as gone.
  PTPSource(Registry& registry, DeviceSink& sink, LogSink log);

 private:
  /// Called for what is found and for what is announced; one that is known already is left alone.
  void interfaceCame(ServiceHandle service);
  /// Its properties cannot be read any more; the handle is enough.
  void interfaceWent(ServiceHandle service);
  /// None for an interface that has lost its device or its place by now.
  std::optional<FoundDevice> describe(ServiceHandle service);

  Registry& registry_;
  DeviceSink& sink_;
  LogSink log_;
  // Handles are what tells an interface that is found and announced as well from two.
  std::map<ServiceHandle, ICAObject> devices_;
  /// Last, so that no callback comes once the members above have gone.
  std::unique_ptr<RegistrySubscription> subscription_;
};

// Finds volumes: every filesystem on a USB disk that is mounted directly in the volumes folder is a
// device, a camera's when it holds a folder DCIM.

/// Main thread only. The one watcher of the mount table.
/// Volumes are compared by device and mount point, so that a card changed for another in the same
/// folder is a new device.
class VolumeSource {
 public:
  /// Reports what is mounted at once, and what comes and goes while it lives.
  /// What it was made with must outlive it; its end ends the watching.
  VolumeSource(Registry& registry, MountTable& mounts, DeviceSink& sink, LogSink log);
  ~VolumeSource();
  VolumeSource(const VolumeSource&) = delete;
  VolumeSource& operator=(const VolumeSource&) = delete;

 private:
  /// A mount in the volumes folder.
  struct Volume {
    Mount mount;
    ICAObject object;  // 0 for one that is no device, kept so that it is examined once only
  };

  /// Compares the table with what is known. The kernel says that something changed, never what.
  void mountsChanged();
  /// Remembers the mount, and reports it if it is a device.
  void volumeCame(const Mount& mount);
  /// What is seen in the volumes folder now, each folder once.
  std::vector<Mount> volumesMounted() const;
  /// Last component of a path directly in the volumes folder; empty for any other.
  std::string nameOfVolume(std::string_view mountPoint) const;
  /// None for what is not mounted from a disk on USB.
  std::optional<FoundDevice> describe(const Mount& mount);

  Registry& registry_;
  MountTable& mounts_;
  DeviceSink& sink_;
  LogSink log_;
  /// As the table stood at its last change, those that are no devices included.
  std::vector<Volume> volumes_;
};

}  // namespace tarvo
