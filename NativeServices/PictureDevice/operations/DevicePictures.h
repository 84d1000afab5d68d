// The pictures of a PTP device: how many, which, and how large.
#pragma once

#include <cstdint>
#include <optional>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// Whether a format is one of pictures: by its bits 15 to 8, 0x38 of the standard (ISO 15740,
/// "Object formats") or 0xB8 of a vendor. Films, sounds and text are none.
bool isPictureFormat(std::uint16_t format);

/// Main thread only.
///
/// A device is first asked for all its pictures at once, as the standard lets it; one that answers
/// nothing to that is asked for each picture format that its DeviceInfo lists.
class DevicePictures {
 public:
  /// `device` is lent.
  explicit DevicePictures(PTPTransactions& device) : device_(device) {}

  /// On all stores; 0 where the device does not answer.
  std::int32_t count();
  /// Handles in the order of the device; kAllStores names every store. None on failure.
  std::optional<ObjectHandles> handles(std::uint32_t store);
  /// Size in bytes by handle in decimal digits, of every picture on all stores: by
  /// XTO_GET_PICTURE_FILE_SIZES alone, where the answer has a size for each handle; else also by
  /// the information of each object, which a picture that has none is left out for.
  PropertyDictionary fileSizes();

 private:
  /// Sizes that go with `handles`, in their order; none where the two do not match.
  std::optional<std::vector<std::uint32_t>> listedSizes(const ObjectHandles& handles);

  PTPTransactions& device_;
};

}  // namespace tarvo
