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

class UnixMountTable : public MountTable {
 public:
  /// Key VolumesFolder of [Platform] names the volumes' folder; else it is /media/USER, or
  /// /run/media/USER where only that exists.
  UnixMountTable(const UserDefaults& defaults, LogSink log,
                 std::string mountInfoFile = "/proc/self/mountinfo");

  std::vector<Mount> mounts() const override;
  /// What was mounted last at a path hides what lies below it.
  std::optional<std::string> deviceMountedAt(std::string_view path) const override;
  const std::string& volumesFolder() const override;
  void watch(std::function<void()> changed) override;

 private:
  /// The kernel has told of a change.
  static gboolean tableChanged(int fd, GIOCondition condition, gpointer self);

  LogSink log_;
  std::string mountInfoFile_;
  std::string volumesFolder_;
  std::string otherVolumesFolder_;  ///< empty when the folder is configured
  std::function<void()> changed_;
  FileDescriptor watched_;
  AttachedSource source_;
};

}  // namespace tarvo
