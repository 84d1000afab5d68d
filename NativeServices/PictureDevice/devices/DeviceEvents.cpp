#include "NativeServices/PictureDevice/devices/DeviceEvents.h"

#include <algorithm>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

constexpr std::int32_t kUnknownCount = -1;

/// What can be dropped, by subject.
class StaleCaches {
 public:
  StaleCaches(PictureDeviceFields& fields, PTPTransactions* device)
      : fields_(fields), device_(device) {}

  void dropObject(std::uint32_t handle) {
    fields_.objectInfoCache.erase(handle);
    // The device keeps the last object information apart from the cache.
    if (device_ != nullptr) device_->invalidateInfoCacheForObject(handle);
  }

  /// The objects of a store; of every store where the device does not name one.
  void dropObjectsOfStore(std::uint32_t store) {
    const bool isNamed = store != 0 && store != ptp::kAllStores;
    // Collected first, since dropping changes what is gone through.
    std::vector<std::uint32_t> handles;
    for (const auto& [handle, info] : fields_.objectInfoCache) {
      if (!isNamed || info->storageID() == store) handles.push_back(handle);
    }
    for (const std::uint32_t handle : handles)
      dropObject(handle);
  }

  void dropStores() {
    fields_.storageIDCache.reset();
    // The counts are over all stores.
    forgetCounts(fields_);
  }

  // Only these two are kept; every other property is asked for each time.
  void dropProperty(std::uint32_t property, const MakerConstants& maker) {
    constexpr std::uint32_t kDefaultCollectionID = 0xD204;
    if (property == kDefaultCollectionID) fields_.cachedDefaultCollectionID.reset();
    if (property == maker.uiLanguageProperty) fields_.cachedUILanguage.reset();
  }

  void dropAll() {
    dropObjectsOfStore(ptp::kAllStores);
    dropStores();
    fields_.cachedUILanguage.reset();
    fields_.cachedDefaultCollectionID.reset();
  }

 private:
  PictureDeviceFields& fields_;
  PTPTransactions* device_;
};

}  // namespace

void forgetCounts(PictureDeviceFields& fields) {
  for (std::int32_t* count : {&fields.cachedImageCountForDatasetSizeEstimate,
                              &fields.cachedAlbumCountForDatasetSizeEstimate,
                              &fields.cachedEmailOrderCountForDatasetSizeEstimate,
                              &fields.cachedPrintOrderCountForDatasetSizeEstimate,
                              &fields.cachedTransferOrderCountForDatasetSizeEstimate,
                              &fields.cachedAudioAnnotationCountForDatasetSizeEstimate}) {
    *count = kUnknownCount;
  }
}

void dropWhatEventMakesStale(PictureDeviceFields& fields, PTPTransactions* device,
                             const MakerConstants& maker, std::uint16_t code,
                             std::span<const std::uint32_t> parameters) {
  const std::uint32_t subject = parameters.empty() ? 0 : parameters.front();
  StaleCaches caches(fields, device);
  switch (code) {
    case ptp::kObjectAdded:
    case ptp::kObjectRemoved:
      // A handle may be given a second time after a removal, so an addition makes stale, too.
      caches.dropObject(subject);
      // Counts are only estimates for the room of an answer, but one that is too small cuts it.
      forgetCounts(fields);
      break;
    case ptp::kObjectInfoChanged:
      caches.dropObject(subject);
      break;
    case ptp::kStoreAdded:
    case ptp::kStoreRemoved:
      caches.dropObjectsOfStore(subject);
      caches.dropStores();
      break;
    case ptp::kStorageInfoChanged:
      // Free space is asked for each time; how many objects there are is kept.
      caches.dropStores();
      break;
    case ptp::kDevicePropChanged:
      caches.dropProperty(subject, maker);
      break;
    case ptp::kDeviceReset:
    // Unreported status (ISO 15740): the device has lost count of what it should have told, so
    // nothing that is kept can be trusted.
    case ptp::kUnreportedStatus:
      caches.dropAll();
      break;
    default:
      break;
  }
}

}  // namespace tarvo
