#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"

#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/CapabilityDetection.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

// Room for each data phase, in bytes.
// A longer answer is cut off.
// A DeviceInfo that was cut is refused in words, see parseDeviceInfo().
constexpr std::size_t kDeviceInfoRoom = 2048;
constexpr std::size_t kSupportedDatasetsRoom = 256;
constexpr std::size_t kLCBInfoRoom = 12;
constexpr std::size_t kAddressBookInfoRoom = 28;

[[noreturn]] void raisePTPException(const char* reason, const PassThroughTransaction& transaction) {
  auto userInfo = PropertyDictionary::object();
  // Both go under the same key, so that the status remains: intended, see docs/oddities.md.
  userInfo["ptpResponseCode"] = transaction.responseCode();
  userInfo["ptpResponseCode"] = transaction.status();
  throw Exception(std::string(exception_name::kPTP), reason, std::move(userInfo));
}

/// Whole lines of eight bytes; what does not fill one is left out.
void traceBytes(std::span<const std::byte> data) {
  constexpr std::size_t kPerLine = 8;
  for (std::size_t i = 0; i < data.size(); i += kPerLine) {
    std::string line = "data:";
    for (const std::byte byte : data.subspan(i, std::min(kPerLine, data.size() - i)))
      line += formatted(" 0x%x", std::to_integer<unsigned>(byte));
    TraceLog::trace("%s", line.c_str());
  }
}

/// Runs a question of the load. What a device lists and then does not know costs no more than what
/// hangs on it; any other failure goes on.
template <typename Question>
void askIfKnown(const PTPTransactions& device, Question question) {
  try {
    question();
  } catch (const Exception& exception) {
    const Status outcome = device.lastOutcome();
    const bool isUnknown = outcome == status::kPTPOperationNotSupported ||
                           outcome == status::kPTPParameterNotSupported;
    if (!isUnknown || exception.name() != exception_name::kPTP) throw;
  }
}

std::string codesInWords(const CodeList& codes) {
  std::string words;
  for (const std::uint16_t code : codes)
    words += formatted(" 0x%04X", code);
  return words;
}

}  // namespace

std::shared_ptr<XTImageCapturePTPDevice> XTImageCapturePTPDevice::withICAObject(ICAObject object,
                                                                                Status* failure) {
  const std::shared_ptr<XTImageCapturePTPDevice> device(new XTImageCapturePTPDevice);
  return initialized(device, object, failure);
}

PTPDeviceFacts XTImageCapturePTPDevice::facts() const {
  return {.model = model(),
          .operations = operationList_,
          .properties = propertyList_,
          .imageFormats = imageFormatList_,
          .capabilities = capabilities()};
}

bool XTImageCapturePTPDevice::run(PassThroughTransaction& transaction) {
  const bool succeeded = transaction.run(*this);
  lastOutcome_ = transaction.outcome();
  return succeeded;
}

Status XTImageCapturePTPDevice::icaObjectSendMessage(ICAObjectSendMessagePB& block) {
  const bool isTransaction = block.messageType == ica::kMessagePass && block.data != nullptr;
  if (!isTransaction || disconnected()) return XTImageCaptureDevice::icaObjectSendMessage(block);

  auto& pb = block.data->pb();
  // A device need not survive an operation that it does not know, so none is tried.
  if (!supportsOperation(static_cast<std::uint16_t>(pb.commandCode))) {
    pb.resultCode = status::kPTPOperationNotSupported;
    return status::kPTPOperationNotSupported;
  }
  // Stands when no response arrives.
  pb.resultCode = status::kPTPGeneralError;
  const Status status = XTImageCaptureDevice::icaObjectSendMessage(block);
  // A response of 0 is none that PTP knows.
  if (status != status::kOK || pb.resultCode != 0) return status;
  pb.resultCode = status::kPTPGeneralError;
  return status::kPTPGeneralError;
}

Status XTImageCapturePTPDevice::loadDeviceInfoUncached() {
  if (const Status status = XTImageCaptureDevice::loadDeviceInfoUncached(); status != status::kOK) {
    return status;
  }
  // From an earlier load. supportedDatasets_ stays: it is read once an arrival.
  for (CodeList* list :
       {&operationList_, &eventList_, &propertyList_, &captureFormatList_, &imageFormatList_})
    list->clear();
  displayRequestVersion_ = 0;

  // Of no use by itself: getDeviceInfo() puts the one with the answer in its place.
  PTPPassThroughRecord record(1);
  const Status status = getDeviceInfo(record);
  if (status != status::kOK && status != status::kPTPOK) {
    TraceLog::traceWithTag(
        formatted("loadDeviceInfo ptpError: 0x%x", static_cast<unsigned>(status)), XTOptDebugLog);
    return status;
  }
  parseDeviceInfo(record);
  CodeList datasets;
  askIfKnown(*this, [&] { datasets = supportedDatasets(); });
  checkCapabilitesFromManufacturer(manufacturer(), vendorExtensionID(), operationList_,
                                   propertyList_, imageFormatList_, datasets);
  askIfKnown(*this, [&] { displayRequestVersion(); });  // read and kept
  return status::kOK;
}

void XTImageCapturePTPDevice::parseDeviceInfo(const PTPPassThroughRecord& record) {
  // Over the whole room, so that an answer that ends early reads as empty lists and texts.
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(record.data(), kPTPByteOrder);
  try {
    scanDeviceInfo(dataSet);
  } catch (const Exception& exception) {
    // Only a full room can have cut it.
    if (record.pb().dataSize < kDeviceInfoRoom) throw;
    throw Exception(exception.name(), formatted("its DeviceInfo has more than the %zu bytes that "
                                                "there is room for",
                                                kDeviceInfoRoom));
  }
  // A device without a name of its own is shown by its model.
  if (fields_.deviceName.empty()) fields_.deviceName = fields_.deviceModel;

  // The reader went into the zeros behind the answer.
  // Used all the same: what is missing is empty, and a camera that leaves out its serial number is
  // still one.
  if (dataSet.position() > record.pb().dataSize) reportShortDeviceInfo(dataSet.position(), record);
  TraceLog::trace("%s %s Loaded device info for '%s' '%s' version '%s', serial# '%s'",
                  std::string(className()).c_str(), "loadDeviceInfoUncached",
                  manufacturer().c_str(), model().c_str(), deviceVersion().c_str(),
                  serialNumber().c_str());
}

void XTImageCapturePTPDevice::scanDeviceInfo(XTPTPDataSet& dataSet) {
  dataSet.scanUInt16();  // StandardVersion
  fields_.vendorExtensionID = dataSet.scanUInt32();
  dataSet.scanUInt16();  // VendorExtensionVersion
  dataSet.scanString();  // VendorExtensionDesc
  dataSet.scanUInt16();  // FunctionalMode
  operationList_ = dataSet.scanUInt16Array();
  eventList_ = dataSet.scanUInt16Array();
  propertyList_ = dataSet.scanUInt16Array();
  captureFormatList_ = dataSet.scanUInt16Array();
  imageFormatList_ = dataSet.scanUInt16Array();
  fields_.deviceManufacturer = dataSet.scanString();
  fields_.deviceModel = dataSet.scanString();
  fields_.deviceVersion = dataSet.scanString();
  fields_.deviceSerialNumber = dataSet.scanString();
}

void XTImageCapturePTPDevice::reportShortDeviceInfo(std::uint32_t read,
                                                    const PTPPassThroughRecord& record) const {
  const auto line = formatted("DeviceInfo of '%s' is cut off: %u bytes read, %u received",
                              name().c_str(), read, record.pb().dataSize);
  TraceLog::trace("%s", line.c_str());
  logTo(PictureDeviceRoom::required().services().log,
        isOfMaker() ? LogLevel::kWarning : LogLevel::kDebug, line);
}

void XTImageCapturePTPDevice::checkCapabilitesFromManufacturer(
    const std::string& manufacturer, std::uint32_t, const CodeList& opcodes,
    const CodeList& properties, const CodeList& imageFormats, const CodeList& datasets) {
  CapabilityDetection detection(*this, PictureDeviceRoom::required().services().maker);
  fields_.capabilities = detection.detect({.manufacturer = manufacturer,
                                           .model = model(),
                                           .opcodes = opcodes,
                                           .properties = properties,
                                           .imageFormats = imageFormats,
                                           .datasets = datasets});
}

std::unique_ptr<PTPPassThroughRecord> XTImageCapturePTPDevice::deviceInfoDataset() {
  auto record = std::make_unique<PTPPassThroughRecord>(1);
  return getDeviceInfo(*record) == status::kOK ? std::move(record) : nullptr;
}

Status XTImageCapturePTPDevice::getDeviceInfo(PTPPassThroughRecord& record) {
  TraceLog::trace("getDeviceInfo entered");
  PassThroughTransaction transaction({.method = "getDeviceInfo",
                                      .headerFailure = "getDeviceInfo GetDeviceInfo",
                                      .operation = ptp::kGetDeviceInfo,
                                      .dataUsageMode = kDataFromDevice,
                                      .room = kDeviceInfoRoom});
  if (!run(transaction)) return transaction.outcome();
  record = transaction.takeRecord();
  TraceLog::trace("getDeviceInfo GetDeviceInfo: dataSize: %i",
                  static_cast<int>(record.pb().dataSize));
  // The beginning says which standard and which vendor's extension, which is what one looks for in
  // a trace.
  traceBytes(record.data().first(16));
  return status::kOK;
}

const CodeList& XTImageCapturePTPDevice::supportedDatasets() {
  if (supportedDatasets_) return *supportedDatasets_;
  if (!containsCode(operationList_, ptp::XTO_GET_SUPPORTED_DATASETS)) {
    // Not kept as an answer: the list of operations may be loaded later.
    static const CodeList none;
    return none;
  }
  PassThroughTransaction transaction({.method = "supportedDatasets",
                                      .operation = ptp::XTO_GET_SUPPORTED_DATASETS,
                                      .dataUsageMode = kDataFromDevice,
                                      .room = kSupportedDatasetsRoom});
  if (!run(transaction)) {
    raisePTPException("XTO_GET_SUPPORTED_DATASETS failed", transaction);
  }
  auto reader = transaction.reader();
  supportedDatasets_ = reader.scanUInt16Array();
  // Only traced; the codes that did not come are 0, which nothing matches.
  transaction.wasShort(reader);
  if (TraceLog::isActive()) {
    TraceLog::traceWithTag("Supported datasets:" + codesInWords(*supportedDatasets_),
                           XTOptDebugLog);
  }
  return *supportedDatasets_;
}

std::uint16_t XTImageCapturePTPDevice::displayRequestVersion() {
  if (displayRequestVersion_ != 0) return displayRequestVersion_;
  if (!supportsCameraBackDisplay()) return 0;
  PassThroughTransaction transaction({.method = "displayRequestVersion",
                                      .operation = ptp::XT_GET_DISPLAY_REQUEST_VERSION,
                                      .responseParameters = 1});
  if (!run(transaction)) {
    displayRequestVersion_ = 0;
    raisePTPException("XT_GET_DISPLAY_REQUEST_VERSION failed", transaction);
  }
  displayRequestVersion_ = static_cast<std::uint16_t>(transaction.responseParameter(0));
  TraceLog::trace("Display Request Version: %i", displayRequestVersion_);
  return displayRequestVersion_;
}

bool XTImageCapturePTPDevice::doesLCBInfoWork() {
  if (!containsCode(operationList_, ptp::XTO_GET_LCB_INFO)) return false;
  PassThroughTransaction transaction({.method = "doesLCBInfoWork",
                                      .operation = ptp::XTO_GET_LCB_INFO,
                                      .dataUsageMode = kDataFromDevice,
                                      .room = kLCBInfoRoom});
  // Its failure is the answer; nothing is raised for it.
  run(transaction);
  // What the 12 bytes mean is of no matter, only that the device gives them.
  return transaction.responseCode() == status::kPTPOK;
}

Status XTImageCapturePTPDevice::displayRequest(XTMutablePTPDataSet& request) {
  request.adjustToAvoidModulo64PayloadSize();
  PassThroughTransaction transaction({.method = "displayRequest",
                                      .headerFailure = "displayRequest XTO_DISPLAY_REQUEST",
                                      .operation = ptp::XTO_DISPLAY_REQUEST,
                                      .dataUsageMode = kDataToDevice,
                                      .data = request.bytes()});
  // The response itself also after success: intended, see docs/oddities.md.
  return run(transaction) ? status::kPTPOK : transaction.outcome();
}

// Not kept, unlike the display-request version: it is asked for before a favourite is sent, which
// is rare.
std::uint16_t XTImageCapturePTPDevice::bragbookVersion() {
  if (!capabilities().deviceSupportsBragbooks) return 0;
  PassThroughTransaction transaction({.method = "bragbookVersion",
                                      .headerFailure = "bragbookVersion XTO_GET_BRAGBOOK_VERSION",
                                      .operation = ptp::XTO_GET_BRAGBOOK_VERSION,
                                      .responseParameters = 2});
  if (!run(transaction)) return 0;
  const auto version = static_cast<std::uint16_t>(transaction.responseParameter(0));
  TraceLog::trace("Bragbook Version: %i", version);
  return version;
}

Status XTImageCapturePTPDevice::addressBookInfo(XT_AddressBookInfo& info) {
  if (!supportsAddressBooks()) return status::kPTPOperationNotSupported;
  if (cachedABInfo_.version != 0) {
    info = cachedABInfo_;
    return status::kOK;
  }
  std::size_t received = 0;
  return readAddressBookInfo(info, received, false);
}

Status XTImageCapturePTPDevice::readAddressBookInfo(XT_AddressBookInfo& info, std::size_t& received,
                                                    bool isTraced) {
  // The one operation that has a status for missing memory.
  try {
    PassThroughTransaction transaction(
        {.method = "addressBookInfo",
         .headerFailure = "addressBookInfo XTO_GET_ADDRESS_BOOK_INFO",
         .operation = ptp::XTO_GET_ADDRESS_BOOK_INFO,
         .dataUsageMode = kDataFromDevice,
         .room = kAddressBookInfoRoom});
    if (!run(transaction)) return transaction.outcome();
    received = transaction.received().size();
    if (isTraced) {
      TraceLog::trace("addressBookDict: dataSize: %i", static_cast<int>(received));
      traceBytes(transaction.received());
    }
    auto reader = transaction.reader();
    cachedABInfo_ = scanAddressBookInfo(reader);
    if (transaction.wasShort(reader)) lastOutcome_ = status::kPTPIncompleteTransfer;
  } catch (const Exception& exception) {
    if (exception.name() != exception_name::kMalloc) throw;
    TraceLog::trace("No memory!");
    return status::kOutOfMemory;
  }
  info = cachedABInfo_;
  return status::kOK;
}

Status XTImageCapturePTPDevice::sendDeviceReset() {
  // The trace names the code of another operation: intended, see docs/oddities.md.
  PassThroughTransaction transaction(
      {.method = "sendDeviceReset",
       .headerFailure = formatted("sendDeviceReset (opcode 0x%x)", unsigned{ptp::kFormatStore}),
       .resultFailure = "sendDeviceReset",
       .operation = ptp::kResetDevice});
  if (!run(transaction)) return transaction.outcome();
  // Handles may be given anew, and the session has ended (ISO 15740, ResetDevice): the service
  // opens another for the next operation.
  storesChanged();
  contentsChanged();
  return status::kOK;
}

namespace {

constexpr std::uint8_t kUnknownBatteryLevel = 255;

/// The handle that a reference is; none for anything else, and for 0, which names no object.
std::optional<std::uint32_t> objectHandle(const ObjectReference& object) {
  if (!object.is_number_integer()) return std::nullopt;
  const auto number = object.get<std::int64_t>();
  if (number <= 0 || number > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(number);
}

}  // namespace

std::int32_t XTImageCapturePTPDevice::imageCount() {
  return imageCountPTP();
}

std::optional<ObjectReferences> XTImageCapturePTPDevice::pictureFiles() {
  return pictureFilesOnStore(ptp::kAllStores);
}

PropertyDictionary XTImageCapturePTPDevice::getPictureFileSizesDict() {
  // One transaction for all of them, where the device has it.
  return containsCode(operationList_, ptp::XTO_GET_PICTURE_FILE_SIZES)
             ? getPictureFileSizesDictPTP()
             : XTPictureDevice::getPictureFileSizesDict();
}

std::uint8_t XTImageCapturePTPDevice::batteryLevel() {
  auto value = propertyValueDataSet(ptp::kBatteryLevel);
  return value && value->length() > 0 ? value->scanByte() : kUnknownBatteryLevel;
}

bool XTImageCapturePTPDevice::isDocked() {
  return isDockedPTP();
}

bool XTImageCapturePTPDevice::isWireless() {
  return isWirelessPTP();
}

ObjectInfoPointer XTImageCapturePTPDevice::objectInfoForHandle(const ObjectReference& object) {
  ObjectInfoPointer info;
  if (const auto handle = objectHandle(object)) objectInfo(info, *handle);
  return info;
}

bool XTImageCapturePTPDevice::isProtected(const ObjectReference& object) {
  const auto info = objectInfoForHandle(object);
  return info && info->protectionStatus() != 0;
}

// The three below ask for the same information, of which only the first costs a transaction.

std::int64_t XTImageCapturePTPDevice::thumbSize(const ObjectReference& object) {
  const auto info = objectInfoForHandle(object);
  return info ? info->thumbCompressedSize() : 0;
}

std::int64_t XTImageCapturePTPDevice::objectSize(const ObjectReference& object) {
  const auto info = objectInfoForHandle(object);
  return info ? info->compressedSize() : 0;
}

std::optional<std::string> XTImageCapturePTPDevice::objectFilename(const ObjectReference& object) {
  const auto info = objectInfoForHandle(object);
  return info ? std::optional(info->fileName()) : std::nullopt;
}

Status XTImageCapturePTPDevice::downloadImage(const ObjectReference& object,
                                              const std::string& destination) {
  const auto handle = objectHandle(object);
  return handle ? downloadImagePTP(*handle, destination) : status::kPTPInvalidObjectHandle;
}

Status XTImageCapturePTPDevice::downloadFile(const ObjectReference& object,
                                             const std::string& destination) {
  const auto handle = objectHandle(object);
  return handle ? downloadFilePTP(*handle, destination) : status::kPTPInvalidObjectHandle;
}

std::optional<ByteBuffer> XTImageCapturePTPDevice::downloadObject(const ObjectReference& object) {
  const auto handle = objectHandle(object);
  // Unlike downloadObjectData(), also from a device without GetPartialObject, and texts alone.
  if (!handle) return std::nullopt;
  return ObjectDownloads(*this, kMostBytesOfTextFile).data(*handle);
}

Status XTImageCapturePTPDevice::deleteObject(const ObjectReference& object) {
  const auto handle = objectHandle(object);
  return handle ? deleteObjectPTP(*handle) : status::kPTPInvalidObjectHandle;
}

Status XTImageCapturePTPDevice::deleteFilesOfType(std::uint16_t type) {
  if (icaObject() == 0) {
    TraceLog::trace("deleteFilesOfType couldn't get an ICA object");
    return status::kPTPSessionNotOpen;
  }
  // Nothing to delete is no failure; not knowing what there is, is one.
  ObjectHandles handles;
  Status status = listObjects(*this, type, handles);
  for (auto handle = handles.begin(); status == status::kOK && handle != handles.end(); ++handle)
    status = deleteObjectPTP(*handle);
  return status;
}

namespace {

/// Bytes of rows that may come when a query is let go; they are of no use.
constexpr std::uint32_t kEndOfQueryRoom = 64;

}  // namespace

Status XTImageCapturePTPDevice::sendQuery(std::string_view query, std::uint32_t* resultHandle) {
  // What is no text would reach the device as replacement characters.
  if (utf8FromUTF16(utf16FromUTF8(query)) != query) {
    TraceLog::trace("Failed to extract query from NSString.");
    return status::kFileNotFound;
  }
  XTExtendedObjectInfo info;
  info.setCompressedSize(static_cast<std::uint32_t>(query.size()));
  info.setObjFmtCode(ptp::XTD_QUERY);
  // Always in one piece, and wherever the device keeps such objects.
  const Status status = sendData(std::as_bytes(std::span(query)), info, 0, 0, resultHandle);
  TraceLog::trace("sendQuery status: %d", status);
  return status;
}

Status XTImageCapturePTPDevice::getDBRowsFromQuery(std::uint32_t query, std::uint32_t sqlOp,
                                                   std::uint32_t maxSize, ByteBuffer& data,
                                                   bool& endOfData) {
  return getDBRows({query, sqlOp, 0, maxSize}, data, endOfData);
}

Status XTImageCapturePTPDevice::endQuery(std::uint32_t query, std::uint32_t sqlOp) {
  ByteBuffer scratch;
  bool endOfData = false;
  return getDBRows({query, sqlOp, 1, kEndOfQueryRoom}, scratch, endOfData);
}

Status XTImageCapturePTPDevice::getDBRows(const DBRowsRequest& request, ByteBuffer& data,
                                          bool& endOfData) {
  const std::size_t before = data.size();
  Status outcome = status::kOK;
  {
    // Straight behind the rows that are there already; the sink gives back what it did not fill.
    BufferSink sink(data, request.maxSize);
    PassThroughTransaction transaction(
        {.method = "getDBRowsFromQuery",
         .headerFailure = "getDBRowsFromQuery XTO_GET_DB_ROWS",
         .operation = ptp::XTO_GET_DB_ROWS,
         .parameters = {request.query, request.sqlOp, request.finalize, request.maxSize},
         .responseParameters = 2,
         .dataUsageMode = kDataFromDevice,
         .room = request.maxSize,
         .sink = &sink});
    if (run(transaction)) endOfData = transaction.responseParameter(1) != 0;
    outcome = transaction.outcome();
  }
  // Rows of a transaction that failed may be cut.
  if (outcome != status::kOK) data.resize(before);
  return outcome;
}

namespace {

// Enough for a text of full length with its choices; what is longer is cut, and raises when read.
constexpr std::size_t kPropertyRoom = 2048;

}  // namespace

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::propertyDataSet(std::uint16_t property) {
  return propertyBytes(property, ptp::kGetDevicePropDesc, "propertyDataSet");
}

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::propertyValueDataSet(std::uint16_t property) {
  return propertyBytes(property, ptp::kGetDevicePropValue, "propertyValueDataSet");
}

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::propertyBytes(std::uint16_t property,
                                                                   std::uint16_t operation,
                                                                   const char* method) {
  // Not asked on the chance: some devices do not survive a property that they do not know.
  if (!containsCode(propertyList_, property)) return std::nullopt;
  // The failures of both operations are traced under one name: intended, see docs/oddities.md.
  PassThroughTransaction transaction(
      {.method = method,
       .headerFailure = formatted("propertyDataSet GetDevicePropInfo %04X", property),
       .resultFailure = "propertyDataSet GetDevicePropInfo",
       .operation = operation,
       .parameters = {property},
       .dataUsageMode = kDataFromDevice,
       .room = kPropertyRoom});
  if (!run(transaction)) return std::nullopt;
  // A copy of what was received, so that it outlives the record and a cut one is noticed.
  auto dataSet = XTPTPDataSet::initWithData(transaction.received());
  dataSet.setByteOrder(kPTPByteOrder);
  return dataSet;
}

Status XTImageCapturePTPDevice::setProperty(std::uint16_t property,
                                            std::span<const std::byte> value) {
  // A value is small, so it may be copied for its padding.
  const auto padded = dataAdjustedToAvoidModulo64PayloadSize({value.begin(), value.end()});
  // The reason names another operation: intended, see docs/oddities.md.
  PassThroughTransaction transaction({.method = "setProperty",
                                      .headerFailure = "setProperty SetDevicePropValue",
                                      .operation = ptp::kSetDevicePropValue,
                                      .parameters = {property},
                                      .dataUsageMode = kDataToDevice,
                                      .data = padded,
                                      .mallocFailure = "malloc failed in getDataSet."});
  run(transaction);
  return transaction.outcome();
}

}  // namespace tarvo
