// Running applications from the process table.
//
// An application's process is known by the systemd scope or service that it runs in
// (app[-LAUNCHER]-ID-RANDOM.scope, app[-LAUNCHER]-ID[@RANDOM].service), and by the desktop entry
// that names its executable. The two can differ: what an application starts runs in that
// application's scope.
#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/desktop/ApplicationScopes.h"
#include "platform/desktop/Desktop.h"

namespace tarvo {

// Which application an executable belongs to, by the desktop entries that are installed.

/// The program that an entry's Exec value starts, unquoted and without its arguments; none when the
/// value is malformed.
/// Quoting and field codes are those of the Desktop Entry Specification, "The Exec key".
std::optional<std::string> programOfExec(std::string_view exec);

/// The programs that the text of an entry names (Exec, TryExec); none of one that is hidden, which
/// stands for "deleted by the user".
std::set<std::string> programsOfDesktopEntry(std::string_view text);

/// Only the programs of the entries are kept, and read again when a folder has changed since.
/// Main thread only.
class DesktopEntries {
 public:
  /// `folders` hold entries, those that come first shadow later ones of the same id. The default
  /// is "applications" in the user's and the system's data folders.
  explicit DesktopEntries(std::vector<std::string> folders = applicationFolders());

  /// In order of precedence: the user's folder first.
  static std::vector<std::string> applicationFolders();

  /// Ids of the entries whose Exec or TryExec resolves to `executable`, an absolute path without
  /// symbolic links.
  std::vector<std::string> identifiersOfExecutable(const std::string& executable);
  /// Whether an Exec or TryExec of the entry of this id resolves to any executable.
  bool hasProgram(std::string_view identifier);

 private:
  /// A folder as it was read; without a time it has to be read again.
  struct Stamp {
    std::string folder;
    std::optional<timespec> modified;
  };

  /// Reads what has changed, a few stat() calls where nothing has.
  void refresh();
  /// Whether every folder still has the time at which it was read.
  bool isCurrent() const;
  void readAll();
  /// Reads the entries of `folder`; those of a subfolder carry its name and a hyphen before theirs.
  /// `known` are the ids that are taken.
  void readFolder(const std::string& folder, const std::string& idPrefix, int depth,
                  std::set<std::string>& known);
  /// Notes the programs of an entry as waiting to be resolved.
  void readEntry(const std::string& file, const std::string& identifier);
  /// Finds the executables of programs that are installed by now.
  void resolveWaiting();

  std::vector<std::string> folders_;
  /// Every folder that was read, subfolders included; empty before the first question.
  std::vector<Stamp> stamps_;
  std::multimap<std::string, std::string> identifiers_;  ///< by resolved executable
  /// Programs that are not installed (yet), with the ids of their entries.
  std::vector<std::pair<std::string, std::string>> waiting_;
};

/// The desktop-entry id that a systemd unit's name carries, unescaped; none when the unit is no
/// application's.
std::optional<std::string> applicationOfUnit(std::string_view unit);

/// Reads the process table at each call and keeps nothing of it: an idle agent follows no process.
/// Main thread only.
class ProcessRunningApplications : public RunningApplications {
 public:
  /// `procFolder` is the process table as proc(5) describes it. `scopes`, where there are any, get
  /// the processes of named tasks, and must outlive the object.
  explicit ProcessRunningApplications(DesktopEntries entries = DesktopEntries(),
                                      std::string procFolder = "/proc",
                                      ApplicationScopes* scopes = nullptr);

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
  ApplicationScopes* scopes_;
  /// Of this process's own children; those that have ended are dropped.
  std::vector<std::pair<std::weak_ptr<const Task>, std::string>> namedTasks_;
};

}  // namespace tarvo
