#include "platform/foundation/PathWatch.h"

#include <glib-unix.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

/// GLib's file monitor looks for missing folders by a timer; watching the nearest one that exists
/// needs none.
constexpr std::uint32_t kFolderEvents =
    IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

std::string parentOf(const std::string& path) {
  const auto slash = path.find_last_of('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

PathWatch::PathWatch(const std::string& path, std::function<void()> appeared, LogSink log)
    : path_(takeText(g_canonicalize_filename(path.c_str(), "/"))),
      appeared_(std::move(appeared)),
      log_(std::move(log)),
      // Not blocking, since it is read until nothing is left.
      inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!inotify_.isOpen()) {
    logTo(log_, LogLevel::kWarning,
          "cannot watch for " + path_ + ": " + std::string(std::strerror(errno)));
    return;
  }
  watchNearestFolder();
  GSource* source = g_unix_fd_source_new(inotify_.get(), G_IO_IN);
  g_source_set_callback(source, G_SOURCE_FUNC(readable), this, nullptr);
  g_source_attach(source, g_main_context_get_thread_default());
  source_ = AttachedSource(source);
}

PathWatch::~PathWatch() = default;

void PathWatch::watchNearestFolder() {
  std::string entry = path_;
  std::string unwatchable;  // there, but a file or a folder that may not be read
  while (entry != "/") {
    const std::string folder = parentOf(entry);
    if (!watchFolder(folder)) {
      entry = folder;
      continue;
    }
    // Set before the entry is looked for: an event may be waiting already.
    awaited_ = entry.substr(entry.find_last_of('/') + 1);
    // What came into being before the watch was there is not announced, so it is looked for again;
    // once only, since an entry that is there and still cannot be watched would be found for ever.
    if (entry == path_ || entry == unwatchable || ::access(entry.c_str(), X_OK) != 0) return;
    unwatchable = std::exchange(entry, path_);
  }
}

bool PathWatch::watchFolder(const std::string& folder) {
  const int watch = inotify_add_watch(inotify_.get(), folder.c_str(), kFolderEvents);
  if (watch < 0) return false;
  // Adding the same folder again gives the same number, which must not be removed then.
  if (folderWatch_ >= 0 && folderWatch_ != watch) inotify_rm_watch(inotify_.get(), folderWatch_);
  folderWatch_ = watch;
  return true;
}

gboolean PathWatch::readable(int /*fd*/, GIOCondition /*condition*/, gpointer self) {
  auto* watch = static_cast<PathWatch*>(self);
  guardedEntry(watch->log_, "PathWatch", [watch] { watch->readEvents(); });
  return G_SOURCE_CONTINUE;
}

void PathWatch::readEvents() {
  alignas(inotify_event) std::array<char, 4096> buffer;
  // A busy folder brings many events at once; one look at the path answers them all.
  bool concerned = false;
  for (ssize_t size = 0; (size = ::read(inotify_.get(), buffer.data(), buffer.size())) > 0;) {
    for (ssize_t at = 0; at < size;) {
      inotify_event event{};
      // Events are packed with names of any length, so they are not taken in place.
      std::memcpy(&event, buffer.data() + at, sizeof event);
      // Padded with zeros by the kernel, so it always ends.
      const char* name = buffer.data() + at + sizeof event;
      const bool folderGone = (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
      if (event.wd == folderWatch_ && (folderGone || (event.len > 0 && awaited_ == name))) {
        concerned = true;
      }
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  if (!concerned) return;
  watchNearestFolder();
  if (::access(path_.c_str(), F_OK) == 0) {
    const auto appeared = appeared_;
    appeared();  // may destroy this watch
  }
}

}  // namespace tarvo
