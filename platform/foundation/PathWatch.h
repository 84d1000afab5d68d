// Tells when a path has come into being, without polling.
#pragma once

#include <functional>
#include <string>

#include "Utilities/FileDescriptor.h"
#include "Utilities/LogSink.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo {

/// Watches the nearest folder above `path` that exists, by inotify, and moves deeper as folders
/// appear. Main thread only.
class PathWatch {
 public:
  /// Calls `appeared` from the main loop each time that `path` is created, moved into place, or
  /// changes its attributes, from now until the watch is destroyed.
  /// A relative `path` counts from the root. Nothing is told of a path that is there already.
  PathWatch(const std::string& path, std::function<void()> appeared, LogSink log);
  ~PathWatch();
  PathWatch(const PathWatch&) = delete;
  PathWatch& operator=(const PathWatch&) = delete;

 private:
  /// Source callback: the inotify descriptor has events.
  static gboolean readable(int fd, GIOCondition condition, gpointer self);
  /// Takes all events that wait, then looks once whether the path is there.
  void readEvents();
  /// Puts the watch on the nearest folder that exists.
  void watchNearestFolder();
  /// False when `folder` cannot be watched, which mostly means that it does not exist.
  bool watchFolder(const std::string& folder);

  std::string path_;
  std::function<void()> appeared_;
  LogSink log_;
  /// Not open when the kernel has no more instances to give; the watch then tells nothing, with one
  /// log line.
  FileDescriptor inotify_;
  /// The one folder that is watched, -1 for none.
  int folderWatch_ = -1;
  std::string awaited_;  ///< the entry of the watched folder that leads to the path
  AttachedSource source_;
};

}  // namespace tarvo
