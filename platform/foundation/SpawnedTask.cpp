#include "platform/foundation/SpawnedTask.h"

#include <fcntl.h>
#include <glib.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

[[noreturn]] void raiseInvalidArgument(std::string reason) {
  throw Exception(std::string(exception_name::kInvalidArgument), std::move(reason));
}

/// What becomes of a child's signals and descriptors.
class SpawnSetup {
 public:
  SpawnSetup() {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
    // Blocked and ignored signals would survive exec.
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  void setStandardError(int fd) { posix_spawn_file_actions_adddup2(&actions_, fd, STDERR_FILENO); }
  /// After every other action: what is not a standard descriptor stays behind.
  void closeOthers() { posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1); }

  const posix_spawnattr_t* attributes() const { return &attributes_; }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }

 private:
  posix_spawnattr_t attributes_{};
  posix_spawn_file_actions_t actions_{};
};

struct Pipe {
  FileDescriptor reading;
  FileDescriptor writing;
};

/// Both ends above the standard descriptors, so that none of them is taken for one.
/// Returns 0 or an error number.
int makePipe(Pipe& pipe) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
  pipe = {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
  if (pipe.reading.get() > STDERR_FILENO) return 0;
  FileDescriptor higher(::fcntl(pipe.reading.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!higher.isOpen()) return errno;
  pipe.reading = std::move(higher);
  return 0;
}

}  // namespace

Inheritance exchangeInheritance(const Inheritance& next) {
  Inheritance former;
  former.umask = ::umask(next.umask);
  rlimit core{};
  ::getrlimit(RLIMIT_CORE, &core);
  former.coreSize = std::exchange(core.rlim_cur, std::min(next.coreSize, core.rlim_max));
  ::setrlimit(RLIMIT_CORE, &core);
  return former;
}

std::optional<std::string> StartLimit::refusal(const std::string& path) {
  const auto now = now_();
  Program& program = programs_[path];
  std::erase_if(program.starts, [&](const auto& start) { return now - start >= kWindow; });
  if (program.starts.size() < kMost) {
    program.starts.push_back(now);
    return std::nullopt;
  }
  std::string why = formatted("launched %zu times within %d s already: ", kMost,
                              static_cast<int>(kWindow.count())) +
                    path;
  const auto before = std::exchange(program.refused, now);
  if (!before || now - *before >= kWindow)
    logTo(log_, LogLevel::kWarning, "Further starts are refused for now: " + why);
  return why;
}

SpawnedTask::SpawnedTask(std::string launchPath, NotificationCenter& center, LogSink log,
                         std::shared_ptr<StartLimit> limit, const Inheritance& forChild)
    : launchPath_(std::move(launchPath)),
      center_(center),
      log_(std::move(log)),
      limit_(std::move(limit)),
      forChild_(forChild) {}

void SpawnedTask::setArguments(std::vector<std::string> arguments) {
  arguments_ = std::move(arguments);
}

std::string SpawnedTask::description() const {
  return "task " + launchPath_ + (pid_ != 0 ? " (" + std::to_string(pid_) + ")" : "");
}

void SpawnedTask::launch() {
  if (std::exchange(launchCalled_, true)) raiseInvalidArgument("task already launched");
  if (auto refusal = limit_->refusal(launchPath_)) raiseInvalidArgument(std::move(*refusal));
  if (const int error = spawn(); error != 0) {
    raiseInvalidArgument("launch path not accessible: " + launchPath_ + ", " +
                         std::generic_category().message(error));
  }
  running_ = true;
  watchChild();
}

int SpawnedTask::spawn() {
  // A folder would only be refused as "permission denied".
  // posix_spawn tells most causes by itself, in the words of exec.
  struct stat status {};
  if (::stat(launchPath_.c_str(), &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;

  std::vector<char*> arguments{launchPath_.data()};
  for (auto& argument : arguments_)
    arguments.push_back(argument.data());
  arguments.push_back(nullptr);

  SpawnSetup setup;
  Pipe standardError;  // nobody ever reads or writes it; both ends are closed on return
  if (standardErrorIsPipe_) {
    if (const int error = makePipe(standardError); error != 0) return error;
    setup.setStandardError(standardError.reading.get());
  }
  // The agent's own descriptors are close-on-exec; libraries' may not be. A listener's socket or a
  // claimed USB node in a child that lives for hours would keep it from everybody else.
  setup.closeOthers();
  pid_t child = 0;
  // posix_spawn has no attribute for either, and no other thread of the agent makes files.
  const Inheritance own = exchangeInheritance(forChild_);
  // Unlike fork, this copies no page tables, and it reports what exec itself says.
  const int error = ::posix_spawn(&child, launchPath_.c_str(), setup.actions(), setup.attributes(),
                                  arguments.data(), environ);
  exchangeInheritance(own);
  if (error == 0) pid_ = child;
  return error;
}

void SpawnedTask::watchChild() {
  using Holder = std::shared_ptr<Object>;
  const auto exited = +[](GPid /*pid*/, gint /*status*/, gpointer data) {
    // A reference of its own: the source's goes with the source, which ends with this call.
    const auto holder = *static_cast<Holder*>(data);
    auto* task = static_cast<SpawnedTask*>(holder.get());
    guardedEntry(task->log_, "child watch", [task] { task->ended(); });
  };
  // GLib reaps the child, and notices it too if it has ended before this call.
  g_child_watch_add_full(G_PRIORITY_DEFAULT, pid_, exited, new Holder(shared_from_this()),
                         [](gpointer data) { delete static_cast<Holder*>(data); });
}

void SpawnedTask::ended() {
  running_ = false;
  center_.post({std::string(kTaskDidTerminateNotification), shared_from_this()});
}

SpawnedTaskFactory::SpawnedTaskFactory(NotificationCenter& center, LogSink log,
                                       const Inheritance& forChildren,
                                       std::function<StartLimit::Clock::time_point()> now)
    : center_(center),
      log_(std::move(log)),
      forChildren_(forChildren),
      limit_(std::make_shared<StartLimit>(log_, std::move(now))) {}

std::shared_ptr<Task> SpawnedTaskFactory::makeTask(std::string launchPath) {
  return std::make_shared<SpawnedTask>(std::move(launchPath), center_, log_, limit_, forChildren_);
}

}  // namespace tarvo
