// The vendor data sets of a PTP device: contacts, groups, orders and albums, as bytes.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/PassThroughTransaction.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/DataSetSizes.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

// What a data set takes beside its arrays, in bytes.
constexpr std::uint32_t kAlbumRest = 4104;
constexpr std::uint32_t kGroupRest = 1029;
constexpr std::uint32_t kContactRest = 10342;
constexpr std::uint32_t kEmailOrderRest = 3097;
constexpr std::uint32_t kPrintOrderRest = 2098;
constexpr std::uint32_t kTransferOrderRest = 1047;
/// Where nothing is known of the format, or of the device's limits.
constexpr std::uint32_t kUnknownRoom = 0x10000;

constexpr char kMallocFailure[] = "malloc failed in getDataSet.";

/// Of a record: its header, and the byte behind its room.
constexpr std::uint32_t kHeaderSize = PTPPassThroughRecord::kHeaderSize;
constexpr std::uint32_t kRecordRest = kHeaderSize + 1;

/// A cleared record of `room` bytes. Memory of a claimed size that is never filled costs nothing.
/// Raises the malloc exception.
std::byte* recordForReceiving(std::uint32_t room) {
  void* bytes =
      room <= PassThroughTransaction::kLargestRoom ? std::calloc(room + kRecordRest, 1) : nullptr;
  if (!bytes) {
    TraceLog::trace("getDataSet: No memory for %u bytes", room);
    throw Exception(std::string(exception_name::kMalloc), kMallocFailure);
  }
  return static_cast<std::byte*>(bytes);
}

/// No container may end at a multiple of 64 bytes.
void padDataSet(XTMutablePTPDataSet& dataSet) {
  if (dataSet.adjustToAvoidModulo64PayloadSize()) {
    TraceLog::trace("Asjusted size of dataset to %d", static_cast<int>(dataSet.length()));
  }
}

}  // namespace

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::getDataSet(std::uint32_t handle,
                                                                std::uint16_t format) {
  const std::uint32_t room = maxSizeForDatasetFormat(format);
  std::byte* const bytes = recordForReceiving(room);
  // Over the whole record: a short data set reads as zeros.
  auto reader =
      XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder, room + kRecordRest, true);
  // In the byte behind the room a data set that is too large shows.
  ptp::MemorySink sink({bytes + kHeaderSize, std::size_t{room} + 1});
  PassThroughTransaction transaction({.method = "getDataSet",
                                      .headerFailure = "getDataSet XTO_GET_DATASET",
                                      .operation = ptp::XTO_GET_DATASET,
                                      .parameters = {handle, format},
                                      .dataUsageMode = kDataFromDevice,
                                      .room = room,
                                      .sink = &sink,
                                      .mallocFailure = kMallocFailure});
  if (!run(transaction)) return std::nullopt;
  if (sink.filled() > room) {
    // What is left of it would be taken for the whole.
    TraceLog::trace("getDataSet 0x%08X: the data set is larger than %u bytes", handle, room);
    lastOutcome_ = status::kPTPIncompleteTransfer;
    return std::nullopt;
  }
  const PTPPassThroughRecord record = transaction.takeRecord();
  std::memcpy(bytes, &record.pb(), kHeaderSize);
  reader.setPosition(kHeaderSize);
  lastReceived_ = kHeaderSize + static_cast<std::uint32_t>(sink.filled());
  return reader;
}

Status XTImageCapturePTPDevice::createFormat(std::uint16_t format, XTMutablePTPDataSet& dataSet,
                                             std::uint32_t* resultHandle) {
  padDataSet(dataSet);
  PassThroughTransaction transaction({.method = "createFormat",
                                      .operation = ptp::XTO_CREATE_DATASET,
                                      .parameters = {format},
                                      .responseParameters = 1,
                                      .dataUsageMode = kDataToDevice,
                                      .data = dataSet.bytes(),
                                      .mallocFailure = "malloc failed in createFormat.",
                                      .failureTrace = FailureTrace::kHeaderAndResultInOne});
  if (run(transaction) && resultHandle) {
    *resultHandle = transaction.responseParameter(0);
    // Some devices use the handle of an object that was deleted again.
    invalidateInfoCacheForObject(*resultHandle);
  }
  // The counts stay, unlike after a send of an object: this is intended.
  forgetContents();
  return transaction.outcome();
}

Status XTImageCapturePTPDevice::updateObject(std::uint32_t handle, std::uint16_t format,
                                             XTMutablePTPDataSet& dataSet) {
  padDataSet(dataSet);
  PassThroughTransaction transaction({.method = "updateObject",
                                      .operation = ptp::XTO_UPDATE_DATASET,
                                      .parameters = {handle, format},
                                      .dataUsageMode = kDataToDevice,
                                      .data = dataSet.bytes(),
                                      .mallocFailure = "malloc failed in updateObject.",
                                      .failureTrace = FailureTrace::kHeaderAndResultInOne});
  run(transaction);
  // Its size may be another one now.
  invalidateInfoCacheForObject(handle);
  return transaction.outcome();
}

Status XTImageCapturePTPDevice::sendIndicateFulfillment(std::uint32_t order, std::uint32_t asset) {
  if (!containsCode(operationList_, ptp::XTO_MODIFY_ASSET_LIST)) {
    return status::kPTPOperationNotSupported;
  }
  PassThroughTransaction transaction({.method = "sendIndicateFulfillment",
                                      .headerFailure = "indicateFulfillment XTO_MODIFY_ASSET_LIST",
                                      .operation = ptp::XTO_MODIFY_ASSET_LIST,
                                      .parameters = {order, asset, 0}});
  // Here the message's own error counts more than the response.
  if (!run(transaction) && transaction.headerErr() != status::kOK) return transaction.headerErr();
  return transaction.outcome();
}

std::uint32_t XTImageCapturePTPDevice::maxSizeForDatasetFormat(std::uint16_t format) {
  XT_AddressBookInfo limits;
  switch (format) {
    case ptp::XTD_ALBUM:
      return roomForDataSet(maxAssetArrayLength(), kAlbumRest);
    case ptp::XTD_GROUP:
      if (addressBookInfo(limits) != status::kOK) return kUnknownRoom;
      return roomForDataSet(maxContactArrayLength(), kGroupRest);
    case ptp::XTD_CONTACT:
      if (addressBookInfo(limits) != status::kOK) return kUnknownRoom;
      return roomForDataSet(maxGroupArrayLength(), kContactRest);
    case ptp::XTD_EMAIL_ORDER:
    case ptp::XTD_SQUIRT_EMAIL_ORDER: {
      const std::uint64_t assets = maxAssetArrayLength();
      return roomForDataSet(assets + maxContactArrayLength(), kEmailOrderRest);
    }
    case ptp::XTD_PRINT_ORDER:
    case ptp::XTD_SQUIRT_PRINT_ORDER:
      return kPrintOrderRest;
    case ptp::XTD_TRANSFER_ORDER:
    case ptp::XTD_SQUIRT_TRANSFER_ORDER:
      return roomForDataSet(maxAssetArrayLength(), kTransferOrderRest);
    default:
      TraceLog::trace("Could not compute dataset size for for format %04X", format);
      return kUnknownRoom;
  }
}

void XTImageCapturePTPDevice::forgetBookCounts() {
  cachedContactCountForDatasetSizeEstimate_ = -1;
  cachedGroupCountForDatasetSizeEstimate_ = -1;
}

std::uint32_t XTImageCapturePTPDevice::maxContactArrayLength() {
  return arrayLength(cachedContactCountForDatasetSizeEstimate_,
                     [this] { return numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_CONTACT); });
}

std::uint32_t XTImageCapturePTPDevice::maxGroupArrayLength() {
  // The count of the contacts is tested and that of the groups stored: this is intended.
  if (cachedContactCountForDatasetSizeEstimate_ == -1) {
    cachedGroupCountForDatasetSizeEstimate_ =
        numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_GROUP);
  }
  return arrayLength(cachedGroupCountForDatasetSizeEstimate_);
}

}  // namespace tarvo
