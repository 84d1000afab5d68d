// What the user of a camera marked to be sent by e-mail, printed or transferred.
//
//   for (const auto& order : tarvo::readOrders(camera).orders())
//     std::cout << order.description() << ": " << order.purpose() << '\n';
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarvo/AddressBook.h"

namespace tarvo {

/// A picture of an order. A value.
class TARVO_API OrderPicture {
 public:
  struct Data;
  explicit OrderPicture(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// As the device gives it; empty where it does not tell.
  const std::string& name() const;
  /// 0 where an order names its pictures, as those of marker files do: see pictureHandles().
  std::uint32_t handle() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// A value.
class TARVO_API Order {
 public:
  struct Data;
  explicit Order(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// From 1 on, in the order of the list.
  std::size_t number() const;
  /// "email", "print" or "transfer".
  const std::string& kind() const;
  /// The same for a person: "e-mail".
  std::string kindInWords() const;
  /// "e-mail order 2".
  std::string description() const;
  /// Of an order that the device keeps as an object of its own; 0 where it is a line of a file.
  std::uint32_t handle() const;
  /// Of that file (EMAILTAG.MRK, PRINTTAG.MRK), which may hold several; 0 for any other order.
  std::uint32_t marker() const;
  /// For a person: recipients, copies, or who sends.
  const std::string& purpose() const;
  /// Of an e-mail order; mostly empty.
  const std::string& subject() const;
  const std::vector<OrderPicture>& pictures() const&;
  std::vector<OrderPicture> pictures() &&;  ///< of one that goes
  /// All that is known of it, as a JSON object: "number", "kind", "pictures", and what the device
  /// keeps under its own keys ("XTEmailOrderBodyKey").
  const std::string& json() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// The orders of a device at one time. A value.
class TARVO_API OrderList {
 public:
  struct Data;
  explicit OrderList(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  const std::vector<Order>& orders() const&;
  std::vector<Order> orders() &&;  ///< of one that goes
  /// Orders, marker files, and contacts that orders may go to.
  const std::vector<Unread>& unread() const&;
  std::vector<Unread> unread() &&;  ///< of one that goes
  /// Orders that are there and that the device does not want to be sent now, as "e-mail order
  /// 0x00010003".
  const std::vector<std::string>& withheld() const&;
  std::vector<std::string> withheld() &&;  ///< of one that goes

 private:
  std::shared_ptr<const Data> data_;
};

TARVO_API std::ostream& operator<<(std::ostream& out, const OrderPicture& picture);
TARVO_API std::ostream& operator<<(std::ostream& out, const Order& order);
TARVO_API std::ostream& operator<<(std::ostream& out, const OrderList& list);

// Calls to a device that is held. Each raises as those of Device.

/// Reads all orders, e-mail first, then print, then transfer, one by one: an order that cannot be
/// read hides no other.
TARVO_API OrderList readOrders(Device& device);
/// Tells the device that a picture of an order has been dealt with; with its last one an order
/// goes. kUnsupported for an order of a marker file.
TARVO_API void fulfilOrder(Device& device, const Order& order, const OrderPicture& picture);
/// Deletes an order that is an object of its own, also one that cannot be read; its pictures stay.
TARVO_API void removeOrder(Device& device, std::uint32_t handle);
/// Deletes a marker file with all orders in it; their pictures stay.
TARVO_API void removeMarkerFile(Device& device, std::uint32_t handle);
/// Whether the device keeps its orders for a transfer that was begun on it: none should go then.
/// Transfer orders are kept for one at any time.
TARVO_API bool keepsOrdersForTransfer(Device& device);
/// The handles of all objects but folders by their names, for orders that have nothing else. Asks
/// for every object once; what cannot be read is left out.
TARVO_API std::map<std::string, std::vector<std::uint32_t>> pictureHandles(Device& device);

}  // namespace tarvo
