// The maker's operations that are no variants of the standard's: what the device can do, its
// limits, its display and its database.
#pragma once

#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class VendorOperations {
 public:
  /// `state` must outlive it.
  explicit VendorOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply getSupportedDatasets(const PTPRequest& request);
  PTPReply getDisplayRequestVersion(const PTPRequest& request);
  PTPReply getBragbookVersion(const PTPRequest& request);
  PTPReply getLCBInfo(const PTPRequest& request);
  PTPReply getAddressBookInfo(const PTPRequest& request);
  PTPReply displayRequest(const PTPRequest& request);
  PTPReply getDBRows(const PTPRequest& request);

  DeviceState& state_;
  std::map<std::uint32_t, std::size_t> rowsRead_;  ///< by query handle
};

/// Operations that a device offers for what its description says of the maker's extension.
std::vector<std::uint16_t> offeredVendorOperations(const DeviceDescription& device);

}  // namespace tarvo::simulator
