// Timers and deferred calls on the application's main loop.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace tarvo {

/// A scheduled timer. Holding it keeps nothing alive: a valid timer lives in its run loop until it
/// is invalidated, or, if it does not repeat, has fired.
class Timer {
 public:
  virtual ~Timer() = default;
  /// False once it was invalidated or, not repeating, has fired.
  virtual bool isValid() const = 0;
  /// Never fires again and lets go of what its callback holds. May be called from that callback.
  virtual void invalidate() = 0;
  /// Moves the next firing to `delay` from now.
  virtual void setFireDelay(std::chrono::milliseconds delay) = 0;
};

/// All on the main thread, except performOnMainThread, which any thread may call.
/// Exceptions of a callback are caught and logged at the loop's entry.
class RunLoop {
 public:
  virtual ~RunLoop() = default;
  /// First fires `interval` from now, then, if it `repeats`, at that interval.
  virtual std::shared_ptr<Timer> scheduleTimer(std::chrono::milliseconds interval, bool repeats,
                                               std::function<void()> fire) = 0;
  /// Calls `work` on the main loop's next turn, without waiting.
  virtual void performOnMainThread(std::function<void()> work) = 0;
  /// Calls `work` when the main loop has nothing else to do.
  virtual void performWhenIdle(std::function<void()> work) = 0;
};

}  // namespace tarvo
