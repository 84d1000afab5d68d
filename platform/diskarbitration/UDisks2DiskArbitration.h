// Disk Arbitration over UDisks2 (UDisks reference manual, "D-Bus API Reference").
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"
#include "platform/diskarbitration/DiskArbitration.h"
#include "platform/foundation/Interrupt.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only. A session asks on the connection that there is when it is made, and its
/// operations end with a dissenter at once when the bus or the service goes.
///
/// A mount's location is UDisks2's to choose; the one that is asked for is logged and not used.
/// What is unmounted or mounted already counts as done.
class UDisks2DiskArbitration : public DiskArbitration {
 public:
  /// Makes the source, not yet attached, that ends a wait. The caller takes its reference over.
  using MakeTimeout = std::function<GSource*(std::chrono::milliseconds)>;

  /// All must outlive it. `registry` tells whose a disk is: UDisks2 takes two devices of one serial
  /// number for one drive. `interrupt`, which may be null, ends waits. `log` gets the calls and
  /// their ends at debug level.
  UDisks2DiskArbitration(BusConnection& systemBus, Registry& registry, const Interrupt* interrupt,
                         LogSink log, MakeTimeout makeTimeout = monotonicTimeout);

  std::unique_ptr<DASession> createSession() override;
  bool isInterrupted() const override { return interrupt_ && interrupt_->isSet(); }

  static GSource* monotonicTimeout(std::chrono::milliseconds limit);

 private:
  BusConnection& systemBus_;
  Registry& registry_;
  const Interrupt* interrupt_;
  LogSink log_;
  MakeTimeout makeTimeout_;
};

}  // namespace tarvo
