// Ctrl-C and SIGTERM: the first one ends what runs cleanly.
#pragma once

#include <atomic>
#include <csignal>
#include <functional>

#include "Utilities/FileDescriptor.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo {

/// Main thread only, one at a time. SIGINT and SIGTERM set the flag while it lives, and wake the
/// main loop. Afterwards the signals do what they did before.
class Interrupt {
 public:
  /// What a second signal does: it ends the process with kExitCode on the spot, or nothing.
  enum class Second { kEndsAtOnce, kIsIgnored };
  /// As shells have it for SIGINT.
  static constexpr int kExitCode = 130;

  /// `heard` is called once, from the main loop.
  explicit Interrupt(Second second = Second::kEndsAtOnce, std::function<void()> heard = {});
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// What the transport looks at; lives as long as this.
  const std::atomic<bool>& flag() const { return flag_; }
  bool isSet() const { return flag_; }
  /// A source, not yet attached, that is ready once the flag is set: for who waits in a main
  /// context of his own. The caller takes its reference over.
  GSource* makeSource() const;

 private:
  static void handle(int signal);

  /// Reached by the signal handler alone.
  static std::atomic<Interrupt*> current_;

  Second second_;
  std::function<void()> heard_;
  std::atomic<bool> flag_ = false;
  /// Stays readable once it is.
  FileDescriptor wake_;
  AttachedSource source_;
  struct sigaction formerInterrupt_ = {};
  struct sigaction formerTermination_ = {};
};

}  // namespace tarvo
