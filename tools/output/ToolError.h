// Why a command, or one object of it, failed: in words for a person, in fields for a script.
//
//   throw ToolError({.operation = "get", .object = "TARV0001.JPG", .status = status::kICATimeout});
#pragma once

#include <exception>
#include <string>

#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"
#include "tarvo/Error.h"

namespace tarvo::tools {

/// Exit statuses of tarvoctl.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,    ///< the device or the operation failed
  kBadUsage = 2,  ///< the command line makes no sense
  kNoDevice = 3,  ///< no such device, or none at all
  kInterrupted = 130,
};

/// What is known of a failure; what is empty is not said.
struct Failure {
  /// As a user names it: "get", "storage format". Of what ends a command runCommand() knows it.
  std::string operation{};
  std::string object{};  ///< what it was done to: a file, a handle, a property
  Status status = status::kOK;
  std::string why{};     ///< more than the status says, a clause
  std::string advice{};  ///< what to do; empty: what adviceFor() knows about the status
};

/// "get TARV0001.JPG: device did not answer in time: WHY. ADVICE (0xffffd950)". One line, without
/// control characters, whatever a device gave.
std::string inWords(const Failure& failure);
/// Keys "operation", "object", "status", "statusHex", "message", "why" and "advice", those that are
/// known. "message" is what inWords() gives.
PropertyDictionary asJSON(const Failure& failure);

/// What a user can do about it, a sentence; empty where nobody knows.
std::string adviceFor(Status status);
/// What the library raised, as a command says it: the operation is the command's own, `object` that
/// of the error where none is given.
Failure failureOf(const Error& error, const std::string& object = {});

/// Ends a command.
class ToolError : public std::exception {
 public:
  /// With kFailed there is always a status: kBadParameter where the failure has none, as of a file
  /// whose content makes no sense.
  explicit ToolError(Failure failure, ExitCode exitCode = kFailed);

  const Failure& failure() const noexcept { return failure_; }
  ExitCode exitCode() const noexcept { return exitCode_; }
  const char* what() const noexcept override { return failure_.why.c_str(); }

 private:
  Failure failure_;
  ExitCode exitCode_;
};

/// Standard output cannot be written, which is no failure of the command's own work.
class OutputError : public ToolError {
  using ToolError::ToolError;
};

/// A mistake in the command line that only the command itself can see.
[[noreturn]] void refuseUsage(const std::string& why);

}  // namespace tarvo::tools
