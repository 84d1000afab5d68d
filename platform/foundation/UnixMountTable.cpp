#include "platform/foundation/UnixMountTable.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ranges>
#include <utility>

#include "platform/foundation/KeyFile.h"
#include "platform/foundation/MainLoopGuard.h"
#include "platform/foundation/XdgFolders.h"

namespace tarvo {
namespace {

/// A table that is longer is none that a desktop has.
constexpr std::size_t kLongestTable = 16 << 20;

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isOctal(std::string_view digits) {
  return digits.size() == 3 &&
         std::ranges::all_of(digits, [](char c) { return c >= '0' && c < '8'; });
}

/// The kernel writes blank, tab, line feed and backslash as \ooo.
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const auto digits = field.substr(i + 1, 3);
    if (field[i] != '\\' || !isOctal(digits)) {
      text += field[i];
      continue;
    }
    text += static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0'));
    i += 3;
  }
  return text;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  while (!line.empty()) {
    const auto field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(line.size(), field.size() + 1));
    fields.push_back(field);
  }
  return fields;
}

}  // namespace

std::vector<Mount> mountsOfMountInfo(std::string_view text) {
  constexpr std::size_t kMountPoint = 4;
  constexpr std::size_t kFirstOptional = 6;
  std::vector<Mount> mounts;
  while (!text.empty()) {
    const auto line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const auto fields = fieldsOf(line);
    if (fields.size() <= kFirstOptional) continue;
    // Any number of optional fields, a hyphen, the filesystem's type, the source.
    const auto hyphen = std::find(fields.begin() + kFirstOptional, fields.end(), "-");
    // Hyphen, type and source must all be there (proc(5), /proc/PID/mountinfo).
    if (fields.end() - hyphen < 3) continue;
    mounts.push_back({unescaped(hyphen[2]), unescaped(fields[kMountPoint])});
  }
  return mounts;
}

UnixMountTable::UnixMountTable(const UserDefaults& defaults, LogSink log, std::string mountInfoFile)
    : log_(std::move(log)), mountInfoFile_(std::move(mountInfoFile)) {
  const auto configured = defaults.text("Platform", "VolumesFolder");
  // Taken as it stands, without symbolic links resolved: mount points are compared as texts.
  if (configured && configured->starts_with('/')) {
    volumesFolder_ = withoutTrailingSlash(*configured);
    return;
  }
  if (configured) {
    logTo(log_, LogLevel::kWarning,
          "[Platform] VolumesFolder is ignored: '" + *configured + "' is no absolute path");
  }
  // udisks mounts in /media/USER where it was built so (Debian), else in /run/media/USER.
  const std::string user = g_get_user_name();
  volumesFolder_ = "/media/" + user;
  otherVolumesFolder_ = "/run/media/" + user;
}

std::vector<Mount> UnixMountTable::mounts() const {
  std::string reason;
  const auto text = readWholeFile(mountInfoFile_, kLongestTable, &reason);
  if (text) return mountsOfMountInfo(*text);
  logTo(log_, LogLevel::kWarning, "cannot read " + mountInfoFile_ + ": " + reason);
  return {};
}

std::optional<std::string> UnixMountTable::deviceMountedAt(std::string_view path) const {
  const auto wanted = withoutTrailingSlash(path);
  const auto table = mounts();
  // From the end: the table is in the order of mounting.
  const auto found = std::find_if(table.rbegin(), table.rend(),
                                  [&](const Mount& mount) { return mount.mountPoint == wanted; });
  return found != table.rend() ? std::optional(found->device) : std::nullopt;
}

const std::string& UnixMountTable::volumesFolder() const {
  // Either folder may come into being with the first volume, so they are asked each time.
  const bool takeOther =
      !otherVolumesFolder_.empty() && !isFolder(volumesFolder_) && isFolder(otherVolumesFolder_);
  return takeOther ? otherVolumesFolder_ : volumesFolder_;
}

void UnixMountTable::watch(std::function<void()> changed) {
  source_.reset();
  watched_ = FileDescriptor();
  // The old descriptor is closed first, so that a new watcher is not told of what came before it.
  changed_ = std::move(changed);
  if (!changed_) return;
  watched_ = FileDescriptor(::open(mountInfoFile_.c_str(), O_RDONLY | O_CLOEXEC));
  if (!watched_.isOpen()) {
    logTo(log_, LogLevel::kWarning,
          "cannot watch " + mountInfoFile_ + ": " + std::string(std::strerror(errno)));
    return;
  }
  // The kernel raises a change of the table as an exceptional condition of the open file.
  GSource* source = g_unix_fd_source_new(watched_.get(), static_cast<GIOCondition>(G_IO_PRI));
  g_source_set_callback(source, G_SOURCE_FUNC(tableChanged), this, nullptr);
  g_source_attach(source, g_main_context_get_thread_default());
  source_ = AttachedSource(source);
}

gboolean UnixMountTable::tableChanged(int /*fd*/, GIOCondition /*condition*/, gpointer self) {
  auto* table = static_cast<UnixMountTable*>(self);
  guardedEntry(table->log_, "mount table", [table] {
    const auto changed = table->changed_;  // stays whole when it ends the watching
    changed();
  });
  return G_SOURCE_CONTINUE;
}

}  // namespace tarvo
