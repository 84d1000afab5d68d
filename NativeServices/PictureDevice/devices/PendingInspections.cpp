#include "NativeServices/PictureDevice/devices/PendingInspections.h"

#include <utility>

namespace tarvo {

PendingInspections::~PendingInspections() {
  // The loop keeps its timers by itself and would fire them into nothing.
  for (const auto& [object, timer] : timers_)
    timer->invalidate();
}

bool PendingInspections::isWaiting(ICAObject object) const {
  const auto found = timers_.find(object);
  return found != timers_.end() && found->second->isValid();
}

void PendingInspections::schedule(ICAObject object, std::chrono::milliseconds delay,
                                  std::function<void()> inspect) {
  cancelTimer(object);
  // `this` is safe in it: the destructor invalidates every timer.
  timers_[object] = runLoop_.scheduleTimer(delay, false, [this, object, work = std::move(inspect)] {
    timers_.erase(object);  // first: the work may schedule the next one
    work();
  });
}

int PendingInspections::countRetry(ICAObject object, int limit) {
  const int number = ++retries_[object];
  return number <= limit ? number : 0;
}

void PendingInspections::forget(ICAObject object) {
  cancelTimer(object);
  retries_.erase(object);
}

void PendingInspections::cancelTimer(ICAObject object) {
  const auto found = timers_.find(object);
  if (found == timers_.end()) return;
  found->second->invalidate();
  timers_.erase(found);
}

}  // namespace tarvo
