// Finds volumes: every filesystem on a USB disk that is mounted directly in the volumes folder is a
// device, a camera's when it holds a folder DCIM.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/MountTable.h"
#include "platform/imagecapture/DeviceSink.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only. The one watcher of the mount table.
/// Volumes are compared by device and mount point, so that a card changed for another in the same
/// folder is a new device.
class VolumeSource {
 public:
  /// Reports what is mounted at once, and what comes and goes while it lives.
  /// What it was made with must outlive it; its end ends the watching.
  VolumeSource(Registry& registry, MountTable& mounts, DeviceSink& sink, LogSink log);
  ~VolumeSource();
  VolumeSource(const VolumeSource&) = delete;
  VolumeSource& operator=(const VolumeSource&) = delete;

 private:
  /// A mount in the volumes folder.
  struct Volume {
    Mount mount;
    ICAObject object;  // 0 for one that is no device, kept so that it is examined once only
  };

  /// Compares the table with what is known. The kernel says that something changed, never what.
  void mountsChanged();
  /// Remembers the mount, and reports it if it is a device.
  void volumeCame(const Mount& mount);
  /// What is seen in the volumes folder now, each folder once.
  std::vector<Mount> volumesMounted() const;
  /// Last component of a path directly in the volumes folder; empty for any other.
  std::string nameOfVolume(std::string_view mountPoint) const;
  /// None for what is not mounted from a disk on USB.
  std::optional<FoundDevice> describe(const Mount& mount);

  Registry& registry_;
  MountTable& mounts_;
  DeviceSink& sink_;
  LogSink log_;
  /// As the table stood at its last change, those that are no devices included.
  std::vector<Volume> volumes_;
};

}  // namespace tarvo
