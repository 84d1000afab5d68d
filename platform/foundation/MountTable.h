// What is mounted where.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

/// One line of the table. Texts are as the kernel has them, without escapes.
struct Mount {
  std::string device;      ///< what is mounted, for example "/dev/sdb1"
  std::string mountPoint;  ///< absolute path

  friend bool operator==(const Mount&, const Mount&) = default;
};

/// Main thread only.
class MountTable {
 public:
  virtual ~MountTable() = default;
  /// Everything that this process sees mounted, the latest mount last. Read anew at each call;
  /// empty when the table cannot be read.
  virtual std::vector<Mount> mounts() const = 0;
  /// The device that is mounted exactly at `path`; none when nothing is.
  virtual std::optional<std::string> deviceMountedAt(std::string_view path) const = 0;
  /// Folder whose direct children are the removable volumes of this user.
  /// Absolute, without a trailing slash. The folder need not exist.
  virtual const std::string& volumesFolder() const = 0;
  /// Calls `changed` from the main loop whenever the table has changed. One watcher at a time; an
  /// empty function ends watching. Watching costs no wake-ups of its own.
  virtual void watch(std::function<void()> changed) = 0;
};

}  // namespace tarvo
