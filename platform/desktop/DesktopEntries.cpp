#include "platform/desktop/DesktopEntries.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/KeyFile.h"
#include "platform/foundation/XdgFolders.h"

namespace tarvo {
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
  if (!content) return;
  std::set<std::string> programs;
  bool hidden = false;
  readKeyFile(*content, [&](const KeyFileLine& line) {
    // Groups of actions follow; their programs are not the application's.
    if (line.group != "Desktop Entry") return programs.empty();
    if (line.key == "Hidden") hidden = line.value == "true";
    if (line.key != "Exec" && line.key != "TryExec") return true;
    const auto value = unescapedKeyFileValue(line.value);
    const auto program = value && line.key == "Exec" ? programOfExec(*value) : value;
    if (program) programs.insert(*program);
    return true;
  });
  if (hidden) return;  // stands for "deleted by the user"
  for (const auto& program : programs)
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
