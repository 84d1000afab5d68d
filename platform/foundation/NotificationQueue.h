// Posts a notification now, or when the main loop is idle.
#pragma once

#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

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

}  // namespace tarvo
