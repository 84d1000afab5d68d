#include "NativeServices/PictureDevice/devices/DeviceInspection.h"

#include <chrono>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo {

namespace {

// Who holds an interface often lets it go soon: a volume monitor that looks at every new camera.
constexpr std::chrono::seconds kRetryInterval{1};
constexpr int kRetryLimit = 10;

/// The exception with the status of the failed transaction, where it has one.
std::string inWords(const std::exception& exception) {
  std::string words = exception.what();
  // Only our own exceptions carry user information.
  const auto* raised = dynamic_cast<const Exception*>(&exception);
  if (!raised) return words;
  const Status status = int32ForKey(raised->userInfo(), "ptpResponseCode").value_or(status::kOK);
  return status == status::kOK ? words : words + ": " + statusText(status);
}

}  // namespace

bool isOfMaker(const PropertyDictionary& properties, const MakerConstants& maker) {
  return int32ForKey(properties, "idVendor") == std::int32_t{maker.usbVendorID};
}

std::shared_ptr<XTImageCaptureDevice> DeviceInspection::run() {
  Status failure = status::kOK;
  std::string why;
  // Everything that is asked of the device shares one session. The interface is free again when
  // this returns, so that who hears of the device can claim it.
  const auto scope = room_.services().imageCapture.openScope(object_, &failure, &why);
  if (!scope) {
    interfaceRefused(failure, why);
    return nullptr;
  }
  // The retries start anew, should the interface be held at another arrival.
  room_.pendingInspections().forget(object_);
  return build();
}

std::shared_ptr<XTImageCaptureDevice> DeviceInspection::build() {
  try {
    std::string why;
    auto device = XTImageCaptureDevice::deviceFromICAObject(object_, &properties_, &why);
    // Without words it is a device that nobody wants, which is nothing to report.
    if (!device && !why.empty()) report("is not used: " + why);
    return device;
  } catch (const std::exception& exception) {
    TraceLog::trace("handling uncaught exception in completeDeviceInspection: %s",
                    exception.what());
    report("is not used: " + inWords(exception));
    return nullptr;
  }
}

void DeviceInspection::interfaceRefused(Status failure, const std::string& why) {
  auto& pending = room_.pendingInspections();
  const std::string words = why.empty() ? statusText(failure) : why;
  const bool isWorthARetry =
      failure == status::kICADeviceBusy && isOfMaker(properties_, room_.services().maker);
  const int retry = isWorthARetry ? pending.countRetry(object_, kRetryLimit) : 0;
  if (retry != 0) {
    // Said at once, so that a user need not wait for the last attempt to learn whom to end.
    if (retry == 1) report("is waited for: " + words);
    // A timer waits, not the loop: other devices come and go meanwhile.
    pending.schedule(object_, kRetryInterval,
                     [object = object_] { inspectGuarded(object, "completeDeviceInspection"); });
    return;
  }
  pending.forget(object_);
  report("cannot be opened: " + words);
}

void DeviceInspection::report(const std::string& what) const {
  const auto& services = room_.services();
  const auto location = int32ForKey(properties_, "locationID").value_or(0);
  const auto name = textForKey(properties_, "ifil").value_or("");
  logTo(services.log,
        isOfMaker(properties_, services.maker) ? LogLevel::kWarning : LogLevel::kDebug,
        formatted("'%s' at 0x%08x ", name.c_str(), static_cast<unsigned>(location)) + what);
}

void inspectGuarded(ICAObject object, const char* entry) {
  // A timer can fire between the end of the room and that of the loop.
  auto* room = PictureDeviceRoom::current();
  if (!room) return;
  try {
    XTImageCaptureDevice::primeICADevice(object);
  } catch (const std::exception& exception) {
    const auto line = formatted("handling uncaught exception in %s: %s", entry, exception.what());
    TraceLog::trace("%s", line.c_str());
    logTo(room->services().log, LogLevel::kError, line);
  }
}

}  // namespace tarvo
