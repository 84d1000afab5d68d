// Unmount, mount and eject of disks by BSD name.
//
//   auto session = arbitration.createSession();
//   session->unmount("sdb1", kWholeDisk, [&](const DADissenter* dissenter) { ... session->stop();
//   }); std::chrono::milliseconds left = 20s; bool stopped = session->run(left);
//
// A session has a run-loop mode of its own: while run() waits, its operations go on and nothing of
// the main loop happens.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Utilities/Status.h"

namespace tarvo {

/// Who refused an operation, and why.
struct DADissenter {
  Status status = status::kIOError;  ///< never 0
  /// In words for a person: what the system says, and, of a busy volume, which process of this
  /// user keeps it where that can be found.
  std::string why;
};

/// Main thread only. Operations are started, then run() waits for them; an operation that is still
/// under way when its session ends is given up, and its callback is never called after that.
class DASession {
 public:
  /// Null: it was done.
  using Callback = std::function<void(const DADissenter* dissenter)>;

  virtual ~DASession() = default;
  /// Unmounts the filesystem on `bsdName`, or, with `wholeDisk`, every filesystem of the USB device
  /// that it belongs to, whatever the number of its disks; on another bus, of its disk. What has
  /// nothing mounted is done. One that is refused does not keep the others mounted; the dissenter
  /// names each.
  virtual void unmount(std::string_view bsdName, bool wholeDisk, Callback done) = 0;
  /// Ejects the medium of the drive. Its filesystems must be unmounted already.
  virtual void eject(std::string_view bsdName, Callback done) = 0;
  /// Mounts the block device. `location` is where the caller would have it; the system decides.
  virtual void mount(std::string_view bsdName, std::string_view location, Callback done) = 0;
  /// Waits in the session's own mode until stop() is called, `left` has passed or the process is
  /// told to end. True: stopped. What the wait has taken is taken off `left`.
  [[nodiscard]] virtual bool run(std::chrono::milliseconds& left) = 0;
  virtual void stop() = 0;
  /// What has not happened when a wait was in vain, as a clause.
  virtual std::string awaited() const = 0;
};

/// Main thread only.
class DiskArbitration {
 public:
  virtual ~DiskArbitration() = default;
  /// Never null. Without a service for disks every operation has a dissenter.
  virtual std::unique_ptr<DASession> createSession() = 0;
  /// The process was told to end: nothing more is to be begun.
  virtual bool isInterrupted() const = 0;
};

}  // namespace tarvo
