// Changes of objects that are on a PTP device: deleting, and giving another name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Main thread only.
class ObjectChanges {
 public:
  /// `device` is lent.
  explicit ObjectChanges(PTPTransactions& device) : device_(device) {}

  /// By the vendor's operation where the device has it and the object lies in the store that the
  /// operation is for (0x00030001); by DeleteObject otherwise. 0x2005 where the device has neither.
  [[nodiscard]] Status deleteObject(std::uint32_t handle);
  /// By the vendor's operation (0x9209), whatever the store.
  [[nodiscard]] Status deleteVendorObject(std::uint32_t handle);
  /// Standard PTP cannot rename, the vendor's XTO_UPDATE_EXT_OBJECT_INFO can: 0x2005 where the
  /// device does not list it, -50 for a name that is none (see isObjectName()).
  [[nodiscard]] Status rename(std::uint32_t handle, const std::string& name);

 private:
  std::uint16_t deleteOpcode(std::uint32_t handle);

  PTPTransactions& device_;
};

/// Whether a text can name an object: 1 to 254 UTF-16 units, as many as a PTP string holds, without
/// control characters and path separators, and neither "." nor "..".
bool isObjectName(std::string_view name);

}  // namespace tarvo
