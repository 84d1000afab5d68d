// orders: what the user of a camera marked to be sent by e-mail, printed or transferred.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Every order with whom or what it is for. The exit status tells whether all could be read.
int runOrdersList(ToolContext& context);

struct OrdersShowOptions {
  std::vector<std::string> orders{};  ///< numbers in the list, or handles; none: all
  std::string download{};             ///< folder for one folder an order; empty: nothing is fetched
};

/// All that is known of orders, and their pictures as files where wanted. Pictures that are there
/// already in the same size are passed over.
int runOrdersShow(ToolContext& context, const OrdersShowOptions& options);

struct OrdersFulfilOptions {
  std::string order{};
  std::vector<std::string> pictures{};  ///< names or handles; none: all of the order
};

/// Tells the device that pictures of an order have been dealt with. Only an order that the device
/// keeps as a data set knows that; the others can be deleted.
int runOrdersFulfil(ToolContext& context, const OrdersFulfilOptions& options);

struct OrdersDeleteOptions {
  std::vector<std::string> orders{};  ///< none: all that the device lets go
  bool yes = false;                   ///< does not ask
};

/// Deletes orders, never their pictures, and says what is still there.
int runOrdersDelete(ToolContext& context, const OrdersDeleteOptions& options);

}  // namespace tarvo::tools
