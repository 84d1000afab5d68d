#include "platform/desktop/AgentProperty.h"

#include <utility>

#include "platform/desktop/FamilyNames.h"

namespace tarvo {

AgentProperty::AgentProperty(const char* name, const char* type, Told told)
    : name_(name), type_(type), told_(std::move(told)) {}

void AgentProperty::follow(GDBusConnection* bus) {
  leave();
  waiting_.reset(g_cancellable_new());
  const auto made = +[](GObject*, GAsyncResult* result, gpointer self) {
    GErrorHolder error;
    GObjectPtr<GDBusProxy> agent(g_dbus_proxy_new_finish(result, error.out()));
    // Cancelled, there may be nobody any more to tell.
    if (!agent) return;
    auto* property = static_cast<AgentProperty*>(self);
    property->agent_ = std::move(agent);
    const auto changed = +[](AgentProperty* followed) { followed->tell(); };
    for (const char* signal : {"g-properties-changed", "notify::g-name-owner"})
      g_signal_connect_swapped(property->agent_.get(), signal, G_CALLBACK(changed), property);
    property->tell();
  };
  constexpr auto kFlags = static_cast<GDBusProxyFlags>(
      G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START | G_DBUS_PROXY_FLAGS_GET_INVALIDATED_PROPERTIES);
  if (bus != nullptr)
    g_dbus_proxy_new(bus, kFlags, nullptr, kAgentBusName, kAgentObjectPath, kAgentInterface,
                     waiting_.get(), made, this);
  else
    g_dbus_proxy_new_for_bus(G_BUS_TYPE_SESSION, kFlags, nullptr, kAgentBusName, kAgentObjectPath,
                             kAgentInterface, waiting_.get(), made, this);
}

void AgentProperty::leave() {
  if (waiting_) g_cancellable_cancel(waiting_.get());
  if (agent_) g_signal_handlers_disconnect_by_data(agent_.get(), this);
  waiting_.reset();
  agent_.reset();
}

void AgentProperty::tell() {
  const GVariantPtr value(g_dbus_proxy_get_cached_property(agent_.get(), name_));
  const bool isKnown = value && g_variant_is_of_type(value.get(), G_VARIANT_TYPE(type_)) != FALSE;
  // What is called may leave.
  const Told told = told_;
  told(isKnown ? value.get() : nullptr);
}

}  // namespace tarvo
