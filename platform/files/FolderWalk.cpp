#include "platform/files/FolderWalk.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tarvo {
namespace {

FolderWalk::Kind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return FolderWalk::Kind::kFile;
  return S_ISDIR(mode) ? FolderWalk::Kind::kFolder : FolderWalk::Kind::kOther;
}

/// Neither a failure to be told of: it has gone, has become something else, or lies on another
/// mount.
bool isPassedOver(int error) {
  return error == ENOENT || error == ENOTDIR || error == EXDEV;
}

}  // namespace

FolderWalk::FolderWalk(const FolderTree& tree, FailureHandler onFailure)
    : tree_(tree), onFailure_(std::move(onFailure)) {
  int error = tree.error();
  FileDescriptor root = tree.isOpen() ? tree.openFolder("", error) : FileDescriptor();
  if (root.isOpen()) {
    enter(std::move(root), 0);
  } else {
    onFailure_("", error);
  }
}

const FolderWalk::Entry* FolderWalk::next() {
  if (!levels_.empty() && entry_.kind == Kind::kFolder) {
    int error = 0;
    FileDescriptor inside = tree_.openFolderIn(folder(), std::string(entry_.name()), error);
    enter(std::move(inside), error);
  }
  while (!levels_.empty()) {
    errno = 0;
    if (const dirent* member = ::readdir(levels_.back().folder.get())) {
      if (take(*member)) return &entry_;
      continue;
    }
    if (errno != 0) onFailure_(entry_.path.substr(0, levels_.back().pathLength), errno);
    levels_.pop_back();
  }
  return nullptr;
}

void FolderWalk::enter(FileDescriptor folder, int error) {
  const std::string path =
      std::exchange(entry_.kind, Kind::kOther) == Kind::kFolder ? entry_.path : "";
  struct stat attributes {};
  if (folder.isOpen() && ::fstat(folder.get(), &attributes) != 0) error = errno;
  const bool isBelowItself = std::ranges::any_of(levels_, [&](const Level& level) {
    return level.device == attributes.st_dev && level.inode == attributes.st_ino;
  });
  if (error == 0 && (isBelowItself || levels_.size() > kMostLevels)) error = ELOOP;
  DIR* opened = error == 0 ? ::fdopendir(folder.get()) : nullptr;
  if (opened != nullptr) {
    folder.release();
    levels_.push_back(
        {std::unique_ptr<DIR, Closer>(opened), path.size(), attributes.st_dev, attributes.st_ino});
    return;
  }
  if (error == 0) error = errno;
  if (!isPassedOver(error)) onFailure_(path, error);
}

bool FolderWalk::take(const dirent& member) {
  const std::string_view name = member.d_name;
  if (name == "." || name == "..") return false;
  entry_.path.resize(levels_.back().pathLength);
  if (!entry_.path.empty()) entry_.path += '/';
  entry_.path += name;
  if (member.d_type != DT_UNKNOWN) {
    entry_.kind = kindOf(DTTOIF(member.d_type));
    return true;
  }
  // Some file systems do not tell the kind with the name.
  const auto found = attributes();
  entry_.kind = found ? kindOf(found->st_mode) : Kind::kOther;
  return found.has_value();
}

std::optional<struct stat> FolderWalk::attributes() const {
  struct stat found {};
  const std::string name(entry_.name());
  if (levels_.empty() || ::fstatat(folder(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0)
    return std::nullopt;
  return found;
}

FileDescriptor FolderWalk::openFile(int& error) const {
  error = ENOENT;
  return levels_.empty() ? FileDescriptor()
                         : tree_.openFileIn(folder(), std::string(entry_.name()), error);
}

}  // namespace tarvo
