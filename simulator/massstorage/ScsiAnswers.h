// Data that a unit answers with and that do not depend on what a host did before: identification
// (SPC-4, 6.6 and 7.8) and the features of an optical drive (MMC-6, 5 and 6).
#pragma once

#include <cstdint>
#include <optional>

#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

Bytes inquiryData(const ScsiDescription& scsi);
/// A page of vital product data: 0x00, 0x80 or 0x83; none for any other.
std::optional<Bytes> vitalProductData(std::uint8_t page, const DeviceDescription& description);

/// GET CONFIGURATION: features from `first` on; `only`: that one and no other.
Bytes configurationData(std::uint16_t first, bool only, bool hasMedium);
/// READ TOC/PMA/ATIP of a medium with one data track of `blocks` blocks: format 0 or 1; none for
/// any other.
std::optional<Bytes> tocData(std::uint8_t format, bool inMinutes, std::uint64_t blocks);
/// READ DISC INFORMATION of a finished disc with one session.
Bytes discInformation();

}  // namespace tarvo::simulator
