// A node of the SCSI generic driver over a virtual unit: SG_IO in its third version and the
// questions that come before it, as the kernel answers them (scsi/sg.h, drivers/scsi/sg.c). The
// exclusive opening of a node cannot be shown, as opening is not seen here.
#pragma once

#include <umockdev.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "simulator/testbed/BulkOnlyHost.h"
#include "simulator/testbed/IoctlMemory.h"

namespace tarvo::simulator {

/// Constructed and unplugged on the main thread; ioctls come on the testbed's worker thread, and
/// commands run on one of the node's own, as a unit that is silent must not hold up other devices.
class SgNode : public std::enable_shared_from_this<SgNode> {
 public:
  /// `host`: number of the SCSI host. `vanished` is called once, on any thread, when the unit
  /// unplugs itself.
  static std::shared_ptr<SgNode> create(unsigned host, std::shared_ptr<MassStorageUnit> unit,
                                        std::function<void()> vanished);
  ~SgNode();

  /// A handler to attach to the node; it keeps the node alive for as long as a client may call.
  GObjectPointer<UMockdevIoctlBase> makeHandler();

  /// From now on the unit is gone: what runs and all that comes fail with ENODEV. Waits until the
  /// clients have heard of it, or for `patience`.
  void unplug(std::chrono::milliseconds patience);

 private:
  /// A command of a client, whose memory has been fetched.
  struct Command {
    GObjectPointer<UMockdevIoctlClient> client;
    IoctlMemory header;
    IoctlMemory block;
    IoctlMemory data;
    IoctlMemory sense;
  };

  SgNode(unsigned host, std::shared_ptr<MassStorageUnit> unit, std::function<void()> vanished);
  static gboolean onIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);

  /// The result of an ioctl at once; a negative one is an error number. None: a command was queued.
  std::optional<long> handle(UMockdevIoctlClient* client, unsigned long request,
                             UMockdevIoctlData* argument);
  std::optional<long> queue(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
  long unitNumbers(UMockdevIoctlData* argument) const;
  void work();
  /// 0, or a negative error number.
  long run(Command& command);
  /// Tells the owner once when the unit has unplugged itself.
  void checkVanished();

  unsigned host_;
  std::shared_ptr<MassStorageUnit> unit_;
  BulkOnlyHost transport_;

  std::mutex mutex_;                ///< guards what follows
  std::condition_variable queued_;  ///< a command was queued, or the node ends
  std::condition_variable idle_;    ///< nothing is queued or runs
  std::deque<Command> commands_;    ///< the one in front runs
  std::function<void()> vanished_;  ///< empty once it was called
  bool isGone_ = false;
  bool ends_ = false;
  std::thread worker_;
};

}  // namespace tarvo::simulator
