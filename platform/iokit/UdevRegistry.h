// The device registry over udev: an entry is a udev device of the subsystems usb, block and scsi,
// its parents are its ancestors, its properties are read from sysfs.
//
// Nothing is enumerated before somebody asks. An entry's properties are read once and kept for as
// long as the device is there, which two small files of sysfs tell. The only thing that wakes the
// process is an event of these subsystems.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/RunLoop.h"
#include "platform/iokit/EntryProperties.h"
#include "platform/iokit/EntryTable.h"
#include "platform/iokit/GUdevPtr.h"
#include "platform/iokit/Registry.h"
#include "platform/iokit/SCSIUnitAssembly.h"

namespace tarvo {

/// Main thread only; events arrive on the thread-default main context of the constructor's caller.
/// Where there is no udev the registry is empty for ever and says so once in `log`.
class UdevRegistry : public Registry {
 public:
  /// `runLoop` bounds the wait for the nodes of SCSI units; it must outlive the registry.
  UdevRegistry(RunLoop& runLoop, LogSink log);
  ~UdevRegistry() override;
  UdevRegistry(const UdevRegistry&) = delete;
  UdevRegistry& operator=(const UdevRegistry&) = delete;

  /// Of a SCSI unit that has gone without "SCSI Generic Node", which may be another's by now.
  std::optional<PropertyDictionary> properties(ServiceHandle service) override;
  /// Of a device that went, those that somebody has asked for before.
  std::optional<std::vector<ServiceHandle>> ancestors(ServiceHandle service) override;
  /// SCSI units whose nodes are still awaited are left out; they will be announced.
  std::vector<ServiceHandle> servicesMatching(const PropertyDictionary& match) override;
  std::vector<ServiceHandle> servicesMatchingBSDName(std::string_view bsdName) override;
  /// Enumerates, to know what is there already, unless somebody has a registration for the same;
  /// after that it costs nothing until an event comes.
  std::unique_ptr<RegistrySubscription> addMatchingNotification(PropertyDictionary match,
                                                                Callback appeared,
                                                                Callback terminated) override;

 private:
  /// One registration. Shared, because a round of announcements may outlast it.
  /// Never copied: its address is its identity on the list.
  struct Subscriber {
    Subscriber(PropertyDictionary wanted, Callback onAppeared, Callback onTerminated)
        : match(std::move(wanted)),
          kinds(kindsThatCanMatch(match)),
          appeared(std::move(onAppeared)),
          terminated(std::move(onTerminated)) {}
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

    PropertyDictionary match;
    unsigned kinds;  // what can match at all; none once the subscription has ended
    Callback appeared;
    Callback terminated;
    std::vector<ServiceHandle> known;  // entries that need no further announcement
  };
  using Subscribers = std::vector<std::shared_ptr<Subscriber>>;
  /// What the client holds.
  class Subscription;
  using UnitVisitor = std::function<void(GUdevDevice* unit)>;

  // What udev reports.
  /// Signal handler of GUdevClient. The device is lent.
  static void onUevent(GUdevClient*, const gchar* action, GUdevDevice* device, gpointer self);
  /// `action` is udev's word for what happened: add, remove, bind, unbind, change, move, online,
  /// offline.
  void handleEvent(std::string_view action, GUdevDevice* device);
  /// A device node has been made: tells the assembly of the SCSI unit above it, if there is one.
  void nodeCame(GUdevDevice* device);
  /// Hands a unit that is there already to the assembly, with those of its nodes that are ready.
  void awaitNodes(GUdevDevice* unit);
  bool isNodeReady(const std::string& unitPath, SCSIUnitAssembly::Node node) const;
  /// Whether a unit that was there before has all the nodes that it gets.
  bool isWhole(const std::string& unitPath) const;
  /// A SCSI unit is ready to be announced, with its disk or without.
  void unitComplete(const std::string& path);
  /// Announces the entry to every subscriber that it matches and that has not heard of it.
  void entryCame(GUdevDevice* device, EntryKind kind);
  /// A device has left this path, where the next one may be by now.
  void pathWent(const std::string& path);
  /// Tells the end of the entry to those who heard of its beginning, then forgets it.
  void entryWent(ServiceHandle service);

  // What is there.
  std::vector<ServiceHandle> presentFor(const PropertyDictionary& match);
  /// Those of the entries that were read already.
  std::vector<ServiceHandle> knownMatching(const PropertyDictionary& match) const;
  /// Reads the entries of the kinds that can satisfy `match`. `onUnfinished` gets the units that do
  /// not have their nodes yet; without it they count like all others.
  std::vector<ServiceHandle> enumerate(const PropertyDictionary& match,
                                       const UnitVisitor& onUnfinished = nullptr);
  std::vector<GUdevDevicePtr> devicesOf(const char* subsystem,
                                        const PropertyDictionary& match) const;
  /// 0 for an entry that does not match.
  ServiceHandle handleIfMatching(GUdevDevice* device, EntryKind kind,
                                 const PropertyDictionary& match);
  // What has been said.
  /// Whether any subscription can match an entry of these kinds.
  bool isWanted(unsigned kinds) const;
  /// Whether any subscriber has heard of an entry at `path`.
  bool isAnnounced(const std::string& path) const;
  /// Notes that `subscriber` needs no announcement of this entry, and reads whose part it is.
  void remember(Subscriber& subscriber, ServiceHandle service);
  /// Runs a callback behind a guard; `what` names it in the log.
  void call(const Callback& callback, ServiceHandle service, const char* what);

  // Entries and devices.
  /// The handle of the device that is at `path` now.
  ServiceHandle intern(const std::string& path);
  /// Whether the device itself is there, and not only another at its path.
  static bool isThere(const EntryTable::Entry& entry);
  /// Reads the properties of an entry that is there; the pointer stays valid.
  void read(EntryTable::Entry& entry) const;
  /// Null when sysfs has no such device now.
  GUdevDevicePtr deviceAt(const std::string& path) const;

  LogSink log_;
  GUdevClientPtr client_;
  /// Handles that were given out, to subscribers and to searches alike.
  EntryTable entries_;
  SCSIUnitAssembly assembly_;
  std::shared_ptr<Subscribers> subscribers_ = std::make_shared<Subscribers>();
};

}  // namespace tarvo
