// The orders of a camera as part of an import.
#pragma once

#include <functional>
#include <string>

#include "tarvo/Device.h"
#include "tarvo/Orders.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Fetches the pictures of every order into one folder an order below `folder`, and tells the
/// device of those orders that are here as a whole that they have been dealt with. Gives the exit
/// status; raises what reading the orders raises. `told` of each order, and whether it is here as a
/// whole; false from it ends the rest.
int importOrders(ToolContext& context, Device& device, const std::string& folder,
                 const std::function<bool(const Order& order, bool isWhole)>& told = {});

}  // namespace tarvo::tools
