// Running applications from the process table.
//
// An application's process is known by the systemd scope or service that it runs in
// (app[-LAUNCHER]-ID-RANDOM.scope, app[-LAUNCHER]-ID[@RANDOM].service), and by the desktop entry
// that names its executable. The two can differ: what an application starts runs in that
// application's scope.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/desktop/Desktop.h"
#include "platform/desktop/DesktopEntries.h"

namespace tarvo {

/// The desktop-entry id that a systemd unit's name carries, unescaped; none when the unit is no
/// application's.
std::optional<std::string> applicationOfUnit(std::string_view unit);

/// Reads the process table at each call and keeps nothing of it: an idle agent follows no process.
/// Main thread only.
class ProcessRunningApplications : public RunningApplications {
 public:
  /// `procFolder` is the process table as proc(5) describes it.
  explicit ProcessRunningApplications(DesktopEntries entries = DesktopEntries(),
                                      std::string procFolder = "/proc");

  /// A process whose scope and executable tell different ids stands in the list with each of them.
  std::vector<RunningApplication> launchedApplications() override;
  void nameTask(const std::shared_ptr<const Task>& task, std::string bundleIdentifier) override;
  /// Where scope and executable differ, the scope decides.
  std::optional<std::string> launcherIdentifier() override;

  /// Whether a process that anybody has started would be recognised by its executable: a desktop
  /// entry of this id names a program that is installed.
  bool hasDesktopEntry(std::string_view bundleIdentifier);

 private:
  /// In order of number.
  std::vector<pid_t> processesOfUser() const;
  /// Whether the process has ended and only waits to be reaped by its parent.
  bool isZombie(pid_t pid) const;
  /// What its scope tells first, then its executable, then who has started it; none twice.
  std::vector<std::string> identifiersOf(pid_t pid);
  std::optional<std::string> identifierOfControlGroup(pid_t pid) const;
  /// Path of the executable; none for a process that may not be looked into.
  std::optional<std::string> executableOf(pid_t pid) const;
  /// Path of a file of the process's folder in the process table.
  std::string fileOf(pid_t pid, std::string_view name) const;

  /// Not constant, since it reads its folders when it is asked.
  DesktopEntries entries_;
  std::string procFolder_;
  /// Of this process's own children; those that have ended are dropped.
  std::vector<std::pair<std::weak_ptr<const Task>, std::string>> namedTasks_;
};

}  // namespace tarvo
