// What a udev device looks like as a registry entry: its kind and its properties, read from sysfs
// on demand. All on the main thread; texts are UTF-8 whatever a device says, trimmed of blanks.
#pragma once

#include <gudev/gudev.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// Deleter; every class of libgudev is a GObject.
struct GUdevUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

/// Each owns one reference. What libgudev returns as "transfer full" goes straight into one of
/// these; what it passes to a signal handler is only lent.
using GUdevClientPtr = std::unique_ptr<GUdevClient, GUdevUnref>;
/// A device object is a snapshot: it stays valid, and old, when the device goes.
using GUdevDevicePtr = std::unique_ptr<GUdevDevice, GUdevUnref>;

/// The kinds of entries. One bit each, so that a set of kinds is a number.
enum EntryKind : unsigned {
  kNoEntry = 0,  ///< a udev device that the registry does not show
  kUSBDeviceEntry = 1,
  kUSBInterfaceEntry = 2,
  kSCSIUnitEntry = 4,
  kBlockEntry = 8,
  kEveryEntry = 15,
};

/// Class of the entries of USB devices.
inline constexpr const char* kUSBDeviceClass = "usb_device";

/// Key of the path of a SCSI unit's generic node.
inline constexpr const char* kGenericNodeKey = "SCSI Generic Node";

/// By subsystem and device type, as udev names them; reads nothing.
EntryKind entryKind(GUdevDevice* device);

/// Properties of a device that is there; what cannot be read is left out.
/// Strings come from the device and may say anything; numbers that are malformed count as absent.
PropertyDictionary entryProperties(GUdevDevice* device, EntryKind kind);

/// The set of kinds whose entries can satisfy `match`, so that nothing else need be looked at.
/// Zero where a key is known on no kind, or where two keys never meet on one.
unsigned kindsThatCanMatch(const PropertyDictionary& match);

/// Location of a USB device from its bus number and port path as the kernel writes it ("4.2", "0"
/// for a root hub): the bus in the top byte, then one port a nibble from the top down, so that bus
/// 1, port 4.2 is 0x01420000. A port above 15 counts as 15, a level below the sixth is left out.
std::uint32_t usbLocationID(unsigned bus, std::string_view portPath);

/// The SCSI unit that a udev device lies directly under (a block disk, a generic node), or null.
GUdevDevicePtr scsiUnitAbove(GUdevDevice* device);

/// Whether the kernel makes a block device for units of this one's peripheral type (SPC-4, 6.4.2).
bool scsiUnitHasBlockChild(GUdevDevice* unit);

/// Whether the kernel has made a device of that subsystem below the unit at `unitPath`.
bool scsiUnitHasNode(const std::string& unitPath, const char* subsystem);

/// Whether udev has dealt with that child of the unit at `unitPath`, which must be there.
bool udevKnowsNode(GUdevClient* client, const std::string& unitPath, const char* subsystem);

/// See Registry::disksBelow().
std::vector<std::string> disksBelowBlock(const std::string& bsdName);

/// sysfs path of `device`. The next device at the same port has the same one.
std::string sysfsPath(GUdevDevice* device);

/// What tells a device from those that were at its path before it: the number that the kernel gave
/// to the USB device at or above `path`, which it counts up at every plug. Empty on another bus.
std::string plugNumber(std::string_view path);

/// Attributes in sysfs, by name and text, that every device has which satisfies `match`: a device
/// with others need not be read further.
std::vector<std::pair<std::string, std::string>> attributesOfMatch(const PropertyDictionary& match);

}  // namespace tarvo
