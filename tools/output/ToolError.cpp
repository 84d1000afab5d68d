#include "tools/output/ToolError.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Status.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct Advice {
  Status status;
  const char* words;
};

/// Response codes of ISO 15740 that only a user has to do with.
constexpr Status kPTPStoreNotAvailable = 0x2013;
constexpr Status kPTPInvalidDevicePropValue = 0x201C;

constexpr auto kAdvice = std::to_array<Advice>({
    {status::kFileNotFound, "Check the name."},
    {status::kDuplicateFile, "Use --overwrite, or --keep-both to keep both files."},
    {status::kIOError, "Check that there is room and that you may write there."},
    {status::kBadParameter, "Check what was given."},
    {status::kWriteNotPermitted, "It can be read only."},
    {status::kOutOfMemory, "Close other programs and try again."},
    {status::kCancelled, "Try again when you like."},
    {status::kFileTypeNotFound, "Give the file an extension that the device knows."},
    {status::kNotAFile, "Only plain files can be sent."},
    {status::kUnsupported, "This kind of device cannot do it."},
    {status::kICADeviceBusy, "Close the program that uses the device and try again."},
    {status::kICAAccessDenied,
     "Install the udev rule (70-tarvo.rules) and plug the device in again."},
    {status::kICADeviceGone, "Plug the device in again."},
    {status::kICATimeout, "Switch the device off and on; a slow one may need a longer --timeout."},
    {status::kICAProtocolError, "Try again; if it stays so, switch the device off and on."},
    {status::kIOReturnNoDevice, "Plug the device in again."},
    {status::kIOReturnNotPrivileged,
     "Install the udev rule (70-tarvo.rules), and do it in the session at the screen."},
    {status::kIOReturnExclusiveAccess, "Close the program that uses the device and try again."},
    {status::kDAReturnNotPermitted, "Do it in the session at the screen."},
    {status::kDAReturnNotReady,
     "Check that the UDisks2 service (udisks2) is installed and that the system bus runs."},
    {status::kIOReturnBusy, "Close what uses it and try again."},
    {status::kIOReturnTimeout, "Try again; if it stays so, switch the device off and on."},
    {status::kPTPGeneralError, "Try again; if it stays so, switch the device off and on."},
    {status::kPTPSessionNotOpen, "Plug the device in again."},
    {status::kPTPOperationNotSupported, "'tarvoctl info' shows what the device can do."},
    {status::kPTPIncompleteTransfer,
     "Check the cable and try again; if it stays so, switch the device off and on."},
    {status::kPTPInvalidStorageID, "'tarvoctl storage list' shows the stores."},
    {status::kPTPInvalidObjectHandle, "'tarvoctl ls --recursive' shows the objects."},
    {status::kPTPDevicePropNotSupported, "'tarvoctl property list' shows the properties."},
    {status::kPTPInvalidObjectFormatCode, "The device does not take files of this kind."},
    {status::kPTPStoreFull, "Make room with 'tarvoctl rm', or use another store."},
    {status::kPTPObjectWriteProtected, "Take the protection off on the device."},
    {status::kPTPStoreReadOnly, "Check the lock of the memory card."},
    {status::kPTPAccessDenied, "Unlock the device, or allow it there."},
    {status::kPTPNoThumbnailPresent, "Fetch the object itself, without --thumbnail."},
    {status::kPTPDeviceBusy, "Wait until the device is idle and try again."},
    {status::kPTPInvalidParentObject, "'tarvoctl ls --recursive' shows the folders."},
    {status::kPTPInvalidParameter, "Check what was given."},
    {status::kPTPTransactionCancelled, "Try again."},
    {kPTPStoreNotAvailable, "Check that the memory card is in its slot."},
    {kPTPInvalidDevicePropValue, "'tarvoctl property get' shows which values are allowed."},
});

}  // namespace

std::string adviceFor(Status status) {
  const auto* row = std::ranges::find(kAdvice, status, &Advice::status);
  return row == kAdvice.end() ? "" : row->words;
}

bool isDeviceLost(Status status) {
  return status == status::kICADeviceGone || status == status::kICATimeout;
}

std::string statusWithHex(Status status) {
  std::string words = statusText(status);
  if (words.find("0x") != std::string::npos) return words;
  const auto hex = formatted("0x%x", static_cast<unsigned>(status));
  if (words.ends_with(')')) {
    words.pop_back();
    return words + ", " + hex + ")";
  }
  return words + " (" + hex + ")";
}

std::string inWords(const Failure& failure) {
  std::string words = failure.operation;
  const auto append = [&words](const char* separator, const std::string& text) {
    if (text.empty()) return;
    if (!words.empty()) words += separator;
    words += text;
  };
  append(" ", failure.object);
  if (failure.status != status::kOK) append(": ", statusWithHex(failure.status));
  append(": ", failure.why);
  const std::string advice = failure.advice.empty() ? adviceFor(failure.status) : failure.advice;
  if (!advice.empty() && !words.ends_with('.')) words += '.';
  append(" ", advice);
  return printable(words);
}

PropertyDictionary asJSON(const Failure& failure) {
  PropertyDictionary json = PropertyDictionary::object();
  const auto put = [&json](const char* key, const std::string& text) {
    if (!text.empty()) json[key] = validUTF8(text);
  };
  put("operation", failure.operation);
  put("object", failure.object);
  if (failure.status != status::kOK) {
    json["status"] = failure.status;
    json["statusHex"] = formatted("0x%x", static_cast<unsigned>(failure.status));
  }
  put("message", inWords(failure));
  put("why", failure.why);
  put("advice", failure.advice.empty() ? adviceFor(failure.status) : failure.advice);
  return json;
}

ToolError::ToolError(Failure failure, ExitCode exitCode)
    : failure_(std::move(failure)), exitCode_(exitCode) {
  // Scripts tell failures by their status.
  if (exitCode_ == kFailed && failure_.status == status::kOK)
    failure_.status = status::kBadParameter;
  what_ = inWords(failure_);
}

void refuseUsage(const std::string& operation, const std::string& why) {
  throw ToolError({.operation = operation,
                   .why = why,
                   .advice = formatted("Try 'tarvoctl %s --help'.", operation.c_str())},
                  kBadUsage);
}

}  // namespace tarvo::tools
