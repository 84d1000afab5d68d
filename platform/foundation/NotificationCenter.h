// The process-local notification centre: named notifications from a sender to whoever observes.
//
// Delivery is synchronous, in the order of registration. An observer may leave, and others may
// join, while a notification is being delivered: who left is not called any more, who joined is
// called from the next notification on.
//
//   center.addObserver(this, "DeviceAdded", [this](const Notification& n) { deviceAdded(n); });
//   ...
//   center.removeObserver(this);
#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/Object.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

/// What is posted. It is lent to each handler for the length of its call; who needs it later copies
/// it, which keeps the sender alive.
struct Notification {
  std::string name;
  std::shared_ptr<Object> object;  ///< the sender; may be null
  PropertyDictionary userInfo = PropertyDictionary::object();
};

/// Main thread only. Exceptions of a handler reach the poster; later observers are then not called.
/// Nothing is delivered to who joins from within a handler of the same notification. A process has
/// two: its own and the workspace's.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  /// `observer` is only an identity, by which the registration is removed again. With a `sender`
  /// the handler hears that sender alone; the centre does not keep the sender alive.
  void addObserver(const void* observer, std::string name, Handler handler,
                   const Object* sender = nullptr);
  /// Ends every registration of `observer`; one that has none is no error.
  void removeObserver(const void* observer);
  /// Ends the registrations for `name` alone.
  void removeObserver(const void* observer, std::string_view name);

  /// Returns when every observer has been called. A handler may post in its turn.
  void post(const Notification& notification);

 private:
  /// Shared, so that one that is removed during a delivery stays whole until the delivery is over.
  struct Registration {
    const void* observer;
    std::string name;
    const Object* sender;
    Handler handler;
    bool removed = false;
  };
  /// Removes what meets the condition, handlers last.
  void removeIf(const std::function<bool(const Registration&)>& condition);

  std::vector<std::shared_ptr<Registration>> registrations_;
};

// Posts a notification now, or when the main loop is idle.

/// The numbers are those that the framework's clients know.
enum class PostingStyle { kWhenIdle = 1, kNow = 3 };

/// Main thread only.
class NotificationQueue {
 public:
  /// Both must outlive the queue, and `center` what is still waiting in `loop`.
  NotificationQueue(NotificationCenter& center, RunLoop& loop) : center_(center), loop_(loop) {}
  /// A waiting notification keeps its sender alive. Equal notifications are not merged.
  void enqueue(Notification notification, PostingStyle style);

 private:
  NotificationCenter& center_;
  RunLoop& loop_;
};

inline void NotificationCenter::addObserver(const void* observer, std::string name, Handler handler,
                                            const Object* sender) {
  registrations_.push_back(std::make_shared<Registration>(
      Registration{observer, std::move(name), sender, std::move(handler)}));
}

inline void NotificationCenter::removeObserver(const void* observer) {
  removeIf([&](const Registration& entry) { return entry.observer == observer; });
}

inline void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
  removeIf(
      [&](const Registration& entry) { return entry.observer == observer && entry.name == name; });
}

inline void NotificationCenter::post(const Notification& notification) {
  // A copy of the matching registrations: handlers may add and remove while it is walked, and a
  // registration that is being called stays alive through it.
  std::vector<std::shared_ptr<Registration>> receivers;
  std::ranges::copy_if(registrations_, std::back_inserter(receivers), [&](const auto& entry) {
    return entry->name == notification.name &&
           (entry->sender == nullptr || entry->sender == notification.object.get());
  });
  for (const auto& receiver : receivers) {
    if (!receiver->removed) receiver->handler(notification);
  }
}

inline void NotificationCenter::removeIf(
    const std::function<bool(const Registration&)>& condition) {
  const auto leaving = std::stable_partition(registrations_.begin(), registrations_.end(),
                                             [&](const auto& entry) { return !condition(*entry); });
  // Their handlers go last: what those hold may leave the centre in its turn.
  const std::vector<std::shared_ptr<Registration>> left(leaving, registrations_.end());
  registrations_.erase(leaving, registrations_.end());
  for (const auto& entry : left)
    entry->removed = true;
}

inline void NotificationQueue::enqueue(Notification notification, PostingStyle style) {
  if (style == PostingStyle::kNow) {
    center_.post(notification);
    return;
  }
  // The centre is captured by itself: the queue may be gone by the time the loop is idle.
  loop_.performWhenIdle(
      [&center = center_, waiting = std::move(notification)] { center.post(waiting); });
}

}  // namespace tarvo
