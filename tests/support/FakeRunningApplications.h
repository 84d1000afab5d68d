// Running applications that the test starts and ends by changing a list.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/desktop/Desktop.h"

namespace tarvo::test {

class FakeRunningApplications : public RunningApplications {
 public:
  std::vector<RunningApplication> launchedApplications() override { return applications; }
  void nameTask(const std::shared_ptr<const Task>&, std::string identifier) override {
    named.push_back(std::move(identifier));
  }
  std::optional<std::string> launcherIdentifier() override { return launcher; }

  void start(std::string identifier) {
    applications.push_back({nextPid_++, std::move(identifier)});
  }
  void end(std::string_view identifier) {
    std::erase_if(applications, [&](const auto& application) {
      return application.bundleIdentifier == identifier;
    });
  }

  std::vector<RunningApplication> applications;
  std::optional<std::string> launcher;
  std::vector<std::string> named;  ///< what nameTask() was told, in order

 private:
  pid_t nextPid_ = 6000;
};

}  // namespace tarvo::test
