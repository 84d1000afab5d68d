// The device registry over udev: an entry is a udev device of the subsystems usb, block and scsi,
// its parents are its ancestors, its properties are read from sysfs.
//
// Nothing is enumerated before somebody asks, and what was read is not kept, except the properties
// of entries whose end somebody waits for, and of the USB devices whose parts were announced. The
// only thing that wakes the process is an event of these subsystems.
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

  /// Of a device that is there, what sysfs says now; of one that just went, what was kept for
  /// whoever waits for its end. A USB device of which a part was announced has what it had then,
  /// until its own end.
  std::optional<PropertyDictionary> properties(ServiceHandle service) override;
  /// For a device that went, the ancestors that have handles: sysfs knows nothing of it any more.
  std::optional<std::vector<ServiceHandle>> ancestors(ServiceHandle service) override;
  /// SCSI units whose nodes are still awaited are left out; they will be announced.
  std::vector<ServiceHandle> servicesMatching(const PropertyDictionary& match) override;
  std::vector<ServiceHandle> servicesMatchingBSDName(std::string_view bsdName) override;
  /// Enumerates once, to know what is there already; after that it costs nothing until an event
  /// comes.
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
  /// Called for an entry that matches, by its sysfs path.
  using Visitor = std::function<void(const std::string& path, PropertyDictionary properties)>;

  // What udev reports.
  /// Signal handler of GUdevClient. The device is lent.
  static void onUevent(GUdevClient*, const gchar* action, GUdevDevice* device, gpointer self);
  /// `action` is udev's word for what happened: add, remove, bind, unbind, change, move, online,
  /// offline.
  void handleEvent(std::string_view action, GUdevDevice* device);
  /// A device node has been made: tells the assembly of the SCSI unit above it, if there is one.
  void nodeCame(GUdevDevice* device);
  /// A SCSI unit is ready to be announced, with its nodes or without.
  void unitComplete(const std::string& path);
  /// Announces the entry to every subscriber that it matches and that has not heard of it.
  void entryCame(GUdevDevice* device, EntryKind kind);
  /// Tells the end of the entry to those who heard of its beginning, then forgets it.
  void entryWent(const std::string& path);

  // What is there.
  /// Reads the entries of the kinds that can satisfy `match`, subsystem by subsystem.
  void visitMatching(const PropertyDictionary& match, const Visitor& visit);
  void visitSubsystem(const char* subsystem, unsigned kinds, const PropertyDictionary& match,
                      const Visitor& visit);
  // What has been said.
  /// Whether any subscription can match an entry of these kinds.
  bool isWanted(unsigned kinds) const;
  /// Whether any subscriber has heard of the entry at `path`.
  bool isAnnounced(const std::string& path);
  /// Notes that `subscriber` needs no announcement of this entry, and keeps its properties for the
  /// end.
  void remember(Subscriber& subscriber, const std::string& path, PropertyDictionary properties);
  /// Keeps the properties of the USB device that this entry is part of: whoever is busy with a part
  /// that leaves may still ask whose it was.
  void keepUSBDeviceAbove(const std::string& path);
  /// Runs a callback behind a guard; `what` names it in the log.
  void call(const Callback& callback, ServiceHandle service, const char* what);
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
