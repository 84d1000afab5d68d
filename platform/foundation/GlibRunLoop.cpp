#include "platform/foundation/GlibRunLoop.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

GSource* attached(GMainContext* context, GSource* source, int priority, GSourceFunc callback,
                  gpointer data, GDestroyNotify release = nullptr) {
  g_source_set_priority(source, priority);
  g_source_set_callback(source, callback, data, release);
  g_source_attach(source, context);
  return source;
}

}  // namespace

/// Each firing is a one-shot source of its own, which holds the timer; so a valid timer stays alive
/// and a callback may invalidate it or move it.
class GlibTimer : public Timer, public std::enable_shared_from_this<GlibTimer> {
 public:
  GlibTimer(GMainContext* context, std::chrono::milliseconds interval, bool repeats,
            std::function<void()> fire, const LogSink& log)
      : context_(context),
        interval_(interval),
        repeats_(repeats),
        fire_(std::move(fire)),
        log_(log) {}

  void arm(std::chrono::milliseconds delay) {
    constexpr std::int64_t kLongest = std::numeric_limits<guint>::max();
    const auto count = static_cast<guint>(std::clamp<std::int64_t>(delay.count(), 0, kLongest));
    // The source's data keep the timer alive for as long as the source is attached.
    auto* holder = new std::shared_ptr<GlibTimer>(shared_from_this());
    source_ = AttachedSource(
        attached(context_, g_timeout_source_new(count), G_PRIORITY_DEFAULT, dispatch, holder,
                 [](gpointer data) { delete static_cast<std::shared_ptr<GlibTimer>*>(data); }));
  }

  bool isValid() const override { return valid_; }

  void invalidate() override {
    const auto keepAlive = weak_from_this().lock();
    valid_ = false;
    source_.reset();
    fire_ = nullptr;  // lets go of what it captured, which may hold this timer
  }

  void setFireDelay(std::chrono::milliseconds delay) override {
    if (valid_) arm(delay);
  }

 private:
  static gboolean dispatch(gpointer data) {
    const auto timer = *static_cast<std::shared_ptr<GlibTimer>*>(data);
    guardedEntry(timer->log_, "timer", [&] { timer->fired(); });
    return G_SOURCE_REMOVE;
  }

  /// The next firing is arranged first, so that the callback can move or end it.
  void fired() {
    const auto work = fire_;  // stays whole when it invalidates its own timer
    if (repeats_) {
      arm(interval_);
    } else {
      invalidate();
    }
    work();
  }

  GMainContext* context_;
  std::chrono::milliseconds interval_;
  bool repeats_;
  bool valid_ = true;
  std::function<void()> fire_;
  const LogSink& log_;
  AttachedSource source_;
};

void GlibRunLoop::WorkQueue::push(std::function<void()> work) {
  const std::scoped_lock lock(mutex_);
  waiting_.push_back(std::move(work));
  // The source is attached already while anything else waits. Attaching wakes the main thread.
  if (waiting_.size() > 1) return;
  source_ = AttachedSource(attached(context_, g_idle_source_new(), priority_, dispatch, this));
}

std::function<void()> GlibRunLoop::WorkQueue::takeFirst() {
  const std::scoped_lock lock(mutex_);
  auto work = std::move(waiting_.front());
  waiting_.pop_front();
  // Still within the lock, or a push from another thread could find the old source attached and
  // rely on it.
  if (waiting_.empty()) source_.reset();
  return work;
}

gboolean GlibRunLoop::WorkQueue::dispatch(gpointer self) {
  auto& queue = *static_cast<WorkQueue*>(self);
  // Taken off before it runs, so that it may push and may raise without being called again.
  guardedEntry(queue.log_, queue.name_, [&] { queue.takeFirst()(); });
  return G_SOURCE_CONTINUE;  // the queue takes its source away itself when it runs empty
}

GlibRunLoop::GlibRunLoop(LogSink log)
    : log_(std::move(log)),
      context_(g_main_context_ref_thread_default()),
      loop_(g_main_loop_new(context_.get(), FALSE)),
      deferred_(context_.get(), G_PRIORITY_DEFAULT, "performOnMainThread", log_),
      idle_(context_.get(), G_PRIORITY_DEFAULT_IDLE, "performWhenIdle", log_) {}

GlibRunLoop::~GlibRunLoop() {
  // A timer that its owner still holds would otherwise fire into a loop that has gone.
  for (const auto& entry : timers_) {
    if (const auto timer = entry.lock()) timer->invalidate();
  }
}

void GlibRunLoop::run() {
  if (!interrupt_ || !interrupt_->isSet()) g_main_loop_run(loop_.get());
}

void GlibRunLoop::quit() {
  g_main_loop_quit(loop_.get());
}

void GlibRunLoop::quitOnTerminationSignals() {
  interrupt_.emplace(Interrupt::Second::kIsIgnored, [this] { quit(); });
}

std::shared_ptr<Timer> GlibRunLoop::scheduleTimer(std::chrono::milliseconds interval, bool repeats,
                                                  std::function<void()> fire) {
  // Here, where the list grows, so that it stays as long as the number of live timers.
  std::erase_if(timers_, [](const auto& entry) { return entry.expired(); });
  auto timer =
      std::make_shared<GlibTimer>(context_.get(), interval, repeats, std::move(fire), log_);
  timer->arm(interval);
  timers_.push_back(timer);
  return timer;
}

void GlibRunLoop::performOnMainThread(std::function<void()> work) {
  deferred_.push(std::move(work));
}

void GlibRunLoop::performWhenIdle(std::function<void()> work) {
  idle_.push(std::move(work));
}

}  // namespace tarvo
