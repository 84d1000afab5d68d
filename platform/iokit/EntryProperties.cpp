#include "platform/iokit/EntryProperties.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>

#include "Utilities/Format.h"
#include "platform/iokit/Registry.h"

namespace tarvo {
namespace {

/// Peripheral device type of an optical drive (SPC-4, 6.4.2).
constexpr int kSCSIOpticalDrive = 5;

// Which udev devices are entries, and what a client sees as their class.
struct KindOfDevice {
  std::string_view subsystem;
  std::string_view devtype;  // empty: any
  EntryKind kind;
  const char* ioClass;
};
// Everything else of the tree (hosts, targets, buses) is passed over, as clients ask for none of
// it.
constexpr std::array<KindOfDevice, 4> kKinds{{
    {"usb", "usb_device", kUSBDeviceEntry, kUSBDeviceClass},
    {"usb", "usb_interface", kUSBInterfaceEntry, "usb_interface"},
    {"scsi", "scsi_device", kSCSIUnitEntry, "scsi_unit"},
    {"block", "", kBlockEntry, "block"},
}};

// Where a key can be found at all. A search for "device-type" need not read a single USB device,
// and one for a key that is not here reads nothing.
struct KindsWithKey {
  std::string_view key;
  unsigned kinds;
};
constexpr std::array<KindsWithKey, 17> kKeys{{
    {"USB Product Name", kUSBDeviceEntry},
    {"USB Vendor Name", kUSBDeviceEntry},
    {"USB Serial Number", kUSBDeviceEntry},
    {"USB Device Node", kUSBDeviceEntry},
    {"idVendor", kUSBDeviceEntry | kSCSIUnitEntry},
    {"idProduct", kUSBDeviceEntry | kSCSIUnitEntry},
    {"locationID", kUSBDeviceEntry | kSCSIUnitEntry},
    {"bInterfaceNumber", kUSBInterfaceEntry},
    {"bInterfaceClass", kUSBInterfaceEntry},
    {"bInterfaceSubClass", kUSBInterfaceEntry},
    {"bInterfaceProtocol", kUSBInterfaceEntry},
    {"BSD Name", kBlockEntry | kSCSIUnitEntry},
    {"device-type", kSCSIUnitEntry},
    {"SCSITaskUserClient GUID", kSCSIUnitEntry},
    {kGenericNodeKey, kSCSIUnitEntry},
    {"Device Characteristics", kSCSIUnitEntry},
    {"Protocol Characteristics", kSCSIUnitEntry},
}};

std::string_view orEmpty(const char* text) {
  return text ? text : "";
}

// Vendors pad their names with blanks, SCSI inquiry data always so; and nothing that a device says
// is known to be UTF-8.
std::string cleaned(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  text = text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
  char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  std::string result = valid;
  g_free(valid);
  return result;
}

std::optional<std::string> textAttribute(GUdevDevice* device, const char* name) {
  const char* value = g_udev_device_get_sysfs_attr(device, name);
  if (!value) return std::nullopt;
  return cleaned(value);
}

// The whole attribute must be the number: half a number is as wrong as none.
std::optional<unsigned> numberAttribute(GUdevDevice* device, const char* name, int base) {
  const auto text = textAttribute(device, name);
  if (!text) return std::nullopt;
  unsigned number = 0;
  const char* end = text->data() + text->size();
  const auto [stopped, error] = std::from_chars(text->data(), end, number, base);
  if (error != std::errc{} || stopped != end) return std::nullopt;
  return number;
}

void setText(PropertyDictionary& properties, const char* key, std::optional<std::string> text) {
  if (text) properties[key] = std::move(*text);
}
void setNumber(PropertyDictionary& properties, const char* key, std::optional<unsigned> number) {
  if (number) properties[key] = *number;
}

// The three numbers by which the upper rooms know a USB device.
void addUSBIdentity(PropertyDictionary& properties, GUdevDevice* usbDevice) {
  setNumber(properties, "idVendor", numberAttribute(usbDevice, "idVendor", 16));
  setNumber(properties, "idProduct", numberAttribute(usbDevice, "idProduct", 16));
  if (const auto bus = numberAttribute(usbDevice, "busnum", 10)) {
    // Where it is plugged in, and not its number on the bus, which is another one at each plug.
    properties["locationID"] =
        usbLocationID(*bus, textAttribute(usbDevice, "devpath").value_or(""));
  }
}

// udev names the node once it has processed the device; the kernel's own name for it is the same,
// so an entry that is read earlier has it too.
void addDeviceNode(PropertyDictionary& properties, GUdevDevice* usbDevice) {
  if (const char* node = g_udev_device_get_device_file(usbDevice)) {
    properties["USB Device Node"] = node;
    return;
  }
  const auto bus = numberAttribute(usbDevice, "busnum", 10);
  const auto number = numberAttribute(usbDevice, "devnum", 10);
  if (bus && number)
    properties["USB Device Node"] = formatted("/dev/bus/usb/%03u/%03u", *bus, *number);
}

void addUSBDevice(PropertyDictionary& properties, GUdevDevice* device) {
  // The name is what marks a USB device among the ancestors of an entry, so it is never absent.
  properties["USB Product Name"] = textAttribute(device, "product").value_or("");
  setText(properties, "USB Vendor Name", textAttribute(device, "manufacturer"));
  setText(properties, "USB Serial Number", textAttribute(device, "serial"));
  addUSBIdentity(properties, device);
  addDeviceNode(properties, device);
}

void addUSBInterface(PropertyDictionary& properties, GUdevDevice* device) {
  for (const char* key :
       {"bInterfaceNumber", "bInterfaceClass", "bInterfaceSubClass", "bInterfaceProtocol"})
    setNumber(properties, key, numberAttribute(device, key, 16));
}

// What is in a folder of sysfs; nothing where there is no such folder.
std::vector<std::string> namesIn(const std::string& path) {
  GDir* folder = g_dir_open(path.c_str(), 0, nullptr);
  if (!folder) return {};
  std::vector<std::string> names;
  while (const char* name = g_dir_read_name(folder))
    names.emplace_back(name);
  g_dir_close(folder);
  return names;
}

// libudev cannot list children, but a unit has one block device and one generic node at most, each
// in a folder named after its subsystem.
std::string nameOfChild(const std::string& unitPath, const char* subsystem) {
  // No folder is no child: the driver has not come to the unit yet, or never will.
  // Of the folder and not through udev, which knows the child only later.
  const auto names = namesIn(unitPath + "/" + subsystem);
  return names.empty() ? "" : names.front();
}

// A unit's address is HOST:CHANNEL:TARGET:LUN. The host number is a new one at every plug, the rest
// tells the units of one USB device apart.
std::string_view addressInHost(std::string_view unitName) {
  const auto colon = unitName.find(':');
  return colon == std::string_view::npos ? unitName : unitName.substr(colon + 1);
}

// What makes a unit the same one at its next plug: the USB device, its place and the unit's address
// in it. A unit elsewhere (a SATA drive, say) is known by where it is.
std::string identityOfUnit(GUdevDevice* unit, GUdevDevice* usbDevice,
                           const PropertyDictionary& properties) {
  if (!usbDevice) return sysfsPath(unit);
  // Everything that stays the same when it is plugged in again at the same place. The place by its
  // path, since two may share a location and any number of devices a serial number.
  std::string identity =
      sysfsPath(usbDevice) +
      formatted("/%u/%u/", properties.value("idVendor", 0U), properties.value("idProduct", 0U));
  identity += textAttribute(usbDevice, "serial").value_or("");
  identity += '/';
  identity += addressInHost(orEmpty(g_udev_device_get_name(unit)));
  return identity;
}

// Linux gives units no GUID, so one is derived; a digest keeps it as long as every other.
PropertyDictionary guidFrom(const std::string& identity) {
  constexpr std::size_t kGUIDSize = 16;
  std::array<std::uint8_t, 32> bytes{};
  gsize length = bytes.size();
  GChecksum* digest = g_checksum_new(G_CHECKSUM_SHA256);
  g_checksum_update(digest, reinterpret_cast<const guchar*>(identity.data()),
                    static_cast<gssize>(identity.size()));
  g_checksum_get_digest(digest, bytes.data(), &length);
  g_checksum_free(digest);
  return PropertyDictionary::binary({bytes.begin(), bytes.begin() + kGUIDSize});
}

// A unit speaks for the USB device that it is part of, so that a client can tell whose unit it is
// without walking upwards. The "USB ..." keys stay with the USB device: they mark it.
void addSCSIUnit(PropertyDictionary& properties, GUdevDevice* unit) {
  // SPC-4, 6.4.2: 5 is an MMC device, as which the maker's units show themselves.
  if (numberAttribute(unit, "type", 10) == kSCSIOpticalDrive) properties["device-type"] = "DVD";
  properties["Device Characteristics"] = {
      {"Vendor Name", textAttribute(unit, "vendor").value_or("")},
      {"Product Name", textAttribute(unit, "model").value_or("")}};
  const GUdevDevicePtr usbDevice(
      g_udev_device_get_parent_with_subsystem(unit, "usb", "usb_device"));
  if (usbDevice) {
    properties["Protocol Characteristics"] = {{"Physical Interconnect", "USB"}};
    addUSBIdentity(properties, usbDevice.get());
  }
  // Its clients only compare it, so any 16 bytes do that are the same for the same unit.
  properties["SCSITaskUserClient GUID"] =
      guidFrom(identityOfUnit(unit, usbDevice.get(), properties));
  const std::string block = nameOfChild(sysfsPath(unit), "block");
  if (!block.empty()) properties["BSD Name"] = block;
  // The kernel's name for the device is that of its node.
  const std::string generic = nameOfChild(sysfsPath(unit), "scsi_generic");
  if (!generic.empty()) properties[kGenericNodeKey] = "/dev/" + generic;
}

// What one key of a matching dictionary leaves of the kinds.
unsigned kindsWithKey(std::string_view key, const PropertyDictionary& value) {
  if (key == kPropertyMatchKey) return kindsThatCanMatch(value);
  if (key == "IOClass") {
    const auto kind = std::ranges::find_if(
        kKinds, [&](const KindOfDevice& each) { return value == each.ioClass; });
    return kind == kKinds.end() ? unsigned{kNoEntry} : unsigned{kind->kind};
  }
  // A key that no entry has matches nothing, and costs no look at sysfs.
  const auto known = std::ranges::find(kKeys, key, &KindsWithKey::key);
  return known == kKeys.end() ? unsigned{kNoEntry} : known->kinds;
}

}  // namespace

EntryKind entryKind(GUdevDevice* device) {
  const auto subsystem = orEmpty(g_udev_device_get_subsystem(device));
  const auto devtype = orEmpty(g_udev_device_get_devtype(device));
  const auto kind = std::ranges::find_if(kKinds, [&](const KindOfDevice& each) {
    return each.subsystem == subsystem && (each.devtype.empty() || each.devtype == devtype);
  });
  return kind == kKinds.end() ? kNoEntry : kind->kind;
}

PropertyDictionary entryProperties(GUdevDevice* device, EntryKind kind) {
  PropertyDictionary properties = PropertyDictionary::object();
  const auto known = std::ranges::find(kKinds, kind, &KindOfDevice::kind);
  if (known == kKinds.end()) return properties;
  properties["IOClass"] = known->ioClass;
  switch (kind) {
    case kUSBDeviceEntry:
      addUSBDevice(properties, device);
      break;
    case kUSBInterfaceEntry:
      addUSBInterface(properties, device);
      break;
    case kSCSIUnitEntry:
      addSCSIUnit(properties, device);
      break;
    default:
      properties["BSD Name"] = cleaned(orEmpty(g_udev_device_get_name(device)));
  }
  return properties;
}

unsigned kindsThatCanMatch(const PropertyDictionary& match) {
  if (!match.is_object()) return kNoEntry;
  unsigned kinds = kEveryEntry;
  for (const auto& [key, value] : match.items())
    kinds &= kindsWithKey(key, value);
  return kinds;
}

std::uint32_t usbLocationID(unsigned bus, std::string_view portPath) {
  constexpr unsigned kHighestPort = 15;
  std::uint32_t location = (bus & 0xFFU) << 24;
  // One turn for each level of hubs; six nibbles are left below the bus.
  // The form in which users know locations from other systems: bus in the top byte, then a nibble
  // for each hub's port.
  for (int shift = 20; shift >= 0 && !portPath.empty(); shift -= 4) {
    const auto dot = std::min(portPath.find('.'), portPath.size());
    unsigned port = 0;
    std::from_chars(portPath.data(), portPath.data() + dot, port);
    // USB 3 hubs may have more than fifteen ports; a wrong nibble must not spill into its
    // neighbour.
    location |= std::min(port, kHighestPort) << shift;
    portPath.remove_prefix(std::min(dot + 1, portPath.size()));
  }
  return location;
}

GUdevDevicePtr scsiUnitAbove(GUdevDevice* device) {
  GUdevDevicePtr parent(g_udev_device_get_parent(device));
  if (parent && entryKind(parent.get()) != kSCSIUnitEntry) parent.reset();
  return parent;
}

bool scsiUnitHasBlockChild(GUdevDevice* unit) {
  // Disks, write-once and optical drives, optical memories, simplified disks.
  constexpr std::array<unsigned, 5> kBlockTypes{0, 4, kSCSIOpticalDrive, 7, 14};
  const auto type = numberAttribute(unit, "type", 10);
  return type && std::ranges::find(kBlockTypes, *type) != kBlockTypes.end();
}

bool scsiUnitHasNode(const std::string& unitPath, const char* subsystem) {
  return !nameOfChild(unitPath, subsystem).empty();
}

bool udevKnowsNode(GUdevClient* client, const std::string& unitPath, const char* subsystem) {
  const std::string path = unitPath + "/" + subsystem + "/" + nameOfChild(unitPath, subsystem);
  const GUdevDevicePtr node(g_udev_client_query_by_sysfs_path(client, path.c_str()));
  if (!node) return false;
  if (g_udev_device_get_is_initialized(node.get())) return true;
  // Where udev has not dealt with the USB device either, it keeps no records here.
  // In a container without udev's records nothing ever counts as dealt with, and waiting for it
  // would only delay every unit.
  const GUdevDevicePtr usbDevice(
      g_udev_device_get_parent_with_subsystem(node.get(), "usb", "usb_device"));
  return !usbDevice || !g_udev_device_get_is_initialized(usbDevice.get());
}

std::vector<std::string> disksBelowBlock(const std::string& bsdName) {
  std::vector<std::string> disks;
  // A partition lies on what the device that it is a part of lies on.
  for (const char* whole : {"", "/.."}) {
    const std::string path = "/sys/class/block/" + bsdName + whole;
    std::ranges::move(namesIn(path + "/slaves"), std::back_inserter(disks));
    // A loop over a file keeps the file system busy that the file is on, so only nodes matter.
    std::ifstream loop(path + "/loop/backing_file");
    std::string file;
    if (std::getline(loop, file) && file.starts_with("/dev/"))
      disks.push_back(file.substr(file.rfind('/') + 1));
  }
  return disks;
}

std::string sysfsPath(GUdevDevice* device) {
  return std::string(orEmpty(g_udev_device_get_sysfs_path(device)));
}

// devnum counts up with every plug on a bus: the one thing that the next device at the same path
// does not share.
std::string plugNumber(std::string_view path) {
  constexpr std::string_view kDevices = "/sys/devices/";
  while (path.starts_with(kDevices)) {
    std::string number;
    if (std::ifstream(std::string(path) + "/devnum") >> number) return number;
    path = path.substr(0, path.rfind('/'));
  }
  return {};
}

std::vector<std::pair<std::string, std::string>> attributesOfMatch(
    const PropertyDictionary& match) {
  std::vector<std::pair<std::string, std::string>> attributes;
  for (const auto& [key, value] : match.items()) {
    if (key == kPropertyMatchKey) {
      auto inner = attributesOfMatch(value);
      std::ranges::move(inner, std::back_inserter(attributes));
    } else if (key == "device-type") {
      // What can be matched in sysfs itself is left to udev, so that only candidates are read.
      attributes.emplace_back("type", std::to_string(kSCSIOpticalDrive));
    } else if (key.starts_with("bInterface") && value.is_number_integer()) {
      attributes.emplace_back(key, formatted("%02x", value.get<unsigned>()));
    }
  }
  return attributes;
}

}  // namespace tarvo
