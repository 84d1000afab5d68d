#include "NativeServices/PictureDevice/operations/OrderLists.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "Utilities/Format.h"
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
  // A contact that was deleted on the camera after the order was made. The order goes to the
  // others, as on the camera itself.
  if (addresses.size() != handles.size()) {
    TraceLog::trace("of %zu recipients of an order %zu are in the address book", handles.size(),
                    addresses.size());
  }
  return addresses;
}

}  // namespace

// Read by the beginnings of their names and deleted by the whole: see docs/oddities.md.
bool isEmailMarker(std::string_view name) {
  return name.starts_with("EMAILTAG") || name.starts_with("AUTXFER");
}

bool isPrintMarker(std::string_view name) {
  return name.starts_with("PRINTTAG") || name.starts_with("AUTPRINT");
}

Status OrderLists::fillInEmailOrderList(EmailOrders& list, const ObjectHandles& orders,
                                        const OrderContext& context) {
  // Counted before the reading, so that what an exception cuts off is seen to be missing.
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
  // The next one may be readable: an e-mail order stands for itself, where a print order that fails
  // ends the list.
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
  // As it was on the device, but for the pictures that are not allowed.
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
    // Its status is left: a marker that is no order adds nothing, which the counts show.
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
    // The parsers read files, for the same markers lie on cards that are mounted.
    const auto path = ObjectDownloads(device_, kMostBytesOfTextFile).temporaryFile(handle);
    if (!path) {
      report_.leaveOut("marker file", handle, device_.lastOutcome());
      continue;
    }
    parse(*path);
    ++report_.read;
    removeTemporaryFile(*path);
  }
}

namespace {

constexpr std::string_view kMarkerNames[] = {"PRINTTAG.MRK", "AUTPRINT.MRK", "EMAILTAG.MRK",
                                             "AUTXFER.MRK"};

bool isMarkerName(std::string_view name) {
  return std::ranges::find(kMarkerNames, name) != std::end(kMarkerNames);
}

}  // namespace

Status OrderDeletion::deleteMarkers() {
  ObjectHandles objects;
  Status status = listObjects(device_, kMarkerFormat, objects);
  for (auto handle = objects.begin(); status == status::kOK && handle != objects.end(); ++handle) {
    ObjectInfoPointer info;
    // Nothing is deleted whose name is not known.
    if (device_.objectInfo(info, *handle) != status::kOK || !info) {
      TraceLog::trace("object 0x%08X without information is no marker file that is deleted",
                      *handle);
    } else if (isMarkerName(info->fileName())) {
      status = ObjectChanges(device_).deleteObject(*handle);
    }
  }
  return status;
}

// E-mail orders first. Where one fails, the print orders stay, and all that is left to do can be
// seen.
Status OrderDeletion::deleteDataSets() {
  const Status status = deleteAllOfFormat(ptp::XTD_EMAIL_ORDER);
  return status == status::kOK ? deleteAllOfFormat(ptp::XTD_PRINT_ORDER) : status;
}

Status OrderDeletion::deleteAllOfFormat(std::uint16_t format) {
  ObjectHandles orders;
  Status status = listObjects(device_, format, orders);
  for (auto handle = orders.begin(); status == status::kOK && handle != orders.end(); ++handle)
    status = ObjectChanges(device_).deleteVendorObject(*handle);
  return status;
}

namespace {

/// Of the order's id, whatever it says of its length.
constexpr std::uint32_t kOrderIDLength = 20;
constexpr std::uint32_t kOrderTypeLength = 2;

std::string handlesInWords(const ObjectHandles& handles) {
  std::string words;
  for (const std::uint32_t handle : handles)
    words += formatted(" 0x%08X", handle);
  return words;
}

}  // namespace

TransferOrder TransferOrders::first(std::map<std::uint32_t, std::uint32_t>& assetCounts) {
  TransferOrder order;
  ObjectHandles handles;
  report_.fail(listObjects(device_, ptp::XTD_SQUIRT_TRANSFER_ORDER, handles));
  // Handle 0 tells the caller that there is none. Of several the first one counts.
  if (handles.empty()) return order;
  order.handle = handles.front();
  auto dataSet = readDataSet(order.handle, ptp::XTD_SQUIRT_TRANSFER_ORDER);
  if (!dataSet) return order;
  order.record = scanTransferOrder(*dataSet);
  noteCut(*dataSet, order.handle);
  assetCounts[order.handle] = static_cast<std::uint32_t>(order.record.assetHandles.size());
  return order;
}

std::int32_t TransferOrders::firstCount() {
  const std::int32_t number =
      device_.numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_SQUIRT_TRANSFER_ORDER);
  TraceLog::trace("numberOfObjectsOnStore:PTP_ALL_STORES ofType:XTD_SQUIRT_TRANSFER_ORDER: %d",
                  number);
  if (number < 1) return 0;
  ObjectHandles handles;
  report_.fail(listObjects(device_, ptp::XTD_SQUIRT_TRANSFER_ORDER, handles));
  if (TraceLog::isActive()) TraceLog::trace("objList:%s", handlesInWords(handles).c_str());
  if (handles.empty()) return 0;
  auto dataSet = readDataSet(handles.front(), ptp::XTD_SQUIRT_TRANSFER_ORDER);
  TraceLog::trace("ds: %s", dataSet ? dataSet->description().c_str() : "(null)");
  if (!dataSet) return 0;
  dataSet->skip(kOrderIDLength);
  dataSet->skip(kOrderTypeLength);
  // The sender. Read and not skipped, for its length stands in its first byte.
  dataSet->scanString();
  const auto count = static_cast<std::int32_t>(
      std::min<std::uint32_t>(dataSet->scanUInt32(), std::numeric_limits<std::int32_t>::max()));
  noteCut(*dataSet, handles.front());
  TraceLog::trace("count: %d", count);
  return count;
}

void TransferOrders::mergeOtherOrdersInto(TransferOrder& order) {
  std::vector<std::uint32_t> assets;
  eachDataSet(ptp::XTD_EMAIL_ORDER, [&](XTPTPDataSet& dataSet) {
    const auto record = scanEmailOrder(dataSet);
    assets.insert(assets.end(), record.assetHandles.begin(), record.assetHandles.end());
  });
  eachDataSet(ptp::XTD_PRINT_ORDER,
              [&](XTPTPDataSet& dataSet) { assets.push_back(scanPrintOrder(dataSet).asset); });
  auto& own = order.record.assetHandles;
  own.insert(own.begin(), assets.begin(), assets.end());
}

template <typename Read>
void TransferOrders::eachDataSet(std::uint16_t format, Read&& read) {
  ObjectHandles handles;
  report_.fail(listObjects(device_, format, handles));
  for (const std::uint32_t handle : handles) {
    auto dataSet = readDataSet(handle, format);
    if (!dataSet) continue;
    read(*dataSet);
    noteCut(*dataSet, handle);
  }
}

std::optional<XTPTPDataSet> TransferOrders::readDataSet(std::uint32_t handle,
                                                        std::uint16_t format) {
  auto dataSet = device_.getDataSet(handle, format);
  if (!dataSet) report_.leaveOut("order", handle, device_.lastOutcome());
  return dataSet;
}

void TransferOrders::noteCut(const XTPTPDataSet& dataSet, std::uint32_t handle) {
  if (wasShort(device_, dataSet, handle))
    report_.leaveOut("order", handle, status::kPTPIncompleteTransfer);
}

}  // namespace tarvo
