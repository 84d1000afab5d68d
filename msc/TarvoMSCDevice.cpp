#include "msc/TarvoMSCDevice.h"

#include <array>
#include <filesystem>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "identify/GetICAVolumeFromUSBLocation.h"
#include "msc/GetUSBDataFromBSDName.h"
#include "msc/MSCRoom.h"
#include "platform/iokit/USBDevice.h"

namespace tarvo {

namespace {

/// Each says by its presence that pictures on the card wait to be shared.
constexpr auto kSharingFiles =
    std::to_array<const char*>({"SSECUPLD.XML", "SSICUPLD.XML", "EREVIEW.DB", "IREVIEW.DB"});

std::optional<std::int32_t> locationOf(const std::string& bsdName) {
  return int32ForKey(GetUSBDataFromBSDName(bsdName), "locationID");
}

}  // namespace

std::shared_ptr<TarvoMSCDevice> TarvoMSCDevice::initWithMMCDevice(
    std::shared_ptr<MMCDeviceInterface> device, ServiceHandle service,
    std::optional<std::string> modelString, std::optional<std::vector<std::uint8_t>> guid) {
  assertParameter(device != nullptr, "device != NULL");
  assertParameter(service != 0, "service != IO_OBJECT_NULL");
  assertParameter(modelString.has_value(), "modelString != nil");
  assertParameter(guid.has_value(), "guid != nil");
  std::shared_ptr<TarvoMSCDevice> unit(new TarvoMSCDevice);
  unit->_scsi = device->getSCSITaskDeviceInterface();
  unit->_mmcDevice = std::move(device);
  unit->_service = service;
  unit->_massStorageModel = std::move(*modelString);
  unit->_guid = std::move(*guid);
  return unit;
}

std::optional<std::string> TarvoMSCDevice::bsdName() {
  if (_bsdName) return _bsdName;
  auto& registry = MSCRoom::required().services().registry;
  // The service itself, then its parents.
  auto entries = registry.ancestors(_service).value_or(std::vector<ServiceHandle>{});
  entries.insert(entries.begin(), _service);
  for (const ServiceHandle entry : entries) {
    const auto properties = registry.properties(entry);
    if (properties) _bsdName = textForKey(*properties, "BSD Name");
    if (_bsdName) break;
  }
  return _bsdName;
}

bool TarvoMSCDevice::getDCFMediaForLocationID(std::optional<std::int32_t> locationID,
                                              std::optional<std::string>* bsdName,
                                              std::optional<std::string>* volumeName) {
  if (!_dcfVolumeBSDName && !_dcfVolumeName && locationID) {
    for (const auto& volume : GetICABSDNames().value_or(std::vector<ICAVolume>{})) {
      if (locationOf(volume.bsdName) != locationID) continue;
      _dcfVolumeBSDName = volume.bsdName;
      _dcfVolumeName = volume.volume;
      break;
    }
  }
  if (bsdName) *bsdName = _dcfVolumeBSDName;
  if (volumeName) *volumeName = _dcfVolumeName;
  return _dcfVolumeBSDName && _dcfVolumeName;
}

std::optional<std::string> TarvoMSCDevice::dcfVolumeBSDName() {
  if (!_dcfVolumeBSDName)
    getDCFMediaForLocationID(locationOf(bsdName().value_or("")), nullptr, nullptr);
  return _dcfVolumeBSDName;
}

std::vector<Mount> TarvoMSCDevice::mounts() const {
  const auto& services = MSCRoom::required().services();
  const ServiceHandle usbDevice = usbHandleAbove(services.registry, _service);
  auto mounts = services.mounts.mounts();
  std::erase_if(mounts, [&](const Mount& mount) {
    return usbDevice == 0 || !mount.device.starts_with("/dev/") ||
           usbDeviceOfDisk(services.registry, lastPathComponent(mount.device)) != usbDevice;
  });
  return mounts;
}

bool TarvoMSCDevice::sharingOrderExists() {
  try {
    return hasSharingOrder();
  } catch (const std::exception& exception) {
    TraceLog::trace("Error: sharingOrderExists returning NO because %s", exception.what());
    return false;
  }
}

bool TarvoMSCDevice::hasSharingOrder() {
  std::optional<std::string> volume;
  if (!getDCFMediaForLocationID(locationOf(bsdName().value_or("")), nullptr, &volume)) return false;
  // The card names its volume, and must not lead out of the folder of volumes.
  const auto name = lastPathComponent(*volume);
  if (name.empty() || name == "." || name == "..") return false;
  const auto folder =
      std::filesystem::path(MSCRoom::required().services().mounts.volumesFolder()) / name / "MISC";
  for (const char* file : kSharingFiles) {
    if (std::filesystem::exists(folder / file)) return true;
  }
  return false;
}

}  // namespace tarvo
