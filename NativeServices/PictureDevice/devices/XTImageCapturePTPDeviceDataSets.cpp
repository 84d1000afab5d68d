// The vendor data sets of a PTP device: contacts, groups, orders and albums, as bytes.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"
#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/AddressBookSync.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

// What a data set takes beside its arrays, in bytes.
// Each text of a data set takes at most 511 bytes: a count, 254 units and a terminator.
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
  // The counts stay, unlike after a send of an object: intended, see docs/oddities.md.
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
      // The arrays are as long as the device has objects, which is counted once and kept.
      return roomForDataSet(maxAssetArrayLength(), kAlbumRest);
    case ptp::XTD_GROUP:
      // A device that does not tell its limits does not tell how long its records are.
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
    // An order to print names one picture.
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
  // The count of the contacts is tested and that of the groups stored: intended, see
  // docs/oddities.md.
  if (cachedContactCountForDatasetSizeEstimate_ == -1) {
    cachedGroupCountForDatasetSizeEstimate_ =
        numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_GROUP);
  }
  return arrayLength(cachedGroupCountForDatasetSizeEstimate_);
}

std::optional<EmailOrders> XTImageCapturePTPDevice::emailOrderList() {
  return emailOrderListPTP();
}

std::optional<PrintOrders> XTImageCapturePTPDevice::printOrderList() {
  return printOrderListPTP();
}

std::int32_t XTImageCapturePTPDevice::squirtTransferCount() {
  return squirtTransferCountPTP();
}

Status XTImageCapturePTPDevice::deleteOrderFiles() {
  return deleteOrderFilesPTP();
}

Status XTImageCapturePTPDevice::indicateFulfillment(std::uint32_t order, std::uint32_t asset) {
  return indicateFulfillmentPTP(order, asset);
}

std::optional<AddressBook> XTImageCapturePTPDevice::addressBookDictUncached() {
  lastReading_ = {};
  if (icaObject() == 0) {
    TraceLog::trace("addressBookDictUncached couldn't get an ICA object");
    lastReading_.fail(status::kPTPSessionNotOpen);
    return std::nullopt;
  }
  if (!supportsAddressBooks()) {
    lastReading_.fail(status::kPTPOperationNotSupported);
    return std::nullopt;
  }
  AddressBook book;
  XT_AddressBookInfo info;
  std::size_t received = 0;
  if (containsCode(operationList_, ptp::XTO_GET_ADDRESS_BOOK_INFO)) {
    // Asked anew, whatever is kept: the limits go with the book that is read.
    const Status status = readAddressBookInfo(info, received, true);
    lastReading_.fail(status);
    if (status != status::kOK) return std::nullopt;
    // An answer of no bytes is none; one that was cut is the device's word no longer.
    if (received > 0) lastReading_.fail(lastOutcome_);
  }
  fillInABDict(book, received > 0 ? &info : nullptr, operationList_);
  if (TraceLog::isActive())
    TraceLog::trace("AddressBookDict: %s", jsonFromAddressBook(book).dump().c_str());
  // What a device lists decides, not its model: newer firmware may bring data sets to an older
  // device.
  if (containsCode(operationList_, ptp::XTO_GET_DATASET)) {
    fillFromDataSets(book);
  } else {
    fillFromFile(book);
  }
  return book;
}

void XTImageCapturePTPDevice::fillFromDataSets(AddressBook& book) {
  ObjectHandles groups;
  ObjectHandles contacts;
  Status status = listObjects(*this, ptp::XTD_GROUP, groups);
  if (status == status::kOK) status = listObjects(*this, ptp::XTD_CONTACT, contacts);
  // A list that cannot be had is no empty list: the book is left without contacts and groups.
  if (status == status::kOK) {
    status = AddressBookReading(*this, lastReading_).fillInABDict(book, contacts, groups);
  }
  lastReading_.fail(status);
}

void XTImageCapturePTPDevice::fillFromFile(AddressBook& book) {
  ObjectHandles files;
  lastReading_.fail(listObjects(*this, ptp::XTD_ADDRESS_BOOK_FILE, files));
  lastReading_.listed = files.size();
  if (files.empty()) return;
  const auto path = firstFileOf(files);
  if (!path) {
    lastReading_.leaveOut("address book", files.front(), lastOutcome_);
    return;
  }
  // Of several files one is enough.
  lastReading_.read = files.size();
  fillInABDict(book, *path, PictureDeviceRoom::required().services().defaultEncoding);
  // A file with more lines than the device allows gives no contacts, and only that.
  if (!book.contacts) lastReading_.fail(status::kAddressBookTooManyContacts);
  removeTemporaryFile(*path);
}

Status XTImageCapturePTPDevice::setAddressBookDict(AddressBook& book) {
  if (icaObject() == 0) {
    TraceLog::trace("setAddressBookDict couldn't get an ICA object");
    return status::kPTPSessionNotOpen;
  }
  return setAddressBookDictPTP(book);
}

Status XTImageCapturePTPDevice::setAddressBook(const std::string& path) {
  if (!supportsAddressBooks()) return status::kPTPOperationNotSupported;
  // What was read does not hold any more.
  // Before the transfer, which may fail half way.
  fields_.cachedAddressBook.reset();
  return replaceFilesOfType(ptp::XTD_ADDRESS_BOOK_FILE, path);
}

Status XTImageCapturePTPDevice::setAlbumNames(const std::string& path) {
  if (icaObject() == 0) return status::kPTPOperationNotSupported;
  fields_.cachedAlbumDict.reset();
  return replaceFilesOfType(ptp::XTD_ALBUM_NAMES_FILE, path);
}

Status XTImageCapturePTPDevice::replaceFilesOfType(std::uint16_t format, const std::string& path) {
  // Sent all the same: two files are better than none.
  const Status deleted = deleteFilesOfType(format);
  if (deleted != status::kOK) {
    TraceLog::trace("files of format %04X cannot be deleted: 0x%x", format,
                    static_cast<unsigned>(deleted));
  }
  return sendFile(path);
}

std::optional<std::string> XTImageCapturePTPDevice::albumNames() {
  ObjectHandles files;
  // None where the list cannot be had; the outcome tells it. So below.
  (void)listObjects(*this, ptp::XTD_ALBUM_NAMES_FILE, files);
  return firstFileOf(files);
}

std::optional<std::string> XTImageCapturePTPDevice::hostObjectWrapperFile() {
  ObjectHandles files;
  (void)listObjects(*this, ptp::XTD_HOST_OBJECT_WRAPPER, files);
  // The first one, whether it can be downloaded or not.
  return firstFileOf(std::span(files).first(files.empty() ? 0 : 1));
}

std::optional<std::string> XTImageCapturePTPDevice::firstFileOf(
    std::span<const std::uint32_t> handles) {
  for (const std::uint32_t handle : handles)
    if (auto path = downloadIcaObject(handle)) return path;
  return std::nullopt;
}

std::optional<std::string> XTImageCapturePTPDevice::downloadIcaObject(std::uint32_t handle) {
  ObjectInfoPointer info;
  if (objectInfo(info, handle) != status::kOK) return std::nullopt;
  const auto content = ObjectDownloads(*this, kMostBytesOfTextFile).data(handle);
  if (!content) return std::nullopt;
  auto path = writeTemporaryFile(info->fileName(), *content);
  if (!path) TraceLog::trace("object 0x%08X has a name that no file can have", handle);
  return path;
}

std::optional<ByteBuffer> XTImageCapturePTPDevice::wirelessConfigData() {
  ObjectHandles objects;
  (void)listObjects(*this, ptp::XTD_WIRELESS_CONFIG, objects);
  for (const std::uint32_t handle : objects) {
    ObjectInfoPointer info;
    const bool isIt = objectInfo(info, handle) == status::kOK && info->fileName() == "NETCONF.XML";
    if (isIt) return ObjectDownloads(*this, kMostBytesOfTextFile).dataInPieces(handle);
  }
  return std::nullopt;
}

Status XTImageCapturePTPDevice::deleteHostObjectWrapperFiles() {
  return deleteFilesOfType(ptp::XTD_HOST_OBJECT_WRAPPER);
}

Status XTImageCapturePTPDevice::deleteBragbookFiles() {
  if (!capabilities().deviceSupportsBragbooks) return status::kPTPInvalidObjectFormatCode;
  // The form in which the device keeps them.
  return deleteFilesOfType(containsCode(imageFormatList_, ptp::XTD_BRAGBOOK2) ? ptp::XTD_BRAGBOOK2
                                                                              : ptp::XTD_BRAGBOOK);
}

}  // namespace tarvo
