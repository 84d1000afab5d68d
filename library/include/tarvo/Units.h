// The maker's units that show themselves as a disk: cameras that can be switched to PTP, docks and
// frames.
//
//   auto unit = session.open(session.findUnit());
//   unit.unmount();
//   unit.eject();
#pragma once

#include <cstdint>
#include <ctime>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarvo/Session.h"

namespace tarvo {

class UnitState;

/// A unit as it can be told without asking it. A value.
class TARVO_API UnitInfo {
 public:
  struct Data;
  explicit UnitInfo(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  const std::string& name() const;
  const std::string& serial() const;             ///< of the USB device; may be empty
  std::optional<std::int32_t> location() const;  ///< as in DeviceInfo
  std::string description() const;
  /// The kernel's name of its own disk ("sr0", "sdb"); empty where it has none.
  const std::string& disk() const;
  /// The disk and the name of the card in it that holds pictures and is mounted; empty without one.
  const std::string& cardDisk() const;
  const std::string& cardName() const;

  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<const Data> data_;
};

TARVO_API std::ostream& operator<<(std::ostream& out, const UnitInfo& unit);

/// How a unit comes up on USB, and what it can do. A value.
class TARVO_API UnitMode {
 public:
  struct Data;
  explicit UnitMode(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  bool isCamera() const;
  bool isStartup() const;
  bool isMemory() const;
  /// Whether it can switch itself off and on, and after a time that it is told.
  bool canPowerCycle() const;
  bool canWakeAfter() const;
  bool isComposite() const;
  std::uint32_t wakeUp() const;  ///< as the unit counts, mostly in tens of milliseconds
  /// All that the unit tells, as a JSON object.
  std::string json() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// A file system of a unit that is mounted. A value.
class TARVO_API UnitMount {
 public:
  struct Data;
  explicit UnitMount(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  const std::string& path() const;
  const std::string& disk() const;
  /// The processes that keep it busy: "vi (12)"; empty where none does, or they are others'.
  std::string users() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// Nothing is held: other programs may use the unit meanwhile. Calls wait: a SCSI command 6 s, a
/// disk operation 20 s. Each raises Error: kGone, kBusy with who uses it, kNotPermitted, kTimedOut,
/// kRefused.
class TARVO_API Unit {
 public:
  explicit Unit(std::shared_ptr<UnitState> state) : state_(std::move(state)) {}
  Unit(Unit&&) noexcept = default;
  Unit& operator=(Unit&&) noexcept = default;
  ~Unit() = default;

  const UnitInfo& info() const;
  UnitMode mode();
  /// Whether it comes back by itself when it was sent away. Raises where it cannot be asked.
  bool canPowerCycle();
  /// `mode` is "camera", "startup" or "memory". `powerDown`: it switches itself off and comes back
  /// in that mode, after `wakeAfter` where it counts that. `permanent`: for good and not for once.
  /// Nothing is unmounted.
  void setMode(const std::string& mode, bool powerDown = false, std::uint32_t wakeAfter = 0,
               bool permanent = false);
  std::string model();
  void setClock(std::time_t now);
  /// Whether pictures on its card wait to be shared.
  bool hasSharingOrders();

  std::vector<UnitMount> mounts();
  /// Every volume of its USB device, wherever it is mounted. kBusy names what keeps one mounted.
  void unmount();
  /// The disks that can be mounted: partitions, and disks without any.
  std::vector<std::string> mountable();
  /// Gives the path; empty where it is not told.
  std::string mount(const std::string& disk);
  /// Unmounts, and opens the tray. A volume that is busy keeps it shut.
  void eject();

 private:
  std::shared_ptr<UnitState> state_;
};

}  // namespace tarvo
