// A volume that is really mounted: a tmpfs under the volumes folder, in the testbed's own mount
// namespace, with the block device's node as its source. A program that reads /proc/self/mountinfo
// or watches it with poll() sees the mount as it would see a real one.
#pragma once

#include <filesystem>
#include <string>

#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

/// Mounted from construction to destruction. Main thread only.
class Volume {
 public:
  /// Mounts the volume at `folder`/label; `staging` is where it is filled before. Raises
  /// std::system_error when it cannot be mounted or filled.
  Volume(const std::filesystem::path& folder, const std::filesystem::path& staging,
         const std::string& source, const VolumeDescription& description);
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;
  ~Volume();

  const std::filesystem::path& mountPoint() const { return mountPoint_; }

 private:
  std::filesystem::path mountPoint_;
};

}  // namespace tarvo::simulator
