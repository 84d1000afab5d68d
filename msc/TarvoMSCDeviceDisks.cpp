// What lets go of the unit's volumes: disk arbitration and the tray.
#include <chrono>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "msc/MSCRoom.h"
#include "msc/TarvoMSCDevice.h"

namespace tarvo {

namespace {

constexpr std::chrono::seconds kDiskTimeout{20};
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
  lastFailure_ = {};
  Status result = status::kOK;
  if (_service != 0) {
    if (const auto name = bsdName()) {
      result = unmountAllPartitions(*name);
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
  return runDiskOperation(bsdName, DiskUnmountCallback,
                          [&](DASession& session, DASession::Callback done) {
                            session.unmount(bsdName, kWholeDisk, std::move(done));
                          });
}

Status TarvoMSCDevice::ejectMediaWithBSDName(const std::string& bsdName) {
  return runDiskOperation(bsdName, DiskUnmountCallback,
                          [&](DASession& session, DASession::Callback done) {
                            session.eject(bsdName, std::move(done));
                          });
}

Status TarvoMSCDevice::remountMediaWithBSDName(const std::string& bsdName) {
  return runDiskOperation(bsdName, DiskMountCallback,
                          [&](DASession& session, DASession::Callback done) {
                            session.mount(bsdName, _dcfVolumeName.value_or(""), std::move(done));
                          });
}

Status TarvoMSCDevice::runDiskOperation(const std::string& bsdName, DiskCompletion completion,
                                        const StartOperation& start) {
  lastFailure_ = {};
  // Before the session, which may call back until it ends.
  DiskContext context{this, kDiskFailure, nullptr};
  const auto session = MSCRoom::required().services().diskArbitration.createSession();
  context.session = session.get();
  TraceLog::trace("scheduled session with RunLoop for bsdName = %s, session = %x", bsdName.c_str(),
                  numberOf(*session));
  TraceLog::trace("bsdNameCStr = %s", bsdName.c_str());
  TraceLog::trace("confirming %s == %s??", bsdName.c_str(), bsdName.c_str());
  start(*session, [&](const DADissenter* dissenter) { completion(bsdName, dissenter, &context); });
  const bool isStopped = session->run(kDiskTimeout);
  if (!isStopped) fail(status::kIOReturnTimeout, "the system did not answer within 20 seconds");
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
  if (!_isUnmounted) unmountMedia();
  constexpr bool kIsOpen = true;
  if (const Status failed = _mmcDevice->setTrayState(kIsOpen); failed != status::kOK) {
    TraceLog::trace("Error: SetTrayState failed %x", static_cast<unsigned>(failed));
    TraceLog::trace("Error: Ejecting failed");
    fail(failed, "the unit did not open its tray");
    return false;
  }
  TraceLog::trace("Ejecting succeeded");
  return true;
}

}  // namespace tarvo
