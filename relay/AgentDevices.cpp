#include "relay/AgentDevices.h"

#include <utility>

#include "platform/desktop/FamilyNames.h"

namespace tarvo::relay {
namespace {

std::vector<Arrival> devicesIn(GVariant* devices) {
  std::vector<Arrival> all;
  GVariantIter rows;
  g_variant_iter_init(&rows, devices);
  const char *type = nullptr, *path = nullptr, *serial = nullptr;
  gint32 location = 0;
  while (all.size() < AgentDevices::kMost &&
         g_variant_iter_next(&rows, "(&si&s&s)", &type, &location, &path, &serial) != FALSE)
    // Without a type it is not supported.
    if (*type != '\0') all.push_back({.type = type, .location = location, .path = path});
  return all;
}

}  // namespace

AgentDevices::AgentDevices(Changed changed, GDBusConnection* bus)
    : changed_(std::move(changed)), cancellable_(g_cancellable_new()) {
  const auto made = +[](GObject*, GAsyncResult* result, gpointer self) {
    GErrorHolder error;
    GDBusProxy* const proxy = g_dbus_proxy_new_finish(result, error.out());
    // Cancelled, there is nobody any more to tell.
    if (error.matches(G_IO_ERROR, G_IO_ERROR_CANCELLED)) return;
    if (proxy != nullptr) static_cast<AgentDevices*>(self)->follow(proxy);
  };
  constexpr auto kFlags = static_cast<GDBusProxyFlags>(
      G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START | G_DBUS_PROXY_FLAGS_GET_INVALIDATED_PROPERTIES);
  if (bus != nullptr)
    g_dbus_proxy_new(bus, kFlags, nullptr, kAgentBusName, kAgentObjectPath, kAgentInterface,
                     cancellable_.get(), made, this);
  else
    g_dbus_proxy_new_for_bus(G_BUS_TYPE_SESSION, kFlags, nullptr, kAgentBusName, kAgentObjectPath,
                             kAgentInterface, cancellable_.get(), made, this);
}

AgentDevices::~AgentDevices() {
  g_cancellable_cancel(cancellable_.get());
  if (proxy_) g_signal_handlers_disconnect_by_data(proxy_.get(), this);
}

void AgentDevices::follow(GDBusProxy* proxy) {
  proxy_.reset(proxy);
  const auto changed = +[](GDBusProxy*, GVariant*, const gchar* const*, gpointer self) {
    static_cast<AgentDevices*>(self)->tell();
  };
  const auto owned =
      +[](GDBusProxy*, GParamSpec*, gpointer self) { static_cast<AgentDevices*>(self)->tell(); };
  g_signal_connect(proxy, "g-properties-changed", G_CALLBACK(changed), this);
  g_signal_connect(proxy, "notify::g-name-owner", G_CALLBACK(owned), this);
  tell();
}

void AgentDevices::tell() {
  const GVariantPtr devices(g_dbus_proxy_get_cached_property(proxy_.get(), "Devices"));
  const bool isOurs =
      devices && g_variant_is_of_type(devices.get(), G_VARIANT_TYPE("a(siss)")) != FALSE;
  changed_(isOurs ? devicesIn(devices.get()) : std::vector<Arrival>());
}

}  // namespace tarvo::relay
