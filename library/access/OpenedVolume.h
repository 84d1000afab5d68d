// A mounted card or camera.
#pragma once

#include <string>
#include <string_view>

#include "library/access/OpenedDevice.h"
#include "platform/files/FolderTree.h"

namespace tarvo::library {

/// Main thread only.
class OpenedVolume {
 public:
  /// Raises for a volume that cannot be read.
  explicit OpenedVolume(DeviceSummary summary);
  OpenedVolume(const OpenedVolume&) = delete;
  OpenedVolume& operator=(const OpenedVolume&) = delete;

  const DeviceSummary& summary() const { return summary_; }
  const FolderTree& tree() const { return tree_; }

 private:
  DeviceSummary summary_;
  FolderTree tree_;
};

// What cameras write: pictures and films, by the names of their files.

/// By the extension, without regard to case; never a hidden file. Any thread.
bool isPictureOrFilmName(std::string_view name);
bool isFilmName(std::string_view name);

}  // namespace tarvo::library
