// The commands for mass-storage units.
#include "tools/CommandTree.h"

namespace tarvo::tools {

void CommandTree::addMassStorage() {
  auto& group = addGroup("msc", "Cameras, frames and docks that show themselves as a disk",
                         "tarvoctl msc list");
  add(group, "list", "Every one that is connected", "tarvoctl msc list", runUnitList);

  auto& mode = addGroup(group, "mode", "How it comes up on USB", "tarvoctl msc mode get");
  add(mode, "get", "Show it, and what the unit can do", "tarvoctl msc mode get", runUnitModeGet);
  auto& set = add(mode, "set", "Send the unit to another mode",
                  "tarvoctl msc mode set camera --power-down --wake-after 1000",
                  [this](ToolContext& context) { return runUnitModeSet(context, unitMode_); });
  set.add_option("MODE", unitMode_.mode, "camera, startup or memory")
      ->type_name("")
      ->required()
      ->check(CLI::IsMember({"camera", "startup", "memory"}).description(""));
  auto* powerDown =
      set.add_flag("--power-down", unitMode_.powerDown, "Switch off, and come back in that mode");
  set.add_option("--wake-after", unitMode_.wakeAfter, "How long to stay off; units count in tens")
      ->type_name("N")
      ->needs(powerDown);
  set.add_flag("--permanent", unitMode_.permanent, "For good, and not for once");
  set.add_flag("--yes", unitMode_.yes, "Do not ask, though the unit cannot come back by itself");

  add(group, "model", "The model's name as the unit has it", "tarvoctl msc model", runUnitModel);
  auto& clock = addGroup(group, "clock", "The unit's clock", "tarvoctl msc clock set");
  add(clock, "set", "Set it to the time of this computer", "tarvoctl msc clock set",
      runUnitClockSet);
  add(group, "orders", "Whether pictures on its card wait to be shared", "tarvoctl msc orders",
      runUnitOrders);
  add(group, "unmount", "Unmount its volumes", "tarvoctl msc unmount", runUnitUnmount);
  auto& mount = add(group, "mount", "Mount its card", "tarvoctl msc mount",
                    [this](ToolContext& context) { return runUnitMount(context, unitMount_); });
  mount.add_option("DISK", unitMount_.disk, "Its block device, such as sdb1; the only one it has")
      ->type_name("");
  add(group, "eject", "Unmount its volumes and open its tray", "tarvoctl msc eject", runUnitEject);
}

}  // namespace tarvo::tools
