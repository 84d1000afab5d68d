#include "tools/access/OpenedDevice.h"

#include <glib.h>

#include <chrono>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "platform/foundation/Numbers.h"

namespace tarvo::tools {
namespace {

// The agent's look at a new camera is over in a fraction of this.
constexpr int kAttempts = 10;
constexpr gulong kAttemptIntervalMicroseconds = 200000;

}  // namespace

OpenedDevice::OpenedDevice(ToolContext& context, std::string operation)
    : context_(context),
      operation_(std::move(operation)),
      summary_(chooseDevice(context, operation_)) {
  if (!summary_.speaksPTP)
    throw ToolError({.operation = operation_,
                     .object = summary_.name,
                     .status = status::kUnsupported,
                     .why = "it is a volume, which does not speak PTP",
                     .advice = "Its files are in " + summary_.path + "."});
  open();
  load();
}

void OpenedDevice::open() {
  Status failure = status::kOK;
  std::string why;
  auto& imageCapture = context_.platform.services().imageCapture;
  for (int attempt = 1; !scope_ && attempt <= kAttempts; ++attempt) {
    endIfInterrupted(context_, operation_);
    if (attempt > 1) g_usleep(kAttemptIntervalMicroseconds);
    scope_ = imageCapture.openScope(summary_.object, &failure, &why);
    if (failure != status::kICADeviceBusy) break;
  }
  if (!scope_) throw ToolError(this->failure(inWords(summary_), failure, why));
}

void OpenedDevice::load() {
  Status failure = status::kOK;
  device_ = XTImageCapturePTPDevice::withICAObject(summary_.object, &failure);
  if (device_) return;
  endIfInterrupted(context_, operation_);
  throw ToolError(this->failure(inWords(summary_), failure, "its information cannot be read"));
}

XTPictureDevice& OpenedDevice::device() const {
  return *device_;
}

PTPTransactions& OpenedDevice::transactions() const {
  return *device_;
}

Status OpenedDevice::explained(Status status) const {
  if (status == status::kOK || !device_) return status;
  const Status transport = device_->lastMessageStatus();
  // A transfer that this side has ended (a file that cannot be written) is known here already.
  if (transport == status::kOK || transport == status::kCancelled) return status;
  const bool saysLittle = status == status::kPTPGeneralError || status == status::kIOError;
  return saysLittle || isDeviceLost(status) ? transport : status;
}

bool OpenedDevice::isLost(Status status) const {
  return context_.interrupt.isSet() || isDeviceLost(explained(status));
}

Failure OpenedDevice::failure(const std::string& object, Status status, std::string why) const {
  Failure failure = {.operation = operation_,
                     .object = object,
                     .status = explained(status),
                     .why = std::move(why)};
  // The same status stands for files that cannot be written, where other advice helps.
  const bool isOnTheBus = device_ && device_->lastMessageStatus() == status::kIOError;
  if (failure.status == status::kIOError && isOnTheBus)
    failure.advice = "Check the cable and try again.";
  return failure;
}

void OpenedDevice::require(Status status, const std::string& object) const {
  if (status == status::kOK || status == status::kPTPOK) return;
  endIfInterrupted(context_, operation_);
  throw ToolError(failure(object, status));
}

void OpenedDevice::failWithout(const std::string& object) const {
  endIfInterrupted(context_, operation_);
  const Status outcome = transactions().lastOutcome();
  throw ToolError(failure(object, outcome == status::kOK ? status::kPTPGeneralError : outcome));
}

ObjectHandles OpenedDevice::objectHandles(std::uint16_t format, const std::string& what) const {
  ObjectHandles handles;
  require(ObjectListing(transactions()).handles({.format = format}, handles), what);
  return handles;
}

std::string handleText(std::uint32_t handle) {
  return formatted("0x%08x", unsigned{handle});
}

std::uint32_t numberArgument(const std::string& operation, const std::string& what,
                             const std::string& text, std::uint32_t maximum) {
  const auto number = numberOf(text, maximum);
  if (!number) refuseUsage(operation, "'" + text + "' is no " + what);
  return static_cast<std::uint32_t>(*number);
}

}  // namespace tarvo::tools
