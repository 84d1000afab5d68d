// Taking pictures: at the host's wish and at the device's own (ISO 15740, InitiateCapture and
// InitiateOpenCapture).
#pragma once

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

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
