// Distributed notifications as signals on the session bus.
//
// A notification is the signal com.tarvo.DistributedNotification.NAME from the object
// /com/tarvo/DistributedNotification, without arguments; every sender is heard.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"
#include "platform/desktop/Desktop.h"

namespace tarvo {

/// Object path and interface of the signals. They are the contract with the other processes of the
/// family: both sides must name them alike.
inline constexpr const char* kDistributedNotificationPath = "/com/tarvo/DistributedNotification";
inline constexpr const char* kDistributedNotificationInterface =
    "com.tarvo.DistributedNotification";

/// Main thread only. Observers stay registered while the bus is away. `bus` must outlive it.
class DBusNotificationCenter : public DistributedNotificationCenter {
 public:
  /// Registers with `bus`, so that subscriptions follow it when it comes and goes.
  DBusNotificationCenter(BusConnection& bus, LogSink log);
  ~DBusNotificationCenter() override;

  /// A name that is no D-Bus member name is never heard; it is logged.
  /// Member names are letters, digits and underscores, 255 bytes at most, with no digit in front
  /// (D-Bus Specification, "Valid Names").
  void addObserver(const void* observer, std::string name, Handler handler) override;
  void removeObserver(const void* observer) override;
  /// Returns before the bus has the signal. A name that is no D-Bus member name is logged and
  /// dropped.
  void post(std::string_view name) override;

 private:
  struct Registration {
    const void* observer;
    std::string name;
    Handler handler;
  };

  /// A signal has come; runs on the main loop.
  static void received(GDBusConnection* connection, const char* sender, const char* path,
                       const char* interface, const char* name, GVariant* arguments, gpointer self);
  /// Calls the observers of `name`; one that leaves meanwhile is not called any more.
  void deliver(const std::string& name);
  /// One subscription a name, so that signals nobody observes do not wake the process.
  void subscribe(const std::string& name);
  /// Subscribes on a connection that is new, on which nothing is subscribed yet.
  void subscribeAll();
  /// The bus forgets the subscriptions of a closed connection by itself; GLib's own records of them
  /// are released here.
  void forgetSubscriptions();

  BusConnection& bus_;
  LogSink log_;
  /// In order of registration, whether or not the bus is there.
  std::vector<Registration> registrations_;
  std::map<std::string, guint> subscriptions_;  ///< by name, on the connection that is there now
};

}  // namespace tarvo
