// Child processes that never run: what was asked of each is recorded, and the test ends them.
//
//   RecordingTaskFactory tasks(center);
//   ...
//   EXPECT_EQ(tasks.task(0).arguments, (std::vector<std::string>{"PTP", "1", ""}));
//   tasks.end(tasks.task(0));
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Exception.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/Task.h"

namespace tarvo::test {

class RecordingTask : public Task {
 public:
  using Start = std::function<void(RecordingTask&)>;

  RecordingTask(std::string launchPath, Start start)
      : path_(std::move(launchPath)), start_(std::move(start)) {}

  const std::string& launchPath() const override { return path_; }
  void setArguments(std::vector<std::string> list) override { arguments = std::move(list); }
  void setStandardErrorToPipeReadingEnd() override { standardErrorIsPipeReadingEnd = true; }
  void launch() override {
    if (++launchCalls > 1)
      throw Exception(std::string(exception_name::kInvalidArgument), "task already launched");
    start_(*this);
  }
  bool isRunning() const override { return running; }
  pid_t processIdentifier() const override { return pid; }
  std::string description() const override { return "task " + path_; }

  std::vector<std::string> arguments;
  bool standardErrorIsPipeReadingEnd = false;
  int launchCalls = 0;
  bool running = false;
  pid_t pid = 0;

 private:
  std::string path_;
  Start start_;
};

/// Keeps every task that it made.
class RecordingTaskFactory : public TaskFactory {
 public:
  explicit RecordingTaskFactory(NotificationCenter& center) : center_(center) {}

  std::shared_ptr<Task> makeTask(std::string launchPath) override {
    tasks_.push_back(std::make_shared<RecordingTask>(std::move(launchPath),
                                                     [this](RecordingTask& task) { start(task); }));
    return tasks_.back();
  }

  /// From now on a task whose path contains `pathPart` fails to start, with `reason`. An empty
  /// reason lets it start again.
  void failStart(std::string pathPart, std::string reason) {
    failures_[std::move(pathPart)] = std::move(reason);
  }

  /// Called right before a task starts; what it raises is raised by launch().
  void onStart(RecordingTask::Start hook) { hook_ = std::move(hook); }

  /// Ends the running `task` and posts NSTaskDidTerminateNotification for it.
  void end(RecordingTask& task) {
    task.running = false;
    center_.post({std::string(kTaskDidTerminateNotification), task.shared_from_this()});
  }

  const std::vector<std::shared_ptr<RecordingTask>>& tasks() const { return tasks_; }
  std::size_t count() const { return tasks_.size(); }
  RecordingTask& task(std::size_t index) { return *tasks_.at(index); }

  /// Every task whose path contains `pathPart`, in order of making.
  std::vector<std::shared_ptr<RecordingTask>> tasksAt(std::string_view pathPart) const {
    std::vector<std::shared_ptr<RecordingTask>> found;
    for (const auto& task : tasks_) {
      if (task->launchPath().find(pathPart) != std::string::npos) found.push_back(task);
    }
    return found;
  }

 private:
  void start(RecordingTask& task) {
    for (const auto& [pathPart, reason] : failures_) {
      if (!reason.empty() && task.launchPath().find(pathPart) != std::string::npos)
        throw Exception(std::string(exception_name::kInvalidArgument), reason);
    }
    if (hook_) hook_(task);
    task.running = true;
    task.pid = nextPid_++;
  }

  NotificationCenter& center_;
  std::vector<std::shared_ptr<RecordingTask>> tasks_;
  std::map<std::string, std::string> failures_;
  RecordingTask::Start hook_;
  pid_t nextPid_ = 5000;
};

}  // namespace tarvo::test
