// The application's main loop on GLib's main context of the thread, mostly the default one.
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
#include <optional>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/Interrupt.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

class GlibTimer;

/// Main thread only, except performOnMainThread. What is still scheduled when the loop goes is
/// dropped without being called.
class GlibRunLoop : public RunLoop {
 public:
  /// `log` hears of exceptions that callbacks raise, under the name of the call that made them.
  explicit GlibRunLoop(LogSink log);
  ~GlibRunLoop() override;
  GlibRunLoop(const GlibRunLoop&) = delete;
  GlibRunLoop& operator=(const GlibRunLoop&) = delete;

  /// Runs callbacks until quit().
  void run();
  /// Ends run() after the callback that calls it.
  void quit();
  /// SIGTERM and SIGINT end run(), also before it is called.
  /// The handlers stay in place while the loop object lives, so a second signal ends nothing harder
  /// than the first.
  void quitOnTerminationSignals();
  /// What waits outside the loop looks at; null before quitOnTerminationSignals().
  const Interrupt* interrupt() const { return interrupt_ ? &*interrupt_ : nullptr; }

  /// A repeating timer has one firing ahead of it at most, so those that a slow
  /// callback misses do not pile up.
  std::shared_ptr<Timer> scheduleTimer(std::chrono::milliseconds interval, bool repeats,
                                       std::function<void()> fire) override;
  /// Any thread. Runs at the default priority, between other sources.
  void performOnMainThread(std::function<void()> work) override;
  /// Runs when no source of default priority is ready.
  void performWhenIdle(std::function<void()> work) override;

 private:
  /// Calls in the order in which they came, one a turn, from a source that is attached only while
  /// there are any.
  class WorkQueue {
   public:
    WorkQueue(GMainContext* context, int priority, const char* name, const LogSink& log)
        : context_(context), priority_(priority), name_(name), log_(log) {}
    /// Attaches the source with the first call that waits, which wakes the main thread.
    void push(std::function<void()> work);  ///< any thread

   private:
    static gboolean dispatch(gpointer self);
    /// The source leaves the loop with the last call: an idle agent has no source that wakes it.
    std::function<void()> takeFirst();

    GMainContext* context_;
    int priority_;
    const char* name_;
    const LogSink& log_;
    /// Guards the calls and the source: push() may come from any thread while dispatch() runs.
    std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
    AttachedSource source_;  // last, so that it leaves the loop before what it touches goes
  };

  LogSink log_;
  GMainContextPtr context_;
  GMainLoopPtr loop_;
  WorkQueue deferred_;
  WorkQueue idle_;
  /// Timers hold a reference to the log sink, so those that outlive the loop are invalidated with
  /// it. The loop keeps none of them alive by this list.
  std::vector<std::weak_ptr<GlibTimer>> timers_;
  std::optional<Interrupt> interrupt_;
};

}  // namespace tarvo
