// A run loop whose clock and queues the test moves by hand.
//
//   ManualRunLoop loop;
//   subject.start();                        // schedules timers, defers calls
//   loop.advance(std::chrono::seconds(5));  // fires what falls due, in order of time
//   loop.runPending();                      // runs deferred and idle calls until none is left
#pragma once

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/foundation/RunLoop.h"

namespace tarvo::test {

/// Exceptions of a callback reach the caller of advance(), runPending() and so on, so that a test
/// sees them.
class ManualRunLoop : public RunLoop {
 public:
  using Milliseconds = std::chrono::milliseconds;

  std::shared_ptr<Timer> scheduleTimer(Milliseconds interval, bool repeats,
                                       std::function<void()> fire) override {
    auto timer = std::make_shared<ManualTimer>(now_, interval, repeats, std::move(fire));
    timers_.push_back(timer);
    return timer;
  }

  void performOnMainThread(std::function<void()> work) override {
    const std::scoped_lock lock(mutex_);
    deferred_.push_back(std::move(work));
  }

  void performWhenIdle(std::function<void()> work) override { idle_.push_back(std::move(work)); }

  /// Moves the clock, firing what falls due in order of time; deferred and idle calls run before
  /// the clock moves and after each firing.
  void advance(Milliseconds by) {
    const Milliseconds end = now_ + by;
    runPending();
    while (const auto timer = nextDue(end)) {
      now_ = std::max(now_, timer->due);
      timer->fireNow();
      runPending();
    }
    now_ = end;
  }

  /// Runs deferred calls, then idle ones, until none is left.
  void runPending() {
    do {
      runMainThreadQueue();
    } while (runOne(idle_));
  }

  /// Runs the deferred calls alone, with those that they add.
  void runMainThreadQueue() {
    while (runOne(deferred_)) {
    }
  }

  /// Runs the idle calls alone, with those that they add.
  void runIdleQueue() {
    while (runOne(idle_)) {
    }
  }

  std::size_t validTimerCount() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(timers_, [](const auto& timer) { return timer->isValid(); }));
  }

  /// Interval of each valid timer, in order of scheduling.
  std::vector<Milliseconds> validIntervals() const {
    std::vector<Milliseconds> intervals;
    for (const auto& timer : timers_)
      if (timer->isValid()) intervals.push_back(timer->interval);
    return intervals;
  }

 private:
  struct ManualTimer : Timer {
    ManualTimer(const Milliseconds& clock, Milliseconds every, bool again,
                std::function<void()> work)
        : interval(every), due(clock + every), repeats(again), fire(std::move(work)), now(clock) {}

    bool isValid() const override { return valid; }
    void invalidate() override { valid = false; }
    void setFireDelay(Milliseconds delay) override { due = now + delay; }
    void fireNow() {
      due += std::max(interval, Milliseconds(1));
      valid = repeats;
      const auto work = fire;
      work();
    }

    Milliseconds interval;
    Milliseconds due;
    bool repeats;
    bool valid = true;
    std::function<void()> fire;
    const Milliseconds& now;
  };

  std::shared_ptr<ManualTimer> nextDue(Milliseconds end) {
    std::erase_if(timers_, [](const auto& timer) { return !timer->valid; });
    const auto next =
        std::ranges::min_element(timers_, {}, [](const auto& timer) { return timer->due; });
    return next != timers_.end() && (*next)->due <= end ? *next : nullptr;
  }

  bool runOne(std::deque<std::function<void()>>& queue) {
    std::function<void()> work;
    {
      const std::scoped_lock lock(mutex_);
      if (queue.empty()) return false;
      work = std::move(queue.front());
      queue.pop_front();
    }
    work();
    return true;
  }

  Milliseconds now_{0};
  std::vector<std::shared_ptr<ManualTimer>> timers_;
  std::mutex mutex_;
  std::deque<std::function<void()>> deferred_;
  std::deque<std::function<void()>> idle_;
};

}  // namespace tarvo::test
