#include "viewer/BusyWatch.h"

#include <string>
#include <utility>

#include "platform/desktop/FamilyNames.h"

namespace tarvo::viewer {

BusyWatch::BusyWatch(BusConnection& bus, DistributedNotificationCenter& notifications,
                     std::function<void()> done)
    : bus_(bus),
      notifications_(notifications),
      done_(std::move(done)),
      agent_("WirelessBusy", "b", [this](GVariant* busy) {
        if (busy != nullptr && g_variant_get_boolean(busy) == FALSE) finish();
      }) {
  notifications_.addObserver(this, std::string(kWRLADoneNotification), [this] { finish(); });
  bus_.addObserver(
      this, [this](GDBusConnection* connection) { agent_.follow(connection); },
      [this] { agent_.leave(); });
}

BusyWatch::~BusyWatch() {
  bus_.removeObserver(this);
  notifications_.removeObserver(this);
}

void BusyWatch::finish() {
  if (auto done = std::exchange(done_, {})) done();
}

}  // namespace tarvo::viewer
