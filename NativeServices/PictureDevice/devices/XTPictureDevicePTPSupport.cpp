// What a picture device does by PTP: each operation is done by a small class over the device's
// transactions, and answers for itself where the device has none.
#include <utility>

#include "NativeServices/PictureDevice/devices/DeviceEvents.h"
#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/DeviceLanguages.h"
#include "NativeServices/PictureDevice/operations/DevicePictures.h"
#include "NativeServices/PictureDevice/operations/DeviceProperties.h"
#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

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

}  // namespace tarvo
