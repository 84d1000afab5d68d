#include "identify/GetICAVolumeFromUSBLocation.h"

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Format.h"
#include "identify/DeviceInfoSupport.h"

namespace tarvo {
namespace {

void logDebug(const std::string& line) {
  if (LogCheck(kLogAppDebug)) systemLogLine(line);
}

bool isMassStorageModule(const PropertyDictionary& properties) {
  const auto module = lastPathComponent(textForKey(properties, "device module").value_or(""));
  return module == device_module::kMassStorageCamera || module == device_module::kMassStorage;
}

/// The camera at `index` of the device list; none, logged, when that child is no camera. Codes are
/// shown least significant byte first (docs/oddities.md).
std::optional<ICAObject> cameraAt(ImageCapture& imageCapture, ICAObject list, std::uint32_t index) {
  // Asked one by one: a child that cannot be read does not hide the others.
  ICAChildInfo child;
  const int number = static_cast<int>(index);
  if (const Status error = imageCapture.getNthChild(list, index, child); error != status::kOK) {
    logDebug(formatted("ICAGetNthChild %d error: %d, header err", number, error));
    return std::nullopt;
  }
  if (child.info.objectType != ica::kDevice) {
    logDebug(formatted("child %d getNthChildPB.childInfo.objectType: '%s'", number,
                       fourCharTextReversed(child.info.objectType).c_str()));
    return std::nullopt;
  }
  if (child.info.objectSubtype != ica::kCamera) {
    logDebug(formatted("child %d getNthChildPB.childInfo.objectSubtype: '%s'", number,
                       fourCharTextReversed(child.info.objectSubtype).c_str()));
    return std::nullopt;
  }
  return child.object;
}

/// Name of the device that the volume is mounted from; empty when it is not mounted.
std::string mountedDeviceName(const MountTable& mounts, const std::string& volume) {
  const auto device =
      // The label comes from the card: only its last component is joined to the folder.
      mounts.deviceMountedAt(mounts.volumesFolder() + "/" + lastPathComponent(volume));
  return device ? lastPathComponent(*device) : std::string();
}

std::optional<ICAVolume> volumeAt(const IdentifyServices& services, ICAObject list,
                                  std::uint32_t index) {
  const auto camera = cameraAt(services.imageCapture, list, index);
  if (!camera) return std::nullopt;
  PropertyDictionary properties;
  const Status error = services.imageCapture.copyObjectPropertyDictionary(*camera, properties);
  if (error != status::kOK) {
    logDebug(formatted(
        "ICACopyObjectPropertyDictionary copyObjectPropertyDictionaryPB.header.err: %i", error));
    return std::nullopt;
  }
  if (!isMassStorageModule(properties)) return std::nullopt;
  // A mass-storage device without a volume has no card in it, or one that cannot be read.
  const auto volume = textForKey(properties, "volume");
  if (!volume) {
    logDebug(formatted("No volume property for index %d", static_cast<int>(index)));
    return std::nullopt;
  }
  auto bsdName = textForKey(properties, "bsdName").value_or("");
  // Image Capture may not know it yet when the volume has just been mounted.
  if (bsdName.empty()) bsdName = mountedDeviceName(services.mounts, *volume);
  if (bsdName.empty()) return std::nullopt;
  return ICAVolume{*volume, bsdName};
}

}  // namespace

std::optional<std::vector<ICAVolume>> GetICABSDNames() {
  auto* room = IdentifyRoom::current();
  if (!room) return std::nullopt;
  const auto& services = room->services();
  ICAObject list = 0;
  if (const Status error = services.imageCapture.getDeviceList(list); error != status::kOK) {
    systemLogLine(formatted("ICAGetDeviceList error: %d", error));
    return std::nullopt;
  }
  std::uint32_t count = 0;
  Status headerErr = status::kOK;
  const Status error = services.imageCapture.getChildCount(list, count, headerErr);
  if (error != status::kOK || headerErr != status::kOK) {
    // The header's error is not shown: intended, see docs/oddities.md.
    logDebug(formatted("ICAGetChildCount error: %d, header err", error));
    return std::nullopt;
  }
  std::vector<ICAVolume> volumes;
  for (std::uint32_t index = 0; index < count; ++index) {
    if (auto volume = volumeAt(services, list, index)) volumes.push_back(std::move(*volume));
  }
  return volumes;
}

}  // namespace tarvo
