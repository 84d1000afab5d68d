// Operations on device properties, and those that take pictures (ISO 15740).
#pragma once

#include <nlohmann/json.hpp>
#include <span>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/description/DeviceDescription.h"
#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class PropertyOperations {
 public:
  /// `state` must outlive it.
  explicit PropertyOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

  /// Null where there is none of that code.
  PropertyDescription* property(std::uint32_t code);

 private:
  PTPReply getDescription(const PTPRequest& request);
  PTPReply getValue(const PTPRequest& request);
  PTPReply setValue(const PTPRequest& request);
  PTPReply resetValue(const PTPRequest& request);

  DeviceState& state_;
};

// Device properties on the wire (ISO 15740): their values and their describing dataset.
// Values are JSON, as descriptions have them: a number, a text, or a list of numbers.

/// Writes a value of the PTP datatype; a JSON value of another form is written as 0 or nothing.
void writePropertyValue(ByteWriter& writer, std::uint16_t datatype, const nlohmann::json& value);
/// The DevicePropDesc dataset: code, datatype, access, default, current value, form (none, range or
/// enumeration).
void writePropertyDescription(ByteWriter& writer, const PropertyDescription& property);
/// The value in `bytes` (one zero byte may follow it); null when they hold none of the datatype.
nlohmann::json readPropertyValue(std::span<const std::byte> bytes, std::uint16_t datatype);

// Taking pictures: at the host's wish and at the device's own (ISO 15740, InitiateCapture and
// InitiateOpenCapture).

class CaptureOperations {
 public:
  /// `state` must outlive it.
  explicit CaptureOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

  /// The shutter: a new picture, with the event that tells of it; `storage` 0 is the first store.
  PTPReply capture(std::uint32_t storage);

 private:
  PTPReply initiateCapture(const PTPRequest& request);
  PTPReply initiateOpenCapture(const PTPRequest& request);
  PTPReply terminateOpenCapture(const PTPRequest& request);
  /// The folder that pictures go to: the newest that lies in a folder DCIM, or the root.
  std::uint32_t pictureFolder(std::uint32_t storage) const;

  DeviceState& state_;
};

}  // namespace tarvo::simulator
