#include "platform/imagecapture/VolumeSource.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <utility>

namespace tarvo {
namespace {

bool holdsPictureFolder(const std::string& mountPoint) {
  std::error_code unreadable;  // counts as no folder
  return std::filesystem::is_directory(mountPoint + "/DCIM", unreadable);
}

}  // namespace

VolumeSource::VolumeSource(Registry& registry, MountTable& mounts, DeviceSink& sink, LogSink log)
    : registry_(registry), mounts_(mounts), sink_(sink), log_(std::move(log)) {
  mounts_.watch([this] { mountsChanged(); });
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
