#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <ostream>
#include <utility>

#include "Utilities/Exception.h"
#include "Utilities/Printable.h"
#include "library/access/Failure.h"

namespace tarvo {
namespace {

struct Meaning {
  Status status;
  ErrorKind kind;
  const char* advice;  ///< empty where nobody knows
};

constexpr const char* kOffAndOn = "Try again; if it stays so, switch the device off and on.";
constexpr const char* kPlugIn = "Plug the device in again.";
constexpr const char* kCloseProgram = "Close the program that uses the device and try again.";
constexpr const char* kAtTheScreen =
    "Install the udev rule (70-tarvo.rules), and do it in the session at the screen.";

constexpr auto kMeanings = std::to_array<Meaning>({
    {status::kFileNotFound, ErrorKind::kNotFound, "Check the name."},
    {status::kDuplicateFile, ErrorKind::kExists, ""},
    {status::kIOError, ErrorKind::kHost, "Check that you may read and write there."},
    {status::kBadParameter, ErrorKind::kMisuse, "Check what was given."},
    {status::kWriteNotPermitted, ErrorKind::kNotPermitted, "It can be read only."},
    {status::kOutOfMemory, ErrorKind::kHost, "Close other programs and try again."},
    {status::kCancelled, ErrorKind::kCancelled, "Try again when you like."},
    {status::kFileTypeNotFound, ErrorKind::kMisuse,
     "Give the file an extension that the device knows."},
    {status::kNotAFile, ErrorKind::kRefused, "Only plain files can be sent."},
    {status::kUnsupported, ErrorKind::kUnsupported, "This kind of device cannot do it."},
    {status::kObjectTooLarge, ErrorKind::kTooLarge, ""},
    {status::kICADeviceBusy, ErrorKind::kBusy, kCloseProgram},
    {status::kICATransactionRunning, ErrorKind::kMisuse, ""},
    {status::kICAAccessDenied, ErrorKind::kNotPermitted,
     "Install the udev rule (70-tarvo.rules) and plug the device in again."},
    {status::kICADeviceGone, ErrorKind::kGone, kPlugIn},
    {status::kICATimeout, ErrorKind::kTimedOut,
     "Switch the device off and on; where it is only slow, give it more time."},
    {status::kICAOutOfTime, ErrorKind::kTimedOut, ""},
    {status::kICAProtocolError, ErrorKind::kBroken, kOffAndOn},
    {status::kIOReturnNoDevice, ErrorKind::kGone, kPlugIn},
    {status::kIOReturnNotPrivileged, ErrorKind::kNotPermitted, kAtTheScreen},
    {status::kIOReturnExclusiveAccess, ErrorKind::kBusy, kCloseProgram},
    {status::kIOReturnBusy, ErrorKind::kBusy, "Close what uses it and try again."},
    {status::kIOReturnTimeout, ErrorKind::kTimedOut, kOffAndOn},
    {status::kIOReturnAborted, ErrorKind::kCancelled, ""},
    {status::kDAReturnNotPermitted, ErrorKind::kNotPermitted,
     "Do it in the session at the screen."},
    {status::kDAReturnNotReady, ErrorKind::kHost,
     "Check that the UDisks2 service (udisks2) is installed and that the system bus runs."},
    {status::kPTPGeneralError, ErrorKind::kRefused, kOffAndOn},
    {status::kPTPSessionNotOpen, ErrorKind::kGone, kPlugIn},
    {status::kPTPOperationNotSupported, ErrorKind::kUnsupported, ""},
    {status::kPTPIncompleteTransfer, ErrorKind::kBroken,
     "Check the cable and try again; if it stays so, switch the device off and on."},
    {status::kPTPInvalidObjectHandle, ErrorKind::kNotFound, ""},
    {status::kPTPDevicePropNotSupported, ErrorKind::kNotFound, ""},
    {status::kPTPInvalidObjectFormatCode, ErrorKind::kUnsupported,
     "The device does not take files of this kind."},
    {status::kPTPStoreFull, ErrorKind::kTooLarge, "Make room on the device, or use another store."},
    {status::kPTPObjectWriteProtected, ErrorKind::kNotPermitted,
     "Take the protection off on the device."},
    {status::kPTPStoreReadOnly, ErrorKind::kNotPermitted, "Check the lock of the memory card."},
    {status::kPTPAccessDenied, ErrorKind::kNotPermitted, "Unlock the device, or allow it there."},
    {status::kPTPStoreNotAvailable, ErrorKind::kNotFound,
     "Check that the memory card is in its slot."},
    {status::kPTPDeviceBusy, ErrorKind::kBusy, "Wait until the device is idle and try again."},
    {status::kPTPInvalidParameter, ErrorKind::kRefused, "Check what was given."},
    {status::kPTPTransactionCancelled, ErrorKind::kCancelled, "Try again."},
});

const Meaning* meaningOf(Status status) {
  const auto* row = std::ranges::find(kMeanings, status, &Meaning::status);
  return row == kMeanings.end() ? nullptr : row;
}

}  // namespace

Error::Error(std::shared_ptr<const Details> details) noexcept : details_(std::move(details)) {}
Error::Error(const Error&) noexcept = default;
Error& Error::operator=(const Error&) noexcept = default;
Error::~Error() = default;

ErrorKind Error::kind() const noexcept { return *details_->failure.kind; }
std::int32_t Error::status() const noexcept { return details_->failure.status; }
const std::string& Error::operation() const noexcept { return details_->failure.operation; }
const std::string& Error::object() const noexcept { return details_->failure.object; }
const std::string& Error::reason() const noexcept { return details_->failure.why; }
const std::string& Error::advice() const noexcept { return details_->failure.advice; }
const char* Error::what() const noexcept { return details_->what.c_str(); }
const std::string& Error::part() const noexcept { return details_->failure.part; }
std::uint64_t Error::kept() const noexcept { return details_->failure.kept; }
bool Error::endsDevice() const noexcept { return library::isDeviceLost(status()); }

std::string Error::inWords(std::int32_t status) { return statusText(status); }

std::string Error::adviceFor(std::int32_t status) {
  const Meaning* meaning = meaningOf(status);
  return meaning ? meaning->advice : "";
}

std::ostream& operator<<(std::ostream& out, const Error& error) { return out << error.what(); }

namespace library {

Error errorOf(Failure failure) {
  const Meaning* meaning = meaningOf(failure.status);
  if (!failure.kind) failure.kind = meaning ? meaning->kind : ErrorKind::kRefused;
  const bool hasNoRoom =
      failure.kind == ErrorKind::kDiskFull || failure.kind == ErrorKind::kTooLarge;
  if (failure.advice.empty() && hasNoRoom && failure.status == status::kIOError)
    failure.advice = "Make room on the disk of this computer, or choose another folder.";
  if (failure.advice.empty() && meaning) failure.advice = meaning->advice;
  std::string what = inWords(FailureWords{.operation = failure.operation,
                                          .object = failure.object,
                                          .status = failure.status,
                                          .why = failure.why,
                                          .advice = failure.advice});
  return Error(
      std::make_shared<const Error::Details>(Error::Details{std::move(failure), std::move(what)}));
}

void raise(Failure failure) { throw errorOf(std::move(failure)); }

void refuse(std::string why, std::string object) {
  raise({.object = std::move(object), .why = std::move(why), .kind = ErrorKind::kMisuse});
}

Error named(const Error& error, const char* operation) {
  if (!error.operation().empty()) return error;
  Failure failure = Error::Details::of(error).failure;
  failure.operation = operation;
  return errorOf(std::move(failure));
}

Error errorOfRaised(const char* operation) {
  try {
    throw;
  } catch (const Exception& exception) {
    Failure failure = {.why = exception.reason(), .operation = operation};
    if (exception.name() == exception_name::kInvalidArgument) {
      // Preferences that cannot be read.
      failure.kind = ErrorKind::kHost;
    } else {
      const bool isMemory = exception.name() == exception_name::kMalloc;
      failure.status = int32ForKey(exception.userInfo(), "ptpResponseCode")
                           .value_or(isMemory ? status::kOutOfMemory : status::kICAProtocolError);
    }
    return errorOf(std::move(failure));
  } catch (const std::bad_alloc&) {
    return errorOf({.status = status::kOutOfMemory, .operation = operation});
  }
}

bool isDeviceLost(Status status) {
  return status == status::kICADeviceGone || status == status::kICATimeout;
}

}  // namespace library
}  // namespace tarvo
