// Ctrl-C and SIGTERM: the first one ends what runs cleanly, the second one at once.
#pragma once

#include <atomic>
#include <csignal>

#include "Utilities/FileDescriptor.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::tools {

/// Main thread only, one at a time. SIGINT and SIGTERM set the flag while it lives, and wake the
/// main loop; a second signal ends the process with kInterrupted on the spot. Afterwards the
/// signals do what they did before.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// What the transport looks at; lives as long as this.
  const std::atomic<bool>& flag() const { return flag_; }
  bool isSet() const { return flag_; }

 private:
  static void handle(int signal);

  /// Reached by the signal handler alone.
  static std::atomic<Interrupt*> current_;

  std::atomic<bool> flag_ = false;
  FileDescriptor wake_;
  AttachedSource source_;
  struct sigaction formerInterrupt_ = {};
  struct sigaction formerTermination_ = {};
};

}  // namespace tarvo::tools
