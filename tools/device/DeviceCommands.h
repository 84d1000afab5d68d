// devices, info, clock set and reset: a device as a whole.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct DevicesOptions {
  bool watch = false;                    ///< goes on with what comes and goes
  std::optional<std::uint64_t> count{};  ///< of arrivals and removals to watch
};

/// Every camera and card that is connected, without opening it.
int runDevices(ToolContext& context, const DevicesOptions& options);
/// What the device says of itself and holds.
int runInfo(ToolContext& context);
/// Sets the device's clock to the time of this host.
int runClockSet(ToolContext& context);
/// Puts the device into the state after switching on.
int runReset(ToolContext& context);

}  // namespace tarvo::tools
