// The device registry: entries with properties, each with its ancestors, and notifications about
// entries that come and go.
//
// Keys of the properties (each present only where the device has it, unless said otherwise):
//   on every entry      "IOClass" ("usb_device", "usb_interface", "scsi_unit", "block")
//   on a usb_device     "USB Product Name" (always, empty where the device has none),
//                       "USB Vendor Name", "USB Serial Number", "idVendor", "idProduct",
//                       "locationID" (unsigned 32-bit number), "USB Device Node" (path)
//   on a usb_interface  "bInterfaceNumber", "bInterfaceClass", "bInterfaceSubClass",
//                       "bInterfaceProtocol"
//   on a block device   "BSD Name" (kernel name, "sdb1")
//   on a SCSI unit      "device-type" ("DVD", peripheral type 5 alone), "SCSITaskUserClient GUID"
//                       (16 bytes, JSON binary), "Device Characteristics" ("Vendor Name" and
//                       "Product Name"), "Protocol Characteristics" ("Physical Interconnect",
//                       "USB"), "BSD Name", "idVendor", "idProduct", "locationID", "SCSI Generic
//                       Node" (path; only while the unit is there)
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Handle of a registry entry; 0 is no entry. A handle is never used twice.
using ServiceHandle = std::uint32_t;

/// Ends a registration when it is destroyed.
/// May be destroyed at any time, from within one of its own callbacks too, and may outlive the
/// registry.
class RegistrySubscription {
 public:
  virtual ~RegistrySubscription() = default;
  /// The matching entries that were there when the registration was made, in kernel order; they are
  /// not announced.
  virtual const std::vector<ServiceHandle>& present() const = 0;
};

/// Main thread only. Callbacks run from the main loop.
class Registry {
 public:
  using Callback = std::function<void(ServiceHandle)>;

  virtual ~Registry() = default;

  /// Properties of an entry; none when the handle is unknown. An entry that went away keeps its
  /// properties until its terminated callbacks have returned. An entry is one device: another that
  /// has come to its place has another handle.
  virtual std::optional<PropertyDictionary> properties(ServiceHandle service) = 0;
  /// Ancestors, the nearest first, without the entry itself; none when the handle is unknown.
  virtual std::optional<std::vector<ServiceHandle>> ancestors(ServiceHandle service) = 0;
  /// Entries whose properties hold every key of `match` with an equal value, in kernel order. A
  /// dictionary under "IOPropertyMatch" counts like keys of `match` itself.
  virtual std::vector<ServiceHandle> servicesMatching(const PropertyDictionary& match) = 0;
  /// Entries with this "BSD Name". An empty name matches nothing.
  virtual std::vector<ServiceHandle> servicesMatchingBSDName(std::string_view bsdName) = 0;
  /// Kernel names of the disks that a mapped device (LUKS, LVM, RAID, a loop over a disk) lies on
  /// directly, read anew at each call; none for a disk that lies on no other.
  virtual std::vector<std::string> disksBelow(std::string_view bsdName) = 0;
  /// Calls `appeared` for each matching entry that comes from now on (those already there are the
  /// subscription's present()) and `terminated` for each that goes, once each. Either may be empty.
  virtual std::unique_ptr<RegistrySubscription> addMatchingNotification(PropertyDictionary match,
                                                                        Callback appeared,
                                                                        Callback terminated) = 0;
};

// Whether the properties of a registry entry satisfy a matching dictionary.

/// Key under which a matching dictionary may hold a second dictionary, whose keys count like its
/// own: {"IOPropertyMatch": {"device-type": "DVD"}} equals {"device-type": "DVD"}.
inline constexpr const char* kPropertyMatchKey = "IOPropertyMatch";

/// True when `properties` hold every key of `match` with an equal value. Anything but a dictionary
/// matches nothing. Any thread.
/// Numbers are equal by value, whatever their type; texts byte for byte, with their case; a key
/// with the value null matches no entry, since no property is ever null. The nesting of `match`
/// comes from this program alone, so its depth needs no bound.
inline bool propertiesMatch(const PropertyDictionary& properties, const PropertyDictionary& match) {
  if (!properties.is_object() || !match.is_object()) return false;
  auto key = match.begin();
  for (; key != match.end(); ++key) {
    const auto found = properties.find(key.key());
    const bool fits = key.key() == kPropertyMatchKey
                          ? propertiesMatch(properties, key.value())
                          : found != properties.end() && *found == key.value();
    if (!fits) break;
  }
  return key == match.end();
}

// The USB device that a registry entry is part of.

struct AncestorQuery {
  const char* key;
  std::string_view text{};  ///< its value; empty: any
  bool isItselfMeant = false;
};
struct Ancestor {
  /// kIOError where the registry does not know the entry, kNoUSBDevice where none is meant.
  Status status = status::kOK;
  ServiceHandle handle = 0;
  PropertyDictionary properties{};
};

/// The nearest ancestor of `service` that is meant. `trace` is told what goes wrong.
inline Ancestor nearestAncestor(
    Registry& registry, ServiceHandle service, const AncestorQuery& query,
    const std::function<void(const char*)>& trace = [](const char*) {}) {
  auto entries = registry.ancestors(service);
  if (!entries) {
    trace("IORegistryEntryCreateIterator failed");
    return {.status = status::kIOError};
  }
  if (query.isItselfMeant) entries->insert(entries->begin(), service);
  for (const ServiceHandle entry : *entries) {
    auto properties = registry.properties(entry);
    if (!properties) {
      trace("IORegistryEntryCreateCFProperties failed");
    } else if (properties->contains(query.key) &&
               (query.text.empty() || properties->value(query.key, "") == query.text)) {
      return {.handle = entry, .properties = std::move(*properties)};
    }
  }
  trace("failed to find the device in IOKit Registry");
  return {.status = status::kNoUSBDevice};
}

/// The nearest USB device above `service`; 0 where there is none.
inline ServiceHandle usbHandleAbove(Registry& registry, ServiceHandle service) {
  return nearestAncestor(registry, service, {.key = "IOClass", .text = "usb_device"}).handle;
}

/// That of the disk or partition `bsdName`; 0 where there is none.
inline ServiceHandle usbDeviceOfDisk(Registry& registry, std::string_view bsdName) {
  const auto disks = registry.servicesMatchingBSDName(bsdName);
  return disks.empty() ? 0 : usbHandleAbove(registry, disks.front());
}

/// What a USB device has of a disk.
enum class DiskShare { kNothing, kPart, kAll };

/// The share that `usbDevice` has of the disk or partition `bsdName` now; of a mapped device the
/// disks below it decide. kNothing where there is no such disk or `usbDevice` is 0.
inline DiskShare shareOfDisk(Registry& registry, std::string_view bsdName,
                             ServiceHandle usbDevice) {
  std::vector<std::string> disks{std::string(bsdName)};
  std::size_t own = 0;
  std::size_t lowest = 0;
  for (std::size_t i = 0; i < disks.size(); ++i) {
    const auto below = registry.disksBelow(disks[i]);
    for (const std::string& disk : below)
      if (std::ranges::find(disks, disk) == disks.end()) disks.push_back(disk);
    if (!below.empty()) continue;
    ++lowest;
    if (usbDevice != 0 && usbDeviceOfDisk(registry, disks[i]) == usbDevice) ++own;
  }
  if (own == 0) return DiskShare::kNothing;
  return own == lowest ? DiskShare::kAll : DiskShare::kPart;
}

}  // namespace tarvo
