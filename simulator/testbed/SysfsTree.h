// Devices of the simulated /sys: what the kernel (Documentation/ABI, sysfs-bus-usb) and udev would
// show of a virtual device. Each entry that is added or removed is also announced as an event.
#pragma once

#include <umockdev.h>

#include <string>
#include <utility>
#include <vector>

#include "simulator/description/DeviceDescription.h"
#include "simulator/host/DeviceHost.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// What the kernel numbers while it finds a mass-storage unit.
struct ScsiNumbers {
  unsigned host = 0;
  unsigned generic = 0;
  std::string block;  ///< "sdb", or "sr0" for a unit of type 5
  std::string genericNode() const { return "/dev/sg" + std::to_string(generic); }
};

/// Adds entries in the order in which the kernel announces them; removes them the other way round.
/// Main thread only.
class SysfsTree {
 public:
  explicit SysfsTree(UMockdevTestbed* testbed) : testbed_(testbed) {}

  /// Host controller of a bus, which stays; nothing where it is there already.
  void addRootHub(unsigned bus);
  /// The usb_device and its interface.
  void addUsbDevice(const UsbPort& port, const UsbfsAddress& address,
                    const UsbDescriptors& descriptors);
  /// The chain from SCSI host to the block device, with one partition where there is a volume.
  void addScsiUnit(const UsbPort& port, const ScsiNumbers& numbers,
                   const DeviceDescription& description);
  /// Everything that was added for a port.
  void remove(const UsbPort& port);

 private:
  using Lines = std::vector<std::pair<std::string, std::string>>;
  /// A device before it is added, in the terms of umockdev's device description format.
  struct Entry {
    std::string path;   ///< below /sys
    std::string node;   ///< device node file to make, as umockdev writes it ("sdb=00"); or empty
    Lines properties;   ///< of the event; the subsystem stands first
    Lines attributes;   ///< files of text
    Bytes descriptors;  ///< the binary file of that name; empty: none
  };

  /// What removal needs to know of an entry.
  struct Added {
    std::string port;  ///< name of the port that it was added for
    std::string path;  ///< below /sys
    std::string link;  ///< below /sys, "/dev/block/8:16"; or empty
  };

  void add(const Entry& entry, const std::string& port);
  /// Where /sys/dev points to the entry; empty for an entry without a device number.
  static std::string deviceLink(const Entry& entry);
  void addInterface(const UsbPort& port, const UsbDescriptors& descriptors);
  void addScsiDevice(const UsbPort& port, const std::string& path,
                     const DeviceDescription& description);
  void addBlock(const UsbPort& port, const std::string& path, const ScsiNumbers& numbers,
                const DeviceDescription& description);

  UMockdevTestbed* testbed_;
  std::vector<Added> added_;  ///< in order
};

}  // namespace tarvo::simulator
