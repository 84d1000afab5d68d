// The running applications of this user, by desktop-entry id.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Task.h"

namespace tarvo {

/// A process with the application that it is known to belong to.
struct RunningApplication {
  pid_t pid = 0;
  std::string bundleIdentifier;  ///< desktop-entry id, for example "com.tarvo.Relay"
};

/// Main thread only.
/// The list is a look at one moment: a process may have ended, or become another program, by the
/// time it is used. Ids are those of desktop entries, without ".desktop".
class RunningApplications {
 public:
  virtual ~RunningApplications() = default;
  /// Every process of this user that belongs to an application, in order of process id.
  virtual std::vector<RunningApplication> launchedApplications() = 0;
  /// From now on the list names the process of `task` with this identifier for as long as it runs,
  /// whatever else tells of it. The task is not kept alive.
  virtual void nameTask(const std::shared_ptr<const Task>& task, std::string bundleIdentifier) = 0;
  /// Identifier of the parent process of this one; none when it is no application.
  virtual std::optional<std::string> launcherIdentifier() = 0;
};

}  // namespace tarvo
