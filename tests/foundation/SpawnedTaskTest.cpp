#include "platform/foundation/SpawnedTask.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

class SpawnedTaskTest : public testing::Test {
 protected:
  SpawnedTaskTest() {
    center_.addObserver(
        this, std::string(kTaskDidTerminateNotification),
        [this](const Notification& notification) { ended_.push_back(notification.object); });
  }

  /// Runs a shell script to its end, with the test's folder in $1.
  std::shared_ptr<Task> runScript(const std::string& body, bool standardErrorIsPipe = false) {
    auto task = factory_.makeTask("/bin/sh");
    task->setArguments({"-c", body, "sh", folder_.path()});
    if (standardErrorIsPipe) task->setStandardErrorToPipeReadingEnd();
    const std::size_t before = ended_.size();
    task->launch();
    EXPECT_TRUE(waitUntil([&] { return ended_.size() > before; })) << body;
    return task;
  }

  static std::string raisedBy(Task& task) {
    try {
      task.launch();
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), exception_name::kInvalidArgument);
      return exception.reason();
    }
    return "nothing raised";
  }

  static std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
      ++count;
    return count;
  }

  TemporaryFolder folder_;
  RecordingSystemLog log_;
  NotificationCenter center_;
  SpawnedTaskFactory factory_{center_, log_.sink()};
  std::vector<std::shared_ptr<Object>> ended_;
};

TEST_F(SpawnedTaskTest, AChildGetsItsArgumentsAndItsEndIsPostedWithTheTask) {
  const auto task = factory_.makeTask(
      folder_.writeScript("Tarvo Relay", "for a; do echo \"<$a>\"; done > \"${0%/*}/out\"\n"));
  task->setArguments({"PTP", "-98566144", ""});
  EXPECT_EQ(task->processIdentifier(), 0);
  task->launch();
  EXPECT_TRUE(task->isRunning());
  EXPECT_GT(task->processIdentifier(), 0);
  EXPECT_TRUE(waitUntil([&] { return !ended_.empty(); }));
  EXPECT_FALSE(task->isRunning());
  EXPECT_EQ(ended_.front(), task);
  EXPECT_EQ(folder_.read("out"), "<PTP>\n<-98566144>\n<>\n");
}

TEST_F(SpawnedTaskTest, ARunningTaskLivesUntilItsEndIsPosted) {
  auto task = factory_.makeTask("/bin/sh");
  task->setArguments({"-c", "exit 3"});
  const std::weak_ptr<Task> weak = task;
  task->launch();
  task.reset();
  EXPECT_FALSE(weak.expired());
  EXPECT_TRUE(waitUntil([&] { return !ended_.empty(); }));
  ended_.clear();
  EXPECT_TRUE(waitUntil([&] { return weak.expired(); }));
}

TEST_F(SpawnedTaskTest, WhatCannotBeStartedIsRaisedInWords) {
  const auto plain = folder_.write("plain", "#!/bin/sh\n");
  const auto script = folder_.writeScript("script", "");
  const auto orphan = folder_.write("orphan", "#!/no/such/interpreter\n");
  std::filesystem::permissions(orphan, std::filesystem::perms::owner_all);
  const std::vector<std::pair<std::string, std::string>> rows = {
      {folder_.path("missing"), "No such file or directory"},
      {plain, "Permission denied"},
      {folder_.path(), "Is a directory"},
      {script + "/below", "Not a directory"},
      {orphan, "No such file or directory"},
  };
  for (const auto& [path, cause] : rows) {
    const auto task = factory_.makeTask(path);
    task->setStandardErrorToPipeReadingEnd();
    EXPECT_EQ(raisedBy(*task),
              std::string("launch path not accessible: ").append(path) + ", " + cause);
    EXPECT_FALSE(task->isRunning());
    EXPECT_EQ(task->processIdentifier(), 0);
    EXPECT_EQ(raisedBy(*task), "task already launched") << "also after a failed start";
  }
  drainMainContext();
  EXPECT_TRUE(ended_.empty());
}

TEST_F(SpawnedTaskTest, ASecondLaunchIsRaisedWhileTheChildRunsAndAfterwards) {
  const auto task = factory_.makeTask("/bin/sh");
  task->setArguments({"-c", ":"});
  task->launch();
  EXPECT_EQ(raisedBy(*task), "task already launched");
  EXPECT_TRUE(waitUntil([&] { return !ended_.empty(); }));
  EXPECT_EQ(raisedBy(*task), "task already launched");
  EXPECT_EQ(ended_.size(), 1U);
}

TEST_F(SpawnedTaskTest, StandardErrorCanBeAPipesReadingEndWhereWritesFail) {
  const std::string script =
      "readlink /proc/$$/fd/2 > \"$1/fd\"; /bin/echo x >&2 && echo ok > \"$1/ok\"";
  runScript(script, true);
  EXPECT_TRUE(folder_.read("fd").starts_with("pipe:")) << folder_.read("fd");
  EXPECT_FALSE(folder_.exists("ok"));
  std::filesystem::remove(folder_.path("fd"));
  testing::internal::CaptureStderr();
  runScript(script, false);
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(folder_.exists("ok")) << "without it standard error is inherited";
}

TEST_F(SpawnedTaskTest, AChildInheritsNeitherDescriptorsNorSignalState) {
  const FileDescriptor inheritable(::open(folder_.write("marker", "").c_str(), O_RDONLY));
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto formerPipeAction = ::signal(SIGPIPE, SIG_IGN);
  runScript("ls -l /proc/self/fd > \"$1/fds\"; cat /proc/$$/status > \"$1/status\"", true);
  ::signal(SIGPIPE, formerPipeAction);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);

  EXPECT_TRUE(inheritable.isOpen());
  EXPECT_NE(folder_.read("fds").find("pipe:"), std::string::npos);
  EXPECT_EQ(folder_.read("fds").find("marker"), std::string::npos) << folder_.read("fds");
  const auto signalsAt = [status = folder_.read("status")](const std::string& key) {
    return std::stoull(status.substr(status.find(key) + key.size()), nullptr, 16);
  };
  EXPECT_EQ(signalsAt("SigBlk:"), 0U);
  constexpr auto kInternalToTheLibrary = 0x180000000ULL;
  EXPECT_EQ(signalsAt("SigIgn:") & ~kInternalToTheLibrary, 0U);
}

TEST_F(SpawnedTaskTest, TwoHundredLaunchesLeakNoDescriptor) {
  runScript(":", true);
  const std::size_t before = openDescriptors();
  for (int i = 0; i < 200; ++i) {
    auto task = factory_.makeTask(i % 2 == 0 ? "/bin/true" : "/no/such/program");
    task->setStandardErrorToPipeReadingEnd();
    try {
      task->launch();
    } catch (const Exception&) {
      EXPECT_EQ(i % 2, 1);
    }
  }
  EXPECT_TRUE(waitUntil([&] { return ended_.size() == 101; }));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(SpawnedTaskTest, AnObserverThatRaisesIsLogged) {
  int other = 0;
  center_.addObserver(&other, std::string(kTaskDidTerminateNotification),
                      [](const Notification&) { raiseAssertion("observer"); });
  runScript(":");
  EXPECT_TRUE(waitUntil(
      [&] { return log_.contains("handling uncaught exception in child watch: observer"); }));
}

}  // namespace
}  // namespace tarvo::test
