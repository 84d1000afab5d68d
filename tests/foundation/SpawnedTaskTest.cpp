#include "platform/foundation/SpawnedTask.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "Utilities/FileDescriptor.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Raised.h"
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
  void runScript(const std::string& body) {
    const auto task = factory_.makeTask("/bin/sh");
    task->setArguments({"-c", body, "sh", folder_.path()});
    task->setStandardErrorToPipeReadingEnd();
    const std::size_t before = ended_.size();
    task->launch();
    EXPECT_TRUE(waitUntil([&] { return ended_.size() > before; })) << body;
  }
  static std::string raisedBy(Task& task) {
    return raised([&] { task.launch(); });
  }

  TemporaryFolder folder_;
  RecordingSystemLog log_;
  NotificationCenter center_;
  StartLimit::Clock::time_point now_;
  SpawnedTaskFactory factory_{center_, log_.sink(), {0022, 4096}, [this] { return now_; }};
  std::vector<std::shared_ptr<Object>> ended_;
};

constexpr const char* kLaunchedAlready = "NSInvalidArgumentException: task already launched";

TEST_F(SpawnedTaskTest, AChildGetsItsArgumentsAndLivesUntilItsEndIsPostedWithTheTask) {
  auto task = factory_.makeTask(
      folder_.writeScript("Tarvo Relay", "for a; do echo \"<$a>\"; done > \"${0%/*}/out\"\n"));
  task->setArguments({"PTP", "-98566144", ""});
  EXPECT_EQ(task->processIdentifier(), 0);
  task->launch();
  EXPECT_TRUE(task->isRunning());
  EXPECT_GT(task->processIdentifier(), 0);
  EXPECT_EQ(raisedBy(*task), kLaunchedAlready);
  const std::weak_ptr<Task> weak = std::exchange(task, nullptr);
  EXPECT_TRUE(waitUntil([&] { return !ended_.empty(); }));
  EXPECT_EQ(ended_.front(), weak.lock());
  EXPECT_FALSE(weak.lock()->isRunning());
  EXPECT_EQ(raisedBy(*weak.lock()), kLaunchedAlready);
  EXPECT_EQ(folder_.read("out"), "<PTP>\n<-98566144>\n<>\n");
  ended_.clear();
  EXPECT_TRUE(waitUntil([&] { return weak.expired(); }));
}

TEST_F(SpawnedTaskTest, WhatCannotBeStartedIsRaisedInWords) {
  const auto orphan = folder_.write("orphan", "#!/no/such/interpreter\n");
  std::filesystem::permissions(orphan, std::filesystem::perms::owner_all);
  runScript(":");
  const auto descriptors = openDescriptors();
  const std::pair<std::string, const char*> rows[] = {
      {folder_.path("missing"), "No such file or directory"},
      {folder_.write("plain", "#!/bin/sh\n"), "Permission denied"},
      {folder_.path(), "Is a directory"},
      {orphan, "No such file or directory"}};
  for (const auto& [path, cause] : rows) {
    const auto task = factory_.makeTask(path);
    task->setStandardErrorToPipeReadingEnd();
    EXPECT_EQ(raisedBy(*task),
              "NSInvalidArgumentException: launch path not accessible: " + path + ", " + cause);
    EXPECT_FALSE(task->isRunning());
    EXPECT_EQ(task->processIdentifier(), 0);
    EXPECT_EQ(raisedBy(*task), kLaunchedAlready) << "also after a failed start";
  }
  runScript(":");
  EXPECT_EQ(ended_.size(), 2U);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(SpawnedTaskTest, AChildInheritsNothingAndItsStandardErrorCanBeAPipeThatTakesNoWrites) {
  const FileDescriptor inheritable(::open(folder_.write("marker", "").c_str(), O_RDONLY));
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto formerPipeAction = ::signal(SIGPIPE, SIG_IGN);
  const Inheritance formerInheritance = exchangeInheritance({0077, 0});
  // The last command takes the shell's place, which blocks signals for itself around every fork.
  runScript(
      "ls -l /proc/self/fd > \"$1/fds\"; /bin/echo x >&2 && echo ok > \"$1/ok\";"
      "cp /proc/self/limits \"$1\"; exec cat /proc/self/status > \"$1/status\"");
  EXPECT_EQ(exchangeInheritance(formerInheritance), (Inheritance{0077, 0})) << "its own is changed";
  ::signal(SIGPIPE, formerPipeAction);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);

  EXPECT_NE(folder_.read("fds").find("2 -> pipe:"), std::string::npos) << folder_.read("fds");
  EXPECT_EQ(folder_.read("ok"), "");
  EXPECT_EQ(folder_.read("fds").find("marker"), std::string::npos) << folder_.read("fds");
  const auto signalsAt = [status = folder_.read("status")](const std::string& key) {
    return std::stoull(status.substr(status.find(key) + key.size()), nullptr, 16);
  };
  EXPECT_EQ(signalsAt("SigBlk:"), 0U);
  constexpr auto kInternalToTheLibrary = 0x180000000ULL;
  EXPECT_EQ(signalsAt("SigIgn:") & ~kInternalToTheLibrary, 0U);
  EXPECT_NE(folder_.read("status").find("Umask:\t0022\n"), std::string::npos);
  EXPECT_NE(folder_.read("limits").find("Max core file size        4096 "), std::string::npos)
      << folder_.read("limits");
}

TEST_F(SpawnedTaskTest, TheEleventhStartOfAProgramWithinTenSecondsFailsAndOneLineTellsWhy) {
  using namespace std::chrono_literals;
  const std::tuple<std::chrono::milliseconds, const char*, int, std::size_t, std::size_t> rows[] = {
      {0s, "/bin/true", 4, 4, 0},      {1s, "/bin/true", 6, 6, 0},
      {8999ms, "/bin/true", 20, 0, 1}, {0ms, "/bin/false", 20, 10, 2},  // each program by itself
      {1ms, "/bin/true", 20, 4, 2},   // the first four are ten seconds ago
      {9s, "/bin/true", 20, 6, 2},    // still the same flood
      {20s, "/bin/true", 20, 10, 3},  // another one
  };
  std::size_t all = 0;
  for (const auto& [later, path, times, expected, lines] : rows) {
    now_ += later;
    std::size_t started = 0;
    for (int i = 0; i < times; ++i) {
      const auto why = raisedBy(*factory_.makeTask(path));
      if (why.empty()) ++started;
    }
    EXPECT_EQ(started, expected) << path << " " << now_.time_since_epoch().count();
    EXPECT_EQ(log_.count("launched 10 times within 10 s already: "), lines) << path;
    all += started;
  }
  EXPECT_TRUE(waitUntil([&] { return ended_.size() == all; }));
}

}  // namespace
}  // namespace tarvo::test
