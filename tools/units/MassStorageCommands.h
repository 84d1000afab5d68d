// msc: the maker's units that show themselves as a disk.
#pragma once

#include <cstdint>
#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

// Each is for the unit that --device names by its serial number or location, or for the only one.

/// Every unit, by what is known of it without asking it.
int runUnitList(ToolContext& context);

int runUnitModeGet(ToolContext& context);

struct UnitModeOptions {
  std::string mode{};  ///< "camera", "startup" or "memory"
  bool powerDown = false;
  std::uint32_t wakeAfter = 0;  ///< the unit's mode page has a tenth of it
  bool permanent = false;
  bool yes = false;
};

/// Warns of every volume that is mounted; it is left mounted. A unit that says that it cannot come
/// back by itself is asked about before it is sent away.
int runUnitModeSet(ToolContext& context, const UnitModeOptions& options);

int runUnitModel(ToolContext& context);
int runUnitClockSet(ToolContext& context);
/// Says whether there are any; both are success.
int runUnitOrders(ToolContext& context);
/// Every volume of the unit's USB device, wherever it is mounted.
int runUnitUnmount(ToolContext& context);

struct UnitMountOptions {
  std::string disk{};  ///< BSD name; empty: the only one that can be meant
};

int runUnitMount(ToolContext& context, const UnitMountOptions& options);
/// Leaves the tray alone where a volume stays mounted.
int runUnitEject(ToolContext& context);

}  // namespace tarvo::tools
