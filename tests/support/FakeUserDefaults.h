// Preferences written down in the test.
//
//   FakeUserDefaults defaults({{"LOG_SUBSYS_LISTENER", true}});
//   defaults.setText("Platform", "SystemVersion", "0x1062");
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/foundation/UserDefaults.h"

namespace tarvo::test {

class FakeUserDefaults : public UserDefaults {
 public:
  FakeUserDefaults() = default;
  explicit FakeUserDefaults(std::map<std::string, bool, std::less<>> booleans)
      : booleans_(std::move(booleans)) {}

  void setBool(std::string key, bool value) { booleans_[std::move(key)] = value; }
  void setText(std::string group, std::string key, std::string value) {
    texts_[{std::move(group), std::move(key)}] = std::move(value);
  }

  std::optional<bool> boolForKey(std::string_view key) const override {
    const auto found = booleans_.find(key);
    return found == booleans_.end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<std::string> text(std::string_view group, std::string_view key) const override {
    const auto found = texts_.find({std::string(group), std::string(key)});
    return found == texts_.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  std::map<std::string, bool, std::less<>> booleans_;
  std::map<std::pair<std::string, std::string>, std::string> texts_;
};

}  // namespace tarvo::test
