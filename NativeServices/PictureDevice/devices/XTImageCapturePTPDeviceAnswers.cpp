// What the base class asks of a device, answered by what PTP has for it.
#include <limits>
#include <optional>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

constexpr std::uint8_t kUnknownBatteryLevel = 255;

/// The handle that a reference is; none for anything else, and for 0, which names no object.
std::optional<std::uint32_t> handleOf(const ObjectReference& object) {
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
  if (const auto handle = handleOf(object)) objectInfo(info, *handle);
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
  const auto handle = handleOf(object);
  return handle ? downloadImagePTP(*handle, destination) : status::kPTPInvalidObjectHandle;
}

Status XTImageCapturePTPDevice::downloadFile(const ObjectReference& object,
                                             const std::string& destination) {
  const auto handle = handleOf(object);
  return handle ? downloadFilePTP(*handle, destination) : status::kPTPInvalidObjectHandle;
}

std::optional<ByteBuffer> XTImageCapturePTPDevice::downloadObject(const ObjectReference& object) {
  const auto handle = handleOf(object);
  // Unlike downloadObjectData(), also from a device without GetPartialObject.
  return handle ? downloadObjectDataPTP(*handle) : std::nullopt;
}

Status XTImageCapturePTPDevice::deleteObject(const ObjectReference& object) {
  const auto handle = handleOf(object);
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

}  // namespace tarvo
