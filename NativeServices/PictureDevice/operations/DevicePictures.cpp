#include "NativeServices/PictureDevice/operations/DevicePictures.h"

#include <algorithm>
#include <string>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

bool isPictureFormat(std::uint16_t format) {
  constexpr unsigned kStandardPictures = 0x38;
  constexpr unsigned kVendorPictures = 0xB8;
  const unsigned kind = format >> 8U;
  return kind == kStandardPictures || kind == kVendorPictures;
}

std::int32_t DevicePictures::count() {
  const std::int32_t all = device_.numberOfObjectsOnStore(ptp::kAllStores, ptp::kAllImageFormats);
  // 0 may be an empty store as well as a device that does not know the question; asking on costs a
  // few transactions on an empty device alone.
  if (all > 0) return all;
  std::int32_t sum = 0;
  for (const std::uint16_t format : device_.facts().imageFormats) {
    if (!isPictureFormat(format)) continue;
    sum += std::max(0, device_.numberOfObjectsOnStore(ptp::kAllStores, format));
  }
  return sum;
}

std::optional<ObjectHandles> DevicePictures::handles(std::uint32_t store) {
  auto handles = device_.objectHandlesOnStore(store, ptp::kAllImageFormats);
  if (handles && !handles->empty()) return handles;
  // Grouped by format then, in the order of the device's list.
  handles.emplace();
  for (const std::uint16_t format : device_.facts().imageFormats) {
    if (!isPictureFormat(format)) continue;
    const auto ofFormat = device_.objectHandlesOnStore(store, format);
    if (!ofFormat) return std::nullopt;
    handles->insert(handles->end(), ofFormat->begin(), ofFormat->end());
  }
  return handles;
}

std::optional<std::vector<std::uint32_t>> DevicePictures::listedSizes(
    const ObjectHandles& handles) {
  if (!containsCode(device_.facts().operations, ptp::XTO_GET_PICTURE_FILE_SIZES)) {
    return std::nullopt;
  }
  // By the same question as the handles, for only then are the two in step.
  auto sizes = device_.pictureFilesizeOnStore(ptp::kAllStores, ptp::kAllImageFormats);
  return sizes && sizes->size() == handles.size() ? std::move(sizes) : std::nullopt;
}

PropertyDictionary DevicePictures::fileSizes() {
  auto sizes = PropertyDictionary::object();
  const auto pictures = handles(ptp::kAllStores).value_or(ObjectHandles());
  const auto listed = listedSizes(pictures);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const std::string key = std::to_string(pictures[i]);
    ObjectInfoPointer info;
    if (listed) {
      sizes[key] = (*listed)[i];
    } else if (device_.objectInfo(info, pictures[i]) == status::kOK && info) {
      sizes[key] = info->compressedSize();
    }
  }
  return sizes;
}

}  // namespace tarvo
