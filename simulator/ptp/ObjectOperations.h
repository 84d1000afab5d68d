// Operations that look at objects (ISO 15740), and the maker's list of file sizes.
#pragma once

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class ObjectOperations {
 public:
  /// `state` must outlive it.
  explicit ObjectOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply getNumObjects(const PTPRequest& request);
  PTPReply getObjectHandles(const PTPRequest& request);
  PTPReply getPictureFileSizes(const PTPRequest& request);
  PTPReply getObjectInfo(const PTPRequest& request);
  PTPReply getObject(const PTPRequest& request);
  PTPReply getPartialObject(const PTPRequest& request);
  PTPReply getThumb(const PTPRequest& request);
  /// The filter of an operation that counts or lists, or the response code that refuses it.
  std::uint16_t filterFor(const PTPRequest& request, ObjectFilter& filter) const;

  DeviceState& state_;
};

/// The size that ObjectInfo tells, which has 32 bits: 0xFFFFFFFF is "not known, or more".
std::uint32_t toldSize(const StoredObject& object);

}  // namespace tarvo::simulator
