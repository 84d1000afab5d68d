// Numbers of the bulk-only transport (USB Mass Storage Class, Bulk-Only Transport 1.0), which both
// ends of it need.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvo::simulator::bulkonly {

// Class requests (3.1, 3.2).
inline constexpr std::uint8_t kGetMaxLUN = 0xFE;
inline constexpr std::uint8_t kMassStorageReset = 0xFF;

// Wrappers (5.1, 5.2).
inline constexpr std::uint32_t kCommandSignature = 0x43425355;
inline constexpr std::uint32_t kStatusSignature = 0x53425355;
inline constexpr std::size_t kCommandWrapperSize = 31;
inline constexpr std::size_t kStatusWrapperSize = 13;
inline constexpr std::size_t kBlockOffset = 15;
inline constexpr std::uint8_t kLongestBlock = 16;

}  // namespace tarvo::simulator::bulkonly
