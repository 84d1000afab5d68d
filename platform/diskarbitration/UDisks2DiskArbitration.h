// Disk Arbitration over UDisks2 (UDisks reference manual, "D-Bus API Reference").
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"
#include "platform/diskarbitration/DiskArbitration.h"
#include "platform/diskarbitration/UDisks2Objects.h"
#include "platform/foundation/GlibPtr.h"
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

// One caller's operations on disks, and the private main context in which they go on.

/// Main thread only. Answers arrive in run() alone, and with them every callback.
class UDisks2Session : public DASession {
 public:
  using MakeTimeout = std::function<GSource*(std::chrono::milliseconds)>;

  /// Without a connection every operation has a dissenter. The others are as for
  /// UDisks2DiskArbitration.
  UDisks2Session(GObjectPtr<GDBusConnection> connection, Registry& registry,
                 const Interrupt* interrupt, LogSink log, MakeTimeout makeTimeout);
  /// Gives up what is under way, without waiting for the service.
  ~UDisks2Session() override;
  UDisks2Session(const UDisks2Session&) = delete;
  UDisks2Session& operator=(const UDisks2Session&) = delete;

  void unmount(const DADisk& disk, Callback done) override;
  void eject(const DADisk& disk, Callback done) override;
  void mount(const DADisk& disk, std::string_view location, Callback done) override;
  bool run(std::chrono::milliseconds& left) override;
  void stop() override { stopped_ = true; }
  std::string awaited() const override;

 private:
  /// Exactly one of the two is null.
  using Answer = std::function<void(GVariant* reply, const GError* error)>;
  using Blocks = std::vector<BlockObject>;
  using Found = std::function<void(const Blocks& all, const BlockObject& block)>;
  /// An operation on a disk that is to be found first.
  struct Search {
    DADisk disk;
    Callback done;
    Found found;
  };
  /// Filesystems that are still to be unmounted.
  struct Unmounting;
  /// A call under way; see the source.
  struct Call;

  AttachedSource attachedClock(std::chrono::milliseconds limit, bool& late);
  AttachedSource attachedSignals();
  bool isInterrupted() const { return interrupt_ && interrupt_->isSet(); }
  /// Asks for every disk and finds the one among them, at the latest when the service tells that it
  /// has come; a failure ends the operation.
  void lookUp(Search search);
  void disksCame(Search search, const Blocks& blocks);
  /// From now on the service tells of disks that come.
  void hearOfDisks();
  void askForAwaited();
  /// Why nothing may be done to that disk for the USB device; none where it is the device's alone.
  std::optional<DADissenter> objection(const std::string& bsdName, ServiceHandle usbDevice);
  /// The first objection to a block device that is mounted there.
  std::optional<DADissenter> objectionAt(const std::string& mountPoint, const Blocks& all,
                                         ServiceHandle usbDevice);
  void unmountNext(const std::shared_ptr<Unmounting>& work);
  /// A call of an operation that ends with it. `alreadyDone` names the error that is none.
  void finalCall(const std::string& path, const char* interface, const char* method,
                 const char* alreadyDone, Callback done);
  void call(const std::string& path, const char* interface, const char* method, GVariant* arguments,
            const char* replyType, Answer answer);
  /// What a call on a closed connection is answered, from run() like every answer.
  void answerClosed(Answer answer);
  void succeed(const Callback& done);
  void refuse(const Callback& done, const DADissenter& dissenter);

  GObjectPtr<GDBusConnection> connection_;
  Registry& registry_;
  const Interrupt* interrupt_;
  LogSink log_;
  MakeTimeout makeTimeout_;
  GMainContextPtr context_{g_main_context_new()};
  GObjectPtr<GCancellable> cancellable_{g_cancellable_new()};
  int callsUnderWay_ = 0;
  guint arrivals_ = 0;           ///< the subscription to disks that come; 0: none
  std::vector<Search> awaited_;  ///< those whose disk the service does not know yet
  bool stopped_ = false;
};

}  // namespace tarvo
