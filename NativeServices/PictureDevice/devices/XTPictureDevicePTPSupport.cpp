// What a picture device does by PTP: each operation is done by a small class over the device's
// transactions, and answers for itself where the device has none.
#include <utility>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/DeviceEvents.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/DeviceProperties.h"
#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

/// Infos of objects that are remembered at most, of half a kilobyte each.
constexpr std::size_t kMostRememberedObjects = 8192;

const MakerConstants& makerConstants() {
  return PictureDeviceRoom::required().services().maker;
}

/// The device's acquisitions while a download of a picture runs.
class Acquisition {
 public:
  explicit Acquisition(std::uint32_t& count) : count_(count) { ++count_; }
  ~Acquisition() { --count_; }
  Acquisition(const Acquisition&) = delete;
  Acquisition& operator=(const Acquisition&) = delete;

 private:
  std::uint32_t& count_;
};

/// The answer of `Part` (made over the transactions) where the device speaks PTP, else `otherwise`.
template <typename Part, typename Result, typename Question>
Result answerOf(PTPTransactions* device, Result otherwise, Question&& question) {
  if (device == nullptr) return otherwise;
  Part part(*device);
  return std::forward<Question>(question)(part);
}

}  // namespace

std::uint32_t XTPictureDevice::UInt32Property(std::uint16_t property) {
  return answerOf<DeviceProperties>(ptpTransactions(), std::uint32_t{0},
                                    [&](auto& it) { return it.UInt32Property(property); });
}

std::uint16_t XTPictureDevice::UInt16Property(std::uint16_t property) {
  return answerOf<DeviceProperties>(ptpTransactions(), std::uint16_t{0},
                                    [&](auto& it) { return it.UInt16Property(property); });
}

std::uint8_t XTPictureDevice::UInt8Property(std::uint16_t property) {
  return answerOf<DeviceProperties>(ptpTransactions(), std::uint8_t{0},
                                    [&](auto& it) { return it.UInt8Property(property); });
}

std::optional<std::string> XTPictureDevice::GUIDProperty(std::uint16_t property) {
  return answerOf<DeviceProperties>(ptpTransactions(), std::optional<std::string>(),
                                    [&](auto& it) { return it.GUIDProperty(property); });
}

std::optional<std::string> XTPictureDevice::stringProperty(std::uint16_t property) {
  return answerOf<DeviceProperties>(ptpTransactions(), std::optional<std::string>(),
                                    [&](auto& it) { return it.stringProperty(property); });
}

Status XTPictureDevice::setPropertyGuid(std::uint16_t property, const std::string& guid) {
  return answerOf<DeviceProperties>(ptpTransactions(), status::kPTPDevicePropNotSupported,
                                    [&](auto& it) { return it.setPropertyGuid(property, guid); });
}

Status XTPictureDevice::setPropertyString(std::uint16_t property, const std::string& text) {
  return answerOf<DeviceProperties>(ptpTransactions(), status::kPTPDevicePropNotSupported,
                                    [&](auto& it) { return it.setProperty(property, text); });
}

bool XTPictureDevice::hasIntention(std::uint32_t mask) {
  // The first costs no transaction.
  if (!supportsIntention() || !isWireless()) return false;
  return (mask & UInt32Property(ptp::kIntention)) != 0;
}

bool XTPictureDevice::hasSquirtTransferIntention() {
  constexpr std::uint32_t kTransfer = 2;
  return hasIntention(kTransfer) && !isDocked();  // the former is asked of wireless devices alone
}

bool XTPictureDevice::isDockedPTP() {
  // The standard has no property for it, so a device of which it is not known counts as undocked.
  const std::uint16_t property = makerConstants().dockedProperty;
  return property != 0 && UInt8Property(property) != 0;
}

bool XTPictureDevice::isWirelessPTP() {
  // The only thing in which PTP shows it: whoever holds settings for a network uses them.
  return ptpTransactions() != nullptr && canBeWireless();
}

std::string XTPictureDevice::languageCodeAsLanguageName(std::string_view code) {
  return languageNameOfCode(code);
}

std::optional<std::string> XTPictureDevice::deviceUILanguageSetting() {
  const std::uint16_t property = makerConstants().uiLanguageProperty;
  // Kept until the device reports that it has changed.
  if (!fields_.cachedUILanguage && property != 0) {
    fields_.cachedUILanguage = stringProperty(property);
  }
  return fields_.cachedUILanguage;
}

std::string XTPictureDevice::deviceLocalizationPTP() {
  return localizationForLanguage(deviceLocalization(), deviceUILanguageSetting());
}

std::optional<ByteBuffer> XTPictureDevice::downloadObjectDataPTP(std::uint32_t handle) {
  return answerOf<ObjectDownloads>(ptpTransactions(), std::optional<ByteBuffer>(),
                                   [&](auto& it) { return it.data(handle); });
}

Status XTPictureDevice::downloadFilePTP(std::uint32_t handle, const std::string& destination) {
  return answerOf<ObjectDownloads>(ptpTransactions(), status::kUnsupported,
                                   [&](auto& it) { return it.file(handle, destination); });
}

Status XTPictureDevice::downloadImagePTP(std::uint32_t handle, const std::string& destination) {
  // Counted for the warning of a device that goes meanwhile.
  const Acquisition acquisition(fields_.acquisitions);
  return answerOf<ObjectDownloads>(ptpTransactions(), status::kUnsupported,
                                   [&](auto& it) { return it.image(handle, destination); });
}

std::optional<std::string> XTPictureDevice::downloadObjectPTP(std::uint32_t handle) {
  return answerOf<ObjectDownloads>(ptpTransactions(), std::optional<std::string>(),
                                   [&](auto& it) { return it.temporaryFile(handle); });
}

Status XTPictureDevice::sendFilePTP(const std::string& path, std::uint32_t storage,
                                    std::uint32_t parent, std::uint32_t* resultHandle) {
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  return ObjectSending(*device, makerConstants())
      .sendFile(path, opCodeList(), storage, parent, resultHandle);
}

Status XTPictureDevice::sendFilePTP(const std::string& path, std::uint32_t storage,
                                    std::uint32_t parent, std::span<const std::byte> content,
                                    XTExtendedObjectInfo& info, std::uint32_t* resultHandle) {
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  return ObjectSending(*device, makerConstants())
      .sendContent(path, storage, parent, content, info, resultHandle);
}

Status XTPictureDevice::fillInObjInfo(XTExtendedObjectInfo& info, const std::string& path,
                                      const CodeList* supportedOperations, bool* xtSendRequired) {
  auto* device = ptpTransactions();
  if (device == nullptr) return status::kUnsupported;
  return tarvo::fillInObjInfo(info, path, supportedOperations, device->facts(), makerConstants(),
                              xtSendRequired);
}

bool XTPictureDevice::isBragbookFilename(std::string_view path) {
  return tarvo::isBragbookFilename(path);
}

Status XTPictureDevice::deleteObjectPTP(std::uint32_t handle) {
  if (ptpTransactions() == nullptr || opCodeList() == nullptr) return status::kUnsupported;
  const Status status = ObjectChanges(*ptpTransactions()).deleteObject(handle);
  // Whatever came of it: a deletion that failed may have gone half way.
  invalidateCachedCountsUsedForDatasetSizes();
  return status;
}

Status XTPictureDevice::deleteVendorObjectPTP(std::uint32_t handle) {
  if (ptpTransactions() == nullptr) return status::kUnsupported;
  const Status status = ObjectChanges(*ptpTransactions()).deleteVendorObject(handle);
  invalidateCachedCountsUsedForDatasetSizes();
  return status;
}

Status XTPictureDevice::renamePTPObject(std::uint32_t handle, const std::string& name) {
  return answerOf<ObjectChanges>(ptpTransactions(), status::kUnsupported,
                                 [&](auto& it) { return it.rename(handle, name); });
}

std::int32_t XTPictureDevice::imageCountPTP() {
  return answerOf<DevicePictures>(ptpTransactions(), std::int32_t{0},
                                  [](auto& it) { return it.count(); });
}

std::optional<ObjectReferences> XTPictureDevice::pictureFilesOnStore(std::uint32_t store) {
  const auto handles = answerOf<DevicePictures>(ptpTransactions(), std::optional<ObjectHandles>(),
                                                [&](auto& it) { return it.handles(store); });
  if (!handles) return std::nullopt;
  return ObjectReferences(handles->begin(), handles->end());
}

PropertyDictionary XTPictureDevice::getPictureFileSizesDictPTP() {
  return answerOf<DevicePictures>(ptpTransactions(), PropertyDictionary::object(),
                                  [](auto& it) { return it.fileSizes(); });
}

void XTPictureDevice::handlePTPEvent(std::uint16_t code, std::uint32_t session,
                                     std::uint32_t transaction,
                                     std::span<const std::uint32_t> params) {
  // First, for observers ask the device again.
  dropWhatEventMakesStale(fields_, ptpTransactions(), makerConstants(), code, params);
  postDeviceEventDict({{"code", code},
                       {"session", session},
                       {"transaction", transaction},
                       {"params", std::vector<std::uint32_t>(params.begin(), params.end())}});
}

void XTPictureDevice::postDeviceEventDict(const PropertyDictionary& event) {
  PictureDeviceRoom::required().services().center.post(
      {.name = "DeviceEvent", .object = shared_from_this(), .userInfo = event});
}

void XTPictureDevice::cacheObject(std::uint32_t handle,
                                  std::shared_ptr<XTExtendedObjectInfo> info) {
  // Asking again costs less than what a device with a million objects would have remembered.
  if (fields_.objectInfoCache.size() >= kMostRememberedObjects) fields_.objectInfoCache.clear();
  fields_.objectInfoCache[handle] = std::move(info);
}

std::shared_ptr<XTExtendedObjectInfo> XTPictureDevice::cachedInfoForObject(
    std::uint32_t handle) const {
  const auto found = fields_.objectInfoCache.find(handle);
  return found == fields_.objectInfoCache.end() ? nullptr : found->second;
}

void XTPictureDevice::invalidateInfoCacheForObject(std::uint32_t handle) {
  fields_.objectInfoCache.erase(handle);
}

void XTPictureDevice::invalidateObjectInfoCacheForType(std::uint16_t format) {
  std::erase_if(fields_.objectInfoCache,
                [&](const auto& entry) { return entry.second->objFmtCode() == format; });
}

void XTPictureDevice::invalidateCachedCountsUsedForDatasetSizes() {
  forgetCounts(fields_);
}

namespace {

constexpr std::uint16_t kDeviceUserName = 0xD202;
constexpr std::uint16_t kDefaultHostID = 0xD203;

// StorageType (ISO 15740, "StorageInfo dataset").
constexpr std::uint16_t kFixedROM = 1;
constexpr std::uint16_t kFixedRAM = 3;

/// The handle that a reference of a PTP device is.
std::optional<std::uint32_t> anyHandle(const ObjectReference& object) {
  if (!object.is_number_integer()) return std::nullopt;
  return static_cast<std::uint32_t>(object.get<std::int64_t>());
}

/// A reference as the key of a dictionary.
std::string keyOf(const ObjectReference& object) {
  return object.is_string() ? object.get<std::string>() : object.dump();
}

/// Adds a store under the keys of its kind, in place of an earlier one of that kind.
void addStore(PropertyDictionary& sum, const PTPStorageInfo& info, std::int32_t images) {
  const bool isFixed = info.storageType == kFixedROM || info.storageType == kFixedRAM;
  const std::string prefix = isFixed ? "XTPictureDeviceInternal" : "XTPictureDeviceRemovable";
  // The low 32 bits alone: intended, see docs/oddities.md.
  sum[prefix + "MemoryKey"] = static_cast<std::uint32_t>(info.maxCapacity);
  sum[prefix + "FreeKey"] = static_cast<std::uint32_t>(info.freeSpaceInBytes);
  sum[prefix + "ImagesKey"] = images;
}

}  // namespace

std::optional<std::string> XTPictureDevice::deviceID() {
  return GUIDProperty(ptp::kDeviceGUID);
}

std::optional<std::string> XTPictureDevice::defaultHostID() {
  // Not the property that setDefaultHostID() writes: intended, see docs/oddities.md.
  return GUIDProperty(ptp::kDeviceGUID);
}

Status XTPictureDevice::setDefaultHostID(const std::string& guid) {
  return setPropertyGuid(kDefaultHostID, guid);
}

std::optional<std::string> XTPictureDevice::deviceUserName() {
  return stringProperty(kDeviceUserName);
}

Status XTPictureDevice::setDeviceUserName(const std::string& name) {
  return setPropertyString(kDeviceUserName, name);
}

std::string XTPictureDevice::deviceLocalization() {
  if (!fields_.cachedDeviceLocalization) fields_.cachedDeviceLocalization = hostLocalization();
  return *fields_.cachedDeviceLocalization;
}

std::optional<PropertyDictionary> XTPictureDevice::storageInfoDict() {
  constexpr std::uint32_t kLogicalPart = 0xFFFF;
  std::optional<PropertyDictionary> sum;
  for (const std::uint32_t id : storageIDs().value_or(std::vector<std::uint32_t>())) {
    // A slot without a card has a physical part alone.
    // ISO 15740, StorageID: the upper half names the slot, the lower one what is in it.
    const auto info = (id & kLogicalPart) != 0 ? storageInfo(id) : nullptr;
    if (!info) continue;
    if (!sum) sum = PropertyDictionary::object();
    addStore(*sum, *info, numberOfObjectsOnStore(id, ptp::kAllImageFormats));
  }
  return sum;
}

PropertyDictionary XTPictureDevice::getPictureFileSizesDict() {
  auto sizes = PropertyDictionary::object();
  for (const auto& picture : pictureFiles().value_or(ObjectReferences()))
    sizes[keyOf(picture)] = objectSize(picture);
  return sizes;
}

void XTPictureDevice::setDownloadUpdateCb(ProgressCallback callback) {
  fields_.downloadUpdateCb = std::move(callback);
}

std::optional<ByteBuffer> XTPictureDevice::downloadObjectData(const ObjectReference& object) {
  const CodeList* operations = opCodeList();
  if (!operations || !containsCode(*operations, ptp::kGetPartialObject)) return std::nullopt;
  const auto handle = anyHandle(object);
  return handle ? downloadObjectDataPTP(*handle) : std::nullopt;
}

Status XTPictureDevice::sendFile(const std::string& path, std::uint32_t storage,
                                 std::uint32_t parent, std::uint32_t* resultHandle) {
  return sendFilePTP(path, storage, parent, resultHandle);
}

Status XTPictureDevice::sendData(std::span<const std::byte> data, XTExtendedObjectInfo& info,
                                 std::uint32_t storage, std::uint32_t parent,
                                 std::uint32_t* resultHandle) {
  // Not by the PTP operations alone: a class may send in a way of its own.
  if (!takesData(opCodeList(), capabilities())) return status::kUnsupported;
  std::uint32_t handle = 0;
  Status status = sendObjectInfo(info, storage, parent, &handle);
  if (status == status::kOK) status = sendObjectData(data);
  // A handle whose object has no bytes names nothing that the caller could use.
  if (status == status::kOK && resultHandle != nullptr) *resultHandle = handle;
  return status;
}

Status XTPictureDevice::deleteObject(const ObjectReference& object) {
  // 0 names no object; the device's class knows what to answer to that.
  return deleteObjectPTP(anyHandle(object).value_or(0));
}

}  // namespace tarvo
