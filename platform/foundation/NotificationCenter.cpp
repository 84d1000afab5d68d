#include "platform/foundation/NotificationCenter.h"

#include <algorithm>
#include <utility>

namespace tarvo {

void NotificationCenter::addObserver(const void* observer, std::string name, Handler handler,
                                     const Object* sender) {
  registrations_.push_back(std::make_shared<Registration>(
      Registration{observer, std::move(name), sender, std::move(handler)}));
}

void NotificationCenter::removeObserver(const void* observer) {
  removeIf([&](const Registration& entry) { return entry.observer == observer; });
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
  removeIf(
      [&](const Registration& entry) { return entry.observer == observer && entry.name == name; });
}

void NotificationCenter::post(const Notification& notification) {
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

void NotificationCenter::removeIf(const std::function<bool(const Registration&)>& condition) {
  const auto leaving = std::stable_partition(registrations_.begin(), registrations_.end(),
                                             [&](const auto& entry) { return !condition(*entry); });
  // Their handlers go last: what those hold may leave the centre in its turn.
  const std::vector<std::shared_ptr<Registration>> left(leaving, registrations_.end());
  registrations_.erase(leaving, registrations_.end());
  for (const auto& entry : left)
    entry->removed = true;
}

void NotificationQueue::enqueue(Notification notification, PostingStyle style) {
  if (style == PostingStyle::kNow) {
    center_.post(notification);
    return;
  }
  // The centre is captured by itself: the queue may be gone by the time the loop is idle.
  loop_.performWhenIdle(
      [&center = center_, waiting = std::move(notification)] { center.post(waiting); });
}

}  // namespace tarvo
