// Child processes.
//
//   auto task = factory.makeTask("/usr/bin/viewer");
//   task->setArguments({"page.htm"});
//   task->launch();
//
// The end of a child is posted on the process-local notification centre as
// "NSTaskDidTerminateNotification" with the task as object.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Object.h"

namespace tarvo {

inline constexpr std::string_view kTaskDidTerminateNotification = "NSTaskDidTerminateNotification";

/// One child process, not started until launch(). Main thread only.
class Task : public Object {
 public:
  /// Path of the executable, as it was given to the factory.
  virtual const std::string& launchPath() const = 0;
  /// Without the executable's own name; each reaches the child as one argument, empty ones
  /// included. No effect after launch().
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  /// Makes the child's standard error the reading end of a new pipe, so that its writes to it fail.
  virtual void setStandardErrorToPipeReadingEnd() = 0;
  /// Starts the child. Raises NSInvalidArgumentException when the executable cannot be started,
  /// with the cause in words, and on any second call, also after a failed start.
  virtual void launch() = 0;
  /// From a successful launch() until right before the end is posted.
  virtual bool isRunning() const = 0;
  /// Process id of the running or ended child, 0 before a successful launch.
  virtual pid_t processIdentifier() const = 0;
};

/// The one way to child processes, so that a test can put recording ones in place.
class TaskFactory {
 public:
  virtual ~TaskFactory() = default;
  /// A task for the executable at `launchPath`, which is not looked at before launch().
  virtual std::shared_ptr<Task> makeTask(std::string launchPath) = 0;
};

}  // namespace tarvo
