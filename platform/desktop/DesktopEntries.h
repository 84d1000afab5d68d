// Which application an executable belongs to, by the desktop entries that are installed.
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvo {

/// The program that an entry's Exec value starts, unquoted and without its arguments; none when the
/// value is malformed.
/// Quoting and field codes are those of the Desktop Entry Specification, "The Exec key".
std::optional<std::string> programOfExec(std::string_view exec);

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

}  // namespace tarvo
