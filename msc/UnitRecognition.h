// Whether a registry entry is one of the maker's units, by its properties alone.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// The bytes under "SCSITaskUserClient GUID"; none where there are none.
std::optional<std::vector<std::uint8_t>> guidOfUnit(const PropertyDictionary& properties);

/// Whether "Protocol Characteristics" says that the "Physical Interconnect" is "USB", in that case
/// of letters.
bool isConnectedByUSB(const PropertyDictionary& properties);

/// Whether the vendor is the maker: by the USB vendor id where there is one, else by the name.
/// Traces what it has found. Raises an assertion for a vendor id that is no 16-bit number.
bool isMakersUnit(const PropertyDictionary& properties, std::uint16_t usbVendorID);

/// "Product Name" of the "Device Characteristics".
std::optional<std::string> productNameOfUnit(const PropertyDictionary& properties);

}  // namespace tarvo
