// A mass-storage unit at the level of USB requests (USB Mass Storage Class, Bulk-Only Transport
// 1.0): command wrappers, data and status wrappers on the bulk endpoints, and the two class
// requests. The commands themselves are ScsiUnit's.
//
//   MassStorageUnit unit(DeviceDescription::fromFile("simulator/devices/dock.json"));
//   unit.out(MassStorageUnit::kBulkOut, commandWrapper, true);
//   unit.in(MassStorageUnit::kBulkIn, room);
//
// It checks the host strictly; what the host did against the protocol is kept in violations(). Time
// passes only where a fault delays answers, and where a medium is made on demand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "simulator/description/DeviceDescription.h"
#include "simulator/massstorage/ScsiUnit.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// A command as it came.
struct UnitCommand {
  Bytes block;
  Bytes data;  ///< what the host sent with it, cut to MassStorageUnit::kDataKept
};

class MassStorageUnit : public VirtualUSBDevice {
 public:
  static constexpr std::size_t kCommandsKept = 1000;
  static constexpr std::size_t kDataKept = 512;

  explicit MassStorageUnit(const DeviceDescription& description);

  // All of these may be called from any thread.

  /// The last commands, in the order in which they came.
  std::vector<UnitCommand> commands() const;
  void forgetCommands();
  UnitState state() const;
  unsigned type() const { return type_; }  ///< peripheral device type
  /// Whether the last command has told it to power down.
  bool powersDown() const;
  /// Whether it comes back as a camera after that.
  bool returnsAsCamera() const;
  /// The SCSI status that a fault gives the last command, where it has one. The bulk-only transport
  /// can only say that a command has failed; a host that can show the status asks here.
  std::optional<std::uint8_t> reportedStatus() const;

 protected:
  std::optional<Bytes> classRequest(const SetupPacket& setup,
                                    std::span<const std::byte> data) override;
  void receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) override;
  InResult send(std::uint8_t endpoint, std::span<std::byte> room) override;
  void forgetEverything() override;
  std::optional<std::chrono::steady_clock::time_point> nextDue(
      std::uint8_t endpoint) const override;

 private:
  /// What comes next on the bulk endpoints.
  enum class Phase {
    kCommand,  ///< the host sends a command wrapper
    kDataOut,  ///< the host sends data
    kRefused,  ///< the host sends data that nobody wants
    kDataIn,
    kStatus,
    kSilent,  ///< nothing until the host resets the device
  };
  /// bCSWStatus (5.2).
  enum Status : std::uint8_t { kPassed = 0, kFailed = 1, kPhaseError = 2 };

  void receiveCommand(std::span<const std::byte> data);
  bool isValidWrapper(std::span<const std::byte> data);
  /// The command is known: what it does, and how that goes with what the host expects (6.7).
  void run(std::span<const std::byte> block);
  void matchNoData();
  void matchDataIn(std::shared_ptr<const Payload> data);
  void matchDataOut();
  void receiveData(std::span<const std::byte> data, bool ends);
  void finishData();
  /// Host and unit disagree about the data.
  void disagree(const char* how);
  void beginStatus(Status status);
  InResult sendData(std::span<std::byte> room);
  InResult sendStatus(std::span<std::byte> room);
  Bytes statusWrapper() const;
  std::shared_ptr<const Payload> spoilt(std::shared_ptr<const Payload> data) const;
  std::chrono::steady_clock::time_point answerTime() const;

  const unsigned type_;
  ScsiUnit unit_;
  PacketQueue queue_;
  std::deque<UnitCommand> commands_;

  Phase phase_ = Phase::kCommand;
  bool needsReset_ = false;   ///< halted until reset recovery (5.3.4)
  bool haltsIn_ = false;      ///< the bulk-in endpoint halts before the status
  bool goesInstead_ = false;  ///< the device vanishes instead of the status
  // Of the command that was received last.
  std::uint32_t tag_ = 0;
  std::uint32_t expected_ = 0;  ///< dCBWDataTransferLength
  bool isToHost_ = false;
  std::uint64_t wanted_ = 0;    ///< bytes that the unit wants from the host
  std::uint64_t received_ = 0;  ///< bytes of data that have come from the host
  Bytes data_;                  ///< those of them that the unit wants
  std::uint32_t moved_ = 0;     ///< bytes that the unit has dealt with
  Status status_ = kPassed;
};

}  // namespace tarvo::simulator

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
