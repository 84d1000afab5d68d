// A mounted card or camera, and the files on it that are meant.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "library/access/OpenedDevice.h"
#include "platform/files/FolderTree.h"
#include "tarvo/Objects.h"

namespace tarvo::library {

/// What becomes of each part of a selection. All must be set.
struct VolumeVisitor {
  /// An entry, at which `walk` stands; `wasNamed` tells that an operand means it.
  std::function<void(const FolderWalk& walk, const FolderWalk::Entry& entry, bool wasNamed)>
      onEntry;
  /// A folder that cannot be read.
  std::function<void(const std::string& path, const Failure& failure)> onUnreadable;
  /// A name or pattern that nothing has.
  std::function<void(const std::string& operand)> onUnmatched;
  std::function<bool()> goesOn;
};

/// Main thread only.
class OpenedVolume {
 public:
  /// Raises for a volume that cannot be read.
  explicit OpenedVolume(DeviceSummary summary);
  OpenedVolume(const OpenedVolume&) = delete;
  OpenedVolume& operator=(const OpenedVolume&) = delete;

  const DeviceSummary& summary() const { return summary_; }
  const FolderTree& tree() const { return tree_; }

  /// Visits what `operands` mean and what `others` adds, as it is read and in that order. Operands
  /// are names, or patterns (glob(7)) that leave hidden files out; one with a slash is compared
  /// with the whole path. A name means the first entry that has it. Links are not followed. Gives
  /// the number of files that kPictures has passed over.
  std::uint64_t visit(const std::vector<std::string>& operands, ObjectChoice::Others others,
                      const VolumeVisitor& visitor) const;

 private:
  DeviceSummary summary_;
  FolderTree tree_;
};

// What cameras write: pictures and films, by the names of their files.

/// By the extension, without regard to case; never a hidden file. Any thread.
bool isPictureOrFilmName(std::string_view name);

}  // namespace tarvo::library
