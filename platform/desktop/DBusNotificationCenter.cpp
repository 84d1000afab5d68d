#include "platform/desktop/DBusNotificationCenter.h"

#include <algorithm>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {

DBusNotificationCenter::DBusNotificationCenter(BusConnection& bus, LogSink log)
    : bus_(bus), log_(std::move(log)) {
  // From here on subscriptions follow the bus, whether it is there already or comes later.
  bus_.addObserver(
      this, [this](GDBusConnection*) { subscribeAll(); }, [this] { forgetSubscriptions(); });
}

DBusNotificationCenter::~DBusNotificationCenter() {
  bus_.removeObserver(this);
  forgetSubscriptions();
}

void DBusNotificationCenter::addObserver(const void* observer, std::string name, Handler handler) {
  if (!g_dbus_is_member_name(name.c_str())) {
    logTo(log_, LogLevel::kError, "no distributed notification can be named '" + name + "'");
    return;
  }
  registrations_.push_back({observer, name, std::move(handler)});
  subscribe(name);
}

void DBusNotificationCenter::removeObserver(const void* observer) {
  std::erase_if(registrations_, [&](const auto& entry) { return entry.observer == observer; });
  // A subscription without observers would only wake the process.
  for (auto next = subscriptions_.begin(); next != subscriptions_.end();) {
    const auto current = next++;
    const bool heard = std::ranges::any_of(
        registrations_, [&](const auto& entry) { return entry.name == current->first; });
    if (heard) continue;
    g_dbus_connection_signal_unsubscribe(bus_.connection(), current->second);
    subscriptions_.erase(current);
  }
}

void DBusNotificationCenter::post(std::string_view name) {
  const std::string member(name);
  if (bus_.connection() == nullptr) {
    logTo(log_, LogLevel::kWarning, "no session bus: notification " + member + " is dropped");
    return;
  }
  // GLib treats a wrong name as a programming error and may abort; names come from clients.
  if (!g_dbus_is_member_name(member.c_str())) {
    logTo(log_, LogLevel::kError, "no distributed notification can be named '" + member + "'");
    return;
  }
  GErrorHolder error;
  if (!g_dbus_connection_emit_signal(bus_.connection(), nullptr, kDistributedNotificationPath,
                                     kDistributedNotificationInterface, member.c_str(), nullptr,
                                     error.out())) {
    logTo(log_, LogLevel::kWarning, "notification " + member + " is dropped: " + error.message());
  }
}

void DBusNotificationCenter::received(GDBusConnection* /*connection*/, const char* /*sender*/,
                                      const char* /*path*/, const char* /*interface*/,
                                      const char* name, GVariant* /*arguments*/, gpointer self) {
  auto* center = static_cast<DBusNotificationCenter*>(self);
  guardedEntry(center->log_, name, [&] { center->deliver(name); });
}

void DBusNotificationCenter::deliver(const std::string& name) {
  // A handler may add and remove observers: the copy is walked, and the list is asked who is still
  // there.
  const auto registrations = registrations_;
  for (const auto& entry : registrations) {
    const bool stays = std::ranges::any_of(registrations_, [&](const auto& other) {
      return other.observer == entry.observer && other.name == entry.name;
    });
    if (entry.name == name && stays) entry.handler();
  }
}

void DBusNotificationCenter::subscribe(const std::string& name) {
  // Without a bus nothing is subscribed; subscribeAll() makes up for it.
  if (bus_.connection() == nullptr || subscriptions_.contains(name)) return;
  subscriptions_[name] = g_dbus_connection_signal_subscribe(
      // No sender is named, so that every process of the user is heard; the bus matches name and
      // path for us.
      bus_.connection(), nullptr, kDistributedNotificationInterface, name.c_str(),
      kDistributedNotificationPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, received, this, nullptr);
}

void DBusNotificationCenter::subscribeAll() {
  for (const auto& entry : registrations_)
    subscribe(entry.name);
}

void DBusNotificationCenter::forgetSubscriptions() {
  if (bus_.connection() == nullptr) return;
  for (const auto& [name, subscription] : subscriptions_)
    g_dbus_connection_signal_unsubscribe(bus_.connection(), subscription);
  subscriptions_.clear();
}

}  // namespace tarvo
