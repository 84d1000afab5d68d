// Orders and the address book of a picture device: what its class and PTP have for them, with what
// is kept of it.
#include <algorithm>
#include <cctype>
#include <typeinfo>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/AddressBookSync.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "NativeServices/PictureDevice/operations/VendorFiles.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

constexpr std::uint16_t kDefaultCollectionID = 0xD204;
constexpr std::uint16_t kAudioFormat = 0x3008;

const PictureDeviceServices& services() {
  return PictureDeviceRoom::required().services();
}

/// By ASCII: an id has no other letters.
std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

std::optional<AddressBook> XTPictureDevice::addressBookDict() {
  const bool isKept =
      services().defaults.boolForKey("XTPictureDeviceCacheAddressBook").value_or(true);
  if (!isKept) fields_.cachedAddressBook.reset();
  if (!fields_.cachedAddressBook) fields_.cachedAddressBook = addressBookDictUncached();
  return fields_.cachedAddressBook;
}

std::optional<AddressBookError> XTPictureDevice::validateAddressBookDict(const AddressBook& book) {
  TraceLog::traceMethod(className(), "validateAddressBookDict:", this);
  if (!fields_.badNicknameSet) fields_.badNicknameSet = makeBadNicknameSet();
  return tarvo::validateAddressBookDict(book, supportsAddressBooks(), fields_.badNicknameSet);
}

Status XTPictureDevice::validateAddressBook(const AddressBook& book) {
  const auto error = validateAddressBookDict(book);
  return error ? error->ptpErrorCode : status::kOK;
}

Status XTPictureDevice::setAddressBookDictPTP(AddressBook& book) {
  lastWriting_ = {};
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  if (const Status status = validateAddressBook(book); status != status::kOK) return status;
  // Not kept while the device holds a part of each; an exception ends with that, too.
  const bool wasKept = std::exchange(fields_.cachedAddressBook, std::nullopt).has_value();
  const bool asDataSets = containsCode(device->facts().operations, ptp::XTO_UPDATE_DATASET);
  TraceLog::traceMethod(
      className(),
      asDataSets ? "setAddressBookDictToDatasets:" : "setAddressBookDictToABKFile:", this);
  AddressBookWriting writing(*device, services().maker, lastWriting_);
  // What the device lists decides: data sets can be changed one by one, a file only as a whole.
  const Status status = asDataSets ? writing.setAddressBookDictToDatasets(book)
                                   : writing.setAddressBookDictToABKFile(book);
  if (status == status::kOK && wasKept) fields_.cachedAddressBook = book;
  return status;
}

std::optional<TransferOrder> XTPictureDevice::squirtTransferFiles() {
  if (ptpTransactions() == nullptr || !supportsCobaltDatasets() || !isWireless()) {
    return std::nullopt;
  }
  if (fields_.cachedSquirtTransferFiles) return fields_.cachedSquirtTransferFiles;
  if (!hasSquirtTransferIntention()) return std::nullopt;
  TransferOrder order =
      TransferOrders(*ptpTransactions(), lastReading_).first(fields_.orderAssetCounts);
  // There may be one the next time; one that cannot be read is kept all the same
  // (docs/oddities.md).
  if (order.handle != 0) fields_.cachedSquirtTransferFiles = order;
  return order;
}

std::int32_t XTPictureDevice::squirtTransferCountPTP() {
  if (ptpTransactions() == nullptr || !hasSquirtTransferIntention()) return 0;
  return TransferOrders(*ptpTransactions(), lastReading_ = {}).firstCount();
}

void XTPictureDevice::mergePrintAndEmailOrderAssetsIntoSquirtTransferAssets(TransferOrder& order) {
  if (ptpTransactions() == nullptr) return;
  TransferOrders(*ptpTransactions(), lastReading_ = {}).mergeOtherOrdersInto(order);
}

std::optional<std::unordered_set<std::uint32_t>> XTPictureDevice::allowedAssets() {
  // In this order, which is that of the questions to the device.
  if (!hasSquirtTransferIntention() || !isWireless() || isDockedPTP()) return std::nullopt;
  const auto order = squirtTransferFiles().value_or(TransferOrder());
  return std::unordered_set(order.record.assetHandles.begin(), order.record.assetHandles.end());
}

OrderContext XTPictureDevice::orderContext(bool needsContacts) {
  OrderContext context;
  context.allowedAssets = allowedAssets();
  if (!needsContacts) return context;
  // Reading the address book reports on itself; what it says is not about the orders.
  const ReadingReport ofOrders = std::exchange(lastReading_, {});
  const auto book = addressBookDict();
  const Status failure = lastReading_.status;
  lastReading_ = ofOrders;
  // Without it recipients are missing.
  lastReading_.fail(failure);
  // The first contact of a handle counts.
  if (book && book->contacts) {
    for (const auto& contact : *book->contacts)
      context.contacts.emplace(contact->handle, contact);
  }
  return context;
}

std::optional<EmailOrders> XTPictureDevice::emailOrderListPTP() {
  lastReading_ = {};
  auto* device = ptpTransactions();
  if (device == nullptr) return std::nullopt;
  EmailOrders list;
  OrderLists lists(*device, fields_.orderAssetCounts, lastReading_);
  if (!supportsCobaltDatasets()) {
    lists.fillInFromMarkers(list, services().defaultEncoding);
    return list;
  }
  ObjectHandles orders;
  lastReading_.fail(listObjects(*device, ptp::XTD_EMAIL_ORDER, orders));
  // Without orders the address book, which may be large, is not asked for.
  if (!orders.empty()) {
    lastReading_.fail(lists.fillInEmailOrderList(list, orders, orderContext(true)));
  }
  return list;
}

std::optional<PrintOrders> XTPictureDevice::printOrderListPTP() {
  lastReading_ = {};
  auto* device = ptpTransactions();
  if (device == nullptr) return std::nullopt;
  PrintOrders list;
  OrderLists lists(*device, fields_.orderAssetCounts, lastReading_);
  if (!supportsCobaltDatasets()) {
    lists.fillInFromMarkers(list, services().defaultEncoding);
    return list;
  }
  ObjectHandles orders;
  lastReading_.fail(listObjects(*device, ptp::XTD_PRINT_ORDER, orders));
  if (!orders.empty()) {
    lastReading_.fail(lists.fillInPrintOrderList(list, orders, orderContext(false)));
  }
  return list;
}

Status XTPictureDevice::deleteOrderFilesPTP() {
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  OrderDeletion deletion(*device);
  // Markers too on devices with data sets: a card may come from an older camera.
  const Status status = deletion.deleteMarkers();
  // Orders that wait for a transfer are the device's to delete.
  if (status != status::kOK || !supportsCobaltDatasets() || hasSquirtTransferIntention()) {
    return status;
  }
  return deletion.deleteDataSets();
}

std::vector<ByteBuffer> XTPictureDevice::orderFilesPTP() {
  lastReading_ = {};
  std::vector<ByteBuffer> contents;
  auto* device = ptpTransactions();
  if (device == nullptr) return contents;
  ObjectHandles markers;
  lastReading_.fail(listObjects(*device, kMarkerFormat, markers));
  lastReading_.listed = markers.size();
  for (const std::uint32_t marker : markers) {
    if (auto content = downloadObject(marker)) {
      contents.push_back(std::move(*content));
      ++lastReading_.read;
    } else {
      lastReading_.leaveOut("marker file", marker, device->lastOutcome());
    }
  }
  return contents;
}

Status XTPictureDevice::indicateFulfillmentPTP(std::uint32_t order, std::uint32_t asset) {
  auto* device = ptpTransactions();
  return device ? device->sendIndicateFulfillment(order, asset) : status::kUnsupported;
}

std::optional<std::string> XTPictureDevice::defaultCollectionID() {
  if (fields_.cachedDefaultCollectionID) return fields_.cachedDefaultCollectionID;
  const CodeList* properties = propertyList();
  if (properties == nullptr || ptpTransactions() == nullptr) return std::nullopt;
  auto id =
      containsCode(*properties, kDefaultCollectionID)
          ? GUIDProperty(kDefaultCollectionID)
          : CollectionIDFile(*ptpTransactions(), services().maker).defaultCollectionIDFromFile();
  // None is not kept, as the device may be given one.
  if (id && !id->empty()) fields_.cachedDefaultCollectionID = id;
  return id;
}

Status XTPictureDevice::setDefaultCollectionID(const std::optional<std::string>& collectionID) {
  fields_.cachedDefaultCollectionID.reset();
  const CodeList* properties = propertyList();
  if (properties == nullptr || ptpTransactions() == nullptr) {
    return status::kPTPDevicePropNotSupported;
  }
  const std::string id = upperCase(collectionID.value_or(""));
  if (containsCode(*properties, kDefaultCollectionID)) {
    return setPropertyGuid(kDefaultCollectionID, id);
  }
  return CollectionIDFile(*ptpTransactions(), services().maker).storeDefaultCollectionIDInFile(id);
}

Status XTPictureDevice::sendShoeboxPTP(const std::string& path, std::uint32_t* resultHandle) {
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  Shoebox shoebox(*device, services().maker);
  // Exactly that class, not one made from it.
  const XTPictureDevice& self = *this;
  return typeid(self) == typeid(XTImageCapturePTPDevice)
             ? shoebox.sendContents(path, opCodeList())
             : shoebox.sendWhole(path, opCodeList(), resultHandle);
}

Status XTPictureDevice::addImageToShoebox(const std::string& path) {
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  const Status status = Shoebox(*device, services().maker).addImage(path, opCodeList());
  if (status == status::kOK) invalidateObjectInfoCacheForType(kShoeboxFormat);
  return status;
}

std::uint32_t XTPictureDevice::maxAssetArrayLength() {
  return arrayLength(fields_.cachedImageCountForDatasetSizeEstimate,
                     [this] { return imageCount(); });
}

std::uint32_t XTPictureDevice::maxAlbumArrayLength() {
  return arrayLengthOf(fields_.cachedAlbumCountForDatasetSizeEstimate, {ptp::XTD_ALBUM});
}

std::uint32_t XTPictureDevice::maxEmailOrderArrayLength() {
  return arrayLengthOf(fields_.cachedEmailOrderCountForDatasetSizeEstimate,
                       {ptp::XTD_EMAIL_ORDER, ptp::XTD_SQUIRT_EMAIL_ORDER});
}

std::uint32_t XTPictureDevice::maxPrintOrderArrayLength() {
  return arrayLengthOf(fields_.cachedPrintOrderCountForDatasetSizeEstimate,
                       {ptp::XTD_PRINT_ORDER, ptp::XTD_SQUIRT_PRINT_ORDER});
}

std::uint32_t XTPictureDevice::maxTransferOrderArrayLength() {
  return arrayLengthOf(fields_.cachedTransferOrderCountForDatasetSizeEstimate,
                       {ptp::XTD_TRANSFER_ORDER, ptp::XTD_SQUIRT_TRANSFER_ORDER});
}

std::uint32_t XTPictureDevice::maxAudioAnnotationArrayLength() {
  return arrayLengthOf(fields_.cachedAudioAnnotationCountForDatasetSizeEstimate, {kAudioFormat});
}

std::uint32_t XTPictureDevice::arrayLengthOf(std::int32_t& kept,
                                             std::initializer_list<std::uint16_t> formats) {
  return arrayLength(kept, [&] {
    return sumOfCounts(formats, [this](std::uint16_t format) {
      return numberOfObjectsOnStore(ptp::kAllStores, format);
    });
  });
}

}  // namespace tarvo
