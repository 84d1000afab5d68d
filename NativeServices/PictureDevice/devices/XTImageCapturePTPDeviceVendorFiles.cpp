// What the maker's PTP devices keep beside pictures: orders, the address book, album names, host
// object wrappers, favourites and the settings for a network.
#include <span>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"
#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/AddressBookReading.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

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
  fields_.cachedAddressBook.reset();
  return replaceFilesOfType(ptp::XTD_ADDRESS_BOOK_FILE, path);
}

Status XTImageCapturePTPDevice::setAlbumNames(const std::string& path) {
  if (icaObject() == 0) return status::kPTPOperationNotSupported;
  fields_.cachedAlbumDict.reset();
  return replaceFilesOfType(ptp::XTD_ALBUM_NAMES_FILE, path);
}

Status XTImageCapturePTPDevice::replaceFilesOfType(std::uint16_t format, const std::string& path) {
  const Status deleted = deleteFilesOfType(format);
  if (deleted != status::kOK) {
    TraceLog::trace("files of format %04X cannot be deleted: 0x%x", format,
                    static_cast<unsigned>(deleted));
  }
  return sendFile(path);
}

std::optional<std::string> XTImageCapturePTPDevice::albumNames() {
  ObjectHandles files;
  listObjects(*this, ptp::XTD_ALBUM_NAMES_FILE, files);
  return firstFileOf(files);
}

std::optional<std::string> XTImageCapturePTPDevice::hostObjectWrapperFile() {
  ObjectHandles files;
  listObjects(*this, ptp::XTD_HOST_OBJECT_WRAPPER, files);
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
  const auto content = ObjectDownloads(*this).data(handle);
  if (!content) return std::nullopt;
  auto path = writeTemporaryFile(info->fileName(), *content);
  if (!path) TraceLog::trace("object 0x%08X cannot be written to a temporary file", handle);
  return path;
}

std::optional<ByteBuffer> XTImageCapturePTPDevice::wirelessConfigData() {
  ObjectHandles objects;
  listObjects(*this, ptp::XTD_WIRELESS_CONFIG, objects);
  for (const std::uint32_t handle : objects) {
    ObjectInfoPointer info;
    const bool isIt = objectInfo(info, handle) == status::kOK && info->fileName() == "NETCONF.XML";
    if (isIt) return downloadObjectData(handle);
  }
  return std::nullopt;
}

Status XTImageCapturePTPDevice::deleteHostObjectWrapperFiles() {
  return deleteFilesOfType(ptp::XTD_HOST_OBJECT_WRAPPER);
}

Status XTImageCapturePTPDevice::deleteBragbookFiles() {
  if (!capabilities().deviceSupportsBragbooks) return status::kPTPInvalidObjectFormatCode;
  return deleteFilesOfType(containsCode(imageFormatList_, ptp::XTD_BRAGBOOK2) ? ptp::XTD_BRAGBOOK2
                                                                              : ptp::XTD_BRAGBOOK);
}

}  // namespace tarvo
