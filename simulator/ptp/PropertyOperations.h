// Operations on device properties (ISO 15740).
#pragma once

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

}  // namespace tarvo::simulator
