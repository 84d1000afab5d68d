// Where virtual devices are plugged in: the ports of something that shows them to programs. The
// testbed is one such place, a USB/IP server another.
//
//   host.plug(DeviceDescription::fromFile("tarvo-camera.json"), "tarvo-camera");
//   host.device("1-1")->camera->capture();
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

class MassStorageUnit;
class PTPCamera;
class VirtualUSBDevice;

/// Where a device is plugged in: bus number and port path, for example 1 and "4.2".
struct UsbPort {
  unsigned bus = 1;
  std::string path;          ///< port numbers from the root hub on, a dot between them
  std::string name() const;  ///< "1-4.2"
  /// Bus number in the top byte, then one port number a nibble from the top down.
  std::uint32_t locationID() const;
  /// Reads "BUS-PORT"; raises DescriptionError for anything else (bus 1 to 255, ports 1 to 15).
  static UsbPort parse(const std::string& text);
};

struct UsbfsAddress {
  unsigned bus = 0;          ///< from 1
  unsigned device = 0;       ///< 2 to 127; 1 is the root hub
  std::string node() const;  ///< "/dev/bus/usb/001/004"
};

/// A device that is plugged in. Owned by its host; `device` and its other faces may be kept beyond
/// it.
struct HostedDevice {
  virtual ~HostedDevice() = default;

  std::string id;    ///< its port, "1-4"
  std::string name;  ///< of its description
  DeviceDescription description;
  UsbPort port;
  std::shared_ptr<VirtualUSBDevice> device;
  std::shared_ptr<PTPCamera> camera;      ///< the same, where it is a PTP device; else null
  std::shared_ptr<MassStorageUnit> unit;  ///< the same, where it is a mass-storage unit; else null
  std::string node;                       ///< of usbfs; empty where the host makes none
  std::string mountPoint;                 ///< of its volume; empty where the host mounts none
};

/// Main thread only; the default main context must run for a device that unplugs itself.
class DeviceHost {
 public:
  DeviceHost() = default;
  DeviceHost(const DeviceHost&) = delete;
  DeviceHost& operator=(const DeviceHost&) = delete;
  /// A host unplugs what is left in its own destructor (unplugAll), while it can still do so.
  virtual ~DeviceHost() = default;

  /// Plugs a device in and returns its id. `port` is "BUS-PORT"; none: the first free port of
  /// bus 1. Raises DescriptionError for a port that is none or in use, and what the host cannot
  /// show raises std::system_error or std::runtime_error.
  std::string plug(DeviceDescription description, std::string name,
                   const std::optional<std::string>& port = std::nullopt);
  /// Unplugs; an unknown id raises DescriptionError.
  void unplug(const std::string& id);

  /// Null when there is none of that id.
  HostedDevice* device(const std::string& id);
  std::vector<const HostedDevice*> devices() const;  ///< valid until the next plug or unplug
  /// Called after a device has unplugged itself, with its id. A unit that was switched to camera
  /// mode comes back as the camera of its description, by itself.
  void onVanished(std::function<void(const std::string&)> callback) {
    vanished_ = std::move(callback);
  }

 protected:
  using Devices = std::map<std::string, std::unique_ptr<HostedDevice>>;  ///< by id

  // What a host does.

  virtual std::unique_ptr<HostedDevice> makeEntry() = 0;
  /// Shows the device, which is in present() already. What it raises takes the device out again.
  virtual void show(HostedDevice& device) = 0;
  /// Takes it away from those who use it; it is not in present() any more. Raises nothing.
  virtual void hide(HostedDevice& device) = 0;

  // What a host has.

  const Devices& present() const { return devices_; }
  void unplugAll();
  /// To be called, on any thread, when the device has unplugged itself: the main loop does the
  /// rest, if the device is still the one at its port. May outlive the host.
  std::function<void()> vanishing(const HostedDevice& device);

 private:
  UsbPort choosePort(const std::optional<std::string>& text) const;
  void deviceVanished(const std::string& id);
  /// Plugs the camera in that a unit comes back as, at the unit's port, when its time has come. A
  /// port that is in use by then keeps what it has.
  void plugLater(const UsbPort& port, const DeviceDescription& unit);

  Devices devices_;
  std::function<void(const std::string&)> vanished_;
  /// For calls that come through the main loop.
  std::shared_ptr<DeviceHost*> alive_ = std::make_shared<DeviceHost*>(this);
};

}  // namespace tarvo::simulator
