// Distributed notifications that stay in the process: every observer hears every post, the poster's
// own included, at once.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/desktop/Desktop.h"

namespace tarvo::test {

class LocalDistributedCenter : public DistributedNotificationCenter {
 public:
  void addObserver(const void* observer, std::string name, Handler handler) override {
    registrations_.push_back({observer, std::move(name), std::move(handler)});
  }
  void removeObserver(const void* observer) override {
    std::erase_if(registrations_, [&](const auto& entry) { return entry.observer == observer; });
  }
  void post(std::string_view name) override {
    posted.emplace_back(name);
    deliver(name);
  }

  /// What another process posts: heard, but not among `posted`.
  void postFromElsewhere(std::string_view name) { deliver(name); }

  std::vector<std::string> posted;  ///< names, in order

 private:
  struct Registration {
    const void* observer;
    std::string name;
    Handler handler;
  };

  void deliver(std::string_view name) {
    const auto registrations = registrations_;
    for (const auto& entry : registrations) {
      if (entry.name == name) entry.handler();
    }
  }

  std::vector<Registration> registrations_;
};

}  // namespace tarvo::test
