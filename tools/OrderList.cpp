#include "tools/OrderList.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/datasets/OrderRecords.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "platform/foundation/Numbers.h"
#include "tools/ObjectPaths.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

std::string copiesInWords(std::int64_t count) {
  return std::to_string(count) + (count == 1 ? " copy" : " copies");
}

/// One reading.
class OrderReading {
 public:
  explicit OrderReading(const OpenedDevice& device) : device_(device) {}

  OrderList read() {
    keepsDataSets_ = device_.device().supportsCobaltDatasets();
    readEmailOrders();
    readPrintOrders();
    if (keepsDataSets_) readTransferOrders();
    return std::move(list_);
  }

 private:
  /// What `ask` gives. What a device got wrong ends neither the other kinds nor the command.
  template <typename List>
  std::optional<List> asked(const std::string& what,
                            std::optional<List> (XTPictureDevice::*ask)()) {
    try {
      auto orders = (device_.device().*ask)();
      noteGap(what, device_.device().lastReading(), orders.has_value());
      return orders;
    } catch (const Exception& exception) {
      gap("the " + what + "s cannot be read: " + exception.reason());
      return std::nullopt;
    }
  }

  void gap(std::string text) { list_.gaps.push_back(std::move(text)); }

  /// Says what is missing in a list. Raises a ToolError where the device has gone.
  void noteGap(const std::string& what, const ReadingReport& reading, bool hasList) {
    if (reading.isComplete() && hasList) return;
    if (device_.isLost(reading.status)) device_.failWithout("the " + what + "s");
    std::string text = "the " + what + "s cannot all be read";
    if (reading.listed > reading.read)
      text = "of " + std::to_string(reading.listed) + " " +
             (keepsDataSets_ ? what + "s" : "marker files") + " " + std::to_string(reading.read) +
             " could be read";
    if (reading.status != status::kOK)
      text += ": " + statusWithHex(device_.explained(reading.status));
    gap(std::move(text));
  }

  OrderedPicture pictureOf(std::uint32_t handle) const {
    const auto info = readInfo(device_.transactions(), handle).info;
    return {.name = info ? info->fileName() : "", .handle = handle};
  }

  std::vector<OrderedPicture> picturesOf(const std::vector<std::uint32_t>& handles) const {
    std::vector<OrderedPicture> pictures;
    pictures.reserve(handles.size());
    for (const std::uint32_t handle : handles)
      pictures.push_back(pictureOf(handle));
    return pictures;
  }

  static std::vector<OrderedPicture> picturesOf(const std::vector<std::string>& names) {
    std::vector<OrderedPicture> pictures;
    pictures.reserve(names.size());
    for (const auto& name : names)
      pictures.push_back({.name = name});
    return pictures;
  }

  void add(ListedOrder order) {
    order.number = list_.orders.size() + 1;
    auto pictures = PropertyDictionary::array();
    for (const auto& picture : order.pictures) {
      PropertyDictionary entry = {{"name", validUTF8(picture.name)}};
      if (picture.handle != 0) entry["handle"] = picture.handle;
      pictures.push_back(std::move(entry));
    }
    order.json["number"] = order.number;
    order.json["kind"] = order.kind;
    order.json["pictures"] = std::move(pictures);
    list_.orders.push_back(std::move(order));
  }

  void readEmailOrders() {
    const auto orders = asked("e-mail order", &XTPictureDevice::emailOrderList);
    if (!orders) return;
    for (const auto& order : *orders)
      add({.kind = "email",
           .handle = order.handle,
           .purpose = joined(order.destAddresses),
           .subject = order.record ? order.record->subject : "",
           .pictures =
               order.record ? picturesOf(order.record->assetHandles) : picturesOf(order.assets),
           .json = jsonFromEmailOrder(order)});
  }

  void readPrintOrders() {
    const auto orders = asked("print order", &XTPictureDevice::printOrderList);
    if (!orders) return;
    for (const auto& order : *orders)
      add({.kind = "print",
           .handle = order.handle,
           .purpose = copiesInWords(order.quantity),
           .subject = {},
           .pictures = order.record ? picturesOf(std::vector{order.record->asset})
                                    : picturesOf(order.assets),
           .json = jsonFromPrintOrder(order)});
  }

  void readTransferOrders() {
    for (const auto format : {ptp::XTD_TRANSFER_ORDER, ptp::XTD_SQUIRT_TRANSFER_ORDER}) {
      for (const std::uint32_t handle : device_.objectHandles(format, "the transfer orders")) {
        if (seen_.insert(handle).second) readTransferOrder(handle, format);
      }
    }
  }

  void readTransferOrder(std::uint32_t handle, std::uint16_t format) {
    try {
      auto dataSet = device_.transactions().getDataSet(handle, format);
      if (!dataSet) {
        const Status outcome = device_.transactions().lastOutcome();
        if (device_.isLost(outcome)) device_.failWithout("transfer order " + handleText(handle));
        gap("transfer order " + handleText(handle) +
            " cannot be read: " + statusWithHex(device_.explained(outcome)));
        return;
      }
      const TransferOrder order = {.record = scanTransferOrder(*dataSet), .handle = handle};
      add({.kind = "transfer",
           .handle = handle,
           .purpose = order.record.sender,
           .subject = {},
           .pictures = picturesOf(order.record.assetHandles),
           .json = jsonFromTransferOrder(order)});
    } catch (const Exception& exception) {
      gap("transfer order " + handleText(handle) + " cannot be read: " + exception.reason());
    }
  }

  const OpenedDevice& device_;
  bool keepsDataSets_ = false;
  std::set<std::uint32_t> seen_;
  OrderList list_;
};

}  // namespace

OrderList readOrders(const OpenedDevice& device) {
  return OrderReading(device).read();
}

const ListedOrder& orderNamed(const OrderList& list, const std::string& operation,
                              const std::string& text) {
  const auto number = numberOf(text, 0xFFFFFFFF);
  const bool isHandle = text.starts_with("0x") || text.starts_with("0X");
  const auto found = std::ranges::find_if(list.orders, [&](const ListedOrder& order) {
    if (!number) return false;
    return isHandle ? order.handle == *number && *number != 0 : order.number == *number;
  });
  if (found == list.orders.end())
    throw ToolError({.operation = operation,
                     .object = text,
                     .status = status::kFileNotFound,
                     .why = "the device has no such order",
                     .advice = "'tarvoctl orders list' shows the orders."});
  return *found;
}

std::string inWords(const ListedOrder& order) {
  const std::string kind = order.kind == "email" ? "e-mail" : order.kind;
  return kind + " order " + std::to_string(order.number);
}

}  // namespace tarvo::tools
