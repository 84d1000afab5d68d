// SCSI commands through Linux's SCSI generic driver, by way of libsgutils2.
//
// No node is held open: a multimedia command opens it for itself, exclusive access for one task.
// Which node it is is asked of the registry each time, so that a unit that has gone is never
// mistaken for the one that got its node.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "Utilities/LogSink.h"
#include "platform/iokit/Registry.h"
#include "platform/iokit/SCSITask.h"

namespace tarvo {

/// Main thread only. The interfaces that it makes may outlive it, but not the registry.
class SgSCSIServices : public SCSIServices {
 public:
  /// open(2), as far as it is needed: a descriptor, or -1 and errno.
  using OpenNode = std::function<int(const char* path, int flags)>;

  /// `log` gets every command and its data in hexadecimal, at debug level. `interrupted`, which may
  /// be null and is lent, ends the wait for a command once it is true.
  SgSCSIServices(Registry& registry, const std::atomic<bool>* interrupted, LogSink log,
                 OpenNode openNode = openDeviceNode);

  /// 0xE00002C0 where there is no such unit or it has no generic node. The node itself is not
  /// looked at: who may not open it learns it from the first command.
  ///
  /// Of every interface that comes from here: 0xE00002C0 the unit has gone, 0xE00002C1 the node may
  /// not be opened or the command not be sent by this user, 0xE00002C5 another program has the
  /// node for itself, 0xE00002D6 no answer in time (6 s for multimedia commands), 0xE00002EB
  /// interrupted, 0xE00002BC anything else.
  std::shared_ptr<MMCDeviceInterface> createMMCDevice(ServiceHandle service,
                                                      Status& failure) override;

  static int openDeviceNode(const char* path, int flags);

 private:
  Registry& registry_;
  const std::atomic<bool>* interrupted_;
  LogSink log_;
  OpenNode openNode_;
};

}  // namespace tarvo
