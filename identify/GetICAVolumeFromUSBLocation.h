// The volumes that Image Capture shows as mass-storage cameras.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarvo {

/// A volume and the block device below it; both are single names, not paths.
struct ICAVolume {
  std::string volume;   ///< volume name
  std::string bsdName;  ///< kernel name of its block device, "sdb1"

  friend bool operator==(const ICAVolume&, const ICAVolume&) = default;
};

/// In the order of Image Capture's list; a volume that has no BSD name there and is not mounted is
/// left out. None when Image Capture cannot give its list. Main thread only.
/// Says in the log what it leaves out, where kLogAppDebug is set; that the list itself fails is
/// always said. None without an IdentifyRoom.
std::optional<std::vector<ICAVolume>> GetICABSDNames();

}  // namespace tarvo
