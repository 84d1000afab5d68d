#include "msc/TarvoMSCDevice.h"

#include <array>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "identify/GetICAVolumeFromUSBLocation.h"
#include "msc/MSCRoom.h"
#include "platform/iokit/Registry.h"

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
  // Filled once.
  if (!_dcfVolumeBSDName && !_dcfVolumeName && locationID) {
    for (const auto& volume : GetICABSDNames().value_or(std::vector<ICAVolume>{})) {
      // The card reader is another unit of the same USB device, and its location is what both have.
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

ServiceHandle TarvoMSCDevice::usbDevice() const {
  return usbHandleAbove(MSCRoom::required().services().registry, _service);
}

std::vector<Mount> TarvoMSCDevice::mounts() const {
  const auto& services = MSCRoom::required().services();
  const ServiceHandle own = usbDevice();
  std::vector<Mount> mounts;
  for (Mount& mount : services.mounts.mounts()) {
    if (!mount.device.starts_with("/dev/")) continue;
    // A mapped device is mounted by a link to its node.
    std::error_code ignored;
    mount.device = std::filesystem::weakly_canonical(mount.device, ignored).string();
    // Of every disk of the USB device: opening the tray of one unit may cut the others off.
    const std::string disk = lastPathComponent(mount.device);
    if (shareOfDisk(services.registry, disk, own) != DiskShare::kNothing)
      mounts.push_back(std::move(mount));
  }
  return mounts;
}

// No order is the answer to every failure: a question must not stop the caller on a card that
// cannot be read.
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
  // MISC is where DCF cameras put what goes with the pictures.
  const auto folder =
      std::filesystem::path(MSCRoom::required().services().mounts.volumesFolder()) / name / "MISC";
  for (const char* file : kSharingFiles) {
    if (std::filesystem::exists(folder / file)) return true;
  }
  return false;
}

namespace {

/// The first service of that name; 0, traced, where there is none.
ServiceHandle serviceOf(Registry& registry, const std::string& bsdName) {
  if (bsdName.empty()) {
    TraceLog::trace("Error: GetUSBDataFromBSDName failed to get dictionary for bsdName %s",
                    bsdName.c_str());
    return 0;
  }
  const auto services = registry.servicesMatchingBSDName(bsdName);
  if (!services.empty()) return services.front();
  TraceLog::trace("Error: GetUSBDataFromBSDName failed to get service for %s", bsdName.c_str());
  return 0;
}

PropertyDictionary usbDataOf(const PropertyDictionary& properties) {
  PropertyDictionary data = PropertyDictionary::object();
  for (const char* key : {"locationID", "idVendor", "idProduct"}) {
    if (properties.contains(key)) data[key] = properties[key];
  }
  return data;
}

}  // namespace

PropertyDictionary GetUSBDataFromBSDName(const std::string& bsdName) {
  auto& registry = MSCRoom::required().services().registry;
  const ServiceHandle service = serviceOf(registry, bsdName);
  if (service == 0) return PropertyDictionary::object();
  const auto found = nearestAncestor(registry, service, {.key = "idVendor"}, [](const char* what) {
    TraceLog::trace("Error: GetUSBDataFromBSDName %s", what);
  });
  return found.handle == 0 ? PropertyDictionary::object() : usbDataOf(found.properties);
}

namespace {

constexpr Status kDiskFailure = -1;

using DiskContext = TarvoMSCDevice::DiskContext;

void DiskUnmountCallback(const std::string& disk, const DADissenter* dissenter,
                         DiskContext* context) {
  if (!context || !context->self) raiseAssertion("No self pointer in DiskUnmountCallback context.");
  context->self->diskUnmounted(disk, dissenter, context);
}

void DiskMountCallback(const std::string& disk, const DADissenter* dissenter,
                       DiskContext* context) {
  if (!context || !context->self) raiseAssertion("No self pointer in DiskMountCallback context.");
  context->self->diskMounted(disk, dissenter, context);
}

/// A session is known in the log by a number.
unsigned numberOf(const DASession& session) {
  return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(&session));
}

}  // namespace

Status TarvoMSCDevice::unmountMedia() {
  unmountTimeLeft_ = kDiskTimeout;
  return unmountWithin(unmountTimeLeft_);
}

Status TarvoMSCDevice::unmountWithin(std::chrono::milliseconds& left) {
  lastFailure_ = {};
  Status result = status::kOK;
  if (_service != 0) {
    if (const auto name = bsdName()) {
      result = unmountAllPartitionsWithin(*name, left);
      if (result != status::kOK) TraceLog::trace("Could not unnount %s.", name->c_str());
    } else {
      TraceLog::trace("No bsd name for service %8x.", _service);
    }
  }
  // True, too, when there was nothing to unmount: ejectTray counts on it (docs/oddities.md).
  _isUnmounted = result == status::kOK;
  return result;
}

Status TarvoMSCDevice::unmountAllPartitions(const std::string& bsdName) {
  auto left = kDiskTimeout;
  return unmountAllPartitionsWithin(bsdName, left);
}

Status TarvoMSCDevice::unmountAllPartitionsWithin(const std::string& bsdName,
                                                  std::chrono::milliseconds& left) {
  return runDiskOperation(bsdName, left, DiskUnmountCallback,
                          [](DASession& session, const DADisk& disk, DASession::Callback done) {
                            session.unmount(disk, std::move(done));
                          });
}

Status TarvoMSCDevice::ejectMediaWithBSDName(const std::string& bsdName) {
  auto left = kDiskTimeout;
  return runDiskOperation(bsdName, left, DiskUnmountCallback,
                          [](DASession& session, const DADisk& disk, DASession::Callback done) {
                            session.eject(disk, std::move(done));
                          });
}

Status TarvoMSCDevice::remountMediaWithBSDName(const std::string& bsdName) {
  auto left = kDiskTimeout;
  return runDiskOperation(bsdName, left, DiskMountCallback,
                          [&](DASession& session, const DADisk& disk, DASession::Callback done) {
                            session.mount(disk, _dcfVolumeName.value_or(""), std::move(done));
                          });
}

Status TarvoMSCDevice::runDiskOperation(const std::string& bsdName, std::chrono::milliseconds& left,
                                        DiskCompletion completion, const StartOperation& start) {
  lastFailure_ = {};
  // Before the session, which may call back until it ends.
  DiskContext context{this, kDiskFailure, nullptr};
  const auto session = MSCRoom::required().services().diskArbitration.createSession();
  // The completion has to end the session's wait.
  context.session = session.get();
  TraceLog::trace("scheduled session with RunLoop for bsdName = %s, session = %x", bsdName.c_str(),
                  numberOf(*session));
  TraceLog::trace("bsdNameCStr = %s", bsdName.c_str());
  TraceLog::trace("confirming %s == %s??", bsdName.c_str(), bsdName.c_str());
  start(*session, {bsdName, usbDevice()},
        [&](const DADissenter* dissenter) { completion(bsdName, dissenter, &context); });
  const Failure missed = awaitDisk(*session, left);
  const bool isStopped = missed.status == status::kOK;
  if (!isStopped) lastFailure_ = missed;
  // One status for all failures, as callers know it; lastFailure() has the words.
  const Status result = isStopped && context.status == status::kOK ? status::kOK : kDiskFailure;
  TraceLog::trace("returning result = %d", result);
  return result;
}

TarvoMSCDevice::Failure TarvoMSCDevice::awaitDisk(DASession& session,
                                                  std::chrono::milliseconds& left) {
  if (session.run(left)) return {};
  if (MSCRoom::required().services().diskArbitration.isInterrupted())
    return {status::kCancelled, "the program was told to end"};
  return {status::kIOReturnTimeout, session.awaited() + " within 20 seconds"};
}

void TarvoMSCDevice::diskUnmounted(const std::string& disk, const DADissenter* dissenter,
                                   DiskContext* context) {
  diskDone(disk, dissenter, *context);
}

void TarvoMSCDevice::diskMounted(const std::string& disk, const DADissenter* dissenter,
                                 DiskContext* context) {
  diskDone(disk, dissenter, *context);
}

void TarvoMSCDevice::diskDone(const std::string& disk, const DADissenter* dissenter,
                              DiskContext& context) {
  context.status = dissenter ? dissenter->status : status::kOK;
  if (dissenter) {
    fail(dissenter->status, dissenter->why);
    TraceLog::trace("Dissenter not null: %s status = %0x %s", disk.c_str(),
                    static_cast<unsigned>(dissenter->status), dissenter->why.c_str());
  }
  context.session->stop();
}

bool TarvoMSCDevice::ejectTray() {
  lastFailure_ = {};
  requireInterface();
  TraceLog::trace("Ejecting...");
  // What unmountMedia() has left of its time, so that both together hold the main thread for no
  // longer than one.
  auto left = std::exchange(unmountTimeLeft_, kDiskTimeout);
  // The tray is tried all the same; who keeps the disk is in lastFailure_.
  if (!_isUnmounted) (void)unmountWithin(left);
  if (MSCRoom::required().services().diskArbitration.isInterrupted()) {
    fail(status::kCancelled, "the program was told to end");
    return false;
  }
  constexpr bool kIsOpen = true;
  senseData_ = {};
  // udev locks the tray so that nobody pulls out what is mounted; where nothing is, the lock
  // protects nobody.
  const bool isFree = usbDevice() != 0 && mounts().empty();
  const TrayLock lock = isFree ? TrayLock::kReleased : TrayLock::kRespected;
  if (const Status failed = _mmcDevice->setTrayState(kIsOpen, lock, senseData_);
      failed != status::kOK) {
    TraceLog::trace("Error: SetTrayState failed %x", static_cast<unsigned>(failed));
    TraceLog::trace("Error: Ejecting failed");
    fail(failed, "the unit did not open its tray" + senseInWords(senseData_));
    return false;
  }
  TraceLog::trace("Ejecting succeeded");
  return true;
}

}  // namespace tarvo
