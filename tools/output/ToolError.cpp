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

/// A response code of ISO 15740 that only a user has to do with.
constexpr Status kPTPInvalidDevicePropValue = 0x201C;

/// Where a command helps; for the rest the library knows what does.
constexpr auto kAdvice = std::to_array<Advice>({
    {status::kDuplicateFile, "Use --overwrite, or --keep-both to keep both files."},
    {status::kICATimeout, "Switch the device off and on; where it is only slow, add --timeout 60."},
    {status::kPTPOperationNotSupported, "'tarvoctl info --long' shows what the device can do."},
    {status::kPTPInvalidStorageID, "'tarvoctl storage list' shows the stores."},
    {status::kPTPInvalidObjectHandle, "'tarvoctl ls --recursive' shows the objects."},
    {status::kPTPDevicePropNotSupported, "'tarvoctl property list' shows the properties."},
    {status::kPTPStoreFull, "Make room with 'tarvoctl rm', or use another store."},
    {status::kPTPNoThumbnailPresent, "Fetch the object itself, without --thumbnail."},
    {status::kPTPInvalidParentObject, "'tarvoctl ls --recursive' shows the folders."},
    {kPTPInvalidDevicePropValue, "'tarvoctl property get' shows which values are allowed."},
});

}  // namespace

std::string adviceFor(Status status) {
  const auto* row = std::ranges::find(kAdvice, status, &Advice::status);
  return row == kAdvice.end() ? Error::adviceFor(status) : row->words;
}

Failure failureOf(const Error& error, const std::string& object) {
  // What goes with the status is said in the words of commands.
  const bool isGeneral = error.advice() == Error::adviceFor(error.status());
  return {.object = object.empty() ? error.object() : object,
          .status = error.status(),
          .why = error.reason(),
          .advice = isGeneral ? "" : error.advice()};
}

std::string inWords(const Failure& failure) {
  return inWords(
      FailureWords{.operation = failure.operation,
                   .object = failure.object,
                   .status = failure.status,
                   .why = failure.why,
                   .advice = failure.advice.empty() ? adviceFor(failure.status) : failure.advice});
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
}

void refuseUsage(const std::string& why) {
  throw ToolError({.why = why}, kBadUsage);
}

}  // namespace tarvo::tools
