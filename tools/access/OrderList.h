// The orders of a device, of all kinds, in one numbered list: how the commands name them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "tools/access/DeviceBook.h"

namespace tarvo::tools {

class OpenedDevice;

struct OrderedPicture {
  std::string name;          ///< as the device gave it; empty where it does not tell
  std::uint32_t handle = 0;  ///< 0 for a picture that a marker file names
};

struct ListedOrder {
  std::size_t number = 0;    ///< from 1 on, in the order of the list
  std::string kind;          ///< "email", "print" or "transfer"
  std::uint32_t handle = 0;  ///< 0 for an order of a marker file
  std::uint32_t marker = 0;  ///< the handle of that file
  std::string purpose;       ///< for a person: recipients, copies, or who sends
  std::string subject;       ///< of an e-mail order
  std::vector<OrderedPicture> pictures;
  PropertyDictionary json;  ///< all that is known of it
};

struct OrderList {
  std::vector<ListedOrder> orders;
  std::vector<UnreadEntry> unread;  ///< orders, marker files, and contacts that they may go to
  /// Orders that the device does not want to be sent now, as "e-mail order 0x00010003".
  std::vector<std::string> withheld;
};

/// Reads all orders, e-mail first, then print, then transfer, one by one: an order that cannot be
/// read hides no other. Raises a ToolError where there is nothing to be had from the device.
OrderList readOrders(const ToolContext& context, const OpenedDevice& device);

/// To whom the e-mail orders of a device go: an order by the handle of each recipient. Raises a
/// ToolError where one of them cannot be read.
std::map<std::uint32_t, std::uint32_t> emailRecipients(const OpenedDevice& device);

/// The handle that a user writes as 0x...; none for anything else.
std::optional<std::uint32_t> handleNamed(const std::string& text);
/// The order that `text` means: its number in the list, or its handle as 0x... Raises a ToolError
/// for none.
const ListedOrder& orderNamed(const OrderList& list, const std::string& operation,
                              const std::string& text);

/// "e-mail", "print" or "transfer".
std::string kindInWords(const ListedOrder& order);
/// "e-mail order 2".
std::string inWords(const ListedOrder& order);

}  // namespace tarvo::tools
