#include "tarvo/Orders.h"

#include <ostream>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Numbers.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "library/access/ObjectSelection.h"
#include "library/access/OrderList.h"

namespace tarvo {

using namespace library;

const std::string& OrderPicture::name() const { return data_->name; }
std::uint32_t OrderPicture::handle() const { return data_->handle; }

std::size_t Order::number() const { return data_->number; }
const std::string& Order::kind() const { return data_->kind; }
std::string Order::kindInWords() const { return data_->kind == "email" ? "e-mail" : data_->kind; }
std::string Order::description() const {
  return kindInWords() + " order " + std::to_string(data_->number);
}
std::uint32_t Order::handle() const { return data_->handle; }
std::uint32_t Order::marker() const { return data_->marker; }
const std::string& Order::purpose() const { return data_->purpose; }
const std::string& Order::subject() const { return data_->subject; }
const std::vector<OrderPicture>& Order::pictures() const& { return data_->pictures; }
std::vector<OrderPicture> Order::pictures() && { return data_->pictures; }
const std::string& Order::json() const { return data_->json; }

const std::vector<Order>& OrderList::orders() const& { return data_->orders; }
std::vector<Order> OrderList::orders() && { return data_->orders; }
const std::vector<Unread>& OrderList::unread() const& { return data_->unread; }
std::vector<Unread> OrderList::unread() && { return data_->unread; }
const std::vector<std::string>& OrderList::withheld() const& { return data_->withheld; }
std::vector<std::string> OrderList::withheld() && { return data_->withheld; }

std::ostream& operator<<(std::ostream& out, const OrderPicture& picture) {
  return out << printable(picture.name()) << " (" << handleText(picture.handle()) << ')';
}

std::ostream& operator<<(std::ostream& out, const Order& order) {
  return out << order.description() << ", " << printable(order.purpose()) << ", "
             << order.pictures().size() << " pictures";
}

std::ostream& operator<<(std::ostream& out, const OrderList& list) {
  for (const auto& order : list.orders())
    out << order << '\n';
  return out << list.unread().size() << " unread, " << list.withheld().size() << " withheld";
}

OrderList readOrders(Device& device) {
  return asked(device.state(), "readOrders",
               [](OpenedDevice& camera) { return valueOf<OrderList>(readOrders(camera)); });
}

void fulfilOrder(Device& device, const Order& order, const OrderPicture& picture) {
  asked(device.state(), "fulfilOrder", [&](OpenedDevice& camera) {
    if (order.handle() == 0)
      raise({.object = order.description(),
             .status = status::kUnsupported,
             .why = "it is a line of a file, which cannot be changed singly"});
    camera.require(camera.device().indicateFulfillment(order.handle(), picture.handle()),
                   order.description() + ", " + picture.name());
  });
}

void removeOrder(Device& device, std::uint32_t handle) {
  asked(device.state(), "removeOrder", [&](OpenedDevice& camera) {
    camera.require(camera.device().deleteVendorObjectPTP(handle), handleText(handle));
  });
}

void removeMarkerFile(Device& device, std::uint32_t handle) {
  asked(device.state(), "removeMarkerFile", [&](OpenedDevice& camera) {
    camera.require(camera.device().deleteObject(ObjectReference(handle)), handleText(handle));
  });
}

bool keepsOrdersForTransfer(Device& device) {
  return asked(device.state(), "keepsOrdersForTransfer",
               [](OpenedDevice& camera) { return camera.device().hasSquirtTransferIntention(); });
}

std::map<std::string, std::vector<std::uint32_t>> pictureHandles(Device& device) {
  return asked(device.state(), "pictureHandles", [](OpenedDevice& camera) {
    std::map<std::string, std::vector<std::uint32_t>> names;
    for (const std::uint32_t handle : camera.objectHandles(0, "the objects of the device")) {
      camera.session().endIfInterrupted();
      const auto info = readInfo(camera.transactions(), handle).info;
      if (info && !isFolder(*info)) names[info->fileName()].push_back(handle);
    }
    return names;
  });
}

}  // namespace tarvo
