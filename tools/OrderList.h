// The orders of a device, of all kinds, in one numbered list: how the commands name them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "tools/OpenedDevice.h"

namespace tarvo::tools {

struct OrderedPicture {
  std::string name;          ///< as the device gave it; empty where it does not tell
  std::uint32_t handle = 0;  ///< 0 for a picture that a marker file names
};

struct ListedOrder {
  std::size_t number = 0;    ///< from 1 on, in the order of the list
  std::string kind;          ///< "email", "print" or "transfer"
  std::uint32_t handle = 0;  ///< 0 for an order of a marker file
  std::string purpose;       ///< for a person: recipients, copies, or who sends
  std::string subject;       ///< of an e-mail order
  std::vector<OrderedPicture> pictures;
  PropertyDictionary json;  ///< all that is known of it
};

struct OrderList {
  std::vector<ListedOrder> orders;
  std::vector<std::string> gaps;  ///< what could not be read, a clause each
};

/// Reads all orders, e-mail first, then print, then transfer. What cannot be read is a gap. Raises
/// a ToolError where there is nothing to be had from the device.
OrderList readOrders(const OpenedDevice& device);

/// The order that `text` means: its number in the list, or its handle as 0x... Raises a ToolError
/// for none.
const ListedOrder& orderNamed(const OrderList& list, const std::string& operation,
                              const std::string& text);

/// "e-mail order 2".
std::string inWords(const ListedOrder& order);

}  // namespace tarvo::tools
