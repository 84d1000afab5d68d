#include "platform/iokit/UdevRegistry.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"
#include "platform/iokit/PropertyMatch.h"
#include "platform/iokit/UdevPresence.h"

namespace tarvo {
namespace {

struct Subsystem {
  const char* name;
  unsigned kinds;
};
// Ancestors come before what lies below them.
constexpr std::array<Subsystem, 3> kSubsystems{{
    {"usb", kUSBDeviceEntry | kUSBInterfaceEntry},
    {"scsi", kSCSIUnitEntry},
    {"block", kBlockEntry},
}};

// Events that concern nobody are filtered out in the kernel, so that they wake nobody.
constexpr std::array<const gchar*, 6> kWatched{
    "usb/usb_device", "usb/usb_interface", "scsi/scsi_device", "scsi_generic", "block", nullptr};

bool contains(const std::vector<ServiceHandle>& handles, ServiceHandle handle) {
  return std::ranges::find(handles, handle) != handles.end();
}

}  // namespace

/// Takes its subscriber off the list, which may outlive the registry.
class UdevRegistry::Subscription : public RegistrySubscription {
 public:
  Subscription(std::shared_ptr<Subscribers> all, std::shared_ptr<Subscriber> own)
      : all_(std::move(all)), own_(std::move(own)) {}
  ~Subscription() override {
    std::erase(*all_, own_);
    // A round of announcements that is under way still holds the subscriber.
    own_->kinds = kNoEntry;
    own_->known.clear();
  }

 private:
  std::shared_ptr<Subscribers> all_;
  std::shared_ptr<Subscriber> own_;
};

UdevRegistry::UdevRegistry(RunLoop& runLoop, LogSink log)
    : log_(std::move(log)),
      client_(g_udev_client_new(kWatched.data())),
      assembly_(
          runLoop,
          [](const std::string& path, SCSIUnitAssembly::Node node) {
            const bool isBlock = node == SCSIUnitAssembly::Node::kBlock;
            return scsiUnitHasNode(path, isBlock ? "block" : "scsi_generic");
          },
          [this](const std::string& path) { unitComplete(path); }) {
  g_signal_connect(client_.get(), "uevent", G_CALLBACK(onUevent), this);
  const std::string missing = missingPartOfUdev();
  if (!missing.empty()) logTo(log_, LogLevel::kWarning, missing);
}

UdevRegistry::~UdevRegistry() {
  g_signal_handlers_disconnect_by_data(client_.get(), this);
}

std::optional<PropertyDictionary> UdevRegistry::properties(ServiceHandle service) {
  const EntryTable::Entry* entry = entries_.find(service);
  if (!entry) return std::nullopt;
  // What a USB device says of itself never changes, and sysfs loses it bit by bit.
  if (entry->kept && entry->kept->value("IOClass", "") == kUSBDeviceClass) return entry->kept;
  // Any other that is still there is read anew; what was kept is for its last announcement.
  if (const GUdevDevicePtr device = deviceAt(entry->path))
    return entryProperties(device.get(), entryKind(device.get()));
  return entry->kept;
}

std::optional<std::vector<ServiceHandle>> UdevRegistry::ancestors(ServiceHandle service) {
  const EntryTable::Entry* entry = entries_.find(service);
  if (!entry) return std::nullopt;
  GUdevDevicePtr device = deviceAt(entry->path);
  // Gone from sysfs, as in a terminated callback: the path still tells what lay above it.
  if (!device) return entries_.above(entry->path);
  std::vector<ServiceHandle> above;
  while ((device = GUdevDevicePtr(g_udev_device_get_parent(device.get())))) {
    if (entryKind(device.get()) != kNoEntry)
      above.push_back(entries_.intern(sysfsPath(device.get())));
  }
  return above;
}

std::vector<ServiceHandle> UdevRegistry::servicesMatching(const PropertyDictionary& match) {
  std::vector<ServiceHandle> found;
  visitMatching(match, [&](const std::string& path, const PropertyDictionary&) {
    found.push_back(entries_.intern(path));
  });
  return found;
}

std::vector<ServiceHandle> UdevRegistry::servicesMatchingBSDName(std::string_view bsdName) {
  // A name is looked up as a file of sysfs: it must not lead anywhere else.
  if (bsdName.empty() || bsdName.find('/') != std::string_view::npos) return {};
  const GUdevDevicePtr block(g_udev_client_query_by_subsystem_and_name(
      client_.get(), "block", std::string(bsdName).c_str()));
  if (!block) return {};
  // The disk before its unit, which bears the same name.
  std::vector<ServiceHandle> found{entries_.intern(sysfsPath(block.get()))};
  // A partition lies under its disk, not under the unit, so it stands alone.
  if (const GUdevDevicePtr unit = scsiUnitAbove(block.get()))
    found.push_back(entries_.intern(sysfsPath(unit.get())));
  return found;
}

std::unique_ptr<RegistrySubscription> UdevRegistry::addMatchingNotification(
    PropertyDictionary match, Callback appeared, Callback terminated) {
  auto subscriber =
      std::make_shared<Subscriber>(std::move(match), std::move(appeared), std::move(terminated));
  // What is there already is never announced, though udev may repeat its "add" at any time.
  visitMatching(subscriber->match, [&](const std::string& path, PropertyDictionary properties) {
    remember(*subscriber, path, std::move(properties));
  });
  subscribers_->push_back(subscriber);
  return std::make_unique<Subscription>(subscribers_, subscriber);
}

void UdevRegistry::onUevent(GUdevClient*, const gchar* action, GUdevDevice* device, gpointer self) {
  auto* registry = static_cast<UdevRegistry*>(self);
  guardedEntry(registry->log_, "onUevent",
               [&] { registry->handleEvent(action ? action : "", device); });
}

void UdevRegistry::handleEvent(std::string_view action, GUdevDevice* device) {
  if (action == "remove") return entryWent(sysfsPath(device));
  // "bind" follows "add" and stands in for it should that be lost; "change" and "unbind" concern
  // devices that are there already.
  if (action != "add" && action != "bind") return;
  const EntryKind kind = entryKind(device);
  nodeCame(device);
  if (!isWanted(kind)) return;
  if (kind != kSCSIUnitEntry) return entryCame(device, kind);
  if (!isAnnounced(sysfsPath(device)))
    assembly_.unitSeen(sysfsPath(device), scsiUnitHasBlockChild(device));
}

// A block disk and a generic node complete the SCSI unit above them.
void UdevRegistry::nodeCame(GUdevDevice* device) {
  if (!isWanted(kSCSIUnitEntry)) return;
  const GUdevDevicePtr unit = scsiUnitAbove(device);
  if (!unit || isAnnounced(sysfsPath(unit.get()))) return;
  const bool isBlock = entryKind(device) == kBlockEntry;
  assembly_.nodeSeen(sysfsPath(unit.get()), scsiUnitHasBlockChild(unit.get()),
                     isBlock ? SCSIUnitAssembly::Node::kBlock : SCSIUnitAssembly::Node::kGeneric);
}

// The unit's own end may come before its nodes do.
void UdevRegistry::unitComplete(const std::string& path) {
  if (const GUdevDevicePtr unit = deviceAt(path)) entryCame(unit.get(), kSCSIUnitEntry);
}

// Whoever has heard of the entry before does not hear of it again: events repeat themselves.
void UdevRegistry::entryCame(GUdevDevice* device, EntryKind kind) {
  const PropertyDictionary properties = entryProperties(device, kind);
  const std::string path = sysfsPath(device);
  const Subscribers round = *subscribers_;  // callbacks may subscribe and unsubscribe
  for (const auto& subscriber : round) {
    if (!(subscriber->kinds & kind) || !propertiesMatch(properties, subscriber->match)) continue;
    const ServiceHandle service = entries_.intern(path);
    if (contains(subscriber->known, service)) continue;
    remember(*subscriber, path, properties);
    call(subscriber->appeared, service, "appeared");
  }
}

// sysfs has lost the device by now, so its path is all there is to go by.
void UdevRegistry::entryWent(const std::string& path) {
  assembly_.unitGone(path);
  const EntryTable::Entry* entry = entries_.findPath(path);
  if (!entry) return;
  const ServiceHandle service = entry->handle;
  const Subscribers round = *subscribers_;
  for (const auto& subscriber : round) {
    // Only who heard of the beginning hears of the end. A subscription that has ended meanwhile
    // knows nothing.
    if (std::erase(subscriber->known, service) > 0)
      call(subscriber->terminated, service, "terminated");
  }
  // After the callbacks, which may still ask for its properties.
  entries_.forget(service);
}

void UdevRegistry::visitMatching(const PropertyDictionary& match, const Visitor& visit) {
  const unsigned kinds = kindsThatCanMatch(match);
  for (const Subsystem& subsystem : kSubsystems) {
    if (kinds & subsystem.kinds) visitSubsystem(subsystem.name, kinds, match, visit);
  }
}

void UdevRegistry::visitSubsystem(const char* subsystem, unsigned kinds,
                                  const PropertyDictionary& match, const Visitor& visit) {
  GList* devices = g_udev_client_query_by_subsystem(client_.get(), subsystem);
  for (const GList* link = devices; link; link = link->next) {
    auto* device = static_cast<GUdevDevice*>(link->data);
    const EntryKind kind = entryKind(device);
    // A unit that still waits for its nodes will be announced.
    if (!(kinds & kind) || assembly_.isWaiting(sysfsPath(device))) continue;
    PropertyDictionary properties = entryProperties(device, kind);
    if (propertiesMatch(properties, match)) visit(sysfsPath(device), std::move(properties));
  }
  g_list_free_full(devices, g_object_unref);
}

// Where nobody can be interested, nothing is read and no timer started.
bool UdevRegistry::isWanted(unsigned kinds) const {
  return std::ranges::any_of(*subscribers_, [&](const auto& each) { return each->kinds & kinds; });
}

bool UdevRegistry::isAnnounced(const std::string& path) {
  const EntryTable::Entry* entry = entries_.findPath(path);
  return entry && std::ranges::any_of(*subscribers_, [&](const auto& each) {
           return contains(each->known, entry->handle);
         });
}

// Properties are kept only for those who want to hear of the end.
void UdevRegistry::remember(Subscriber& subscriber, const std::string& path,
                            PropertyDictionary properties) {
  const ServiceHandle service = entries_.intern(path);
  subscriber.known.push_back(service);
  keepUSBDeviceAbove(path);
  if (!subscriber.terminated) return;
  // The node of a unit that went may be another's by the time somebody opens it.
  properties.erase(kGenericNodeKey);
  entries_.find(service)->kept = std::move(properties);
}

void UdevRegistry::keepUSBDeviceAbove(const std::string& path) {
  const GUdevDevicePtr device = deviceAt(path);
  if (!device) return;
  const GUdevDevicePtr usbDevice(
      g_udev_device_get_parent_with_subsystem(device.get(), "usb", "usb_device"));
  if (!usbDevice) return;
  const ServiceHandle service = entries_.intern(sysfsPath(usbDevice.get()));
  auto& kept = entries_.find(service)->kept;
  if (!kept) kept = entryProperties(usbDevice.get(), kUSBDeviceEntry);
}

// One subscriber that fails must not keep the news from the others.
void UdevRegistry::call(const Callback& callback, ServiceHandle service, const char* what) {
  if (callback) guardedEntry(log_, what, [&] { callback(service); });
}

GUdevDevicePtr UdevRegistry::deviceAt(const std::string& path) const {
  return GUdevDevicePtr(g_udev_client_query_by_sysfs_path(client_.get(), path.c_str()));
}

}  // namespace tarvo
