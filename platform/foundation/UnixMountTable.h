// The mount table from /proc/self/mountinfo.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "Utilities/LogSink.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/MountTable.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

/// The mounts that the text of a mountinfo file (proc(5)) lists, in its order, unescaped. Lines
/// that do not follow the format are skipped.
std::vector<Mount> mountsOfMountInfo(std::string_view text);

/// Reads the table at each question and keeps nothing of it. Main thread only.
class UnixMountTable : public MountTable {
 public:
  /// Key VolumesFolder of [Platform] names the volumes' folder; else it is /media/USER, or
  /// /run/media/USER where only that exists.
  /// A relative path is logged and ignored. `defaults` is read here and not kept.
  UnixMountTable(const UserDefaults& defaults, LogSink log,
                 std::string mountInfoFile = "/proc/self/mountinfo");

  /// A table that cannot be read is logged at each call.
  std::vector<Mount> mounts() const override;
  /// What was mounted last at a path hides what lies below it.
  std::optional<std::string> deviceMountedAt(std::string_view path) const override;
  /// The reference stays valid; which folder it names may change with the next call.
  const std::string& volumesFolder() const override;
  /// By poll() on the table, which the kernel wakes at each mount and unmount (proc(5),
  /// /proc/PID/mounts).
  void watch(std::function<void()> changed) override;

 private:
  /// The kernel has told of a change.
  static gboolean tableChanged(int fd, GIOCondition condition, gpointer self);

  LogSink log_;
  std::string mountInfoFile_;
  std::string volumesFolder_;
  std::string otherVolumesFolder_;  ///< empty when the folder is configured
  std::function<void()> changed_;
  /// Open only while somebody watches.
  FileDescriptor watched_;
  AttachedSource source_;
};

}  // namespace tarvo
