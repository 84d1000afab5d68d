#include "platform/iokit/UdevRegistry.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "platform/foundation/MainLoopGuard.h"
#include "platform/iokit/Registry.h"

namespace tarvo {
namespace {

struct Subsystem {
  const char* name;
  unsigned kinds;
};
// Ancestors come before what lies below them.
// An interface that is found is asked for its USB device, which has its handle by then.
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

bool namesOneUnit(const PropertyDictionary& match) {
  constexpr const char* kGUID = "SCSITaskUserClient GUID";
  const auto inner = match.find(kPropertyMatchKey);
  return match.contains(kGUID) || (inner != match.end() && inner->contains(kGUID));
}

/// A name is looked up as a file of sysfs: it must not lead anywhere else.
bool isNameInSysfs(std::string_view name) {
  return !name.empty() && name.find('/') == std::string_view::npos;
}

const char* subsystemOf(SCSIUnitAssembly::Node node) {
  return node == SCSIUnitAssembly::Node::kBlock ? "block" : "scsi_generic";
}

}  // namespace

/// Takes its subscriber off the list, which may outlive the registry.
class UdevRegistry::Subscription : public RegistrySubscription {
 public:
  Subscription(std::shared_ptr<Subscribers> all, std::shared_ptr<Subscriber> own)
      : all_(std::move(all)), own_(std::move(own)), present_(own_->known) {}
  ~Subscription() override {
    std::erase(*all_, own_);
    // A round of announcements that is under way still holds the subscriber.
    own_->kinds = kNoEntry;
    own_->known.clear();
  }
  const std::vector<ServiceHandle>& present() const override { return present_; }

 private:
  std::shared_ptr<Subscribers> all_;
  std::shared_ptr<Subscriber> own_;
  std::vector<ServiceHandle> present_;
};

UdevRegistry::UdevRegistry(RunLoop& runLoop, LogSink log)
    : log_(std::move(log)),
      client_(g_udev_client_new(kWatched.data())),
      assembly_(
          runLoop,
          [](const std::string& path, SCSIUnitAssembly::Node node) {
            return scsiUnitHasNode(path, subsystemOf(node));
          },
          [this](const std::string& path) { unitComplete(path); }) {
  // Connected before anything is enumerated: what comes in between is heard, at worst twice.
  g_signal_connect(client_.get(), "uevent", G_CALLBACK(onUevent), this);
  const std::string missing = missingPartOfUdev();
  if (!missing.empty()) logTo(log_, LogLevel::kWarning, missing);
}

UdevRegistry::~UdevRegistry() {
  g_signal_handlers_disconnect_by_data(client_.get(), this);
}

std::optional<PropertyDictionary> UdevRegistry::properties(ServiceHandle service) {
  EntryTable::Entry* entry = entries_.find(service);
  if (!entry) return std::nullopt;
  // What has gone is still known by what was read of it while it was there.
  const bool isHere = isThere(*entry);
  if (!entry->properties && isHere) read(*entry);
  auto properties = entry->properties;
  // The node of a unit that went may be another's by the time somebody opens it.
  if (properties && !isHere) properties->erase(kGenericNodeKey);
  return properties;
}

std::optional<std::vector<ServiceHandle>> UdevRegistry::ancestors(ServiceHandle service) {
  const EntryTable::Entry* entry = entries_.find(service);
  if (!entry) return std::nullopt;
  // The first answer holds: a device does not move, and when it goes its parents go as well.
  if (entry->ancestors) return entry->ancestors;
  std::vector<ServiceHandle> above;
  if (!isThere(*entry)) return above;
  GUdevDevicePtr device = deviceAt(entry->path);
  while (device && (device = GUdevDevicePtr(g_udev_device_get_parent(device.get()))))
    if (entryKind(device.get()) != kNoEntry) above.push_back(intern(sysfsPath(device.get())));
  return entries_.find(service)->ancestors = above;
}

std::vector<ServiceHandle> UdevRegistry::servicesMatching(const PropertyDictionary& match) {
  // A unit that somebody knows by its GUID was found before.
  // GUIDs are made here and stand in no file, so finding one anew would read every unit of the
  // machine.
  if (namesOneUnit(match))
    if (const auto known = knownMatching(match); !known.empty()) return known;
  return enumerate(match);
}

std::vector<ServiceHandle> UdevRegistry::knownMatching(const PropertyDictionary& match) const {
  std::vector<ServiceHandle> found;
  for (const EntryTable::Entry& entry : entries_.all())
    if (entry.properties && propertiesMatch(*entry.properties, match) && isThere(entry))
      found.push_back(entry.handle);
  return found;
}

std::vector<ServiceHandle> UdevRegistry::servicesMatchingBSDName(std::string_view bsdName) {
  if (!isNameInSysfs(bsdName)) return {};
  const GUdevDevicePtr block(g_udev_client_query_by_subsystem_and_name(
      client_.get(), "block", std::string(bsdName).c_str()));
  if (!block) return {};
  // The disk before its unit, which bears the same name.
  std::vector<ServiceHandle> found{intern(sysfsPath(block.get()))};
  // A partition lies under its disk, not under the unit, so it stands alone.
  if (const GUdevDevicePtr unit = scsiUnitAbove(block.get()))
    found.push_back(intern(sysfsPath(unit.get())));
  return found;
}

std::vector<std::string> UdevRegistry::disksBelow(std::string_view bsdName) {
  return isNameInSysfs(bsdName) ? disksBelowBlock(std::string(bsdName))
                                : std::vector<std::string>{};
}

std::unique_ptr<RegistrySubscription> UdevRegistry::addMatchingNotification(
    PropertyDictionary match, Callback appeared, Callback terminated) {
  auto subscriber =
      std::make_shared<Subscriber>(std::move(match), std::move(appeared), std::move(terminated));
  // What is there already is never announced, though udev may repeat its "add" at any time.
  // The other half of "present": nobody is told of an entry twice.
  for (const ServiceHandle service : presentFor(subscriber->match))
    remember(*subscriber, service);
  subscribers_->push_back(subscriber);
  return std::make_unique<Subscription>(subscribers_, subscriber);
}

std::vector<ServiceHandle> UdevRegistry::presentFor(const PropertyDictionary& match) {
  // Who has asked for the same knows it, and has been told of every change.
  const auto other = std::ranges::find_if(
      *subscribers_, [&](const auto& subscriber) { return subscriber->match == match; });
  if (other != subscribers_->end()) return (*other)->known;
  return enumerate(match, [this](GUdevDevice* unit) { awaitNodes(unit); });
}

void UdevRegistry::onUevent(GUdevClient*, const gchar* action, GUdevDevice* device, gpointer self) {
  auto* registry = static_cast<UdevRegistry*>(self);
  guardedEntry(registry->log_, "onUevent",
               [&] { registry->handleEvent(action ? action : "", device); });
}

void UdevRegistry::handleEvent(std::string_view action, GUdevDevice* device) {
  const std::string path = sysfsPath(device);
  if (action == "remove") return pathWent(path);
  // "bind" follows "add" and stands in for it should that be lost; "change" and "unbind" concern
  // devices that are there already.
  if (action != "add" && action != "bind") return;
  // An end that was lost.
  // The netlink socket drops events when its buffer is full. The next device at a path proves that
  // the one before it has gone.
  for (const ServiceHandle service : entries_.at(path))
    if (!isThere(*entries_.find(service))) entryWent(service);
  const EntryKind kind = entryKind(device);
  nodeCame(device);
  if (!isWanted(kind)) return;
  if (kind != kSCSIUnitEntry) return entryCame(device, kind);
  if (!isAnnounced(path)) assembly_.unitSeen(path, scsiUnitHasBlockChild(device));
}

// A block disk and a generic node complete the SCSI unit above them.
void UdevRegistry::nodeCame(GUdevDevice* device) {
  // Its properties name the node and the disk, so they are read again when these come.
  const GUdevDevicePtr unit = scsiUnitAbove(device);
  if (!unit) return;
  const std::string path = sysfsPath(unit.get());
  for (const ServiceHandle service : entries_.at(path))
    if (auto& entry = *entries_.find(service); entry.properties && isThere(entry)) read(entry);
  if (!isWanted(kSCSIUnitEntry) || isAnnounced(path)) return;
  const bool isBlock = entryKind(device) == kBlockEntry;
  assembly_.nodeSeen(path, scsiUnitHasBlockChild(unit.get()),
                     isBlock ? SCSIUnitAssembly::Node::kBlock : SCSIUnitAssembly::Node::kGeneric);
}

// The events of the nodes that udev has dealt with were before our time.
void UdevRegistry::awaitNodes(GUdevDevice* unit) {
  using Node = SCSIUnitAssembly::Node;
  const std::string path = sysfsPath(unit);
  const bool wantsBlock = scsiUnitHasBlockChild(unit);
  assembly_.unitSeen(path, wantsBlock);
  for (const Node node : {Node::kBlock, Node::kGeneric})
    if (isNodeReady(path, node)) assembly_.nodeSeen(path, wantsBlock, node);
}

bool UdevRegistry::isNodeReady(const std::string& unitPath, SCSIUnitAssembly::Node node) const {
  return scsiUnitHasNode(unitPath, subsystemOf(node)) &&
         udevKnowsNode(client_.get(), unitPath, subsystemOf(node));
}

// A driver that has made no disk by now makes none.
bool UdevRegistry::isWhole(const std::string& unitPath) const {
  using Node = SCSIUnitAssembly::Node;
  return isNodeReady(unitPath, Node::kGeneric) &&
         (!scsiUnitHasNode(unitPath, subsystemOf(Node::kBlock)) ||
          isNodeReady(unitPath, Node::kBlock));
}

// The unit's own end may come before its nodes do.
void UdevRegistry::unitComplete(const std::string& path) {
  if (const GUdevDevicePtr unit = deviceAt(path)) entryCame(unit.get(), kSCSIUnitEntry);
}

// Whoever has heard of the entry before does not hear of it again: events repeat themselves.
void UdevRegistry::entryCame(GUdevDevice* device, EntryKind kind) {
  const PropertyDictionary properties = entryProperties(device, kind);
  const std::string path = sysfsPath(device);
  // A copy, also since a subscriber may end with its owner in the middle of it.
  const Subscribers round = *subscribers_;  // callbacks may subscribe and unsubscribe
  for (const auto& subscriber : round) {
    if (!(subscriber->kinds & kind) || !propertiesMatch(properties, subscriber->match)) continue;
    const ServiceHandle service = intern(path);
    // "bind" follows "add" for the same device, and udev can be told to repeat all of them.
    if (contains(subscriber->known, service)) continue;
    entries_.find(service)->properties = properties;
    remember(*subscriber, service);
    call(subscriber->appeared, service, "appeared");
  }
}

// sysfs may have lost the device by now or have the next one, so its path is all there is to go by.
void UdevRegistry::pathWent(const std::string& path) {
  assembly_.unitGone(path);
  auto gone = entries_.at(path);
  // The latest of several is the next one: its own end follows.
  // The events of one path come in order, so the end belongs to the older entry.
  if (gone.size() > 1) gone.pop_back();
  for (const ServiceHandle service : gone)
    entryWent(service);
}

void UdevRegistry::entryWent(ServiceHandle service) {
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

std::vector<ServiceHandle> UdevRegistry::enumerate(const PropertyDictionary& match,
                                                   const UnitVisitor& onUnfinished) {
  std::vector<ServiceHandle> found;
  const unsigned kinds = kindsThatCanMatch(match);
  for (const Subsystem& subsystem : kSubsystems) {
    if (!(kinds & subsystem.kinds)) continue;
    for (const GUdevDevicePtr& device : devicesOf(subsystem.name, match)) {
      const EntryKind kind = entryKind(device.get());
      const std::string path = sysfsPath(device.get());
      // A unit that still waits for its nodes will be announced.
      if (!(kinds & subsystem.kinds & kind) || assembly_.isWaiting(path)) continue;
      if (kind == kSCSIUnitEntry && onUnfinished && !isWhole(path)) {
        onUnfinished(device.get());
      } else if (const ServiceHandle service = handleIfMatching(device.get(), kind, match)) {
        found.push_back(service);
      }
    }
  }
  return found;
}

std::vector<GUdevDevicePtr> UdevRegistry::devicesOf(const char* subsystem,
                                                    const PropertyDictionary& match) const {
  const auto attributes = attributesOfMatch(match);
  GList* list = nullptr;
  if (attributes.empty()) {
    // An enumerator would leave out nodes that udev has not dealt with yet.
    list = g_udev_client_query_by_subsystem(client_.get(), subsystem);
  } else {
    const std::unique_ptr<GUdevEnumerator, GUdevUnref> enumerator(
        g_udev_enumerator_new(client_.get()));
    g_udev_enumerator_add_match_subsystem(enumerator.get(), subsystem);
    for (const auto& [name, text] : attributes)
      g_udev_enumerator_add_match_sysfs_attr(enumerator.get(), name.c_str(), text.c_str());
    list = g_udev_enumerator_execute(enumerator.get());
  }
  std::vector<GUdevDevicePtr> devices;
  for (const GList* link = list; link; link = link->next)
    devices.emplace_back(static_cast<GUdevDevice*>(link->data));
  g_list_free(list);
  return devices;
}

ServiceHandle UdevRegistry::handleIfMatching(GUdevDevice* device, EntryKind kind,
                                             const PropertyDictionary& match) {
  PropertyDictionary properties = entryProperties(device, kind);
  if (!propertiesMatch(properties, match)) return 0;
  const ServiceHandle service = intern(sysfsPath(device));
  entries_.find(service)->properties = std::move(properties);
  return service;
}

// Where nobody can be interested, nothing is read and no timer started.
// An agent that waits for cameras alone reads nothing of disks that come and go.
bool UdevRegistry::isWanted(unsigned kinds) const {
  return std::ranges::any_of(*subscribers_, [&](const auto& each) { return each->kinds & kinds; });
}

bool UdevRegistry::isAnnounced(const std::string& path) const {
  return std::ranges::any_of(entries_.at(path), [&](ServiceHandle service) {
    return std::ranges::any_of(*subscribers_,
                               [&](const auto& each) { return contains(each->known, service); });
  });
}

void UdevRegistry::remember(Subscriber& subscriber, ServiceHandle service) {
  subscriber.known.push_back(service);
  // Whoever is busy with a part that leaves may still ask whose it was.
  // Read now, since afterwards sysfs has nothing to tell.
  for (const ServiceHandle ancestor : ancestors(service).value_or(std::vector<ServiceHandle>{})) {
    const auto above = properties(ancestor);
    if (above && above->value("IOClass", "") == kUSBDeviceClass) break;
  }
}

// One subscriber that fails must not keep the news from the others.
void UdevRegistry::call(const Callback& callback, ServiceHandle service, const char* what) {
  if (callback) guardedEntry(log_, what, [&] { callback(service); });
}

ServiceHandle UdevRegistry::intern(const std::string& path) {
  return entries_.intern(path, plugNumber(path)).handle;
}

// The folder alone would do for a device that has gone, not for one whose place another has taken.
bool UdevRegistry::isThere(const EntryTable::Entry& entry) {
  return ::access(entry.path.c_str(), F_OK) == 0 && plugNumber(entry.path) == entry.plug;
}

// What was read while another took the place may be of either.
void UdevRegistry::read(EntryTable::Entry& entry) const {
  const GUdevDevicePtr device = deviceAt(entry.path);
  if (!device) return;
  auto properties = entryProperties(device.get(), entryKind(device.get()));
  if (isThere(entry)) entry.properties = std::move(properties);
}

GUdevDevicePtr UdevRegistry::deviceAt(const std::string& path) const {
  return GUdevDevicePtr(g_udev_client_query_by_sysfs_path(client_.get(), path.c_str()));
}

EntryTable::Entry& EntryTable::intern(std::string_view path, std::string_view plug) {
  const auto known = std::ranges::find_if(
      entries_, [&](const Entry& entry) { return entry.path == path && entry.plug == plug; });
  if (known != entries_.end()) return *known;
  return entries_.emplace_back(Entry{.handle = ++lastHandle_,
                                     .path = std::string(path),
                                     .plug = std::string(plug),
                                     .properties = {},
                                     .ancestors = {}});
}

EntryTable::Entry* EntryTable::find(ServiceHandle handle) {
  const auto entry = std::ranges::find(entries_, handle, &Entry::handle);
  return entry == entries_.end() ? nullptr : &*entry;
}

std::vector<ServiceHandle> EntryTable::at(std::string_view path) const {
  std::vector<ServiceHandle> handles;
  for (const Entry& entry : entries_)
    if (entry.path == path) handles.push_back(entry.handle);
  return handles;
}

void EntryTable::forget(ServiceHandle handle) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.handle == handle; });
}

// Said once at the start: without it an agent that never sees anything gives no clue.
std::string missingPartOfUdev(const std::string& root) {
  if (::access((root + "/sys/bus").c_str(), F_OK) != 0)
    return "no " + root + "/sys: devices cannot be found";
  // The kernel's own events are not enough: the registry hears what udev passes on.
  const std::string daemon = root + "/run/udev/control";
  if (::access(daemon.c_str(), F_OK) != 0)
    return "udev does not run (no " + daemon + "): devices may not be noticed";
  // Containers often have both folders and yet forbid the socket.
  const FileDescriptor events(
      ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
  if (!events.isOpen())
    return formatted("no device events (%s): devices are not noticed", std::strerror(errno));
  return {};
}

// The loop keeps its timers by itself and would fire them into nothing.
SCSIUnitAssembly::~SCSIUnitAssembly() {
  for (const Waiting& each : waiting_)
    each.timer->invalidate();
}

void SCSIUnitAssembly::unitSeen(std::string_view unit, bool wantsBlock) {
  waitingFor(unit, wantsBlock);
}

void SCSIUnitAssembly::nodeSeen(std::string_view unit, bool wantsBlock, Node node) {
  Waiting& waiting = waitingFor(unit, wantsBlock);
  (node == Node::kGeneric ? waiting.hasGeneric : waiting.hasBlock) = true;
  // Clients open the generic node and name the unit by its disk, so both are needed.
  // A unit whose patience has ended is announced as soon as its generic node is there: better
  // without a disk than not at all.
  const bool isWhole = waiting.hasBlock || !waiting.wantsBlock || !waiting.timer->isValid();
  if (waiting.hasGeneric && isWhole) finish(waiting.unit);
}

void SCSIUnitAssembly::unitGone(std::string_view unit) {
  std::erase_if(waiting_, [&](const Waiting& each) {
    if (each.unit != unit) return false;
    each.timer->invalidate();
    return true;
  });
}

bool SCSIUnitAssembly::isWaiting(std::string_view unit) const {
  return std::ranges::find(waiting_, unit, &Waiting::unit) != waiting_.end();
}

SCSIUnitAssembly::Waiting& SCSIUnitAssembly::waitingFor(std::string_view unit, bool wantsBlock) {
  const auto known = std::ranges::find(waiting_, unit, &Waiting::unit);
  if (known != waiting_.end()) return *known;
  // The timer outlives the view.
  const std::string name(unit);
  auto timer = runLoop_.scheduleTimer(kPatience, true, [this, name] { tick(name); });
  return waiting_.emplace_back(
      Waiting{.unit = name, .wantsBlock = wantsBlock, .timer = std::move(timer)});
}

bool SCSIUnitAssembly::isOutOfPatience(const Waiting& waiting) const {
  const bool isComing = (!waiting.hasGeneric && isMade_(waiting.unit, Node::kGeneric)) ||
                        (!waiting.hasBlock && isMade_(waiting.unit, Node::kBlock));
  return !isComing || waiting.waited >= kPatienceWithUdev;
}

void SCSIUnitAssembly::tick(const std::string& unit) {
  // Always there: the timer of a unit that was finished or has gone is invalid.
  const auto waiting = std::ranges::find(waiting_, unit, &Waiting::unit);
  waiting->waited += kPatience;
  if (!isOutOfPatience(*waiting)) return;
  waiting->timer->invalidate();
  if (waiting->hasGeneric || isMade_(unit, Node::kGeneric)) finish(unit);
}

void SCSIUnitAssembly::finish(std::string_view unit) {
  const auto found = std::ranges::find(waiting_, unit, &Waiting::unit);
  const Waiting finished = std::move(*found);  // which `unit` may lie in
  waiting_.erase(found);
  // Before the call, which may take long: the unit is not to be finished twice.
  finished.timer->invalidate();
  complete_(finished.unit);
}

}  // namespace tarvo
