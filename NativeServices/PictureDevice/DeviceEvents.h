// What the events of a PTP device (ISO 15740, clause "Events") mean for what was read of it before.
#pragma once

#include <cstdint>
#include <span>

#include "NativeServices/PictureDevice/PTPTransactions.h"
#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// Event codes of the standard that make something stale.
enum class PTPEventCode : std::uint16_t {
  kObjectAdded = 0x4002,
  kObjectRemoved = 0x4003,
  kStoreAdded = 0x4004,
  kStoreRemoved = 0x4005,
  kDevicePropChanged = 0x4006,
  kObjectInfoChanged = 0x4007,
  kDeviceReset = 0x400B,
  kStorageInfoChanged = 0x400C,
  /// The device has lost events, so anything may be stale.
  kUnreportedStatus = 0x400E,
};

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
