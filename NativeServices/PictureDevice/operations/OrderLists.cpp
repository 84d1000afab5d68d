#include "NativeServices/PictureDevice/operations/OrderLists.h"

#include <algorithm>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"
#include "NativeServices/PictureDevice/datasets/OrderRecords.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

bool isAllowed(const OrderContext& context, std::uint32_t asset) {
  return !context.allowedAssets || context.allowedAssets->contains(asset);
}

/// Addresses of the contacts that the handles name.
std::vector<std::string> addressesOf(const std::vector<std::uint32_t>& handles,
                                     const ContactsByHandle& contacts) {
  std::vector<std::string> addresses;
  for (const std::uint32_t handle : handles) {
    const auto found = contacts.find(handle);
    if (found != contacts.end()) addresses.push_back(found->second->email.value_or(""));
  }
  if (addresses.size() != handles.size()) {
    TraceLog::trace("of %zu recipients of an order %zu are in the address book", handles.size(),
                    addresses.size());
  }
  return addresses;
}

}  // namespace

bool isEmailMarker(std::string_view name) {
  return name.starts_with("EMAILTAG") || name.starts_with("AUTXFER");
}

bool isPrintMarker(std::string_view name) {
  return name.starts_with("PRINTTAG") || name.starts_with("AUTPRINT");
}

Status OrderLists::fillInEmailOrderList(EmailOrders& list, const ObjectHandles& orders,
                                        const OrderContext& context) {
  report_.listed += orders.size();
  return untilPTPException(report_, [&] {
    for (const std::uint32_t handle : orders)
      appendEmailOrder(list, handle, context);
    return status::kOK;
  });
}

void OrderLists::appendEmailOrder(EmailOrders& list, std::uint32_t handle,
                                  const OrderContext& context) {
  auto dataSet = device_.getDataSet(handle, ptp::XTD_EMAIL_ORDER);
  if (!dataSet) return report_.leaveOut("e-mail order", handle, device_.lastOutcome());
  EmailOrderRecord record = scanEmailOrder(*dataSet);
  report_.take("e-mail order", handle, wasShort(device_, *dataSet, handle));
  // As many as there are, not as many as may be sent.
  const auto assetCount = static_cast<std::uint32_t>(record.assetHandles.size());
  std::erase_if(record.assetHandles, [&](auto asset) { return !isAllowed(context, asset); });
  if (context.allowedAssets && record.assetHandles.empty()) {
    ++report_.withheld;
    return;
  }
  EmailOrder order{.destAddresses = addressesOf(record.destContacts, context.contacts),
                   .handle = handle};
  for (const std::uint32_t asset : record.assetHandles)
    if (auto name = assetName(asset).value_or(""); !name.empty())
      order.assets.push_back(std::move(name));
  order.record = std::move(record);
  list.push_back(std::move(order));
  assetCounts_[handle] = assetCount;
}

Status OrderLists::fillInPrintOrderList(PrintOrders& list, const ObjectHandles& orders,
                                        const OrderContext& context) {
  report_.listed += orders.size();
  return untilPTPException(report_, [&] {
    Status status = status::kOK;
    for (auto order = orders.begin(); status == status::kOK && order != orders.end(); ++order)
      status = appendPrintOrder(list, *order, context);
    return status;
  });
}

Status OrderLists::appendPrintOrder(PrintOrders& list, std::uint32_t handle,
                                    const OrderContext& context) {
  auto dataSet = device_.getDataSet(handle, ptp::XTD_PRINT_ORDER);
  if (!dataSet) {
    TraceLog::trace("Error getting print order data set.");
    report_.leaveOut("print order", handle, device_.lastOutcome());
    return status::kPTPGeneralError;
  }
  PrintOrderRecord record = scanPrintOrder(*dataSet);
  const bool isShort = wasShort(device_, *dataSet, handle);
  if (!isAllowed(context, record.asset)) {
    report_.take("print order", handle, isShort);
    ++report_.withheld;
    return status::kOK;
  }
  const auto name = assetName(record.asset);
  if (!name) {
    TraceLog::trace("Error getting object info for asset referenced by print order.");
    report_.leaveOut("print order", handle,
                     isShort ? status::kPTPIncompleteTransfer : device_.lastOutcome());
    return status::kPTPGeneralError;
  }
  PrintOrder order{.quantity = record.quantity, .handle = handle};
  if (!name->empty()) order.assets.push_back(*name);
  assetCounts_[handle] = static_cast<std::uint32_t>(order.assets.size());
  order.record = std::move(record);
  list.push_back(std::move(order));
  report_.take("print order", handle, isShort);
  return status::kOK;
}

std::optional<std::string> OrderLists::assetName(std::uint32_t handle) {
  ObjectInfoPointer info;
  const Status status = device_.objectInfo(info, handle);
  if (status == status::kOK && info) return lastPathComponent(info->fileName());
  TraceLog::trace("picture 0x%08X of an order has no information: 0x%x", handle,
                  static_cast<unsigned>(status));
  return std::nullopt;
}

void OrderLists::fillInFromMarkers(EmailOrders& list, const std::string& defaultEncoding) {
  eachMarker(isEmailMarker, [&](const std::string& path) {
    tarvo::fillInEmailOrderList(list, path, defaultEncoding);
  });
}

void OrderLists::fillInFromMarkers(PrintOrders& list, const std::string& defaultEncoding) {
  eachMarker(isPrintMarker, [&](const std::string& path) {
    tarvo::fillInPrintOrderList(list, path, defaultEncoding);
  });
}

void OrderLists::eachMarker(bool (*isWanted)(std::string_view),
                            const std::function<void(const std::string& path)>& parse) {
  ObjectHandles objects;
  report_.fail(listObjects(device_, kMarkerFormat, objects));
  for (const std::uint32_t handle : objects) {
    ObjectInfoPointer info;
    const Status status = device_.objectInfo(info, handle);
    if (status != status::kOK || !info) {
      // It may be a marker of this kind, so it counts as missing.
      ++report_.listed;
      report_.leaveOut("marker file", handle, status);
      continue;
    }
    if (!isWanted(info->fileName())) continue;
    ++report_.listed;
    const auto path = ObjectDownloads(device_).temporaryFile(handle);
    if (!path) {
      report_.leaveOut("marker file", handle, device_.lastOutcome());
      continue;
    }
    parse(*path);
    ++report_.read;
    removeTemporaryFile(*path);
  }
}

}  // namespace tarvo
