// Child processes by posix_spawn, watched by the main loop.
//
// A child starts with an empty signal mask, default signal actions and no descriptors but its
// standard ones; it inherits the environment and the working folder. Of one program ten are started
// within ten seconds at most: any process of the user may ask for one over the bus, and whoever
// goes on asking must not fill the machine with them.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/Task.h"

namespace tarvo {

/// What a process passes on to its children beside signals, descriptors and the environment.
struct Inheritance {
  mode_t umask = 0;
  rlim_t coreSize = 0;  ///< bytes of a core file, the limit that a process may raise again

  friend bool operator==(const Inheritance&, const Inheritance&) = default;
};
/// Sets both for this process, and gives back what they were. Main thread only.
Inheritance exchangeInheritance(const Inheritance& next);

/// Counts the starts of each program. Main thread only.
class StartLimit {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kMost = 10;
  static constexpr std::chrono::seconds kWindow{10};

  explicit StartLimit(LogSink log, std::function<Clock::time_point()> now = Clock::now)
      : log_(std::move(log)), now_(std::move(now)) {}

  /// Why the program at `path` may not be started now; none, and the start counts, where it may.
  /// What is refused is logged once, until nobody has asked for a whole window.
  std::optional<std::string> refusal(const std::string& path);

 private:
  struct Program {
    std::deque<Clock::time_point> starts;      ///< within the last window
    std::optional<Clock::time_point> refused;  ///< the last time
  };

  LogSink log_;
  std::function<Clock::time_point()> now_;
  std::map<std::string, Program> programs_;
};

/// Main thread only. A running task keeps itself alive until its end has been posted.
class SpawnedTask : public Task {
 public:
  /// To be owned by a shared_ptr; SpawnedTaskFactory makes it so.
  SpawnedTask(std::string launchPath, NotificationCenter& center, LogSink log,
              std::shared_ptr<StartLimit> limit, const Inheritance& forChild);

  const std::string& launchPath() const override { return launchPath_; }
  /// The arguments behind the launch path, which is always the child's argument 0.
  void setArguments(std::vector<std::string> arguments) override;
  /// The child's descriptor is open for reading alone, so its writes fail with EBADF. This side's
  /// ends of the pipe are closed by launch().
  void setStandardErrorToPipeReadingEnd() override { standardErrorIsPipe_ = true; }
  /// The path is used as it stands: $PATH is not searched, and a script needs its "#!" line. A
  /// start that the limit refuses is a failed one.
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
  std::shared_ptr<StartLimit> limit_;
  Inheritance forChild_;
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
  /// `forChildren` is what each child starts with, whatever this process has set for itself.
  SpawnedTaskFactory(NotificationCenter& center, LogSink log, const Inheritance& forChildren,
                     std::function<StartLimit::Clock::time_point()> now = StartLimit::Clock::now);
  /// The factory may go before the task.
  std::shared_ptr<Task> makeTask(std::string launchPath) override;

 private:
  NotificationCenter& center_;
  LogSink log_;
  Inheritance forChildren_;
  std::shared_ptr<StartLimit> limit_;
};

}  // namespace tarvo
