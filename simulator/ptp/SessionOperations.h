// Operations on the device as a whole: information, sessions, stores, reset and power (ISO 15740).
#pragma once

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class SessionOperations {
 public:
  /// `state` and `offered` (what DeviceInfo lists, complete once the device is made) must outlive
  /// it.
  SessionOperations(DeviceState& state, const OperationTable& offered)
      : state_(state), offered_(offered) {}
  void addTo(OperationTable& table);

 private:
  PTPReply getDeviceInfo(const PTPRequest& request);
  PTPReply openSession(const PTPRequest& request);
  PTPReply closeSession(const PTPRequest& request);
  PTPReply getStorageIDs(const PTPRequest& request);
  PTPReply getStorageInfo(const PTPRequest& request);
  PTPReply formatStore(const PTPRequest& request);
  PTPReply resetDevice(const PTPRequest& request);
  PTPReply selfTest(const PTPRequest& request);
  PTPReply powerDown(const PTPRequest& request);

  DeviceState& state_;
  const OperationTable& offered_;
};

}  // namespace tarvo::simulator
