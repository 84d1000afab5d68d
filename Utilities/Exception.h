// What the system raises: one exception class with a name, a reason and user information.
//
// Catch it at the entries named in docs/architecture.md; everything between lets it pass.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// A raised condition. `name()` says which kind (one of exception_name), `reason()` says why, in
/// words that may go into a log line as they are. It owns all that it carries, so it may be kept
/// and passed to another thread. No exception may leave a callback of a C library: it would unwind
/// through frames that know nothing of exceptions.
class Exception : public std::exception {
 public:
  /// `userInfo` is an object; without one it is an empty object, never null, so that its keys can
  /// be asked for without a test.
  Exception(std::string name, std::string reason,
            PropertyDictionary userInfo = PropertyDictionary::object());

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }
  /// What the catcher may act on, "ptpResponseCode" of a refused PTP operation for instance.
  const PropertyDictionary& userInfo() const noexcept { return userInfo_; }
  /// "name: reason".
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
  std::string what_;  ///< made beforehand: what() may neither throw nor allocate
  PropertyDictionary userInfo_;
};

namespace exception_name {
/// A mistake of our own: a parameter that does not hold, a datatype that nothing reads.
inline constexpr std::string_view kInternalInconsistency = "NSInternalInconsistencyException";
/// An argument that the callee cannot take: a preferences file that is not there, a task that has
/// been launched already.
inline constexpr std::string_view kInvalidArgument = "NSInvalidArgumentException";
/// A read beyond the end of a data set: what a device sent is shorter than it claims.
inline constexpr std::string_view kRange = "NSRangeException";
/// A buffer that cannot grow any further.
inline constexpr std::string_view kMalloc = "NSMallocException";
/// A PTP operation that the device refused or that never reached it.
inline constexpr std::string_view kPTP = "XTPTPException";
/// Events of a device object that cannot be subscribed to.
inline constexpr std::string_view kEventRegistration = "ICARegisterEventNotification";
}  // namespace exception_name

/// Raises the internal-inconsistency exception with `description` as its reason. For our own
/// mistakes only, never for what a device or a user did.
[[noreturn]] void raiseAssertion(std::string description);

/// Raises "Invalid parameter not satisfying: <text>" unless `satisfied`. It stays in release
/// builds: callers rely on what it excludes.
inline void assertParameter(bool satisfied, std::string_view text) {
  if (!satisfied) raiseAssertion("Invalid parameter not satisfying: " + std::string(text));
}

}  // namespace tarvo
