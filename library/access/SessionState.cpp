#include "library/access/SessionState.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "platform/foundation/GlibPtr.h"

namespace tarvo {
namespace {

constexpr std::size_t kUsualDescriptors = 16;

/// The rooms below have one state a process.
std::atomic<const SessionState*> theSession = nullptr;

std::shared_ptr<GMainContext> owned(GMainContext* context) {
  return {context, g_main_context_unref};
}

}  // namespace

SessionState::SessionState(const SessionOptions::Data& options)
    : ownsContext_(!options.context),
      // Descriptors of it are waited for by a loop that is not GLib's.
      context_(options.context
                   ? options.context
                   : owned(g_main_context_new_with_flags(G_MAIN_CONTEXT_FLAGS_OWNERLESS_POLLING))) {
  const SessionState* none = nullptr;
  if (!theSession.compare_exchange_strong(none, this))
    library::refuse("there is a session already; a process has one at a time");
  const auto context = contextOfThread();
  ownPlatform_ = library::makeProcessPlatform(options);
  platform_ = ownPlatform_.get();
}

SessionState::SessionState(library::Platform& platform)
    : ownsContext_(true),
      context_(owned(g_main_context_ref_thread_default())),
      platform_(&platform) {}

SessionState::~SessionState() { letGoOfAll(); }

void SessionState::end() {
  isEnding_ = true;
  if (running_ == 0) letGoOfAll();
}

void SessionState::letGoOfAll() {
  if (std::exchange(isOver_, true)) return;
  const auto context = contextOfThread();
  // Each takes itself off the list.
  for (const auto& [who, end] : std::exchange(ends_, {}))
    end();
  ownPlatform_.reset();
  const SessionState* self = this;
  theSession.compare_exchange_strong(self, nullptr);
}

/// For a callback that the platform itself has on its stack.
void SessionState::letGoOfAllLater() {
  using Kept = std::shared_ptr<SessionState>;
  GSource* source = g_idle_source_new();
  g_source_set_callback(
      source,
      +[](gpointer kept) -> gboolean {
        (*static_cast<Kept*>(kept))->letGoOfAll();
        return G_SOURCE_REMOVE;
      },
      new Kept(shared_from_this()), +[](gpointer kept) { delete static_cast<Kept*>(kept); });
  g_source_attach(source, context_.get());
  g_source_unref(source);
}

bool SessionState::isInterrupted() const {
  if (isEnding_) return true;
  const Interrupt* interrupt = platform_->interrupt();
  return interrupt != nullptr && interrupt->isSet();
}

void SessionState::endIfInterrupted() const {
  if (isInterrupted()) library::raise({.status = status::kCancelled});
}

bool SessionState::hold(std::uint32_t device) { return !std::exchange(held_[device], true); }

void SessionState::beginCall() {
  if (thread_ != std::this_thread::get_id())
    library::refuse("a session is of the thread that made it");
  if (isEnding_) library::refuse("the session has ended");
  if (isInTransfer_)
    library::refuse("nothing may be called from a callback that tells of progress");
  ++running_;
}

void SessionState::endCall() {
  if (--running_ == 0 && isEnding_) {
    letGoOfAll();
  } else if (poll_.isOpen() && !isDispatching_) {
    // The call may have begun to wait for something.
    watchContext();
  }
}

bool SessionState::dispatch() {
  if (!ownsContext_) library::refuse("the loop whose context was given does this");
  if (isDispatching_) library::refuse("it runs already, and has called this");
  isDispatching_ = true;
  told_ = false;
  while (!raised_ && !isEnding_ && g_main_context_iteration(context_.get(), FALSE) != 0) {
  }
  isDispatching_ = false;
  rethrowRaised();
  return told_;
}

bool SessionState::wait(std::chrono::milliseconds most) {
  if (dispatch()) return true;
  GSource* clock = g_timeout_source_new(
      static_cast<guint>(std::clamp<std::int64_t>(most.count(), 0, G_MAXUINT)));
  // That they end a turn of the loop is what both sources are for.
  const GSourceFunc ends = [](gpointer) -> gboolean { return G_SOURCE_REMOVE; };
  g_source_set_callback(clock, ends, nullptr, nullptr);
  g_source_attach(clock, context_.get());
  const AttachedSource timer(clock);
  AttachedSource stop;
  if (const Interrupt* interrupt = platform_->interrupt()) {
    GSource* source = interrupt->makeSource();
    g_source_set_callback(source, G_SOURCE_FUNC(+[](gint, GIOCondition, gpointer) -> gboolean {
                            return G_SOURCE_REMOVE;
                          }),
                          nullptr, nullptr);
    g_source_attach(source, context_.get());
    stop = AttachedSource(source);
  }
  isDispatching_ = true;
  while (!told_ && !raised_ && !g_source_is_destroyed(clock) && !isInterrupted())
    g_main_context_iteration(context_.get(), TRUE);
  isDispatching_ = false;
  rethrowRaised();
  return told_;
}

void SessionState::catchUp() {
  // Who has a loop of GLib's is told from there.
  if (ownsContext_ && !isDispatching_) dispatch();
}

void SessionState::tell(const std::function<void()>& callback) {
  if (isEnding_) return;
  // What is called may let go of the session.
  const auto kept = shared_from_this();
  told_ = true;
  try {
    ++running_;
    callback();
  } catch (...) {
    raised_ = std::current_exception();
  }
  if (--running_ == 0 && isEnding_) letGoOfAllLater();
  // From a loop of somebody else's it goes on to who guards that.
  if (!isDispatching_) rethrowRaised();
}

void SessionState::rethrowRaised() {
  if (raised_) std::rethrow_exception(std::exchange(raised_, nullptr));
}

int SessionState::pollDescriptor() {
  if (!ownsContext_) library::refuse("the loop whose context was given does this");
  if (!poll_.isOpen()) {
    poll_ = FileDescriptor(::epoll_create1(EPOLL_CLOEXEC));
    timer_ = FileDescriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!poll_.isOpen() || !timer_.isOpen())
      library::raise({.status = status::kIOError, .why = "no descriptor can be had"});
  }
  return poll_.get();
}

/// What the context waits for, told to epoll anew: it has a handful of descriptors.
void SessionState::watchContext() {
  for (const int each : std::exchange(watched_, {}))
    // One that was closed has left by itself.
    ::epoll_ctl(poll_.get(), EPOLL_CTL_DEL, each, nullptr);
  gint priority = 0;
  gint timeout = -1;
  std::vector<GPollFD> polled(kUsualDescriptors);
  if (!g_main_context_acquire(context_.get())) return;
  g_main_context_prepare(context_.get(), &priority);
  const auto query = [&] {
    return static_cast<std::size_t>(g_main_context_query(
        context_.get(), priority, &timeout, polled.data(), static_cast<gint>(polled.size())));
  };
  const std::size_t count = query();
  const bool isWhole = count <= polled.size();
  polled.resize(count);
  if (!isWhole) query();
  g_main_context_check(context_.get(), priority, polled.data(), static_cast<gint>(count));
  g_main_context_release(context_.get());
  std::map<int, std::uint32_t> events = {{timer_.get(), EPOLLIN}};
  for (const GPollFD& each : polled)
    events[each.fd] |= each.events;  // the numbers of poll(2) are those of epoll
  for (const auto& [descriptor, wanted] : events) {
    epoll_event event = {.events = wanted, .data = {.fd = descriptor}};
    if (::epoll_ctl(poll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0)
      watched_.push_back(descriptor);
  }
  // A time of 0 would stop the clock.
  const itimerspec due = {
      .it_interval = {},
      .it_value = {.tv_sec = std::max(timeout, 0) / 1000,
                   .tv_nsec = std::max(timeout, 0) % 1000 * 1'000'000 + (timeout == 0 ? 1 : 0)}};
  ::timerfd_settime(timer_.get(), 0, &due, nullptr);
}

}  // namespace tarvo
