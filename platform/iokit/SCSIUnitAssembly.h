// Holds a SCSI unit back until udev has processed the device nodes below it: a unit that is
// announced earlier has no block device yet, and its generic node cannot be opened.
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
  /// How long a unit waits for its nodes; a driver that makes none is not waited for longer.
  static constexpr std::chrono::milliseconds kPatience{1000};

  enum class Node { kGeneric, kBlock };

  /// `complete` is called once for each unit, when its nodes are there or its time has passed.
  SCSIUnitAssembly(RunLoop& runLoop, std::function<void(const std::string& unit)> complete)
      : runLoop_(runLoop), complete_(std::move(complete)) {}
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
    bool wantsBlock;
    bool hasGeneric = false;
    bool hasBlock = false;
    std::shared_ptr<Timer> timer;
  };

  Waiting& waitingFor(std::string_view unit, bool wantsBlock);
  void finish(std::string_view unit);

  RunLoop& runLoop_;
  std::function<void(const std::string&)> complete_;
  std::vector<Waiting> waiting_;
};

}  // namespace tarvo
