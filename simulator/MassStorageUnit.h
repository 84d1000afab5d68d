// The USB side of a mass-storage unit (bulk-only transport). Its SCSI unit and its volume are shown
// by the testbed the way the kernel shows them, so nothing talks to these endpoints.
#pragma once

#include "simulator/DeviceDescription.h"
#include "simulator/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// Answers Get Max LUN (Bulk-Only Transport, 3.2) with its one unit and stalls every bulk transfer,
/// so that a program that would drive the unit itself fails at once instead of waiting.
class MassStorageUnit : public VirtualUSBDevice {
 public:
  explicit MassStorageUnit(const DeviceDescription& description);

 protected:
  std::optional<Bytes> classRequest(const SetupPacket& setup,
                                    std::span<const std::byte> data) override;
  void receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) override;
  InResult send(std::uint8_t endpoint, std::span<std::byte> room) override;
  void forgetEverything() override {}
};

}  // namespace tarvo::simulator
