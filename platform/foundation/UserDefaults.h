// Preferences of the user: a key can be absent, true or false, and the three differ.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// Read once at start; a change takes effect in a new process. Any thread after construction.
/// Keys and groups are those of agent.conf.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  /// A boolean of group "Preferences".
  /// Keys have a case.
  virtual std::optional<bool> boolForKey(std::string_view key) const = 0;
  /// A text of any group, for example ("Platform", "SystemVersion").
  virtual std::optional<std::string> text(std::string_view group, std::string_view key) const = 0;
};

}  // namespace tarvo
