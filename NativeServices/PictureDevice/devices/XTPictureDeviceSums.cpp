// What a picture device answers by asking its own operations: identity, stores in sum, and the
// chains of sending, downloading and deleting.
#include <utility>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/DeviceLanguages.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

constexpr std::uint16_t kDeviceUserName = 0xD202;
constexpr std::uint16_t kDefaultHostID = 0xD203;

// StorageType (ISO 15740, "StorageInfo dataset").
constexpr std::uint16_t kFixedROM = 1;
constexpr std::uint16_t kFixedRAM = 3;

/// The handle that a reference of a PTP device is.
std::optional<std::uint32_t> handleOf(const ObjectReference& object) {
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
  // The low 32 bits alone, which is intended.
  sum[prefix + "MemoryKey"] = static_cast<std::uint32_t>(info.maxCapacity);
  sum[prefix + "FreeKey"] = static_cast<std::uint32_t>(info.freeSpaceInBytes);
  sum[prefix + "ImagesKey"] = images;
}

}  // namespace

std::optional<std::string> XTPictureDevice::deviceID() {
  return GUIDProperty(ptp::kDeviceGUID);
}

std::optional<std::string> XTPictureDevice::defaultHostID() {
  // Not the property that setDefaultHostID() writes: this is intended.
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
  const auto handle = handleOf(object);
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
  return deleteObjectPTP(handleOf(object).value_or(0));
}

}  // namespace tarvo
