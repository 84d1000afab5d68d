// What the interface of a picture device answers where a class does not provide an operation.
#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"

namespace tarvo {

namespace {

/// Logs that `selector` is not provided and gives back its default. Nothing is raised: callers go
/// on with the default.
template <typename Default>
Default subclassResponsibility(const XTPictureDevice& device, std::string_view selector,
                               Default value) {
  TraceLog::traceMethod(device.className(), selector, &device);
  TraceLog::trace("Subclass responsibility not overridden");
  return value;
}

}  // namespace

Status XTPictureDevice::displayOnDevice(std::string_view, std::string_view, std::string_view,
                                        std::string_view, std::string_view, std::string_view) {
  return status::kUnsupported;
}

Status XTPictureDevice::indicateFulfillment(std::uint32_t, std::uint32_t) {
  return status::kUnsupported;
}

const CodeList* XTPictureDevice::opCodeList() {
  return subclassResponsibility(*this, "opCodeList", nullptr);
}

const CodeList* XTPictureDevice::eventCodeList() {
  return subclassResponsibility(*this, "eventCodeList", nullptr);
}

const CodeList* XTPictureDevice::propertyList() {
  return subclassResponsibility(*this, "propertyList", nullptr);
}

const CodeList* XTPictureDevice::captureFormatList() {
  return subclassResponsibility(*this, "captureFormatList", nullptr);
}

const CodeList* XTPictureDevice::imageFormatList() {
  return subclassResponsibility(*this, "imageFormatList", nullptr);
}

std::uint8_t XTPictureDevice::batteryLevel() {
  return subclassResponsibility(*this, "batteryLevel", std::uint8_t{255});
}

Status XTPictureDevice::setDateTime() {
  return subclassResponsibility(*this, "setDateTime", status::kUnsupported);
}

Status XTPictureDevice::loadDeviceInfoUncached() {
  return subclassResponsibility(*this, "loadDeviceInfoUncached", status::kBadParameter);
}

std::unique_ptr<PTPPassThroughRecord> XTPictureDevice::deviceInfoDataset() {
  return subclassResponsibility(*this, "deviceInfoDataset", nullptr);
}

std::int32_t XTPictureDevice::imageCount() {
  return subclassResponsibility(*this, "imageCount", 0);
}

std::int32_t XTPictureDevice::squirtTransferCount() {
  return subclassResponsibility(*this, "squirtTransferCount", 0);
}

std::int32_t XTPictureDevice::squirtPrintCount() {
  return subclassResponsibility(*this, "squirtPrintCount", 0);
}

std::int32_t XTPictureDevice::squirtEmailCount() {
  return subclassResponsibility(*this, "squirtEmailCount", 0);
}

std::int32_t XTPictureDevice::numberOfObjectsOnStore(std::uint32_t, std::uint16_t) {
  return subclassResponsibility(*this, "numberOfObjectsOnStore:ofType:", -1);
}

std::int32_t XTPictureDevice::numberOfObjectsOnStore(std::uint32_t, std::uint16_t, std::uint32_t) {
  return subclassResponsibility(*this, "numberOfObjectsOnStore:ofType:withAssociation:", 0);
}

std::optional<ObjectReferences> XTPictureDevice::pictureFiles() {
  return subclassResponsibility(*this, "pictureFiles", std::nullopt);
}

std::optional<std::vector<std::string>> XTPictureDevice::orderFiles() {
  return subclassResponsibility(*this, "orderFiles", std::nullopt);
}

std::optional<EmailOrders> XTPictureDevice::emailOrderList() {
  return subclassResponsibility(*this, "emailOrderList", std::nullopt);
}

std::optional<PrintOrders> XTPictureDevice::printOrderList() {
  return subclassResponsibility(*this, "printOrderList", std::nullopt);
}

std::optional<std::vector<TransferOrder>> XTPictureDevice::transferOrderList() {
  return subclassResponsibility(*this, "transferOrderList", std::nullopt);
}

std::optional<std::vector<std::uint32_t>> XTPictureDevice::storageIDs() {
  return subclassResponsibility(*this, "storageIDs", std::nullopt);
}

std::shared_ptr<const PTPStorageInfo> XTPictureDevice::storageInfo(std::uint32_t) {
  return subclassResponsibility(*this, "storageInfo:", nullptr);
}

Status XTPictureDevice::addressBookInfo(XT_AddressBookInfo&) {
  return subclassResponsibility(*this, "addressBookInfo:", status::kOK);
}

std::optional<AddressBook> XTPictureDevice::addressBookDictUncached() {
  return subclassResponsibility(*this, "addressBookDictUncached", std::nullopt);
}

Status XTPictureDevice::setAddressBookDict(AddressBook&) {
  return subclassResponsibility(*this, "setAddressBookDict:", status::kUnsupported);
}

Status XTPictureDevice::setAddressBook(const std::string&) {
  return subclassResponsibility(*this, "setAddressBook:", status::kUnsupported);
}

std::int64_t XTPictureDevice::thumbSize(const ObjectReference&) {
  return subclassResponsibility(*this, "thumbSize:", 0);
}

std::int64_t XTPictureDevice::objectSize(const ObjectReference&) {
  return subclassResponsibility(*this, "objectSize:", 0);
}

std::optional<std::string> XTPictureDevice::objectFilename(const ObjectReference&) {
  return subclassResponsibility(*this, "objectFilename:", std::nullopt);
}

std::shared_ptr<XTExtendedObjectInfo> XTPictureDevice::objectInfoForHandle(const ObjectReference&) {
  return subclassResponsibility(*this, "objectInfoForHandle:", nullptr);
}

Status XTPictureDevice::objectInfo(std::shared_ptr<XTExtendedObjectInfo>&, std::uint32_t) {
  return subclassResponsibility(*this, "objectInfo:forHandle:", status::kNotRecognised);
}

std::optional<std::string> XTPictureDevice::hostObjectWrapperFile() {
  return subclassResponsibility(*this, "hostObjectWrapperFile", std::nullopt);
}

std::optional<ByteBuffer> XTPictureDevice::downloadThumb(const ObjectReference&) {
  return subclassResponsibility(*this, "downloadThumb:", std::nullopt);
}

Status XTPictureDevice::downloadImage(const ObjectReference&, const std::string&) {
  return subclassResponsibility(*this, "downloadImage:destination:", status::kUnsupported);
}

Status XTPictureDevice::downloadFile(const ObjectReference&, const std::string&) {
  return subclassResponsibility(*this, "downloadFile:destination:", status::kUnsupported);
}

std::optional<ByteBuffer> XTPictureDevice::downloadObject(const ObjectReference&) {
  return subclassResponsibility(*this, "downloadObject:", std::nullopt);
}

Status XTPictureDevice::sendObjectInfo(XTExtendedObjectInfo&, std::uint32_t, std::uint32_t,
                                       std::uint32_t*) {
  return subclassResponsibility(
      *this, "sendObjectInfo:storage:parent:resultHandle:", status::kBadParameter);
}

Status XTPictureDevice::updateExtObjectInfo(XTExtendedObjectInfo&, std::uint32_t) {
  return subclassResponsibility(*this, "updateExtObjectInfo:objectHandle:", status::kBadParameter);
}

Status XTPictureDevice::sendObjectData(std::span<const std::byte>) {
  return subclassResponsibility(*this, "sendObjectData:", status::kBadParameter);
}

Status XTPictureDevice::deleteFilesOfType(std::uint16_t) {
  return subclassResponsibility(*this, "deleteFilesOfType:", status::kUnsupported);
}

Status XTPictureDevice::deleteOrderFiles() {
  return subclassResponsibility(*this, "deleteOrderFiles", status::kUnsupported);
}

Status XTPictureDevice::deleteBragbookFiles() {
  return subclassResponsibility(*this, "deleteBragbookFiles", status::kPTPInvalidObjectFormatCode);
}

Status XTPictureDevice::deleteHostObjectWrapperFiles() {
  return subclassResponsibility(*this, "deleteHostObjectWrapperFiles",
                                status::kPTPInvalidObjectFormatCode);
}

// An operation that no class has to provide: it is also reported as not recognised.
Status XTPictureDevice::formatStore(std::uint32_t) {
  subclassResponsibility(*this, "formatStore:", status::kBadParameter);
  TraceLog::trace("-[%s formatStore:]: unrecognized selector sent to instance %p",
                  std::string(className()).c_str(), static_cast<const void*>(this));
  return status::kBadParameter;
}

}  // namespace tarvo
