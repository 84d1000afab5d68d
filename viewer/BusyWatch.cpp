#include "viewer/BusyWatch.h"

#include <string>
#include <utility>

#include "platform/desktop/FamilyNames.h"

namespace tarvo::viewer {

BusyWatch::BusyWatch(BusConnection& bus, DistributedNotificationCenter& notifications,
                     std::function<void()> done)
    : bus_(bus), notifications_(notifications), done_(std::move(done)) {
  notifications_.addObserver(this, std::string(kWRLADoneNotification), [this] { finish(); });
  bus_.addObserver(
      this, [this](GDBusConnection* connection) { follow(connection); }, [this] { leave(); });
}

BusyWatch::~BusyWatch() {
  bus_.removeObserver(this);
  notifications_.removeObserver(this);
  leave();
}

void BusyWatch::follow(GDBusConnection* connection) {
  leave();
  waiting_.reset(g_cancellable_new());
  const auto made = +[](GObject*, GAsyncResult* result, gpointer self) {
    GErrorHolder error;
    GObjectPtr<GDBusProxy> agent(g_dbus_proxy_new_finish(result, error.out()));
    // The watch may have gone: it has cancelled the call then.
    if (!agent) return;
    auto* watch = static_cast<BusyWatch*>(self);
    watch->agent_ = std::move(agent);
    const auto changed = +[](BusyWatch* heard) { heard->look(); };
    for (const char* signal : {"g-properties-changed", "notify::g-name-owner"})
      g_signal_connect_swapped(watch->agent_.get(), signal, G_CALLBACK(changed), watch);
    watch->look();
  };
  g_dbus_proxy_new(connection, G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START, nullptr, kAgentBusName,
                   kAgentObjectPath, kAgentInterface, waiting_.get(), made, this);
}

void BusyWatch::leave() {
  if (waiting_) g_cancellable_cancel(waiting_.get());
  if (agent_) g_signal_handlers_disconnect_by_data(agent_.get(), this);
  waiting_.reset();
  agent_.reset();
}

void BusyWatch::look() {
  const GVariantPtr busy(g_dbus_proxy_get_cached_property(agent_.get(), "WirelessBusy"));
  const bool isKnown = busy && g_variant_is_of_type(busy.get(), G_VARIANT_TYPE_BOOLEAN) != 0;
  if (isKnown && g_variant_get_boolean(busy.get()) == 0) finish();
}

void BusyWatch::finish() {
  if (auto done = std::exchange(done_, {})) done();
}

}  // namespace tarvo::viewer
