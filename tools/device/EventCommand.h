// events: what a device reports by itself.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct EventOptions {
  std::optional<std::uint64_t> count{};  ///< ends after so many; none: until it is interrupted
};

/// Shows each event as it comes, until Ctrl-C, the count, or the device's end, which is a failure.
int runEvents(ToolContext& context, const EventOptions& options);

}  // namespace tarvo::tools
