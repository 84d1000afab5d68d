// The maker's operations on vendor data sets: reading, making and replacing them, and the notice
// that a picture of an order is done.
#pragma once

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class DatasetOperations {
 public:
  /// `state` must outlive it.
  explicit DatasetOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply getDataset(const PTPRequest& request);
  PTPReply createDataset(const PTPRequest& request);
  PTPReply updateDataset(const PTPRequest& request);
  PTPReply modifyAssetList(const PTPRequest& request);

  /// The data set that a host has sent, checked; none where `reply` refuses it.
  std::optional<DatasetRecord> received(std::uint16_t format, const PTPRequest& request,
                                        PTPReply& reply) const;
  /// Finds the data set that `handle` and `format` name; false where `reply` refuses them.
  bool find(std::uint32_t handle, std::uint32_t format, PTPReply& reply) const;
  /// What a host must not send, in words; empty where all is well.
  std::string problemOf(const DatasetRecord& record) const;
  std::string problemOfContact(const ContactRecord& contact) const;
  std::string problemOfGroup(const GroupRecord& group) const;
  std::string unknownContact(const Handles& handles) const;
  std::string unknownAsset(const Handles& handles) const;
  /// Whether one more data set of the format fits the limits.
  bool hasRoomFor(std::uint16_t format) const;

  DeviceState& state_;
};

}  // namespace tarvo::simulator
