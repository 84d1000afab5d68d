// Child processes by posix_spawn, watched by the main loop.
//
// A child starts with an empty signal mask, default signal actions and no descriptors but its
// standard ones; it inherits the environment and the working folder.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/Task.h"

namespace tarvo {

/// Main thread only. A running task keeps itself alive until its end has been posted.
class SpawnedTask : public Task {
 public:
  SpawnedTask(std::string launchPath, NotificationCenter& center, LogSink log);

  const std::string& launchPath() const override { return launchPath_; }
  void setArguments(std::vector<std::string> arguments) override;
  void setStandardErrorToPipeReadingEnd() override { standardErrorIsPipe_ = true; }
  void launch() override;
  bool isRunning() const override { return running_; }
  pid_t processIdentifier() const override { return pid_; }
  std::string description() const override;

 private:
  /// Starts the child. Returns 0, or the error number of what failed.
  int spawn();
  /// Has ended() called on the main loop when the child has ended; holds this task until then.
  void watchChild();
  void ended();

  std::string launchPath_;
  NotificationCenter& center_;
  LogSink log_;
  std::vector<std::string> arguments_;
  bool standardErrorIsPipe_ = false;
  bool launchCalled_ = false;
  bool running_ = false;
  pid_t pid_ = 0;
};

/// Posts the end of its tasks on `center`, which must outlive the main loop's run.
class SpawnedTaskFactory : public TaskFactory {
 public:
  SpawnedTaskFactory(NotificationCenter& center, LogSink log);
  std::shared_ptr<Task> makeTask(std::string launchPath) override;

 private:
  NotificationCenter& center_;
  LogSink log_;
};

}  // namespace tarvo
