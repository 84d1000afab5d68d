// Keeps two of the maker's applications from working on a device at the same time: each side
// announces busy and done to every process of the user, and listens to the other side.
//
//   auto blocker = AppBlocker::initForBlockingOnWRLA(distributedCenter);
//   blocker->SendBusyNotification();     // "the Relay application works on a device"
//   if (blocker->isBusy()) ...           // the wireless utility is transferring
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/desktop/Desktop.h"
#include "platform/desktop/FamilyNames.h"

namespace tarvo {

/// Main thread only. The notifications carry neither object nor data. A process that ends while
/// busy never says done: who starts it sets the flag back (setBusy) when it hears of the end.
class AppBlocker {
 public:
  using Clock = std::chrono::system_clock;
  using Now = std::function<Clock::time_point()>;

  /// Listens to the Relay application's names and posts the wireless utility's. `center` must
  /// outlive the blocker.
  static std::unique_ptr<AppBlocker> initForBlockingOnRLA(DistributedNotificationCenter& center);
  /// Listens to the wireless utility's names and posts the Relay application's.
  /// `now` tells when the other side became busy.
  static std::unique_ptr<AppBlocker> initForBlockingOnWRLA(DistributedNotificationCenter& center,
                                                           Now now = Clock::now);

  ~AppBlocker();
  AppBlocker(const AppBlocker&) = delete;
  AppBlocker& operator=(const AppBlocker&) = delete;

  /// Tell every process of the user that this side works on a device, or has finished. Nothing is
  /// remembered: isBusy() is about the other side.
  void SendBusyNotification();
  void SendDoneNotification();

  /// Whether the other side last said busy; there is no counting.
  bool isBusy() const { return isBusy_; }
  void setBusy(bool busy);
  /// When the other side became busy; absent while it is not. Saying so again changes nothing.
  std::optional<Clock::time_point> busySince() const { return busySince_; }
  /// For how long it has been busy; nothing while it is not, or where the clock was set back.
  std::chrono::seconds busyFor() const;

  /// The other side has said so.
  void handleBusyNotification();
  void handleDoneNotification();

  /// Calls `changed` whenever isBusy() has been set. One listener; an empty function ends it.
  void setChangeListener(std::function<void()> changed) { changed_ = std::move(changed); }

 private:
  /// The two notifications of one side.
  struct Names {
    std::string_view busy, done;
  };
  AppBlocker(DistributedNotificationCenter& center, Names heard, Names posted, Now now);

  DistributedNotificationCenter& center_;
  std::string busyNotification;  ///< what this side posts
  std::string doneNotification;
  bool isBusy_ = false;
  Now now_;
  std::optional<Clock::time_point> busySince_;
  std::function<void()> changed_;
};

}  // namespace tarvo
