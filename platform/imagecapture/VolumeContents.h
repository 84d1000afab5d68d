// What lies on a mounted volume, in the terms in which the service shows what lies on a camera.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Status.h"
#include "platform/imagecapture/PTPObjectReader.h"

namespace tarvo {

/// Whether a file of that name is a picture or a film: by its extension, without regard to case,
/// and never a hidden one. Any thread.
bool isPictureName(std::string_view name);

/// A file or folder of a volume.
struct VolumeObject {
  PTPObject object{};  ///< handle and parent number the objects of one reading; name is UTF-8
  std::string path{};  ///< below the mount point, bytes as the file system has them
};

/// All files and folders below `mountPoint`; links and other mounts are left out, and so is what
/// cannot be read. kICADeviceGone where nothing can be read there; kOutOfMemory for more than a
/// dictionary can hold with sense (100,000).
Status readVolume(const std::string& mountPoint, std::vector<VolumeObject>& objects);

/// Copies a file into `folder` under its own name; kinds of failure as for downloadObject(), and
/// kFileNotFound for a file that is not there.
Status copyFromVolume(const std::string& mountPoint, const VolumeObject& file,
                      const std::string& folder, std::string& path);

/// kFileNotFound where it is not there, kWriteNotPermitted where it cannot be removed.
Status removeFromVolume(const std::string& mountPoint, const std::string& path);

}  // namespace tarvo
