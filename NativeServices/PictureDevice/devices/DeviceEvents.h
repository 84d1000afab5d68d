// What the events of a PTP device (ISO 15740, clause "Events") mean for what was read of it before.
#pragma once

#include <cstdint>
#include <span>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// Drops from `fields` what event `code` makes stale; `parameters` are those of the event, which a
/// device may leave out. Information of objects is dropped by `device` as well, where there is one,
/// which may keep its own. Asks the device nothing. An event of another code changes nothing. Main
/// thread only.
void dropWhatEventMakesStale(PictureDeviceFields& fields, PTPTransactions* device,
                             const MakerConstants& maker, std::uint16_t code,
                             std::span<const std::uint32_t> parameters);

/// Sets the six counts back to unknown.
void forgetCounts(PictureDeviceFields& fields);

}  // namespace tarvo
