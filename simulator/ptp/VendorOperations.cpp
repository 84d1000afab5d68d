#include "simulator/ptp/VendorOperations.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {

std::vector<std::uint16_t> offeredVendorOperations(const DeviceDescription& device) {
  const auto& vendor = device.vendor;
  auto offered = vendor.operations;
  if (vendor.supportedDatasets) offered.push_back(ptp::XTO_GET_SUPPORTED_DATASETS);
  if (vendor.displayRequestVersion) {
    offered.push_back(ptp::XT_GET_DISPLAY_REQUEST_VERSION);
    offered.push_back(ptp::XTO_DISPLAY_REQUEST);
  }
  if (vendor.bragbookVersion) offered.push_back(ptp::XTO_GET_BRAGBOOK_VERSION);
  if (vendor.lcbInfo) offered.push_back(ptp::XTO_GET_LCB_INFO);
  if (vendor.addressBook) offered.push_back(ptp::XTO_GET_ADDRESS_BOOK_INFO);
  if (vendor.queryRows) offered.push_back(ptp::XTO_GET_DB_ROWS);
  if (device.datasets) {
    offered.insert(offered.end(),
                   {ptp::XTO_GET_DATASET, ptp::XTO_CREATE_DATASET, ptp::XTO_UPDATE_DATASET,
                    ptp::XTO_MODIFY_ASSET_LIST, std::uint16_t{kVendorDelete}});
  }
  return offered;
}

void VendorOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = VendorOperations;
  table[ptp::XTO_GET_SUPPORTED_DATASETS] = {kFromDevice, 0, 0,
                                            calling(this, &Self::getSupportedDatasets)};
  table[ptp::XT_GET_DISPLAY_REQUEST_VERSION] = {kNone, 0, 0,
                                                calling(this, &Self::getDisplayRequestVersion)};
  table[ptp::XTO_GET_BRAGBOOK_VERSION] = {kNone, 0, 0, calling(this, &Self::getBragbookVersion)};
  table[ptp::XTO_GET_LCB_INFO] = {kFromDevice, 0, 0, calling(this, &Self::getLCBInfo)};
  table[ptp::XTO_GET_ADDRESS_BOOK_INFO] = {kFromDevice, 0, 0,
                                           calling(this, &Self::getAddressBookInfo)};
  table[ptp::XTO_DISPLAY_REQUEST] = {kToDevice, 0, 0, calling(this, &Self::displayRequest)};
  table[ptp::XTO_GET_DB_ROWS] = {kFromDevice, 4, 4, calling(this, &Self::getDBRows)};
}

PTPReply VendorOperations::getSupportedDatasets(const PTPRequest&) {
  ByteWriter writer;
  writer.u16Array(
      state_.description.vendor.supportedDatasets.value_or(std::vector<std::uint16_t>()));
  return reply(writer);
}

PTPReply VendorOperations::getDisplayRequestVersion(const PTPRequest&) {
  PTPReply told;
  told.parameters = {state_.description.vendor.displayRequestVersion.value_or(0)};
  return told;
}

PTPReply VendorOperations::getBragbookVersion(const PTPRequest&) {
  PTPReply told;
  told.parameters = {state_.description.vendor.bragbookVersion.value_or(0)};
  return told;
}

PTPReply VendorOperations::getLCBInfo(const PTPRequest&) {
  ByteWriter writer;
  for (const auto byte :
       state_.description.vendor.lcbInfo.value_or(std::vector<std::uint8_t>(12))) {
    writer.u8(byte);
  }
  return reply(writer);
}

// 28 bytes in this order.
PTPReply VendorOperations::getAddressBookInfo(const PTPRequest&) {
  const auto limits = state_.description.vendor.addressBook.value_or(AddressBookLimits());
  ByteWriter writer;
  writer.u16(limits.version);
  writer.u16(limits.characterTypeLimitation);
  writer.u32(limits.maxAddresses);
  writer.u32(limits.maxGroups);
  writer.u32(limits.maxAddressesPerGroup);
  writer.u32(limits.maxAddressLengthInBytes);
  writer.u32(limits.maxNicknameLengthInBytes);
  writer.u32(limits.maxGroupNameLengthInBytes);
  return reply(writer);
}

PTPReply VendorOperations::displayRequest(const PTPRequest& request) {
  state_.displayRequest = allBytes(*request.data);
  return {};
}

// Parameters: handle of the query object, SQL operation, whether to end the query, room. Answer:
// whole rows as far as they fit, at least one; response parameters are the number of bytes, and
// whether these were the last rows. A query that was ended is gone, its object too.
PTPReply VendorOperations::getDBRows(const PTPRequest& request) {
  const auto handle = request.parameters[0];
  const auto query = state_.objects.object(handle);
  if (!query || query->traits.format != ptp::XTD_QUERY) return refuse(kInvalidObjectHandle);
  const auto rows = state_.description.vendor.queryRows.value_or(std::vector<std::string>());
  ByteWriter writer;
  const bool ends = request.parameters[2] != 0;
  auto& read = rowsRead_[handle];
  while (!ends && read < rows.size()) {
    const auto& row = rows[read];
    if (writer.size() > 0 && writer.size() + row.size() > request.parameters[3]) break;
    const auto count = std::min<std::size_t>(row.size(), request.parameters[3]);
    writer.raw(std::as_bytes(std::span(row.data(), count)));
    ++read;
  }
  const bool atEnd = ends || read >= rows.size();
  const auto size = static_cast<std::uint32_t>(writer.size());
  if (ends) {
    rowsRead_.erase(handle);
    state_.objects.remove(handle);
  }
  auto made = reply(writer);
  made.parameters = {size, atEnd ? 1U : 0U};
  return made;
}

}  // namespace tarvo::simulator
