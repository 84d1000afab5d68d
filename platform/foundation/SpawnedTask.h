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
  /// To be owned by a shared_ptr; SpawnedTaskFactory makes it so.
  SpawnedTask(std::string launchPath, NotificationCenter& center, LogSink log);

  const std::string& launchPath() const override { return launchPath_; }
  /// The arguments behind the launch path, which is always the child's argument 0.
  void setArguments(std::vector<std::string> arguments) override;
  /// The child's descriptor is open for reading alone, so its writes fail with EBADF. This side's
  /// ends of the pipe are closed by launch().
  void setStandardErrorToPipeReadingEnd() override { standardErrorIsPipe_ = true; }
  /// The path is used as it stands: $PATH is not searched, and a script needs its "#!" line.
  void launch() override;
  bool isRunning() const override { return running_; }
  pid_t processIdentifier() const override { return pid_; }
  /// "task PATH (PID)", without the number before a successful launch.
  std::string description() const override;

 private:
  /// Starts the child. Returns 0, or the error number of what failed.
  [[nodiscard]] int spawn();
  /// Has ended() called on the main loop when the child has ended; holds this task until then.
  void watchChild();
  void ended();

  std::string launchPath_;
  NotificationCenter& center_;
  LogSink log_;
  std::vector<std::string> arguments_;
  /// Otherwise the child inherits standard error.
  bool standardErrorIsPipe_ = false;
  /// A task starts once in its life, and a failed start counts.
  bool launchCalled_ = false;
  /// False again before the end is posted.
  bool running_ = false;
  /// Kept after the end, when the number may belong to another process.
  pid_t pid_ = 0;
};

/// Posts the end of its tasks on `center`, which must outlive the main loop's run.
class SpawnedTaskFactory : public TaskFactory {
 public:
  SpawnedTaskFactory(NotificationCenter& center, LogSink log);
  /// The task shares nothing with the factory, which may go before it.
  std::shared_ptr<Task> makeTask(std::string launchPath) override;

 private:
  NotificationCenter& center_;
  LogSink log_;
};

}  // namespace tarvo
