#include "tarvo/Units.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Printable.h"
#include "identify/DeviceInfoSupport.h"
#include "library/access/DeviceChoice.h"
#include "library/access/SessionState.h"
#include "msc/MSCRoom.h"
#include "msc/TarvoMSCDevice.h"
#include "msc/TarvoMSCDeviceList.h"
#include "platform/diskarbitration/UDisks2Refusal.h"

namespace tarvo {

using namespace library;

struct UnitInfo::Data {
  std::string name;
  std::optional<std::int32_t> location;
  std::string serial;
  /// Of the session's list: a unit that goes is none of it any more.
  std::weak_ptr<TarvoMSCDevice> unit;
  std::string disk;
  std::string cardDisk;
  std::string cardName;
};

const std::string& UnitInfo::name() const { return data_->name; }
const std::string& UnitInfo::serial() const { return data_->serial; }
std::optional<std::int32_t> UnitInfo::location() const { return data_->location; }
std::string UnitInfo::description() const {
  return inWords(data_->serial, data_->name, data_->location);
}
const std::string& UnitInfo::disk() const { return data_->disk; }
const std::string& UnitInfo::cardDisk() const { return data_->cardDisk; }
const std::string& UnitInfo::cardName() const { return data_->cardName; }

std::ostream& operator<<(std::ostream& out, const UnitInfo& unit) {
  return out << printable(unit.description());
}

std::vector<UnitInfo> library::presentUnits(Platform& platform) {
  std::vector<UnitInfo> units;
  for (const auto& unit : platform.massStorage().devices()) {
    const auto usbDevice = DeviceInfoSupport::getRootUSBDictionaryForService(unit->iokitService())
                               .value_or(PropertyDictionary());
    units.push_back(
        valueOf<UnitInfo>({.name = unit->massStorageModel(),
                           .location = int32ForKey(usbDevice, "locationID"),
                           .serial = textForKey(usbDevice, "USB Serial Number").value_or(""),
                           .unit = unit,
                           .disk = unit->bsdName().value_or(""),
                           .cardDisk = unit->dcfVolumeBSDName().value_or(""),
                           .cardName = unit->dcfVolumeName().value_or("")}));
  }
  return units;
}

struct UnitMode::Data {
  PropertyDictionary mode;
  bool says(const char* key) const { return mode.value(key, false); }
};

bool UnitMode::isCamera() const { return data_->says("cameraMode"); }
bool UnitMode::isStartup() const { return data_->says("startupMode"); }
bool UnitMode::isMemory() const { return data_->says("memoryMode"); }
bool UnitMode::canPowerCycle() const { return data_->says("supportsAutoPowerCycle"); }
bool UnitMode::canWakeAfter() const { return data_->says("supportsVariableAutoWakeup"); }
bool UnitMode::isComposite() const { return data_->says("isCompositeDevice"); }
std::uint32_t UnitMode::wakeUp() const { return data_->mode.value("autoWakeup", 0U); }
std::string UnitMode::json() const { return data_->mode.dump(); }

struct UnitMount::Data {
  Mount mount;
  std::string disk;
};

const std::string& UnitMount::path() const { return data_->mount.mountPoint; }
const std::string& UnitMount::disk() const { return data_->disk; }
std::string UnitMount::users() const { return processesUsing({data_->mount.mountPoint}); }

class UnitState {
 public:
  std::shared_ptr<SessionState> session;
  UnitInfo info;
};

Unit Session::open(const UnitInfo& info) {
  return entered(state_, "open", [&] {
    return Unit(std::make_shared<UnitState>(UnitState{state_, info}));
  });
}

const UnitInfo& Unit::info() const { return state_->info; }

namespace {

/// What a call works with.
struct UnitCall {
  const UnitState& state;
  std::shared_ptr<TarvoMSCDevice> unit;

  const PictureDeviceServices& services() const { return state.session->platform().services(); }

  /// Raises what the unit, or who objected, said last.
  [[noreturn]] void fail(const std::string& object = {}) const {
    const auto& failure = unit->lastFailure();
    raise({.object = object.empty() ? state.info.description() : object,
           .status = failure.status,
           .why = failure.why});
  }
  void require(bool isDone, const std::string& object = {}) const {
    if (!isDone) fail(object);
  }
};

template <typename Work>
auto called(const std::shared_ptr<UnitState>& state, const char* operation, const Work& work) {
  return entered(state->session, operation, [&] {
    auto unit = state->info.data().unit.lock();
    if (!unit) raise({.object = state->info.description(), .status = status::kIOReturnNoDevice});
    return work(UnitCall{*state, std::move(unit)});
  });
}

std::string diskOf(const Mount& mount) { return lastPathComponent(mount.device); }

/// "/media/u/CARD (sdb1) is still mounted, in use by vi (12)".
std::string stillMounted(const Mount& mount) {
  const std::string users = processesUsing({mount.mountPoint});
  return mount.mountPoint + " (" + diskOf(mount) + ") is still mounted" +
         (users.empty() ? "" : ", in use by " + users);
}

/// Every volume of the unit. What the system calls unmounted is looked at once more: another
/// program may have mounted it, or it is none that the disk service knows.
void unmountVolumes(const UnitCall& call) {
  const std::string disk = call.unit->bsdName().value_or("");
  call.require(call.unit->unmountMedia() == status::kOK, disk);
  // A unit without a disk of its own may have a card.
  for (const Mount& mount : call.unit->mounts())
    call.require(call.unit->unmountAllPartitions(diskOf(mount)) == status::kOK, diskOf(mount));
  std::vector<std::string> rest;
  for (const Mount& mount : call.unit->mounts())
    rest.push_back(stillMounted(mount));
  if (!rest.empty())
    raise({.object = call.state.info.description(),
           .status = status::kIOReturnBusy,
           .why = joined(rest)});
}

/// The block devices of the unit's USB device that hold no others: partitions, and disks without
/// any.
std::vector<std::string> disksOf(Registry& registry, const TarvoMSCDevice& unit) {
  std::vector<std::pair<ServiceHandle, std::string>> found;
  std::vector<ServiceHandle> holders;
  const ServiceHandle usbDevice = usbHandleAbove(registry, unit.iokitService());
  for (const ServiceHandle service : registry.servicesMatching({{"IOClass", "block"}})) {
    const auto properties = registry.properties(service);
    const auto name = properties ? textForKey(*properties, "BSD Name") : std::nullopt;
    if (!name || usbDevice == 0 || usbDeviceOfDisk(registry, *name) != usbDevice) continue;
    found.emplace_back(service, *name);
    const auto above = registry.ancestors(service).value_or(std::vector<ServiceHandle>{});
    holders.insert(holders.end(), above.begin(), above.end());
  }
  std::vector<std::string> names;
  for (const auto& [service, name] : found)
    if (std::ranges::count(holders, service) == 0) names.push_back(name);
  return names;
}

/// The disk of a volume of no unit, unmounted with all that its USB device has mounted.
void unmountDisk(const DADisk& disk, const std::string& name) {
  auto left = TarvoMSCDevice::kDiskTimeout;
  TarvoMSCDevice::Failure failure;
  // Behind what its callback writes to.
  const auto session = MSCRoom::required().services().diskArbitration.createSession();
  session->unmount(disk, [&](const DADissenter* dissenter) {
    if (dissenter) failure = {dissenter->status, dissenter->why};
    session->stop();
  });
  const auto missed = TarvoMSCDevice::awaitDisk(*session, left);
  if (missed.status != status::kOK) failure = missed;
  if (failure.status != status::kOK)
    raise({.object = name, .status = failure.status, .why = failure.why});
}

}  // namespace

void Session::eject(const DeviceInfo& volume) {
  entered(state_, "eject", [&] {
    if (volume.kind() != DeviceKind::kVolume)
      raise({.object = volume.description(),
             .status = status::kUnsupported,
             .why = "it is a camera, of which nothing is mounted",
             .advice = "It can be unplugged."});
    auto& platform = state_->platform();
    const auto& services = platform.services();
    // Makes the room of what reaches disks.
    platform.massStorage();
    const auto mountOf = [&] {
      const auto mounts = services.mounts.mounts();
      const auto found = std::ranges::find(mounts, volume.path(), &Mount::mountPoint);
      return found == mounts.end() ? std::nullopt : std::optional(*found);
    };
    const auto mount = mountOf();
    if (!mount) raise({.object = volume.description(), .status = status::kIOReturnNoDevice});
    const DADisk disk{diskOf(*mount), usbDeviceOfDisk(services.registry, diskOf(*mount))};
    unmountDisk(disk, volume.description());
    if (const auto left = mountOf())
      raise({.object = volume.description(),
             .status = status::kIOReturnBusy,
             .why = stillMounted(*left)});
  });
}

UnitMode Unit::mode() {
  return called(state_, "mode", [](const UnitCall& call) {
    auto mode = call.unit->usbModeDictionary();
    call.require(mode.has_value());
    return valueOf<UnitMode>({*std::move(mode)});
  });
}

bool Unit::canPowerCycle() {
  return called(state_, "canPowerCycle", [](const UnitCall& call) {
    const bool can = call.unit->canAutoPowerCycle();
    if (!can && call.unit->lastFailure().status != status::kOK) call.fail();
    return can;
  });
}

void Unit::setMode(const std::string& mode, bool powerDown, std::uint32_t wakeAfter,
                   bool permanent) {
  called(state_, "setMode", [&](const UnitCall& call) {
    if (mode != "camera" && mode != "startup" && mode != "memory")
      refuse("a mode is camera, startup or memory", mode);
    call.require(call.unit->setUSBModeDictionary({{mode + "Mode", true},
                                                  {"powerDown", powerDown},
                                                  {"permanent", permanent},
                                                  {"autowakeDelay", wakeAfter}}));
  });
}

std::string Unit::model() {
  return called(state_, "model", [](const UnitCall& call) {
    auto model = call.unit->model();
    call.require(model.has_value());
    return *std::move(model);
  });
}

void Unit::setClock(std::time_t now) {
  called(state_, "setClock",
         [&](const UnitCall& call) { call.require(call.unit->setDateTime(now)); });
}

bool Unit::hasSharingOrders() {
  return called(state_, "hasSharingOrders",
                [](const UnitCall& call) { return call.unit->sharingOrderExists(); });
}

std::vector<UnitMount> Unit::mounts() {
  return called(state_, "mounts", [](const UnitCall& call) {
    std::vector<UnitMount> mounts;
    for (const Mount& mount : call.unit->mounts())
      mounts.push_back(valueOf<UnitMount>({mount, diskOf(mount)}));
    return mounts;
  });
}

void Unit::unmount() { called(state_, "unmount", unmountVolumes); }

std::vector<std::string> Unit::mountable() {
  return called(state_, "mountable",
                [](const UnitCall& call) { return disksOf(call.services().registry, *call.unit); });
}

std::string Unit::mount(const std::string& disk) {
  return called(state_, "mount", [&](const UnitCall& call) {
    call.require(call.unit->remountMediaWithBSDName(disk) == status::kOK, disk);
    std::string path;
    for (const auto& mount : call.services().mounts.mounts())
      if (mount.device == "/dev/" + disk) path = mount.mountPoint;
    return path;
  });
}

void Unit::eject() {
  called(state_, "eject", [](const UnitCall& call) {
    unmountVolumes(call);
    call.require(call.unit->ejectTray());
  });
}

}  // namespace tarvo
