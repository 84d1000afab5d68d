// The pictures of orders as files, in one folder an order.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tarvo/Device.h"
#include "tarvo/Orders.h"
#include "tools/access/Batch.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Main thread only. Fetches all pictures of the orders, each a result of the batch, into folders
/// below `folder`, which are made; their names hold nothing that a device could lead out of it
/// with. `then` of each order, and how many failures there were before it; false from it ends the
/// rest.
void fetchOrderPictures(
    ToolContext& context, Device& device, Batch& batch, const std::vector<const Order*>& orders,
    const std::string& folder,
    const std::function<bool(const Order& order, std::uint64_t failures)>& then);

/// The orders of a camera as part of an import: fetches the pictures of every order in this way,
/// and tells the device of those orders that are here as a whole that they have been dealt with.
/// Gives the exit status; raises what reading the orders raises. `told` of each order, and whether
/// it is here as a whole; false from it ends the rest.
int importOrders(ToolContext& context, Device& device, const std::string& folder,
                 const std::function<bool(const Order& order, bool isWhole)>& told = {});

}  // namespace tarvo::tools
