// The application's main loop on GLib's default main context.
//
//   GlibRunLoop loop(log);
//   loop.quitOnTerminationSignals();
//   auto timer = loop.scheduleTimer(std::chrono::seconds(1), true, [] { ... });
//   loop.run();
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

class GlibTimer;

/// Main thread only, except performOnMainThread. What is still scheduled when the loop goes is
/// dropped without being called.
class GlibRunLoop : public RunLoop {
 public:
  explicit GlibRunLoop(LogSink log);
  ~GlibRunLoop() override;
  GlibRunLoop(const GlibRunLoop&) = delete;
  GlibRunLoop& operator=(const GlibRunLoop&) = delete;

  /// Runs callbacks until quit().
  void run();
  /// Ends run() after the callback that calls it.
  void quit();
  /// SIGTERM and SIGINT end run().
  void quitOnTerminationSignals();

  std::shared_ptr<Timer> scheduleTimer(std::chrono::milliseconds interval, bool repeats,
                                       std::function<void()> fire) override;
  void performOnMainThread(std::function<void()> work) override;
  void performWhenIdle(std::function<void()> work) override;

 private:
  /// Calls in the order in which they came, one a turn, from a source that is attached only while
  /// there are any.
  class WorkQueue {
   public:
    WorkQueue(int priority, const char* name, const LogSink& log)
        : priority_(priority), name_(name), log_(log) {}
    void push(std::function<void()> work);  ///< any thread

   private:
    static gboolean dispatch(gpointer self);
    std::function<void()> takeFirst();

    int priority_;
    const char* name_;
    const LogSink& log_;
    std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
    AttachedSource source_;  // last, so that it leaves the loop before what it touches goes
  };

  LogSink log_;
  GMainLoopPtr loop_;
  WorkQueue deferred_;
  WorkQueue idle_;
  std::vector<std::weak_ptr<GlibTimer>> timers_;
  std::vector<AttachedSource> signals_;
};

}  // namespace tarvo
