#include "NativeServices/PictureDevice/operations/TransferOrders.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/OrderRecords.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

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
