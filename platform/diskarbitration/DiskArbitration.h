// Unmount, mount and eject of disks by BSD name.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Utilities/Status.h"

namespace tarvo {

/// Every operation waits in a private run-loop mode until its answer has arrived, at most 20
/// seconds in all; sources of the main loop do not fire meanwhile. Main thread only. Each returns
/// 0, or -1 with the cause in words in `*why` (when given).
class DiskArbitration {
 public:
  virtual ~DiskArbitration() = default;
  /// Unmounts every filesystem of the whole disk that `bsdName` ("sdb1", "sr0") belongs to.
  virtual Status unmountWholeDisk(std::string_view bsdName, std::string* why) = 0;
  /// Ejects the medium of the drive.
  /// Its filesystems must be unmounted already: a busy medium is refused.
  virtual Status eject(std::string_view bsdName, std::string* why) = 0;
  /// Mounts the block device.
  virtual Status mount(std::string_view bsdName, std::string* why) = 0;
};

}  // namespace tarvo
