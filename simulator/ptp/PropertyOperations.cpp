#include "simulator/ptp/PropertyOperations.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"
#include "simulator/ptp/PropertyCodec.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint32_t kEveryProperty = 0xFFFFFFFF;

/// Whether the property's form lets it have the value.
bool allows(const PropertyDescription& property, const nlohmann::json& value) {
  const auto& choices = property.choices;
  if (!property.range.empty()) return value >= property.range[0] && value <= property.range[1];
  return choices.empty() || std::find(choices.begin(), choices.end(), value) != choices.end();
}

}  // namespace

void PropertyOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = PropertyOperations;
  table[ptp::kGetDevicePropDesc] = {kFromDevice, 1, 1, calling(this, &Self::getDescription)};
  table[ptp::kGetDevicePropValue] = {kFromDevice, 1, 1, calling(this, &Self::getValue)};
  table[ptp::kSetDevicePropValue] = {kToDevice, 1, 1, calling(this, &Self::setValue)};
  table[ptp::kResetDevicePropValue] = {kNone, 1, 1, calling(this, &Self::resetValue)};
}

PropertyDescription* PropertyOperations::property(std::uint32_t code) {
  auto& properties = state_.description.properties;
  const auto found = std::find_if(properties.begin(), properties.end(),
                                  [&](const auto& each) { return each.code == code; });
  return found == properties.end() ? nullptr : &*found;
}

PTPReply PropertyOperations::getDescription(const PTPRequest& request) {
  const auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  ByteWriter writer;
  writePropertyDescription(writer, *found);
  return reply(writer);
}

PTPReply PropertyOperations::getValue(const PTPRequest& request) {
  const auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  ByteWriter writer;
  writePropertyValue(writer, found->datatype, found->value);
  return reply(writer);
}

PTPReply PropertyOperations::setValue(const PTPRequest& request) {
  auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  if (!found->writable) return refuse(kAccessDenied);
  auto value = readPropertyValue(allBytes(*request.data), found->datatype);
  if (value.is_null()) return refuse(kInvalidDevicePropFormat);
  if (!allows(*found, value)) return refuse(kInvalidDevicePropValue);
  found->value = std::move(value);
  return {};
}

PTPReply PropertyOperations::resetValue(const PTPRequest& request) {
  if (request.parameters[0] == kEveryProperty) {
    for (auto& each : state_.description.properties) {
      if (each.writable) each.value = each.defaultValue;
    }
    return {};
  }
  auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  if (!found->writable) return refuse(kAccessDenied);
  found->value = found->defaultValue;
  return {};
}

}  // namespace tarvo::simulator
