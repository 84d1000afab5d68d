// Unmount, mount and eject of disks by BSD name.
//
//   auto session = arbitration.createSession();
//   session->unmount({"sdb1", usbDevice}, [&](const DADissenter*) { ... session->stop(); });
//   std::chrono::milliseconds left = 20s;
//   bool stopped = session->run(left);
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
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Who refused an operation, and why.
struct DADissenter {
  Status status = status::kIOError;  ///< never 0
  /// In words for a person: what the system says, and, of a busy volume, which process of this
  /// user keeps it where that can be found.
  std::string why;
};

/// A disk or partition, and whose it has to be.
struct DADisk {
  std::string bsdName;          ///< its kernel name, which another disk may have by now
  ServiceHandle usbDevice = 0;  ///< 0: not known, so that everything is refused
};

/// Whatever is not the USB device's alone is refused, by what is there when it is to be touched:
/// neither a name nor a serial number says whose a disk is. Nobody is asked for a password.
///
/// Main thread only. Operations are started, then run() waits for them; an operation that is still
/// under way when its session ends is given up, and its callback is never called after that.
class DASession {
 public:
  /// Null: it was done.
  using Callback = std::function<void(const DADissenter* dissenter)>;

  virtual ~DASession() = default;
  /// Unmounts every filesystem of the disk's USB device, whatever the number of its disks, and of
  /// the mapped devices (LUKS, LVM, a loop) on them. What has nothing mounted is done. One that is
  /// refused does not keep the others mounted; the dissenter names each.
  virtual void unmount(const DADisk& disk, Callback done) = 0;
  /// Ejects the medium of the drive. Its filesystems must be unmounted already.
  virtual void eject(const DADisk& disk, Callback done) = 0;
  /// Mounts the block device. `location` is where the caller would have it; the system decides.
  virtual void mount(const DADisk& disk, std::string_view location, Callback done) = 0;
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
