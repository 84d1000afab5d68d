// The device registry over udev: an entry is a udev device of the subsystems usb, block and scsi,
// its parents are its ancestors, its properties are read from sysfs.
//
// Nothing is enumerated before somebody asks. An entry's properties are read once and kept for as
// long as the device is there, which two small files of sysfs tell. The only thing that wakes the
// process is an event of these subsystems.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/RunLoop.h"
#include "platform/iokit/EntryProperties.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only.
class EntryTable {
 public:
  /// An entry somebody holds a handle of.
  struct Entry {
    ServiceHandle handle = 0;
    std::string path;  ///< in sysfs
    /// What tells it from those that were at the path before it, see plugNumber().
    std::string plug;
    /// As they were read last, none before anybody has asked; they outlive the device.
    std::optional<PropertyDictionary> properties;
    /// Its ancestors, likewise.
    std::optional<std::vector<ServiceHandle>> ancestors;
  };

  /// The entry of the device at `path` with that plug number, a new one when it has none yet. Valid
  /// until the next call of intern() or forget().
  Entry& intern(std::string_view path, std::string_view plug);
  /// Null when unknown; otherwise like intern().
  Entry* find(ServiceHandle handle);
  /// Those at `path`, the latest last: the end of one may not have been heard of yet when the next
  /// is there.
  std::vector<ServiceHandle> at(std::string_view path) const;
  const std::vector<Entry>& all() const { return entries_; }
  /// Drops the entry; its handle never comes back.
  void forget(ServiceHandle handle);
  /// Number of entries, for those who watch that none is left behind.
  std::size_t size() const { return entries_.size(); }

 private:
  std::vector<Entry> entries_;  // a few dozen at most, so searching beats an index
  /// Counts up for the life of the table; 32 bits outlast any session.
  ServiceHandle lastHandle_ = 0;
};

// Whether this machine has what the device registry lives on.

/// Says in words what is missing: device events from the kernel, sysfs, or the udev daemon. Empty
/// text when all of it is there. `root` is put before every path. Any thread.
/// The daemon is known by its control socket, as libudev itself looks for it.
std::string missingPartOfUdev(const std::string& root = {});

// Holds a SCSI unit back until udev has processed the device nodes below it: a unit that is
// announced earlier has no block device yet, and its generic node cannot be opened. One without a
// generic node is of no use to anybody and is held back for as long as it has none.

/// Main thread only. Units are named by their sysfs path.
class SCSIUnitAssembly {
 public:
  /// How long a unit waits for the kernel to make its disk; a driver that makes none is not waited
  /// for longer. For its generic node it waits without a clock.
  static constexpr std::chrono::milliseconds kPatience{1000};
  /// How long it waits for udev to deal with nodes that the kernel has made: it reads the medium,
  /// which takes a drive its time, and only then may the user open them.
  static constexpr std::chrono::milliseconds kPatienceWithUdev{10'000};

  /// The two kinds of device node below a unit: /dev/sgN, which every unit has, and the disk, which
  /// depends on its type.
  enum class Node { kGeneric, kBlock };

  /// Asks whether the kernel has made that node of the unit.
  using IsMade = std::function<bool(const std::string& unit, Node node)>;

  /// `complete` is called once for each unit, when its nodes are there or its time has passed.
  SCSIUnitAssembly(RunLoop& runLoop, IsMade isMade,
                   std::function<void(const std::string& unit)> complete)
      : runLoop_(runLoop), isMade_(std::move(isMade)), complete_(std::move(complete)) {}
  ~SCSIUnitAssembly();
  SCSIUnitAssembly(const SCSIUnitAssembly&) = delete;
  SCSIUnitAssembly& operator=(const SCSIUnitAssembly&) = delete;

  /// The unit is there. `wantsBlock` tells whether it gets a block device at all. Seeing something
  /// twice changes nothing.
  void unitSeen(std::string_view unit, bool wantsBlock);
  /// A node of the unit is there, which may be seen before the unit itself.
  void nodeSeen(std::string_view unit, bool wantsBlock, Node node);
  /// The unit went, complete or not: it is not waited for any more.
  void unitGone(std::string_view unit);
  /// True between the first that was seen of the unit and its completion.
  bool isWaiting(std::string_view unit) const;

 private:
  /// A unit on its way, with what has been seen of it. Order does not matter: several udev workers
  /// run at once, and a node's event may overtake another's.
  struct Waiting {
    std::string unit;
    /// By the peripheral type, which is known from the first event on.
    bool wantsBlock;
    bool hasGeneric = false;
    bool hasBlock = false;
    std::chrono::milliseconds waited{0};
    /// Ticks every kPatience while anything can come of it; never null.
    std::shared_ptr<Timer> timer;
  };

  /// Whether its clock need not tick any more.
  bool isOutOfPatience(const Waiting& waiting) const;
  /// The record of `unit`; starts its clock when there is none yet. Valid until the next call.
  Waiting& waitingFor(std::string_view unit, bool wantsBlock);
  /// Another kPatience has passed for a unit that is on its way.
  void tick(const std::string& unit);
  /// The unit is on its way no more: its record goes first, so that `complete` finds it gone.
  void finish(std::string_view unit);

  RunLoop& runLoop_;
  IsMade isMade_;
  std::function<void(const std::string&)> complete_;
  /// Two or three at most: units are plugged one at a time.
  std::vector<Waiting> waiting_;
};

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
  std::vector<std::string> disksBelow(std::string_view bsdName) override;
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
