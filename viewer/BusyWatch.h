// Waits until the wireless utility has finished.
//
//   BusyWatch watch(bus, notifications, [&] { window.close(); });
//
// Two sources tell of it: the utility's own notification, and WirelessBusy of the agent, which also
// knows of a utility that has ended without a word.
#pragma once

#include <functional>

#include "platform/desktop/AgentProperty.h"
#include "platform/desktop/BusConnection.h"
#include "platform/desktop/Desktop.h"

namespace tarvo::viewer {

/// Main thread only. An agent that is not running is not started, and says nothing: without it only
/// the notification counts.
class BusyWatch {
 public:
  /// `done` is called once, from the main loop. Both references must outlive the watch.
  BusyWatch(BusConnection& bus, DistributedNotificationCenter& notifications,
            std::function<void()> done);
  ~BusyWatch();
  BusyWatch(const BusyWatch&) = delete;
  BusyWatch& operator=(const BusyWatch&) = delete;

 private:
  void finish();

  BusConnection& bus_;
  DistributedNotificationCenter& notifications_;
  std::function<void()> done_;  ///< empty once it was called
  AgentProperty agent_;
};

}  // namespace tarvo::viewer
