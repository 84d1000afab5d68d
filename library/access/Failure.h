// How the library's inside raises: what is known of a failure becomes the one public error.
//
//   raise({.object = path, .status = status::kFileNotFound, .why = "no object has that name"});
#pragma once

#include <optional>
#include <string>

#include "Utilities/Status.h"
#include "tarvo/Error.h"

namespace tarvo {
namespace library {

/// What is empty is not said.
struct Failure {
  std::string object{};
  Status status = status::kOK;
  std::string why{};
  std::string advice{};             ///< empty: what goes with the status
  std::optional<ErrorKind> kind{};  ///< none: what goes with the status
  std::string part{};
  std::uint64_t kept = 0;
  std::string operation{};  ///< named where the call ends
};

}  // namespace library

struct Error::Details {
  static const Details& of(const Error& error) { return *error.details_; }

  library::Failure failure;  ///< with its kind
  std::string what;
};

namespace library {

Error errorOf(Failure failure);
[[noreturn]] void raise(Failure failure);
/// A mistake of the calling program, or of who types.
[[noreturn]] void refuse(std::string why, std::string object = {});

/// The error with the name of the call, unless it has one.
Error named(const Error& error, const char* operation);
/// What the rooms below raise, as an error: of a device that broke the protocol, unless it says
/// more. For a catch clause alone.
Error errorOfRaised(const char* operation);

/// Whether an operation is done: 0, or the OK of PTP.
inline bool isGood(Status status) { return status == status::kOK || status == status::kPTPOK; }
/// Whether the device will not answer anything more.
bool isDeviceLost(Status status);

}  // namespace library
}  // namespace tarvo
