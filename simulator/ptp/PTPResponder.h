// The PTP side of a virtual camera: a table of operations over the device's state. The operations
// themselves stand in classes by theme; a new one is a line in its class's addTo() and a member
// function.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class CaptureOperations;
class PropertyOperations;

/// Knows nothing of containers and packets. Not locked: PTPCamera calls it under its own lock.
class PTPResponder {
 public:
  /// Keeps a copy of `description`, whose property values the host may change.
  explicit PTPResponder(const DeviceDescription& description);
  PTPResponder(const PTPResponder&) = delete;
  PTPResponder& operator=(const PTPResponder&) = delete;
  ~PTPResponder();

  /// Where the data phase of an operation goes, also of one that this device does not offer: a host
  /// sends its data all the same. None for an operation that no device of the maker has.
  DataDirection direction(std::uint16_t operation) const;
  /// Answers a whole request. Operations that are not offered, that need a session that is not
  /// open, or whose parameters name nothing get the response code that ISO 15740 has for that.
  PTPReply execute(const PTPRequest& request);

  bool hasSession() const { return state_.session != 0; }
  /// As after a reset: the session is closed without an operation.
  void forgetSession() { state_.forgetSession(); }

  // For what the device does by itself, and for those who look at it.
  DeviceState& state() { return state_; }
  const DeviceState& state() const { return state_; }
  CaptureOperations& capturing();
  PropertyOperations& properties();

 private:
  /// Whether the description lets the device offer an operation.
  bool offers(std::uint16_t operation) const;

  DeviceState state_;
  OperationTable known_;    ///< what such devices can do
  OperationTable offered_;  ///< what this one answers
  struct Themes;
  std::unique_ptr<Themes> themes_;
};

}  // namespace tarvo::simulator
