// Holds a SCSI unit back until udev has processed the device nodes below it: a unit that is
// announced earlier has no block device yet, and its generic node cannot be opened. One without a
// generic node is of no use to anybody and is held back for as long as it has none.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/foundation/RunLoop.h"

namespace tarvo {

/// Main thread only. Units are named by their sysfs path.
class SCSIUnitAssembly {
 public:
  /// How long a unit waits for the kernel to make its disk; a driver that makes none is not waited
  /// for longer. For its generic node it waits without a clock.
  static constexpr std::chrono::milliseconds kPatience{1000};
  /// How long it waits for udev to deal with nodes that the kernel has made: it reads the medium,
  /// which takes a drive its time, and only then may the user open them.
  static constexpr std::chrono::milliseconds kPatienceWithUdev{10'000};

  /// The two kinds of device node below a unit: /dev/sgN, which every unit has, and the disk, which
  /// depends on its type.
  enum class Node { kGeneric, kBlock };

  /// Asks whether the kernel has made that node of the unit.
  using IsMade = std::function<bool(const std::string& unit, Node node)>;

  /// `complete` is called once for each unit, when its nodes are there or its time has passed.
  SCSIUnitAssembly(RunLoop& runLoop, IsMade isMade,
                   std::function<void(const std::string& unit)> complete)
      : runLoop_(runLoop), isMade_(std::move(isMade)), complete_(std::move(complete)) {}
  ~SCSIUnitAssembly();
  SCSIUnitAssembly(const SCSIUnitAssembly&) = delete;
  SCSIUnitAssembly& operator=(const SCSIUnitAssembly&) = delete;

  /// The unit is there. `wantsBlock` tells whether it gets a block device at all. Seeing something
  /// twice changes nothing.
  void unitSeen(std::string_view unit, bool wantsBlock);
  /// A node of the unit is there, which may be seen before the unit itself.
  void nodeSeen(std::string_view unit, bool wantsBlock, Node node);
  /// The unit went, complete or not: it is not waited for any more.
  void unitGone(std::string_view unit);
  /// True between the first that was seen of the unit and its completion.
  bool isWaiting(std::string_view unit) const;

 private:
  /// A unit on its way, with what has been seen of it. Order does not matter: several udev workers
  /// run at once, and a node's event may overtake another's.
  struct Waiting {
    std::string unit;
    /// By the peripheral type, which is known from the first event on.
    bool wantsBlock;
    bool hasGeneric = false;
    bool hasBlock = false;
    std::chrono::milliseconds waited{0};
    /// Ticks every kPatience while anything can come of it; never null.
    std::shared_ptr<Timer> timer;
  };

  /// Whether its clock need not tick any more.
  bool isOutOfPatience(const Waiting& waiting) const;
  /// The record of `unit`; starts its clock when there is none yet. Valid until the next call.
  Waiting& waitingFor(std::string_view unit, bool wantsBlock);
  /// Another kPatience has passed for a unit that is on its way.
  void tick(const std::string& unit);
  /// The unit is on its way no more: its record goes first, so that `complete` finds it gone.
  void finish(std::string_view unit);

  RunLoop& runLoop_;
  IsMade isMade_;
  std::function<void(const std::string&)> complete_;
  /// Two or three at most: units are plugged one at a time.
  std::vector<Waiting> waiting_;
};

}  // namespace tarvo
