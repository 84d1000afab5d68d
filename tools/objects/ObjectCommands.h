// The commands about objects, which the program has for any device and the group "volume" for
// mounted volumes alone.
#pragma once

namespace tarvo::tools {

class CommandGroup;

enum class Devices { kAll, kVolumes };

void addList(CommandGroup& group, Devices devices);
void addGet(CommandGroup& group, Devices devices);
void addRemove(CommandGroup& group, Devices devices);

}  // namespace tarvo::tools
