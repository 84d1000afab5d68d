#include "tarvo/Orders.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceBook.h"
#include "library/access/DeviceState.h"

namespace tarvo {

using namespace library;

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

namespace {

std::string copiesInWords(std::int64_t count) {
  return std::to_string(count) + (count == 1 ? " copy" : " copies");
}

constexpr const char* kEmailOrder = "e-mail order";
constexpr const char* kMarker = "marker file";

class OrderReading {
 public:
  explicit OrderReading(const OpenedDevice& device) : device_(device) {}

  OrderList::Data read() {
    if (!device_.device().supportsCobaltDatasets()) {
      readMarkers();
      return std::move(list_);
    }
    // First: the orders below are cut to it.
    readAllowedAssets();
    readEmailOrders();
    for (const std::uint32_t handle : listed(ptp::XTD_PRINT_ORDER, "print orders"))
      readPrintOrder(handle);
    for (const auto format : {ptp::XTD_TRANSFER_ORDER, ptp::XTD_SQUIRT_TRANSFER_ORDER})
      for (const std::uint32_t handle : listed(format, "transfer orders"))
        readTransferOrder(handle, format);
    return std::move(list_);
  }

 private:
  /// A device may name one object in two lists.
  ObjectHandles listed(std::uint16_t format, const char* what) {
    ObjectHandles handles = reading_.handles(format, what);
    std::erase_if(handles, [this](std::uint32_t handle) { return !seen_.insert(handle).second; });
    return handles;
  }

  OrderPicture pictureOf(std::uint32_t handle) const {
    const auto info = readInfo(device_.transactions(), handle).info;
    return valueOf<OrderPicture>({.name = info ? info->fileName() : "", .handle = handle});
  }
  static OrderPicture pictureOf(const std::string& name) {
    return valueOf<OrderPicture>({.name = name});
  }

  template <typename Known>
  std::vector<OrderPicture> picturesOf(const std::vector<Known>& known) const {
    std::vector<OrderPicture> pictures;
    pictures.reserve(known.size());
    for (const Known& each : known)
      pictures.push_back(pictureOf(each));
    return pictures;
  }

  void add(Order::Data order, PropertyDictionary json) {
    order.number = list_.orders.size() + 1;
    auto pictures = PropertyDictionary::array();
    for (const auto& picture : order.pictures) {
      PropertyDictionary entry = {{"name", validUTF8(picture.name())}};
      if (picture.handle() != 0) entry["handle"] = picture.handle();
      pictures.push_back(std::move(entry));
    }
    json["number"] = order.number;
    json["kind"] = order.kind;
    json["pictures"] = std::move(pictures);
    order.json = textOf(json);
    list_.orders.push_back(valueOf<Order>(std::move(order)));
  }

  // Data sets.

  void readAllowedAssets() {
    try {
      orders_.allowedAssets = device_.device().allowedAssets();
    } catch (const Exception& exception) {
      reading_.note({.what = "the order for a transfer", .why = exception.reason()});
    }
  }

  void readEmailOrders() {
    const auto handles = listed(ptp::XTD_EMAIL_ORDER, "e-mail orders");
    // Without orders the address book, which may be large, is not asked for.
    if (handles.empty()) return;
    if (device_.device().supportsAddressBooks()) {
      auto book = readDeviceBook(device_);
      for (auto& contact : *book.book.contacts)
        orders_.contacts.emplace(contact->handle, contact);
      std::ranges::move(book.unread, std::back_inserter(list_.unread));
    }
    for (const std::uint32_t handle : handles)
      readEmailOrder(handle);
  }

  /// The only order that the library makes of a handle; none where it is unread or withheld.
  template <typename Order>
  std::optional<Order> made(const char* what, std::uint32_t handle,
                            Status (OrderLists::*fillIn)(std::vector<Order>&, const ObjectHandles&,
                                                         const OrderContext&)) {
    // One handle at a time, so that one bad order hides no other.
    std::vector<Order> orders;
    ReadingReport report;
    try {
      OrderLists lists(device_.transactions(), assetCounts_, report);
      report.fail((lists.*fillIn)(orders, {handle}, orders_));
    } catch (const Exception& exception) {
      reading_.note({what, handle, exception.reason()});
      return std::nullopt;
    }
    if (!report.isComplete()) {
      if (device_.isLost(report.status)) device_.failWithout(what + (" " + handleText(handle)));
      // The picture of a print order is part of it.
      const bool isGone = report.status == status::kPTPInvalidObjectHandle;
      reading_.note({what, handle,
                     isGone ? "it, or its picture, is no longer on the device"
                            : reading_.why(report.status)});
      return std::nullopt;
    }
    if (report.withheld > 0) list_.withheld.push_back(what + (" " + handleText(handle)));
    return orders.empty() ? std::nullopt : std::optional(std::move(orders.front()));
  }

  void readEmailOrder(std::uint32_t handle) {
    const auto order = made<EmailOrder>(kEmailOrder, handle, &OrderLists::fillInEmailOrderList);
    if (!order) return;
    auto json = jsonFromEmailOrder(*order);
    std::string purpose = joined(order->destAddresses);
    auto strangers = order->record->destContacts;
    std::erase_if(strangers, [this](auto each) { return orders_.contacts.contains(each); });
    if (!strangers.empty()) {
      json["recipientsWithoutContact"] = strangers;
      purpose += (purpose.empty() ? "" : ", ") + std::to_string(strangers.size()) +
                 (strangers.size() == 1 ? " recipient who is no contact"
                                        : " recipients who are no contacts");
    }
    add({.kind = "email",
         .handle = handle,
         .purpose = purpose,
         .subject = order->record->subject,
         .pictures = picturesOf(order->record->assetHandles)},
        std::move(json));
  }

  void readPrintOrder(std::uint32_t handle) {
    const auto order = made<PrintOrder>("print order", handle, &OrderLists::fillInPrintOrderList);
    if (!order) return;
    add({.kind = "print",
         .handle = handle,
         .purpose = copiesInWords(order->quantity),
         .pictures = picturesOf(std::vector{order->record->asset})},
        jsonFromPrintOrder(*order));
  }

  void readTransferOrder(std::uint32_t handle, std::uint16_t format) {
    auto record = reading_.record("transfer order", handle, format, scanTransferOrder);
    if (!record) return;
    const TransferOrder order = {.record = *std::move(record), .handle = handle};
    add({.kind = "transfer",
         .handle = handle,
         .purpose = order.record.sender,
         .pictures = picturesOf(order.record.assetHandles)},
        jsonFromTransferOrder(order));
  }

  // Marker files.

  void readMarkers() {
    std::vector<std::pair<std::uint32_t, std::string>> named;
    for (const std::uint32_t handle : listed(kMarkerFormat, "marker files")) {
      const auto [info, status, why] = readInfo(device_.transactions(), handle);
      // Where its name was cut it may be any of them.
      const bool isCut = status == status::kOK &&
                         device_.transactions().lastOutcome() == status::kPTPIncompleteTransfer;
      const Status outcome = isCut ? status::kPTPIncompleteTransfer : status;
      if (info && outcome == status::kOK) {
        named.emplace_back(handle, info->fileName());
        continue;
      }
      if (device_.isLost(outcome)) device_.failWithout("the marker files");
      reading_.note({kMarker, handle, why.empty() ? reading_.why(outcome) : why});
    }
    for (const auto& [handle, name] : named)
      if (isEmailMarker(name)) readMarker(handle, true);
    for (const auto& [handle, name] : named)
      if (isPrintMarker(name)) readMarker(handle, false);
  }

  void readMarker(std::uint32_t handle, bool isEmail) {
    const auto bytes = device_.device().downloadObject(ObjectReference(handle));
    if (!bytes) {
      reading_.noteMissing(kMarker, handle, kMarker);
      return;
    }
    const auto& encoding = device_.session().platform().services().defaultEncoding;
    const std::string_view raw(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    // Of two ways to read them, as the library has it.
    const auto text = isEmail ? textInEncoding(raw, encoding) : plainText(raw, encoding);
    const std::size_t before = list_.orders.size();
    if (text) addJobs(handle, *text, isEmail);
    // Jobs that are no orders to the library go with the file, so somebody has to know of them.
    if (!text || list_.orders.size() - before != jobsIn(*text))
      reading_.note({kMarker, handle, text ? "it has jobs that are incomplete" : "it is no text"});
  }

  // Counted apart from the parser, which passes over what is no order.
  static std::size_t jobsIn(std::string_view text) {
    constexpr std::string_view kJob = "\n[JOB]";
    std::size_t count = 0;
    for (auto at = text.find(kJob); at != std::string_view::npos; at = text.find(kJob, at + 1))
      ++count;
    return count;
  }

  void addJobs(std::uint32_t marker, const std::string& text, bool isEmail) {
    EmailOrders emails;
    PrintOrders prints;
    isEmail ? appendEmailOrders(emails, text) : appendPrintOrders(prints, text);
    for (const auto& order : emails)
      add({.kind = "email",
           .marker = marker,
           .purpose = joined(order.destAddresses),
           .pictures = picturesOf(order.assets)},
          jsonFromEmailOrder(order));
    for (const auto& order : prints)
      add({.kind = "print",
           .marker = marker,
           .purpose = copiesInWords(order.quantity),
           .pictures = picturesOf(order.assets)},
          jsonFromPrintOrder(order));
  }

  const OpenedDevice& device_;
  OrderContext orders_;
  std::map<std::uint32_t, std::uint32_t> assetCounts_;
  std::set<std::uint32_t> seen_;
  OrderList::Data list_;
  const Reading reading_ = {device_, list_.unread};
};

}  // namespace

OrderList readOrders(Device& device) {
  return asked(device.state(), "readOrders", [](OpenedDevice& camera) {
    return valueOf<OrderList>(OrderReading(camera).read());
  });
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
    for (const std::uint32_t handle : camera.objectHandles({}, "the objects of the device")) {
      camera.session().endIfInterrupted();
      const auto info = readInfo(camera.transactions(), handle).info;
      if (info && !isFolder(*info)) names[info->fileName()].push_back(handle);
    }
    return names;
  });
}

}  // namespace tarvo
