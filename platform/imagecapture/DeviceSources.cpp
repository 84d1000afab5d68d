#include "platform/imagecapture/DeviceSources.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

std::optional<PropertyDictionary> usbDeviceAbove(Registry& registry, ServiceHandle service) {
  // The nearest: below a hub both are USB devices, and the camera is the inner one.
  auto found = nearestAncestor(registry, service, {.key = "USB Product Name"});
  return found.handle == 0 ? std::nullopt : std::optional(std::move(found.properties));
}

PropertyDictionary deviceDictionary(const std::string& name, std::string_view module,
                                    const PropertyDictionary& usbDevice) {
  // Clients compare the last component of the path alone.
  PropertyDictionary dictionary = {
      {"ifil", name},
      {"device module", "/System/Library/Image Capture/Devices/" + std::string(module)},
      {"capa", PropertyDictionary::array()}};
  for (const char* key : {"idVendor", "idProduct", "locationID"}) {
    const auto number = usbDevice.find(key);
    // A device that tells no number has no key, which clients take for unknown; 0 would be a
    // number.
    if (number != usbDevice.end()) dictionary[key] = *number;
  }
  return dictionary;
}

PTPSource::PTPSource(Registry& registry, DeviceSink& sink, LogSink log)
    : registry_(registry), sink_(sink), log_(std::move(log)) {
  const PropertyDictionary match = {{"IOClass", "usb_interface"},
                                    {"bInterfaceClass", ptp::kStillImageClass},
                                    {"bInterfaceSubClass", ptp::kStillImageSubclass},
                                    {"bInterfaceProtocol", ptp::kPTPProtocol}};
  // Subscribed before what is present is looked at, so that nothing falls in between;
  // interfaceCame() passes over what comes twice.
  subscription_ = registry_.addMatchingNotification(
      match, [this](ServiceHandle service) { interfaceCame(service); },
      [this](ServiceHandle service) { interfaceWent(service); });
  for (const ServiceHandle service : subscription_->present())
    interfaceCame(service);
}

void PTPSource::interfaceCame(ServiceHandle service) {
  // udev repeats events, and what is found may be announced as well.
  if (devices_.contains(service)) return;
  auto device = describe(service);
  if (!device) {
    logTo(log_, LogLevel::kDebug, formatted("PTP interface %u went before it was read", service));
    return;
  }
  devices_[service] = sink_.deviceCame(std::move(*device));
}

void PTPSource::interfaceWent(ServiceHandle service) {
  // Off the map first: listeners may look for devices in their turn.
  const auto device = devices_.extract(service);
  if (device) sink_.deviceWent(device.mapped());
}

std::optional<FoundDevice> PTPSource::describe(ServiceHandle service) {
  const auto interface = registry_.properties(service);
  const auto usbDevice = usbDeviceAbove(registry_, service);
  if (!interface || !usbDevice) return std::nullopt;
  const auto number = int32ForKey(*interface, "bInterfaceNumber");
  const auto node = textForKey(*usbDevice, "USB Device Node");
  // Without them the interface cannot be claimed; an entry loses them when its device goes.
  if (!number || !node) return std::nullopt;
  const std::string name = textForKey(*usbDevice, "USB Product Name").value_or("");
  return FoundDevice{deviceDictionary(name, device_module::kPTPCamera, *usbDevice),
                     ptp::USBInterfaceAddress{*node, static_cast<std::uint8_t>(*number)}};
}

namespace {

bool holdsPictureFolder(const std::string& mountPoint) {
  // DCF, the rule for camera cards, wants this folder at the top; it is what every camera makes. A
  // card that cannot be read is a card all the same.
  std::error_code unreadable;  // counts as no folder
  return std::filesystem::is_directory(mountPoint + "/DCIM", unreadable);
}

}  // namespace

VolumeSource::VolumeSource(Registry& registry, MountTable& mounts, DeviceSink& sink, LogSink log)
    : registry_(registry), mounts_(mounts), sink_(sink), log_(std::move(log)) {
  mounts_.watch([this] { mountsChanged(); });
  // What is mounted already counts as having come: units and cards are plugged in before the
  // session starts.
  mountsChanged();
}

VolumeSource::~VolumeSource() {
  mounts_.watch(nullptr);
}

void VolumeSource::mountsChanged() {
  const std::vector<Mount> present = volumesMounted();
  const auto isGone = [&](const Volume& volume) {
    return std::ranges::find(present, volume.mount) == present.end();
  };
  // A volume that was mounted anew from another disk has gone and come: both are told in this
  // order.
  // Taken off before anybody is told: a listener that asks for the devices must not find one that
  // has gone.
  std::vector<Volume> gone;
  std::ranges::copy_if(volumes_, std::back_inserter(gone), isGone);
  std::erase_if(volumes_, isGone);
  for (const Volume& volume : gone) {
    if (volume.object != 0) sink_.deviceWent(volume.object);
  }
  for (const Mount& mount : present) {
    if (std::ranges::find(volumes_, mount, &Volume::mount) == volumes_.end()) volumeCame(mount);
  }
}

void VolumeSource::volumeCame(const Mount& mount) {
  auto device = describe(mount);
  if (!device) logTo(log_, LogLevel::kDebug, mount.mountPoint + " is no volume of a USB device");
  // Also where it is no device, so that it is not looked at again at every change of the mount
  // table.
  volumes_.push_back({mount, device ? sink_.deviceCame(std::move(*device)) : 0});
}

// Of several filesystems mounted on one folder the last one is what is seen there.
std::vector<Mount> VolumeSource::volumesMounted() const {
  std::vector<Mount> present;
  for (Mount& mount : mounts_.mounts()) {
    if (nameOfVolume(mount.mountPoint).empty()) continue;
    std::erase_if(present, [&](const Mount& each) { return each.mountPoint == mount.mountPoint; });
    present.push_back(std::move(mount));
  }
  return present;
}

std::string VolumeSource::nameOfVolume(std::string_view mountPoint) const {
  std::string_view folder = mounts_.volumesFolder();
  while (folder.ends_with('/'))
    folder.remove_suffix(1);
  if (!mountPoint.starts_with(folder)) return {};
  mountPoint.remove_prefix(folder.size());
  // Exactly one level below: deeper mounts belong to somebody's own arrangement.
  if (!mountPoint.starts_with('/') || mountPoint.find('/', 1) != std::string_view::npos) return {};
  return std::string(mountPoint.substr(1));
}

std::optional<FoundDevice> VolumeSource::describe(const Mount& mount) {
  // The kernel name of the disk, as the registry has it.
  const std::string bsdName = lastPathComponent(mount.device);
  // Once, when it comes: the disk behind a mount does not change while it is mounted.
  const auto services = registry_.servicesMatchingBSDName(bsdName);
  // tmpfs, network and loop mounts have no disk of the registry behind them.
  if (services.empty()) return std::nullopt;
  const auto usbDevice = usbDeviceAbove(registry_, services.front());
  if (!usbDevice) return std::nullopt;
  const auto module = holdsPictureFolder(mount.mountPoint) ? device_module::kMassStorageCamera
                                                           : device_module::kMassStorage;
  const std::string name = nameOfVolume(mount.mountPoint);
  PropertyDictionary dictionary = deviceDictionary(name, module, *usbDevice);
  dictionary["volume"] = name;
  dictionary["bsdName"] = bsdName;
  return FoundDevice{std::move(dictionary), std::nullopt};
}

}  // namespace tarvo
