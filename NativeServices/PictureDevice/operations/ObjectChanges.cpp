#include "NativeServices/PictureDevice/operations/ObjectChanges.h"

#include <algorithm>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

/// The store whose objects the vendor's operation deletes.
constexpr std::uint32_t kVendorStore = 0x00030001;
constexpr std::uint16_t kAnyFormat = 0;

}  // namespace

std::uint16_t ObjectChanges::deleteOpcode(std::uint32_t handle) {
  if (!device_.facts().capabilities.hasDeleteVendorObject) return ptp::kDeleteObject;
  // Kept from the listing as a rule, so that no transaction is added.
  ObjectInfoPointer info;
  const bool isInVendorStore =
      device_.objectInfo(info, handle) == status::kOK && info && info->storageID() == kVendorStore;
  return isInVendorStore ? ptp::XTO_DELETE_VENDOR_OBJECT : ptp::kDeleteObject;
}

Status ObjectChanges::deleteObject(std::uint32_t handle) {
  // A device that lists neither operation is not asked on the chance.
  const auto& capabilities = device_.facts().capabilities;
  if (!capabilities.hasDeleteObject && !capabilities.hasDeleteVendorObject) {
    return status::kPTPOperationNotSupported;
  }
  return device_.deleteObject(handle, kAnyFormat, deleteOpcode(handle));
}

Status ObjectChanges::deleteVendorObject(std::uint32_t handle) {
  // Without a look at the store: the caller names a record of the vendor's.
  return device_.deleteObject(handle, kAnyFormat, ptp::XTO_DELETE_VENDOR_OBJECT);
}

Status ObjectChanges::rename(std::uint32_t handle, const std::string& name) {
  if (!isObjectName(name)) return status::kBadParameter;
  // PTP has no operation for it; only the maker's extension writes an ObjectInfo of an object that
  // is there.
  if (!containsCode(device_.facts().operations, ptp::XTO_UPDATE_EXT_OBJECT_INFO)) {
    return status::kPTPOperationNotSupported;
  }
  ObjectInfoPointer info;
  Status status = device_.objectInfo(info, handle);
  if (status != status::kOK) return status;
  // A copy, because the one that was read belongs to the cache. What is read never has the
  // extension, so none is sent that would clear the object's own.
  XTExtendedObjectInfo renamed = *info;
  renamed.setIsExtended(false);
  renamed.setFileName(name);
  status = device_.updateExtObjectInfo(renamed, handle);
  // Also after a failure: the device may have got that far.
  device_.invalidateInfoCacheForObject(handle);
  return status;
}

bool isObjectName(std::string_view name) {
  // A PTP string counts its units in a byte, the final zero among them.
  constexpr std::size_t kMaximumUnits = 254;
  if (name.empty() || name == "." || name == "..") return false;
  const std::u16string units = utf16FromUTF8(name);
  // Cameras keep objects on FAT, whose separator is the backslash.
  const auto isRefused = [](char16_t unit) {
    return isControlCharacter(unit) || unit == u'/' || unit == u'\\';
  };
  return std::ranges::none_of(units, isRefused) && units.size() <= kMaximumUnits;
}

}  // namespace tarvo
