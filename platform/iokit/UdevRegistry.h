// The device registry over udev: an entry is a udev device of the subsystems usb, block and scsi,
// its parents are its ancestors, its properties are read from sysfs.
//
// Nothing is enumerated before somebody asks, and what was read is not kept, except the properties
// of entries whose end somebody waits for. The only thing that wakes the process is an event of
// these subsystems.
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
  UdevRegistry(RunLoop& runLoop, LogSink log);
  ~UdevRegistry() override;
  UdevRegistry(const UdevRegistry&) = delete;
  UdevRegistry& operator=(const UdevRegistry&) = delete;

  std::optional<PropertyDictionary> properties(ServiceHandle service) override;
  std::optional<std::vector<ServiceHandle>> ancestors(ServiceHandle service) override;
  std::vector<ServiceHandle> servicesMatching(const PropertyDictionary& match) override;
  std::vector<ServiceHandle> servicesMatchingBSDName(std::string_view bsdName) override;
  std::unique_ptr<RegistrySubscription> addMatchingNotification(PropertyDictionary match,
                                                                Callback appeared,
                                                                Callback terminated) override;

 private:
  /// One registration. Shared, because a round of announcements may outlast it.
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
  class Subscription;
  using Visitor = std::function<void(const std::string& path, PropertyDictionary properties)>;

  // What udev reports.
  static void onUevent(GUdevClient*, const gchar* action, GUdevDevice* device, gpointer self);
  void handleEvent(std::string_view action, GUdevDevice* device);
  void nodeCame(GUdevDevice* device);
  void unitComplete(const std::string& path);
  void entryCame(GUdevDevice* device, EntryKind kind);
  void entryWent(const std::string& path);

  // What is there.
  void visitMatching(const PropertyDictionary& match, const Visitor& visit);
  void visitSubsystem(const char* subsystem, unsigned kinds, const PropertyDictionary& match,
                      const Visitor& visit);
  // What has been said.
  bool isWanted(unsigned kinds) const;
  bool isAnnounced(const std::string& path);
  void remember(Subscriber& subscriber, const std::string& path, PropertyDictionary properties);
  void call(const Callback& callback, ServiceHandle service, const char* what);
  GUdevDevicePtr deviceAt(const std::string& path) const;

  LogSink log_;
  GUdevClientPtr client_;
  EntryTable entries_;
  SCSIUnitAssembly assembly_;
  std::shared_ptr<Subscribers> subscribers_ = std::make_shared<Subscribers>();
};

}  // namespace tarvo
