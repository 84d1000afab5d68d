// What a device says of the address book that it can keep.
#pragma once

#include <cstdint>

namespace tarvo {

/// The limits of the address book of a device, its answer to XTO_GET_ADDRESS_BOOK_INFO (28 bytes).
/// Limits "in bytes" count UTF-16 units.
struct XT_AddressBookInfo {
  std::uint16_t version = 0;  ///< 0: not read
  std::uint16_t characterTypeLimitation = 0;
  std::uint32_t maxAddresses = 0;
  std::uint32_t maxGroups = 0;
  std::uint32_t maxAddressesPerGroup = 0;
  std::uint32_t maxAddressLengthInBytes = 0;
  std::uint32_t maxNicknameLengthInBytes = 0;
  std::uint32_t maxGroupNameLengthInBytes = 0;

  friend bool operator==(const XT_AddressBookInfo&, const XT_AddressBookInfo&) = default;
};

}  // namespace tarvo
