// A SCSI unit at the level of commands: what it does with a command block and the data that go with
// it (SPC-4, SBC-3, MMC-6). How they reach it is MassStorageUnit's affair.
//
//   ScsiUnit unit(description, violations);
//   auto reply = unit.begin(block, faults);
//   if (reply.expects > 0) reply = unit.finish(data);
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "simulator/bytes/Payload.h"
#include "simulator/description/DeviceDescription.h"
#include "simulator/massstorage/Medium.h"
#include "simulator/massstorage/ModePages.h"
#include "simulator/usb/HostViolations.h"

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

/// What a unit does with a command: it has failed, has data for the host, or wants some from it.
struct ScsiReply {
  bool isGood = true;
  std::shared_ptr<const Payload> data;  ///< null: none
  std::uint64_t expects = 0;            ///< bytes from the host, before the command can end
};

/// What others than the host see of a unit.
struct UnitState {
  UsbModeState mode;
  std::string clock;        ///< date and time of the clock page
  bool isTrayOpen = false;  ///< a medium has been ejected
  bool isLocked = false;    ///< removal of the medium is prevented
};

/// Not locked: its device guards it.
class ScsiUnit {
 public:
  ScsiUnit(const DeviceDescription& description, HostViolations& violations);

  /// A command block comes.
  ScsiReply begin(std::span<const std::byte> block, const Faults& faults);
  /// The data of the command that was begun last come, as many as it expects.
  ScsiReply finish(std::span<const std::byte> data);
  /// Makes a command fail. The host hears why when it asks for the sense.
  ScsiReply fail(Sense sense);

  UnitState state() const;
  /// Whether the unit goes off once the status of the last command was taken, which told it to.
  bool powersDown() const { return powersDown_; }
  /// Whether it comes back as a camera after that.
  bool returnsAsCamera() const;
  /// A bus reset: locks and what was begun are forgotten.
  void reset();

 private:
  using Block = std::span<const std::byte>;

  ScsiReply dispatch(Block block, const Faults& faults);
  // Commands for every kind of unit (SPC-4).
  ScsiReply requestSense(Block block);
  ScsiReply inquiry(Block block);
  ScsiReply modeSense(Block block, const Faults& faults);
  ScsiReply modeSelect(Block block);
  ScsiReply preventRemoval(Block block);
  // Commands of units with blocks (SBC-3).
  ScsiReply startStop(Block block);
  ScsiReply readFormatCapacities(Block block);
  ScsiReply readCapacity();
  ScsiReply transferBlocks(Block block);
  // Commands of optical units (MMC-6).
  ScsiReply optical(Block block);
  ScsiReply readTOC(Block block);
  ScsiReply eventStatus(Block block);

  bool hasMedium() const { return medium_ != nullptr && !isTrayOpen_; }
  /// Why the medium cannot be used now; none where it can.
  std::optional<Sense> notReady();

  DeviceDescription description_;  ///< without volume and camera
  bool isOptical_;
  bool canReturn_;
  std::unique_ptr<Medium> medium_;  ///< null: the unit never has one
  ModePages pages_;
  Sense sense_;
  std::optional<Bytes> pending_;  ///< command block that waits for its data
  bool isTrayOpen_ = false;
  bool isLocked_ = false;
  bool hasChanged_ = false;  ///< the host is to hear of a new medium
  bool tellsEvent_ = false;  ///< and so is one that polls for events
  bool powersDown_ = false;
};

}  // namespace tarvo::simulator
