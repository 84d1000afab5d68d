// Operations that delete, move, copy and protect objects (ISO 15740), and the maker's own delete.
#pragma once

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class ObjectChanges {
 public:
  /// `state` must outlive it.
  explicit ObjectChanges(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply deleteObject(const PTPRequest& request);
  PTPReply deleteAll(const PTPRequest& request);
  /// Deletes one object where its store allows it.
  std::uint16_t deleteOne(std::uint32_t handle, std::uint16_t operation);
  PTPReply setObjectProtection(const PTPRequest& request);
  PTPReply moveObject(const PTPRequest& request);
  PTPReply copyObject(const PTPRequest& request);
  /// Whether an object may go to a place: OK, or the response code that refuses. A store or parent
  /// of 0xFFFFFFFF or 0 in `request` is resolved into the two that follow.
  std::uint16_t destination(const PTPRequest& request, std::uint32_t& storage,
                            std::uint32_t& parent) const;

  DeviceState& state_;
};

}  // namespace tarvo::simulator
