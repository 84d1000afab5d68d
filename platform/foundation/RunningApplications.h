// The running applications of this user, by desktop-entry id.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tarvo {

struct RunningApplication {
  pid_t pid = 0;
  std::string bundleIdentifier;  ///< desktop-entry id, for example "com.tarvo.Relay"
};

/// Main thread only.
class RunningApplications {
 public:
  virtual ~RunningApplications() = default;
  /// Every process of this user that belongs to an application, in order of process id.
  virtual std::vector<RunningApplication> launchedApplications() = 0;
  /// Identifier of the parent process of this one; none when it is no application.
  virtual std::optional<std::string> launcherIdentifier() = 0;
};

}  // namespace tarvo
