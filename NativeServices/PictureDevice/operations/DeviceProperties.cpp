#include "NativeServices/PictureDevice/operations/DeviceProperties.h"

#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo {

// A device need not survive a property that it does not list, so none is tried.
bool DeviceProperties::has(std::uint16_t property) const {
  return containsCode(device_.facts().properties, property);
}

std::optional<XTPTPDataSet> DeviceProperties::value(std::uint16_t property) {
  return has(property) ? device_.propertyValueDataSet(property) : std::nullopt;
}

std::uint32_t DeviceProperties::UInt32Property(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanUInt32() : 0;
}

std::uint16_t DeviceProperties::UInt16Property(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanUInt16() : std::uint16_t{0};
}

std::uint8_t DeviceProperties::UInt8Property(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanByte() : std::uint8_t{0};
}

std::optional<std::string> DeviceProperties::GUIDProperty(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanGUID() : std::nullopt;
}

std::optional<std::string> DeviceProperties::stringProperty(std::uint16_t property) {
  if (!has(property)) return std::nullopt;
  auto description = device_.propertyDataSet(property);
  if (!description) return std::nullopt;
  // DevicePropDesc: code, datatype, get/set, factory default, current value (ISO 15740).
  description->scanUInt16();
  const std::uint16_t datatype = description->scanUInt16();
  if (datatype < kPTPString) {
    raiseAssertion(formatted("stringProperty reading wrong data type:%x", datatype));
  }
  description->scanByte();
  // A text's length byte counts UTF-16 units, the terminator included.
  description->skip(2U * description->scanByte());
  return description->scanString();
}

Status DeviceProperties::set(std::uint16_t property, const XTMutablePTPDataSet& value) {
  return device_.setProperty(property, value.bytes());
}

Status DeviceProperties::setProperty(std::uint16_t property, const std::string& text) {
  if (!has(property)) return status::kPTPDevicePropNotSupported;
  auto value = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  value.storeString(text);
  return set(property, value);
}

Status DeviceProperties::setPropertyGuid(std::uint16_t property, const std::string& guid) {
  if (!has(property)) return status::kPTPDevicePropNotSupported;
  // Sixteen bytes behind their count; an empty text, which clears the property, is the count alone.
  auto value = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  value.storeGUID(guid);
  return set(property, value);
}

}  // namespace tarvo
