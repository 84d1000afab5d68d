#include "simulator/testbed/SysfsTree.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "Utilities/Format.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/testbed/UsbfsNode.h"

namespace tarvo::simulator {
namespace {

constexpr const char* kController = "/devices/pci0000:00/0000:00:14.0";

std::string hubPath(unsigned bus) {
  return kController + formatted("/usb%u", bus);
}

/// "1-4.2" lies below "1-4", which is shown as part of the path only.
std::string devicePath(const UsbPort& port) {
  return hubPath(port.bus) + "/" + port.name();
}

std::string interfacePath(const UsbPort& port) {
  return devicePath(port) + "/" + port.name() + ":1.0";
}

std::string hex2(unsigned value) {
  return formatted("%02x", value);
}
std::string hex4(unsigned value) {
  return formatted("%04x", value);
}

/// As udev writes texts of devices into properties: no blanks.
std::string underscored(std::string text) {
  std::replace(text.begin(), text.end(), ' ', '_');
  return text;
}

/// As the SCSI layer shows identification: padded with blanks.
std::string padded(std::string text, std::size_t width) {
  text.resize(width, ' ');
  return text;
}

void appendFileSystem(std::vector<std::pair<std::string, std::string>>& properties,
                      const VolumeDescription& volume) {
  properties.insert(
      properties.end(),
      {{"ID_FS_USAGE", "filesystem"}, {"ID_FS_TYPE", "vfat"}, {"ID_FS_LABEL", volume.label}});
}

std::string modalias(const UsbIdentity& identity, const InterfaceDescription& interface) {
  return formatted("usb:v%04Xp%04Xd%04Xdc00dsc00dp00ic%02Xisc%02Xip%02Xin00", identity.vendor,
                   identity.product, identity.release, interface.kind.code, interface.kind.subclass,
                   interface.kind.protocol);
}

}  // namespace

// umockdev's description format: P path, N node, E property, A attribute, H binary attribute.
void SysfsTree::add(const Entry& entry, const std::string& port) {
  std::string text = "P: " + entry.path + "\n";
  if (!entry.node.empty()) text += "N: " + entry.node + "\n";
  for (const auto& [key, value] : entry.properties)
    text.append("E: ").append(key).append("=").append(value).append("\n");
  for (const auto& [key, value] : entry.attributes)
    text.append("A: ").append(key).append("=").append(value).append("\\n\n");
  if (!entry.descriptors.empty()) {
    text += "H: descriptors=";
    for (const auto byte : entry.descriptors)
      text += formatted("%02X", static_cast<unsigned>(byte));
    text += "\n";
  }
  GErrorSlot error;
  if (!umockdev_testbed_add_from_string(testbed_, (text + "\n").c_str(), error.address())) {
    throw std::runtime_error("cannot add " + entry.path + ": " + error.message());
  }
  added_.push_back({port, entry.path, deviceLink(entry)});
}

std::string SysfsTree::deviceLink(const Entry& entry) {
  // umockdev links every device number; which of the two folders depends on the subsystem.
  const bool block = entry.properties.front().second == "block";
  for (const auto& [key, value] : entry.attributes) {
    if (key == "dev") return (block ? "/dev/block/" : "/dev/char/") + value;
  }
  return {};
}

void SysfsTree::addRootHub(unsigned bus) {
  const auto path = hubPath(bus);
  const auto known = std::any_of(added_.begin(), added_.end(),
                                 [&](const auto& each) { return each.path == path; });
  if (known) return;
  Entry hub;
  hub.path = path;
  hub.properties = {{"SUBSYSTEM", "usb"}, {"DEVTYPE", "usb_device"}};
  hub.attributes = {{"busnum", std::to_string(bus)},
                    {"devnum", "1"},
                    {"devpath", "0"},
                    {"speed", "480"},
                    {"maxchild", "15"},
                    {"bConfigurationValue", "1"},
                    {"bDeviceClass", "09"},
                    {"idVendor", "1d6b"},
                    {"idProduct", "0002"},
                    {"product", "Simulated host controller"}};
  // Device and configuration descriptor of a hub.
  static constexpr std::array<unsigned char, 43> kHub = {
      18, 1, 0, 2,    9, 0, 1, 64, 0x6b, 0x1d, 2, 0, 0, 1, 0, 2, 0,    1, 9, 2, 25, 0,
      1,  1, 0, 0xe0, 0, 9, 4, 0,  0,    1,    9, 0, 0, 0, 7, 5, 0x81, 3, 4, 0, 12};
  for (const auto byte : kHub)
    hub.descriptors.push_back(static_cast<std::byte>(byte));
  add(hub, "");
}

void SysfsTree::addUsbDevice(const UsbPort& port, const UsbfsAddress& address,
                             const UsbDescriptors& descriptors) {
  const auto& identity = descriptors.identity();
  const auto& interface = descriptors.interface();
  // The kernel's numbering of usb_device nodes: 128 a bus, major 189.
  const unsigned minor = (address.bus - 1) * 128 + address.device - 1;
  Entry device;
  device.path = devicePath(port);
  device.properties = {
      {"SUBSYSTEM", "usb"},
      {"DEVTYPE", "usb_device"},
      {"DEVNAME", address.node()},
      {"MAJOR", "189"},
      {"MINOR", std::to_string(minor)},
      {"BUSNUM", formatted("%03u", address.bus)},
      {"DEVNUM", formatted("%03u", address.device)},
      {"PRODUCT", formatted("%x/%x/%x", identity.vendor, identity.product, identity.release)},
      {"TYPE", "0/0/0"},
      {"ID_BUS", "usb"},
      {"ID_VENDOR_ID", hex4(identity.vendor)},
      {"ID_MODEL_ID", hex4(identity.product)},
      {"ID_VENDOR", underscored(identity.manufacturer)},
      {"ID_MODEL", underscored(identity.name)},
      {"ID_SERIAL_SHORT", underscored(identity.serial)},
      {"ID_USB_INTERFACES", formatted(":%02x%02x%02x:", interface.kind.code,
                                      interface.kind.subclass, interface.kind.protocol)}};
  device.attributes = {{"busnum", std::to_string(address.bus)},
                       {"devnum", std::to_string(address.device)},
                       {"devpath", port.path},
                       {"dev", formatted("189:%u", minor)},
                       {"speed", identity.speed == UsbSpeed::kHigh ? "480" : "12"},
                       {"version", " 2.00"},  // the blanks are the kernel's
                       {"maxchild", "0"},
                       {"idVendor", hex4(identity.vendor)},
                       {"idProduct", hex4(identity.product)},
                       {"bcdDevice", hex4(identity.release)},
                       {"bDeviceClass", "00"},
                       {"bDeviceSubClass", "00"},
                       {"bDeviceProtocol", "00"},
                       {"bMaxPacketSize0", "64"},
                       {"bNumConfigurations", "1"},
                       {"bConfigurationValue", "1"},
                       {"bNumInterfaces", " 1"},
                       {"bmAttributes", "c0"},
                       {"bMaxPower", "100mA"}};
  // The kernel shows a text only where the device has one.
  if (!identity.manufacturer.empty()) {
    device.attributes.emplace_back("manufacturer", identity.manufacturer);
  }
  if (!identity.name.empty()) device.attributes.emplace_back("product", identity.name);
  if (!identity.serial.empty()) device.attributes.emplace_back("serial", identity.serial);
  device.descriptors = descriptors.node();
  add(device, port.name());
  addInterface(port, descriptors);
}

void SysfsTree::addInterface(const UsbPort& port, const UsbDescriptors& descriptors) {
  const auto& identity = descriptors.identity();
  const auto& interface = descriptors.interface();
  Entry entry;
  entry.path = interfacePath(port);
  entry.properties = {
      {"SUBSYSTEM", "usb"},
      {"DEVTYPE", "usb_interface"},
      {"PRODUCT", formatted("%x/%x/%x", identity.vendor, identity.product, identity.release)},
      {"TYPE", "0/0/0"},
      {"INTERFACE", formatted("%u/%u/%u", interface.kind.code, interface.kind.subclass,
                              interface.kind.protocol)},
      {"MODALIAS", modalias(identity, interface)}};
  entry.attributes = {{"bInterfaceNumber", "00"},
                      {"bAlternateSetting", " 0"},
                      {"bNumEndpoints", hex2(static_cast<unsigned>(interface.endpoints.size()))},
                      {"bInterfaceClass", hex2(interface.kind.code)},
                      {"bInterfaceSubClass", hex2(interface.kind.subclass)},
                      {"bInterfaceProtocol", hex2(interface.kind.protocol)},
                      {"modalias", modalias(identity, interface)}};
  add(entry, port.name());
}

void SysfsTree::addScsiUnit(const UsbPort& port, const ScsiNumbers& numbers,
                            const DeviceDescription& description) {
  const auto host = interfacePath(port) + formatted("/host%u", numbers.host);
  const auto target = host + formatted("/target%u:0:0", numbers.host);
  const auto unit = target + formatted("/%u:0:0:0", numbers.host);
  add({host, "", {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_host"}}, {}, {}}, port.name());
  add({target, "", {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_target"}}, {}, {}}, port.name());
  addScsiDevice(port, unit, description);
  // The generic node before the block device, as the kernel's drivers find the unit in that order.
  Entry generic;
  generic.path = unit + formatted("/scsi_generic/sg%u", numbers.generic);
  generic.node = formatted("sg%u=00", numbers.generic);
  generic.properties = {{"SUBSYSTEM", "scsi_generic"},
                        {"DEVNAME", formatted("/dev/sg%u", numbers.generic)}};
  generic.attributes = {{"dev", formatted("21:%u", numbers.generic)}};
  add(generic, port.name());
  addBlock(port, unit + "/block/" + numbers.block, numbers, description);
}

void SysfsTree::addScsiDevice(const UsbPort& port, const std::string& path,
                              const DeviceDescription& description) {
  const auto& scsi = description.scsi;
  Entry unit;
  unit.path = path;
  unit.properties = {{"SUBSYSTEM", "scsi"},
                     {"DEVTYPE", "scsi_device"},
                     {"MODALIAS", formatted("scsi:t-0x%02x", scsi.type)}};
  unit.attributes = {{"type", std::to_string(scsi.type)},
                     {"vendor", padded(scsi.vendor, 8)},
                     {"model", padded(scsi.model, 16)},
                     {"rev", padded(scsi.revision, 4)},
                     {"scsi_level", "5"},  // SPC-2, as INQUIRY says, counted as the kernel does
                     {"state", "running"},
                     {"modalias", formatted("scsi:t-0x%02x", scsi.type)}};
  add(unit, port.name());
}

void SysfsTree::addBlock(const UsbPort& port, const std::string& path, const ScsiNumbers& numbers,
                         const DeviceDescription& description) {
  const bool optical = description.scsi.type == kOpticalType;
  const unsigned major = optical ? 11 : 8;
  const auto last = static_cast<unsigned char>(numbers.block.back());
  const unsigned minor = optical ? last - '0' : 16 * (last - 'a');
  Entry disk;
  disk.path = path;
  disk.node = numbers.block + "=00";
  disk.properties = {{"SUBSYSTEM", "block"},
                     {"DEVTYPE", "disk"},
                     {"DEVNAME", "/dev/" + numbers.block},
                     {"MAJOR", std::to_string(major)},
                     {"MINOR", std::to_string(minor)},
                     {"ID_BUS", "usb"},
                     {"ID_VENDOR_ID", hex4(description.usb.vendor)},
                     {"ID_MODEL_ID", hex4(description.usb.product)},
                     {"ID_SERIAL_SHORT", underscored(description.usb.serial)},
                     {"ID_VENDOR", underscored(description.scsi.vendor)},
                     {"ID_MODEL", underscored(description.scsi.model)},
                     {"ID_TYPE", optical ? "cd" : "disk"}};
  if (optical) disk.properties.emplace_back("ID_CDROM", "1");
  if (optical && description.volume) {
    // What cdrom_id and blkid find: the file system lies on the medium without a partition.
    disk.properties.emplace_back("ID_CDROM_MEDIA", "1");
    appendFileSystem(disk.properties, *description.volume);
  }
  disk.attributes = {{"dev", formatted("%u:%u", major, minor)},
                     {"removable", "1"},
                     {"ro", "0"},
                     {"size", "7864320"}};
  add(disk, port.name());
  if (!description.volume || optical) return;
  // The partition repeats the properties of its disk, but for type, name and number.
  Entry partition;
  const auto name = numbers.block + "1";
  partition.path = path + "/" + name;
  partition.node = name + "=00";
  partition.properties = disk.properties;
  partition.properties[1].second = "partition";
  partition.properties[2].second = "/dev/" + name;
  partition.properties[4].second = std::to_string(minor + 1);
  appendFileSystem(partition.properties, *description.volume);
  partition.attributes = {{"dev", formatted("%u:%u", major, minor + 1)},
                          {"partition", "1"},
                          {"ro", "0"},
                          {"size", "7862272"}};
  add(partition, port.name());
}

void SysfsTree::remove(const UsbPort& port) {
  std::vector<Added> gone;
  std::copy_if(added_.begin(), added_.end(), std::back_inserter(gone),
               [&](const auto& each) { return each.port == port.name(); });
  // The events first, while sysfs still stands; the children before their parents.
  std::reverse(gone.begin(), gone.end());
  for (const auto& each : gone) {
    umockdev_testbed_uevent(testbed_, ("/sys" + each.path).c_str(), "remove");
  }
  const std::unique_ptr<gchar, decltype(&g_free)> sys(umockdev_testbed_get_sys_dir(testbed_),
                                                      &g_free);
  for (const auto& each : gone) {
    umockdev_testbed_remove_device(testbed_, ("/sys" + each.path).c_str());
    // umockdev leaves these links, and a later device of the same number or name would meet them.
    if (!each.link.empty()) std::filesystem::remove(sys.get() + each.link);
    if (each.link.starts_with("/dev/block/")) {
      const auto name = std::filesystem::path(each.path).filename().string();
      std::filesystem::remove(sys.get() + ("/block/" + name));
    }
  }
  std::erase_if(added_, [&](const auto& each) { return each.port == port.name(); });
}

}  // namespace tarvo::simulator
