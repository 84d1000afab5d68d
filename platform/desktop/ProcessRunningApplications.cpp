#include "platform/desktop/ProcessRunningApplications.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/KeyFile.h"
#include "platform/foundation/XdgFolders.h"

namespace tarvo {

namespace {

// Both files that are read are a line or two.
constexpr std::size_t kLongestProcFile = 1 << 16;

/// systemd's \xNN escapes resolved.
std::string unescapedUnit(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned byte = 0;
    const char* digits = text.data() + i + 2;
    const bool escape = text.substr(i).starts_with("\\x") && text.size() - i >= 4 &&
                        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
    plain += escape ? static_cast<char>(byte) : text[i];
    if (escape) i += 3;
  }
  return plain;
}

std::optional<pid_t> processNumber(std::string_view name) {
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  return error == std::errc() && end == name.data() + name.size() ? std::optional(pid)
                                                                  : std::nullopt;
}

/// The innermost application among the folders of a control group's path.
std::optional<std::string> applicationOfGroupPath(std::string_view path) {
  // A process may run in a scope of its own below its application's service, so every level counts.
  while (!path.empty()) {
    const auto slash = path.rfind('/');
    const auto unit = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (auto identifier = applicationOfUnit(unit)) return identifier;
    path = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> applicationOfUnit(std::string_view unit) {
  constexpr std::string_view kPrefix = "app-";
  constexpr std::string_view kScope = ".scope";
  constexpr std::string_view kUnitSuffix = ".service";
  if (!unit.starts_with(kPrefix)) return std::nullopt;
  const bool isScope = unit.ends_with(kScope);
  if (!isScope && !unit.ends_with(kUnitSuffix)) return std::nullopt;
  unit.remove_prefix(kPrefix.size());
  unit.remove_suffix(isScope ? kScope.size() : kUnitSuffix.size());
  // A scope's random part is the last one behind a '-', a service's stands behind the '@'.
  if (isScope) {
    const auto random = unit.rfind('-');
    if (random == std::string_view::npos) return std::nullopt;
    unit = unit.substr(0, random);
  } else {
    unit = unit.substr(0, unit.find('@'));
  }
  // An id has its own hyphens escaped, so whatever stands before a plain one is the launcher.
  const auto launcher = unit.rfind('-');
  if (launcher != std::string_view::npos) unit.remove_prefix(launcher + 1);
  return unit.empty() ? std::nullopt : std::optional(unescapedUnit(unit));
}

ProcessRunningApplications::ProcessRunningApplications(DesktopEntries entries,
                                                       std::string procFolder,
                                                       ApplicationScopes* scopes)
    : entries_(std::move(entries)), procFolder_(std::move(procFolder)), scopes_(scopes) {}

std::vector<RunningApplication> ProcessRunningApplications::launchedApplications() {
  std::vector<RunningApplication> applications;
  for (const pid_t pid : processesOfUser()) {
    if (isZombie(pid)) continue;
    for (auto& identifier : identifiersOf(pid))
      applications.push_back({pid, std::move(identifier)});
  }
  return applications;
}

void ProcessRunningApplications::nameTask(const std::shared_ptr<const Task>& task,
                                          std::string bundleIdentifier) {
  std::erase_if(namedTasks_, [](const auto& named) {
    const auto earlier = named.first.lock();
    return !earlier || !earlier->isRunning();
  });
  if (scopes_ != nullptr) scopes_->add(task->processIdentifier(), bundleIdentifier);
  namedTasks_.emplace_back(task, std::move(bundleIdentifier));
}

bool ProcessRunningApplications::hasDesktopEntry(std::string_view bundleIdentifier) {
  return entries_.hasProgram(bundleIdentifier);
}

std::optional<std::string> ProcessRunningApplications::launcherIdentifier() {
  // The parent is the launcher as long as it lives; after that it is the session's reaper, which is
  // no application.
  const auto identifiers = identifiersOf(::getppid());
  return identifiers.empty() ? std::nullopt : std::optional(identifiers.front());
}

std::vector<pid_t> ProcessRunningApplications::processesOfUser() const {
  std::vector<pid_t> pids;
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(procFolder_.c_str()), &::closedir);
  while (const dirent* item = listing ? ::readdir(listing.get()) : nullptr) {
    const auto pid = processNumber(item->d_name);
    struct stat status {};
    // The folder belongs to the effective user of the process. A process that goes meanwhile fails
    // here, and is left out.
    const bool mine = pid && ::fstatat(::dirfd(listing.get()), item->d_name, &status, 0) == 0 &&
                      status.st_uid == ::getuid();
    if (mine) pids.push_back(*pid);
  }
  std::ranges::sort(pids);
  return pids;
}

bool ProcessRunningApplications::isZombie(pid_t pid) const {
  const auto stat = readWholeFile(fileOf(pid, "stat"), kLongestProcFile);
  if (!stat) return true;  // it has just gone
  // The name stands in brackets and may hold any character; the state is the field behind it.
  const auto bracket = stat->rfind(')');
  // "Z" has ended and "X" is just being removed (proc(5)).
  return bracket == std::string::npos || stat->compare(bracket, 3, ") Z") == 0 ||
         stat->compare(bracket, 3, ") X") == 0;
}

std::vector<std::string> ProcessRunningApplications::identifiersOf(pid_t pid) {
  std::vector<std::string> identifiers;
  const auto add = [&](std::string identifier) {
    if (std::ranges::find(identifiers, identifier) == identifiers.end())
      identifiers.push_back(std::move(identifier));
  };
  if (auto identifier = identifierOfControlGroup(pid)) add(std::move(*identifier));
  if (const auto executable = executableOf(pid))
    for (auto& identifier : entries_.identifiersOfExecutable(*executable))
      add(std::move(identifier));
  for (const auto& [named, identifier] : namedTasks_) {
    const auto task = named.lock();
    // The number of one that has ended may be another process's by now.
    if (task && task->isRunning() && task->processIdentifier() == pid) add(identifier);
  }
  return identifiers;
}

std::optional<std::string> ProcessRunningApplications::identifierOfControlGroup(pid_t pid) const {
  const auto groups = readWholeFile(fileOf(pid, "cgroup"), kLongestProcFile);
  if (!groups) return std::nullopt;
  // One line a hierarchy: number, controllers and path, separated by colons.
  for (std::string_view rest = *groups; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    const auto path = line.find('/');
    if (path == std::string_view::npos) continue;
    if (auto identifier = applicationOfGroupPath(line.substr(path))) return identifier;
  }
  return std::nullopt;
}

std::optional<std::string> ProcessRunningApplications::executableOf(pid_t pid) const {
  constexpr std::string_view kDeleted = " (deleted)";
  std::array<char, PATH_MAX> buffer;
  // Readable for processes of this user only, and not even for those that hide from tracing.
  const ssize_t size = ::readlink(fileOf(pid, "exe").c_str(), buffer.data(), buffer.size());
  if (size <= 0) return std::nullopt;
  std::string executable(buffer.data(), static_cast<std::size_t>(size));
  // Replaced by an update while it runs: still the same application.
  if (executable.ends_with(kDeleted)) executable.resize(executable.size() - kDeleted.size());
  return executable;
}

std::string ProcessRunningApplications::fileOf(pid_t pid, std::string_view name) const {
  return procFolder_ + "/" + std::to_string(pid) + "/" + std::string(name);
}

namespace {

constexpr std::string_view kSuffix = ".desktop";
// Entries are a few kilobytes, even with every language in them. The user's folder can hold
// anything, a loop of folders included, so both size and depth are bounded.
constexpr std::size_t kLongestEntry = 1 << 20;
constexpr int kDeepestFolder = 4;
/// A folder that was modified so shortly before it is read can be modified again without a new
/// time.
constexpr std::time_t kClockGrain = 2;

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// Entries are replaced as whole files, which changes their folder. Modification time of `folder`;
/// zero when there is none.
timespec modificationTime(const std::string& folder) {
  struct stat status {};
  return ::stat(folder.c_str(), &status) == 0 ? status.st_mtim : timespec{};
}

/// The executable that `program` names, without symbolic links; none when it is not installed.
std::optional<std::string> resolvedProgram(const std::string& program) {
  // A desktop entry may name an absolute path or a bare name. A path relative to who knows what is
  // neither.
  const bool isPath = program.find('/') != std::string::npos;
  if (program.empty() || (isPath && program.front() != '/')) return std::nullopt;
  const std::string found = isPath ? program : takeText(g_find_program_in_path(program.c_str()));
  const std::unique_ptr<char, decltype(&std::free)> path(::realpath(found.c_str(), nullptr),
                                                         &std::free);
  return path ? std::optional<std::string>(path.get()) : std::nullopt;
}

}  // namespace

std::optional<std::string> programOfExec(std::string_view exec) {
  exec = trimmedBlanks(exec);
  std::string program;
  bool quoted = false;
  for (std::size_t i = 0; i < exec.size(); ++i) {
    const char c = exec[i];
    // Quotes may open anywhere in the wild, though the desktop-entry standard quotes whole
    // arguments.
    if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      break;
    } else if (c == '\\' && quoted) {
      if (++i == exec.size()) return std::nullopt;
      program += exec[i];
    } else if (c == '%') {
      // In a program's name only the escaped percent sign can stand.
      if (++i == exec.size() || exec[i] != '%') return std::nullopt;
      program += '%';
    } else {
      program += c;
    }
  }
  return quoted || program.empty() ? std::nullopt : std::optional(program);
}

std::set<std::string> programsOfDesktopEntry(std::string_view text) {
  std::set<std::string> programs;
  bool hidden = false;
  readKeyFile(text, [&](const KeyFileLine& line) {
    // Groups of actions follow; their programs are not the application's.
    if (line.group != "Desktop Entry") return programs.empty();
    if (line.key == "Hidden") hidden = line.value == "true";
    if (line.key != "Exec" && line.key != "TryExec") return true;
    const auto value = unescapedKeyFileValue(line.value);
    const auto program = value && line.key == "Exec" ? programOfExec(*value) : value;
    if (program) programs.insert(*program);
    return true;
  });
  return hidden ? std::set<std::string>() : programs;
}

DesktopEntries::DesktopEntries(std::vector<std::string> folders) : folders_(std::move(folders)) {}

std::vector<std::string> DesktopEntries::applicationFolders() {
  std::vector<std::string> folders{xdgDataHome() + "/applications"};
  for (const auto& folder : xdgDataDirs())
    folders.push_back(folder + "/applications");
  return folders;
}

std::vector<std::string> DesktopEntries::identifiersOfExecutable(const std::string& executable) {
  refresh();
  std::vector<std::string> found;
  const auto [first, last] = identifiers_.equal_range(executable);
  for (auto entry = first; entry != last; ++entry)
    found.push_back(entry->second);
  return found;
}

bool DesktopEntries::hasProgram(std::string_view identifier) {
  refresh();
  return std::ranges::any_of(identifiers_,
                             [&](const auto& entry) { return entry.second == identifier; });
}

// When somebody asks: that is cheaper than watching the folders all day.
void DesktopEntries::refresh() {
  if (!isCurrent()) readAll();
  resolveWaiting();
}

bool DesktopEntries::isCurrent() const {
  return !stamps_.empty() && std::ranges::all_of(stamps_, [](const Stamp& stamp) {
    return stamp.modified && sameTime(*stamp.modified, modificationTime(stamp.folder));
  });
}

void DesktopEntries::readAll() {
  stamps_.clear();
  identifiers_.clear();
  waiting_.clear();
  std::set<std::string> known;
  for (const auto& folder : folders_)
    readFolder(folder, "", 0, known);
}

void DesktopEntries::readFolder(const std::string& folder, const std::string& idPrefix, int depth,
                                std::set<std::string>& known) {
  // Taken before the folder is read: what changes while it is read shows as a newer time.
  const timespec modified = modificationTime(folder);
  const bool settled = modified.tv_sec < std::time(nullptr) - kClockGrain;
  stamps_.push_back({folder, settled ? std::optional(modified) : std::nullopt});
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), &::closedir);
  if (!listing) return;
  while (const dirent* item = ::readdir(listing.get())) {
    const std::string name = item->d_name;
    std::string path = folder;
    path.append("/").append(name);
    if (name.ends_with(kSuffix)) {
      const auto identifier = idPrefix + name.substr(0, name.size() - kSuffix.size());
      // The id is taken even if the file turns out to be hidden or malformed: that is how a user
      // hides an entry of the system.
      if (known.insert(identifier).second) readEntry(path, identifier);
    } else if (item->d_type == DT_DIR && !name.starts_with('.') && depth < kDeepestFolder) {
      readFolder(path, idPrefix + name + "-", depth + 1, known);
    }
  }
}

void DesktopEntries::readEntry(const std::string& file, const std::string& identifier) {
  const auto content = readWholeFile(file, kLongestEntry);
  for (const auto& program : programsOfDesktopEntry(content.value_or("")))
    waiting_.emplace_back(program, identifier);
}

void DesktopEntries::resolveWaiting() {
  std::erase_if(waiting_, [this](const auto& entry) {
    // A program may be installed after its entry, which changes no folder of entries: what is not
    // found is looked for again each time.
    const auto executable = resolvedProgram(entry.first);
    if (!executable) return false;
    const auto [first, last] = identifiers_.equal_range(*executable);
    // Exec and TryExec often name the same program.
    const bool isNew =
        std::none_of(first, last, [&](const auto& known) { return known.second == entry.second; });
    if (isNew) identifiers_.emplace(*executable, entry.second);
    return true;
  });
}

}  // namespace tarvo
