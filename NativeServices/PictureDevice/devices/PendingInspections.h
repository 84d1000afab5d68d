// Inspections of Image Capture devices that wait for their time: the half second after an arrival,
// and the retries while somebody else holds the device's interface.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "platform/foundation/RunLoop.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo {

/// Main thread only. At most one inspection of an object waits; destroying this drops them all.
///
/// A timer of the main loop waits for each, none of them repeats, and none is left when nothing
/// waits.
class PendingInspections {
 public:
  explicit PendingInspections(RunLoop& runLoop) : runLoop_(runLoop) {}
  ~PendingInspections();
  PendingInspections(const PendingInspections&) = delete;
  PendingInspections& operator=(const PendingInspections&) = delete;

  /// Whether an inspection of the object is scheduled.
  bool isWaiting(ICAObject object) const;
  /// Calls `inspect` once after `delay`. Replaces what waits for the same object.
  void schedule(ICAObject object, std::chrono::milliseconds delay, std::function<void()> inspect);
  /// Counts a retry and gives its number, from 1 on; 0 once `limit` retries have been counted since
  /// the last forget().
  int countRetry(ICAObject object, int limit);
  /// Drops what waits for the object, and its count of retries.
  void forget(ICAObject object);

 private:
  void cancelTimer(ICAObject object);

  RunLoop& runLoop_;
  /// Only timers that have not fired.
  std::map<ICAObject, std::shared_ptr<Timer>> timers_;
  /// Of objects whose interface was refused, until forget().
  std::map<ICAObject, int> retries_;
};

}  // namespace tarvo
