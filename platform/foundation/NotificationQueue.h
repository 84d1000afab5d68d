// Posts a notification now, or when the main loop is idle.
#pragma once

#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

enum class PostingStyle { kWhenIdle = 1, kNow = 3 };

/// Main thread only.
class NotificationQueue {
 public:
  NotificationQueue(NotificationCenter& center, RunLoop& loop) : center_(center), loop_(loop) {}
  void enqueue(Notification notification, PostingStyle style);

 private:
  NotificationCenter& center_;
  RunLoop& loop_;
};

}  // namespace tarvo
