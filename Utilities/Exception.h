// What the system raises: one exception class with a name, a reason and user information.
//
// Catch it at the entries named in docs/architecture.md; everything between lets it pass.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// A raised condition. `name()` says which kind, `reason()` says why, in words.
class Exception : public std::exception {
 public:
  Exception(std::string name, std::string reason,
            PropertyDictionary userInfo = PropertyDictionary::object());

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }
  const PropertyDictionary& userInfo() const noexcept { return userInfo_; }
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
  std::string what_;
  PropertyDictionary userInfo_;
};

namespace exception_name {
inline constexpr std::string_view kInternalInconsistency = "NSInternalInconsistencyException";
inline constexpr std::string_view kInvalidArgument = "NSInvalidArgumentException";
inline constexpr std::string_view kRange = "NSRangeException";
inline constexpr std::string_view kMalloc = "NSMallocException";
inline constexpr std::string_view kPTP = "XTPTPException";
inline constexpr std::string_view kEventRegistration = "ICARegisterEventNotification";
}  // namespace exception_name

/// Raises the internal-inconsistency exception with `description` as its reason. For our own
/// mistakes only, never for what a device or a user did.
[[noreturn]] void raiseAssertion(std::string description);

/// Raises "Invalid parameter not satisfying: <text>" unless `satisfied`.
inline void assertParameter(bool satisfied, std::string_view text) {
  if (!satisfied) raiseAssertion("Invalid parameter not satisfying: " + std::string(text));
}

}  // namespace tarvo
