#include "tools/Interrupt.h"

#include <glib-unix.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

#include "tools/ToolError.h"

namespace tarvo::tools {

std::atomic<Interrupt*> Interrupt::current_ = nullptr;

Interrupt::Interrupt() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  // The source does nothing: that it ends a turn of the loop is what it is for.
  GSource* source = g_unix_fd_source_new(wake_.get(), G_IO_IN);
  const auto woken = +[](gint descriptor, GIOCondition, gpointer) -> gboolean {
    std::uint64_t count = 0;
    return ::read(descriptor, &count, sizeof count) >= 0 || errno == EAGAIN;
  };
  g_source_set_callback(source, reinterpret_cast<GSourceFunc>(reinterpret_cast<void*>(woken)),
                        nullptr, nullptr);
  g_source_attach(source, nullptr);
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

// Only what may be done in a signal handler (signal-safety(7)).
void Interrupt::handle(int) {
  const int error = errno;
  Interrupt* self = current_;
  if (self == nullptr || self->flag_.exchange(true)) ::_exit(kInterrupted);
  const std::uint64_t one = 1;
  // A counter that is full has woken the loop already.
  [[maybe_unused]] const auto written = ::write(self->wake_.get(), &one, sizeof one);
  errno = error;
}

}  // namespace tarvo::tools
