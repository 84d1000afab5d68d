// volume ls, get and rm: files on a mounted card, or on a camera in disk mode.
#include "tools/command/CommandGroup.h"
#include "tools/objects/ObjectCommands.h"

namespace tarvo::tools {

void addVolumeCommands(CommandGroup& root) {
  auto group = root.group("volume", "Files on a mounted card, or a camera in disk mode",
                          "tarvoctl volume ls");
  addList(group, Devices::kVolumes);
  addGet(group, Devices::kVolumes);
  addRemove(group, Devices::kVolumes);
}

}  // namespace tarvo::tools
