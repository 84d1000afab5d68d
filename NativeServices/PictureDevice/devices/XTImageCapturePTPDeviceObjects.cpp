// Stores and objects of a PTP device: what is there, what is said of it, and what goes.
#include <algorithm>
#include <limits>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/PTPObjectReader.h"

namespace tarvo {
namespace {

// Rooms in bytes.
// As large as the devices' answers get: 31 stores, and texts of full length.
constexpr std::size_t kStorageIDsRoom = 128;
constexpr std::size_t kStorageInfoRoom = 1176;
/// The fixed fields; the texts behind them are not read.
constexpr std::size_t kStorageInfoRead = 154;
constexpr std::size_t kObjectInfoRoom = 2356;

/// Of an array of `count` elements of four bytes.
constexpr std::size_t roomForArray(std::int32_t count) {
  return 4 * static_cast<std::size_t>(count) + 4;
}

/// 0 is no id at all and the device's to refuse.
bool hasNoLogicalStore(std::uint32_t store) {
  return store != 0 && !ptp::hasLogicalStore(store);
}

/// A format of objects as the device gets it.
std::uint32_t formatParameter(std::uint16_t type) {
  constexpr std::uint32_t kEveryPicture = 0xFFFFFFFF;
  return type == ptp::kAllImageFormats ? kEveryPicture : type;
}

void traceNumbers(const char* label, const std::vector<std::uint32_t>& numbers,
                  const char* format) {
  // There may be a hundred thousand.
  if (!TraceLog::isActive()) return;
  std::string line = label;
  for (const std::uint32_t number : numbers) {
    line += ' ';
    line += format[0] == 'x' ? formatted("0x%08X", number) : formatted("%u", number);
  }
  TraceLog::trace("%s", line.c_str());
}

}  // namespace

// Kept in the base class, where a card that comes or goes drops it.
std::optional<std::vector<std::uint32_t>> XTImageCapturePTPDevice::storageIDs() {
  if (fields_.storageIDCache) return fields_.storageIDCache;
  PassThroughTransaction transaction({.method = "storageIDs",
                                      .headerFailure = "storageIDs GetStorageIDs",
                                      .operation = ptp::kGetStorageIDs,
                                      .dataUsageMode = kDataFromDevice,
                                      .room = kStorageIDsRoom});
  if (!run(transaction)) return std::nullopt;
  auto reader = transaction.reader();
  // Also a list that was cut: its end shows as a store of 0, which callers take for that.
  fields_.storageIDCache = reader.scanUInt32Array();
  transaction.wasShort(reader);
  return fields_.storageIDCache;
}

std::shared_ptr<const PTPStorageInfo> XTImageCapturePTPDevice::storageInfo(
    std::uint32_t storageID) {
  PassThroughTransaction transaction({.method = "getStorageInfo",
                                      .headerFailure = "getStorageInfo GetStorageInfo",
                                      .operation = ptp::kGetStorageInfo,
                                      .parameters = {storageID},
                                      .dataUsageMode = kDataFromDevice,
                                      .room = kStorageInfoRoom});
  if (!run(transaction)) return nullptr;
  auto reader = transaction.reader(kStorageInfoRead);
  // Not kept: the free space changes with every picture.
  auto info = scanStorageInfo(reader);
  transaction.wasShort(reader);
  return info;
}

Status XTImageCapturePTPDevice::formatStore(std::uint32_t storageID) {
  PassThroughTransaction transaction(
      {.method = "formatStore",
       .headerFailure = formatted("formatStore (opcode 0x%x)", unsigned{ptp::kFormatStore}),
       .resultFailure = "formatStore",
       .operation = ptp::kFormatStore,
       .parameters = {storageID}});
  run(transaction);
  // Also after a failure: some of it may be gone.
  fields_.objectInfoCache.clear();
  contentsChanged();
  return transaction.outcome();
}

std::int32_t XTImageCapturePTPDevice::numberOfObjectsOnStore(std::uint32_t store,
                                                             std::uint16_t type) {
  return numberOfObjects({store, type});
}

std::int32_t XTImageCapturePTPDevice::numberOfObjectsOnStore(std::uint32_t store,
                                                             std::uint16_t type,
                                                             std::uint32_t association) {
  return numberOfObjects({store, type, association});
}

std::optional<ObjectHandles> XTImageCapturePTPDevice::objectHandlesOnStore(std::uint32_t store,
                                                                           std::uint16_t type) {
  const ObjectQuery query{store, type};
  return objectHandles(query, numberOfObjects(query));
}

std::optional<ObjectHandles> XTImageCapturePTPDevice::objectHandlesOnStore(
    std::uint32_t store, std::uint16_t type, std::uint32_t association) {
  // The room is for all formats: intended, see docs/oddities.md.
  return objectHandles({store, type, association}, numberOfObjects({store, 0, association}));
}

std::vector<std::uint32_t> XTImageCapturePTPDevice::ObjectQuery::parameters() const {
  const std::uint32_t format = formatParameter(type);
  // Without a format the parameter is left out, unless another follows it.
  if (association) return {store, format, *association};
  if (type != 0) return {store, format};
  return {store};
}

std::int32_t XTImageCapturePTPDevice::numberOfObjects(const ObjectQuery& query) {
  TraceLog::trace("numberOfObjectsOnStore - entered");
  // A slot without a card. Some devices answer for all stores then, which would be a lie.
  if (hasNoLogicalStore(query.store)) {
    lastOutcome_ = status::kPTPInvalidStorageID;
    return -1;
  }
  PassThroughTransaction transaction({.method = "numberOfObjectsOnStore",
                                      .headerFailure = "numberOfObjectsOnStore GetNumObjects",
                                      .operation = ptp::kGetNumObjects,
                                      .parameters = query.parameters(),
                                      .responseParameters = 1,
                                      .untracedResponse = status::kPTPInvalidObjectFormatCode});
  // Of a format that the device does not know it holds nothing.
  if (!run(transaction)) return lastOutcome_ == status::kPTPInvalidObjectFormatCode ? 0 : -1;
  const auto count = static_cast<std::int32_t>(transaction.responseParameter(0));
  TraceLog::trace("\t\t\t\t  Number of Objects: %i", count);
  return count;
}

// The count costs one transaction more, but gives the room: the service drops what does not fit.
std::optional<ObjectHandles> XTImageCapturePTPDevice::objectHandles(const ObjectQuery& query,
                                                                    std::int32_t count) {
  // Nothing is asked of a device that has nothing.
  if (count <= 0) return ObjectHandles();
  auto handles = arrayOfObjects({.method = "objectHandlesOnStore",
                                 .headerFailure = "objectHandlesOnStore GetObjectHandles",
                                 .operation = ptp::kGetObjectHandles,
                                 .parameters = query.parameters()},
                                "objectHandlesOnStore:ofType:", count);
  if (handles) traceNumbers("Object Handles:", *handles, "x");
  return handles;
}

Status XTImageCapturePTPDevice::listHandles(std::uint32_t store, std::uint16_t format,
                                            std::uint32_t association, ObjectHandles& handles) {
  handles.clear();
  if (hasNoLogicalStore(store)) return lastOutcome_ = status::kPTPInvalidStorageID;
  PassThroughTransaction transaction({.method = "listHandles",
                                      .headerFailure = "listHandles GetObjectHandles",
                                      .operation = ptp::kGetObjectHandles,
                                      .parameters = {store, formatParameter(format), association},
                                      .dataUsageMode = kDataFromDevice,
                                      // Memory that is not touched costs nothing, so the most that
                                      // is taken is asked for.
                                      .room = roomForArray(kMostObjects),
                                      .untracedResponse = status::kPTPInvalidObjectFormatCode});
  if (!run(transaction)) return lastOutcome_;
  auto decoded = decodeHandles(transaction.received());
  if (!decoded) {
    TraceLog::trace("listHandles: the list ends after %zu bytes", transaction.received().size());
    return lastOutcome_ = status::kICAProtocolError;
  }
  handles = *std::move(decoded);
  traceNumbers("Object Handles:", handles, "x");
  return status::kOK;
}

std::optional<std::vector<std::uint32_t>> XTImageCapturePTPDevice::pictureFilesizeOnStore(
    std::uint32_t store, std::uint16_t type) {
  const std::int32_t count = numberOfObjects({store, type});
  if (count <= 0) return std::vector<std::uint32_t>();
  auto sizes = arrayOfObjects({.method = "pictureFilesizeOnStore",
                               .headerFailure = "pictureFilesizeOnStore XTO_GET_PICTURE_FILE_SIZES",
                               .operation = ptp::XTO_GET_PICTURE_FILE_SIZES,
                               .parameters = {store, formatParameter(type), 0}},  // always three
                              "pictureFilesizeOnStore:ofType:", count);
  if (sizes) traceNumbers("Picture FileSizes:", *sizes, "u");
  return sizes;
}

std::optional<std::vector<std::uint32_t>> XTImageCapturePTPDevice::arrayOfObjects(
    PTPRequest request, const char* selector, std::int32_t count) {
  // The count is the device's word, and may be any.
  const std::string noMemory = formatted("No memory for %d object handles", count);
  request.dataUsageMode = kDataFromDevice;
  request.room = roomForArray(count);
  request.mallocFailure = noMemory.c_str();
  request.untracedResponse = status::kPTPInvalidObjectFormatCode;
  std::optional<PassThroughTransaction> transaction;
  try {
    transaction.emplace(std::move(request));
  } catch (const Exception&) {
    TraceLog::trace("%s:%s %s", std::string(className()).c_str(), selector, noMemory.c_str());
    throw;
  }
  if (!run(*transaction)) {
    if (lastOutcome_ == status::kPTPInvalidObjectFormatCode) return std::vector<std::uint32_t>();
    return std::nullopt;
  }
  auto reader = transaction->reader();
  auto elements = reader.scanUInt32Array();
  // The result may look as if there were fewer, or none.
  if (transaction->wasShort(reader)) lastOutcome_ = status::kPTPIncompleteTransfer;
  return elements;
}

Status XTImageCapturePTPDevice::objectInfo(ObjectInfoPointer& info, std::uint32_t handle) {
  // Real cameras take 50 to 170 ms for one, so each is asked for once.
  ObjectInfoPointer found = cachedInfoForObject(handle);
  if (!found) {
    // Once more, for a device that does not know the extended form.
    Status status = objectInfoUncached(found, handle, true);
    if (status != status::kOK) status = objectInfoUncached(found, handle, false);
    if (status != status::kOK) return status;
    cacheObject(handle, found);
  }
  info = std::move(found);
  return status::kOK;
}

Status XTImageCapturePTPDevice::objectInfoUncached(ObjectInfoPointer& info, std::uint32_t handle,
                                                   bool) {
  PassThroughTransaction transaction({.method = "objectInfoUncached",
                                      .headerFailure = "objectInfoUncached GetObjectInfo",
                                      .operation = ptp::kGetObjectInfo,
                                      .parameters = {handle},
                                      .dataUsageMode = kDataFromDevice,
                                      .room = kObjectInfoRoom});
  if (!run(transaction)) return transaction.outcome();
  auto reader = transaction.reader();
  // Never the extension, which is written but not read this way.
  cachedObjectInfo_ =
      std::make_shared<XTExtendedObjectInfo>(XTExtendedObjectInfo::initWithDataSet(reader, false));
  cachedObject_ = handle;
  if (transaction.wasShort(reader)) lastOutcome_ = status::kPTPIncompleteTransfer;
  info = cachedObjectInfo_;
  return status::kOK;
}

// One answer for both bases, which declare it apart.
void XTImageCapturePTPDevice::invalidateInfoCacheForObject(std::uint32_t handle) {
  XTPictureDevice::invalidateInfoCacheForObject(handle);
}

// The service has lists of its own and does not look into what passes through it.
void XTImageCapturePTPDevice::contentsChanged() {
  invalidateCachedCountsUsedForDatasetSizes();
  forgetContents();
}

Status XTImageCapturePTPDevice::deleteObject(std::uint32_t handle, std::uint16_t format,
                                             std::uint16_t opcode) {
  if (handle == 0) {
    TraceLog::trace("deleteIcaObject was passed a nil object handle");
    return status::kBadParameter;
  }
  PassThroughTransaction transaction(
      {.method = "deleteIcaObject",
       .headerFailure = formatted("deleteIcaObject (opcode 0x%x)", unsigned{opcode}),
       .resultFailure = "deleteIcaObject",
       .operation = opcode,
       .parameters = {handle, format}});
  // Before it, so that nothing is kept whatever comes of it.
  invalidateInfoCacheForObject(handle);
  if (cachedObject_ == handle) {
    cachedObject_ = 0;
    cachedObjectInfo_.reset();
  }
  run(transaction);
  contentsChanged();
  return transaction.outcome();
}

Status XTImageCapturePTPDevice::updateExtObjectInfo(XTExtendedObjectInfo& info,
                                                    std::uint32_t handle) {
  if (handle == 0) {
    TraceLog::trace("updateExtObjectInfo was passed a nil object handle");
    return status::kBadParameter;
  }
  // With the extension where the information has one: that is what the operation is for.
  auto dataSet = info.dataSetWithByteOrder(kPTPByteOrder);
  dataSet.adjustToAvoidModulo64PayloadSize();
  PassThroughTransaction transaction(
      {.method = "updateExtObjectInfo",
       .headerFailure = "updateExtObjectInfo XTO_UPDATE_EXT_OBJECT_INFO",
       .operation = ptp::XTO_UPDATE_EXT_OBJECT_INFO,
       .parameters = {handle},
       .dataUsageMode = kDataToDevice,
       .data = dataSet.bytes(),
       .failureTrace = FailureTrace::kStatusAndResponse});
  run(transaction);
  // The information that was read before is not the device's any more.
  invalidateInfoCacheForObject(handle);
  return transaction.outcome();
}

}  // namespace tarvo
