#include "platform/foundation/Interrupt.h"

#include <glib-unix.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tarvo {

std::atomic<Interrupt*> Interrupt::current_ = nullptr;

Interrupt::Interrupt(Second second, std::function<void()> heard)
    : second_(second), heard_(std::move(heard)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  GSource* source = makeSource();
  g_source_set_priority(source, G_PRIORITY_HIGH);
  // That it ends a turn of the loop is what it is for, most of the time.
  const auto woken = +[](gint, GIOCondition, gpointer self) -> gboolean {
    const auto* interrupt = static_cast<Interrupt*>(self);
    if (interrupt->heard_) interrupt->heard_();
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(source, G_SOURCE_FUNC(woken), this, nullptr);
  g_source_attach(source, g_main_context_get_thread_default());
  source_ = AttachedSource(source);

  current_ = this;
  struct sigaction action = {};
  action.sa_handler = &Interrupt::handle;
  ::sigaction(SIGINT, &action, &formerInterrupt_);
  ::sigaction(SIGTERM, &action, &formerTermination_);
}

Interrupt::~Interrupt() {
  ::sigaction(SIGINT, &formerInterrupt_, nullptr);
  ::sigaction(SIGTERM, &formerTermination_, nullptr);
  current_ = nullptr;
}

GSource* Interrupt::makeSource() const {
  return g_unix_fd_source_new(wake_.get(), G_IO_IN);
}

// Only what may be done in a signal handler (signal-safety(7)).
void Interrupt::handle(int) {
  const int error = errno;
  Interrupt* self = current_;
  const bool wasSet = self == nullptr || self->flag_.exchange(true);
  if (wasSet && (self == nullptr || self->second_ == Second::kEndsAtOnce)) ::_exit(kExitCode);
  const std::uint64_t one = 1;
  // A counter that is full has woken the loop already.
  [[maybe_unused]] const auto written = ::write(self->wake_.get(), &one, sizeof one);
  errno = error;
}

}  // namespace tarvo
