// The properties of a PTP device as values: read by their kind, and written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Main thread only.
///
/// A getter asks a device that lists the property, and answers 0 or no text where it does not list
/// it or does not answer. All of them raise NSRangeException for an answer that is cut off.
class DeviceProperties {
 public:
  /// `device` is lent.
  explicit DeviceProperties(PTPTransactions& device) : device_(device) {}

  // Current values (GetDevicePropValue).
  std::uint32_t UInt32Property(std::uint16_t property);
  std::uint16_t UInt16Property(std::uint16_t property);
  std::uint8_t UInt8Property(std::uint16_t property);
  std::optional<std::string> GUIDProperty(std::uint16_t property);
  /// The current value in the property's description (GetDevicePropDesc). A property that is no
  /// text is a failed assertion.
  std::optional<std::string> stringProperty(std::uint16_t property);

  /// 0x200A where the device does not list the property, else the status of SetDevicePropValue. A
  /// text that is no GUID is sent as an empty one.
  Status setProperty(std::uint16_t property, const std::string& text);
  Status setPropertyGuid(std::uint16_t property, const std::string& guid);

 private:
  bool has(std::uint16_t property) const;
  std::optional<XTPTPDataSet> value(std::uint16_t property);
  Status set(std::uint16_t property, const XTMutablePTPDataSet& value);

  PTPTransactions& device_;
};

}  // namespace tarvo
