#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"

#include <fcntl.h>

#include <filesystem>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/VolumeFiles.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/FileDescriptor.h"
#include "platform/files/ScratchFolder.h"

namespace tarvo {
namespace {

/// The volume's name, which comes from a device, as one component of a path; empty when it cannot
/// be one.
std::string volumeNameOf(const PropertyDictionary& dictionary) {
  // The label of a volume may hold any bytes; ".." or a path would lead out of the folder of
  // volumes, where the markers are looked for.
  const auto name = lastPathComponent(textForKey(dictionary, "volume").value_or(""));
  return name == "." || name == ".." ? std::string() : name;
}

}  // namespace

std::shared_ptr<XTImageCaptureMSCDevice> XTImageCaptureMSCDevice::withICAObject(ICAObject object,
                                                                                Status* failure) {
  const std::shared_ptr<XTImageCaptureMSCDevice> device(new XTImageCaptureMSCDevice);
  return initialized(device, object, failure);
}

Status XTImageCaptureMSCDevice::loadDeviceInfoUncached() {
  // The status does not matter: without a dictionary it is -36, whatever the cause.
  (void)refreshIcaDictionary();
  if (!icaDictionary_) {
    TraceLog::trace("loadDeviceInfoUncached couldn't get an ICA dictionary");
    return status::kIOError;
  }
  volumeName_ = volumeNameOf(*icaDictionary_);
  bsdName_ = textForKey(*icaDictionary_, "bsdName").value_or("");
  // Image Capture may have no name yet for a volume that has just been mounted.
  if (bsdName_.empty()) bsdName_ = mountedDeviceName();
  // Only said here: discovery below fails by itself on an empty name.
  if (bsdName_.empty()) TraceLog::trace("loadDeviceInfoUncached failed to find bsdName");
  return doIOKitDiscovery();
}

Status XTImageCaptureMSCDevice::downloadFile(const ObjectReference& object,
                                             const std::string& destination) {
  const auto handle = int32ForKey(object, "icao");
  if (!handle) return status::kICAInvalidObject;
  // The service gives a file its own name, which may be taken where it is to go.
  const ScratchFolder scratch;
  std::string path;
  const Status status = PictureDeviceRoom::imageCapture().downloadFile(
      static_cast<ICAObject>(*handle), scratch.path(), path);
  if (status != status::kOK) return status;
  // O_NOFOLLOW: the name is the card's.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  const std::filesystem::path target(destination);
  const std::string folder = target.parent_path().string();
  return VolumeCopy()
      .toFile(file.get(), lastPathComponent(path),
              {.folder = folder.empty() ? "." : folder, .name = target.filename().string()})
      .status;
}

std::string XTImageCaptureMSCDevice::mountedDeviceName() const {
  const auto& mounts = PictureDeviceRoom::required().services().mounts;
  const auto device = mounts.deviceMountedAt(logicalMountPath());
  if (!device) {
    TraceLog::trace("loadDeviceInfoUncached - ERROR - statfs failed for volume '%s'",
                    volumeName_.c_str());
    return {};
  }
  return lastPathComponent(*device);
}

std::string XTImageCaptureMSCDevice::logicalMountPath() const {
  return PictureDeviceRoom::required().services().mounts.volumesFolder() + "/" + volumeName_;
}

Status XTImageCaptureMSCDevice::doIOKitDiscovery() {
  auto& registry = PictureDeviceRoom::required().services().registry;
  if (bsdName_.empty()) {
    TraceLog::trace("doIOKitDiscovery failed to get dictionary for bsdName %s", bsdName_.c_str());
    return status::kIOError;
  }
  // Only the first service counts, and of its ancestors the nearest USB device: the unit, not a
  // hub.
  const auto services = registry.servicesMatchingBSDName(bsdName_);
  // The disk went while it was inspected.
  if (services.empty()) {
    TraceLog::trace("doIOKitDiscovery failed to get service");
    return status::kIOError;
  }
  const auto unit =
      nearestAncestor(registry, services.front(), {.key = "USB Product Name"},
                      [](const char* what) { TraceLog::trace("doIOKitDiscovery %s", what); });
  if (unit.status == status::kOK) takeUSBIdentity(unit.properties);
  return unit.status;
}

void XTImageCaptureMSCDevice::takeUSBIdentity(const PropertyDictionary& usbDevice) {
  // A device need not have these descriptors, and none of them is needed to go on.
  fields_.deviceModel = textForKey(usbDevice, "USB Product Name").value_or("");
  fields_.deviceManufacturer = textForKey(usbDevice, "USB Vendor Name").value_or("");
  fields_.deviceSerialNumber = textForKey(usbDevice, "USB Serial Number").value_or("");
  vid_ = int32ForKey(usbDevice, "idVendor").value_or(0);
  pid_ = int32ForKey(usbDevice, "idProduct").value_or(0);
  usbLocID_ = int32ForKey(usbDevice, "locationID").value_or(0);

  // A camera in disk mode may hold markers as well, so the ids are asked first.
  mscType_ = MSCType::kUnknown;
  auto* models = SupportedModels::current();
  if (models && models->isValidPVC(vid_, pid_)) {
    mscType_ = MSCType::kCamera;
  } else if (SupportedModels::isValidCard(logicalMountPath())) {
    mscType_ = MSCType::kCard;
  }
}

}  // namespace tarvo
