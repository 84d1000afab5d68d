// The orders of a camera as part of an import.
#pragma once

#include <string>

#include "tarvo/Device.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Fetches the pictures of every order into one folder an order below `folder`, and tells the
/// device of those orders that are here as a whole that they have been dealt with. Gives the exit
/// status; raises what reading the orders raises.
int importOrders(ToolContext& context, Device& device, const std::string& folder);

}  // namespace tarvo::tools
