// The orders of a device, of all kinds, in one numbered list.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tarvo/Orders.h"

namespace tarvo {

struct OrderPicture::Data {
  std::string name{};
  std::uint32_t handle = 0;
};

struct Order::Data {
  std::size_t number = 0;
  std::string kind{};
  std::uint32_t handle = 0;
  std::uint32_t marker = 0;
  std::string purpose{};
  std::string subject{};
  std::vector<OrderPicture> pictures{};
  std::string json{};
};

struct OrderList::Data {
  std::vector<Order> orders{};
  std::vector<Unread> unread{};
  std::vector<std::string> withheld{};
};

namespace library {

class OpenedDevice;

/// Raises an error where there is nothing to be had from the device.
OrderList::Data readOrders(const OpenedDevice& device);

}  // namespace library
}  // namespace tarvo
