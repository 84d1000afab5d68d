// Operations that bring objects to the device: SendObjectInfo and SendObject (ISO 15740), the
// maker's variants of them, sending in parts, and the change of an object's information.
//
// An information operation makes the object's handle and waits for its bytes, which come with the
// data operation that goes with it, or in parts; until then the object is not there.
#pragma once

#include "simulator/ptp/DeviceState.h"
#include "simulator/ptp/ReceivedObjectInfo.h"

namespace tarvo::simulator {

class SendingOperations {
 public:
  /// `state` must outlive it.
  explicit SendingOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply sendInfo(const PTPRequest& request);
  PTPReply sendData(const PTPRequest& request);
  PTPReply sendPart(const PTPRequest& request);
  PTPReply updateInfo(const PTPRequest& request);

  /// Where the object goes: fills storage and parent of `object`, or the code that refuses.
  std::uint16_t place(const PTPRequest& request, const ReceivedObjectInfo& info,
                      StoredObject& object) const;
  /// The object is whole: into its store with it.
  void finish(std::shared_ptr<const Payload> content);

  DeviceState& state_;
};

}  // namespace tarvo::simulator
