// What lets go of the unit's volumes: disk arbitration and the tray.
#include <chrono>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "msc/MSCRoom.h"
#include "msc/TarvoMSCDevice.h"

namespace tarvo {

namespace {

constexpr Status kDiskFailure = -1;
constexpr bool kWholeDisk = true;

using DiskContext = TarvoMSCDevice::DiskContext;

void DiskUnmountCallback(const std::string& disk, const DADissenter* dissenter,
                         DiskContext* context) {
  if (!context || !context->self) raiseAssertion("No self pointer in DiskUnmountCallback context.");
  context->self->diskUnmounted(disk, dissenter, context);
}

void DiskMountCallback(const std::string& disk, const DADissenter* dissenter,
                       DiskContext* context) {
  if (!context || !context->self) raiseAssertion("No self pointer in DiskMountCallback context.");
  context->self->diskMounted(disk, dissenter, context);
}

/// A session is known in the log by a number.
unsigned numberOf(const DASession& session) {
  return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(&session));
}

}  // namespace

Status TarvoMSCDevice::unmountMedia() {
  unmountTimeLeft_ = kDiskTimeout;
  return unmountWithin(unmountTimeLeft_);
}

Status TarvoMSCDevice::unmountWithin(std::chrono::milliseconds& left) {
  lastFailure_ = {};
  Status result = status::kOK;
  if (_service != 0) {
    if (const auto name = bsdName()) {
      result = unmountAllPartitionsWithin(*name, left);
      if (result != status::kOK) TraceLog::trace("Could not unnount %s.", name->c_str());
    } else {
      TraceLog::trace("No bsd name for service %8x.", _service);
    }
  }
  // True, too, when there was nothing to unmount; this is intended, and ejectTray counts on it.
  _isUnmounted = result == status::kOK;
  return result;
}

Status TarvoMSCDevice::unmountAllPartitions(const std::string& bsdName) {
  auto left = kDiskTimeout;
  return unmountAllPartitionsWithin(bsdName, left);
}

Status TarvoMSCDevice::unmountAllPartitionsWithin(const std::string& bsdName,
                                                  std::chrono::milliseconds& left) {
  return runDiskOperation(bsdName, left, DiskUnmountCallback,
                          [&](DASession& session, DASession::Callback done) {
                            session.unmount(bsdName, kWholeDisk, std::move(done));
                          });
}

Status TarvoMSCDevice::ejectMediaWithBSDName(const std::string& bsdName) {
  auto left = kDiskTimeout;
  return runDiskOperation(bsdName, left, DiskUnmountCallback,
                          [&](DASession& session, DASession::Callback done) {
                            session.eject(bsdName, std::move(done));
                          });
}

Status TarvoMSCDevice::remountMediaWithBSDName(const std::string& bsdName) {
  auto left = kDiskTimeout;
  return runDiskOperation(bsdName, left, DiskMountCallback,
                          [&](DASession& session, DASession::Callback done) {
                            session.mount(bsdName, _dcfVolumeName.value_or(""), std::move(done));
                          });
}

Status TarvoMSCDevice::runDiskOperation(const std::string& bsdName, std::chrono::milliseconds& left,
                                        DiskCompletion completion, const StartOperation& start) {
  lastFailure_ = {};
  // Before the session, which may call back until it ends.
  DiskContext context{this, kDiskFailure, nullptr};
  auto& diskArbitration = MSCRoom::required().services().diskArbitration;
  const auto session = diskArbitration.createSession();
  context.session = session.get();
  TraceLog::trace("scheduled session with RunLoop for bsdName = %s, session = %x", bsdName.c_str(),
                  numberOf(*session));
  TraceLog::trace("bsdNameCStr = %s", bsdName.c_str());
  TraceLog::trace("confirming %s == %s??", bsdName.c_str(), bsdName.c_str());
  start(*session, [&](const DADissenter* dissenter) { completion(bsdName, dissenter, &context); });
  const bool isStopped = session->run(left);
  if (!isStopped && diskArbitration.isInterrupted()) {
    fail(status::kCancelled, "the program was told to end");
  } else if (!isStopped) {
    fail(status::kIOReturnTimeout, session->awaited() + " within 20 seconds");
  }
  const Status result = isStopped && context.status == status::kOK ? status::kOK : kDiskFailure;
  TraceLog::trace("returning result = %d", result);
  return result;
}

void TarvoMSCDevice::diskUnmounted(const std::string& disk, const DADissenter* dissenter,
                                   DiskContext* context) {
  diskDone(disk, dissenter, *context);
}

void TarvoMSCDevice::diskMounted(const std::string& disk, const DADissenter* dissenter,
                                 DiskContext* context) {
  diskDone(disk, dissenter, *context);
}

void TarvoMSCDevice::diskDone(const std::string& disk, const DADissenter* dissenter,
                              DiskContext& context) {
  context.status = dissenter ? dissenter->status : status::kOK;
  if (dissenter) {
    fail(dissenter->status, dissenter->why);
    TraceLog::trace("Dissenter not null: %s status = %0x %s", disk.c_str(),
                    static_cast<unsigned>(dissenter->status), dissenter->why.c_str());
  }
  context.session->stop();
}

bool TarvoMSCDevice::ejectTray() {
  lastFailure_ = {};
  requireInterface();
  TraceLog::trace("Ejecting...");
  auto left = std::exchange(unmountTimeLeft_, kDiskTimeout);
  if (!_isUnmounted) unmountWithin(left);
  if (MSCRoom::required().services().diskArbitration.isInterrupted()) {
    fail(status::kCancelled, "the program was told to end");
    return false;
  }
  constexpr bool kIsOpen = true;
  senseData_ = {};
  const TrayLock lock = mounts().empty() ? TrayLock::kReleased : TrayLock::kRespected;
  if (const Status failed = _mmcDevice->setTrayState(kIsOpen, lock, senseData_);
      failed != status::kOK) {
    TraceLog::trace("Error: SetTrayState failed %x", static_cast<unsigned>(failed));
    TraceLog::trace("Error: Ejecting failed");
    fail(failed, "the unit did not open its tray" + senseInWords(senseData_));
    return false;
  }
  TraceLog::trace("Ejecting succeeded");
  return true;
}

}  // namespace tarvo
