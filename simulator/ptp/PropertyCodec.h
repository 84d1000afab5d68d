// Device properties on the wire (ISO 15740): their values and their describing dataset.
// Values are JSON, as descriptions have them: a number, a text, or a list of numbers.
#pragma once

#include <nlohmann/json.hpp>
#include <span>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

/// Writes a value of the PTP datatype; a JSON value of another form is written as 0 or nothing.
void writePropertyValue(ByteWriter& writer, std::uint16_t datatype, const nlohmann::json& value);
/// The DevicePropDesc dataset: code, datatype, access, default, current value, form (none, range or
/// enumeration).
void writePropertyDescription(ByteWriter& writer, const PropertyDescription& property);
/// The value in `bytes` (one zero byte may follow it); null when they hold none of the datatype.
nlohmann::json readPropertyValue(std::span<const std::byte> bytes, std::uint16_t datatype);

}  // namespace tarvo::simulator
