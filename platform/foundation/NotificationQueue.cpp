#include "platform/foundation/NotificationQueue.h"

#include <utility>

namespace tarvo {

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
