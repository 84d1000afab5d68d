#include "platform/files/FolderTree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tarvo {
namespace {

bool isComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('\0') == std::string_view::npos;
}

FileDescriptor refused(int& error, int why) {
  error = why;
  return {};
}

}  // namespace

FolderTree::FolderTree(std::string path) : path_(std::move(path)) {
  folder_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_.isOpen()) error_ = errno;
}

bool FolderTree::holds(const std::string& folder) const {
  std::error_code error;
  const auto inside = std::filesystem::canonical(folder, error).string() + "/";
  const auto outside = std::filesystem::canonical(path_, error).string() + "/";
  return !error && inside.starts_with(outside);
}

FileDescriptor FolderTree::openFolder(std::string_view path, int& error) const {
  // A last component that is empty; the loop below finds the others.
  if (path.ends_with('/')) return refused(error, EINVAL);
  // Opened anew: who reads a folder moves the position of its descriptor.
  FileDescriptor folder(::openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.isOpen()) return refused(error, errno);
  while (folder.isOpen() && !path.empty()) {
    const auto name = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(path.size(), name.size() + 1));
    folder = openFolderIn(folder.get(), std::string(name), error);
  }
  return folder;
}

FileDescriptor FolderTree::openFile(std::string_view path, int& error) const {
  std::string name;
  const FileDescriptor folder = openParent(path, name, error);
  return folder.isOpen() ? openFileIn(folder.get(), name, error) : FileDescriptor();
}

int FolderTree::removeFile(std::string_view path) const {
  std::string name;
  int error = 0;
  const FileDescriptor folder = openParent(path, name, error);
  if (!folder.isOpen()) return error;
  return ::unlinkat(folder.get(), name.c_str(), 0) == 0 ? 0 : errno;
}

FileDescriptor FolderTree::openFolderIn(int folder, const std::string& name, int& error) {
  return openIn(folder, name, O_DIRECTORY, error);
}

FileDescriptor FolderTree::openFileIn(int folder, const std::string& name, int& error) {
  // A pipe is not to be waited for.
  FileDescriptor file = openIn(folder, name, O_NONBLOCK, error);
  struct stat attributes {};
  if (!file.isOpen()) return {};
  if (::fstat(file.get(), &attributes) != 0) return refused(error, errno);
  if (S_ISDIR(attributes.st_mode)) return refused(error, EISDIR);
  return S_ISREG(attributes.st_mode) ? std::move(file) : refused(error, EINVAL);
}

FileDescriptor FolderTree::openIn(int folder, const std::string& name, unsigned flags, int& error) {
  if (!isComponent(name)) return refused(error, EINVAL);
  const open_how how = {.flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | flags,
                        .mode = 0,
                        .resolve = RESOLVE_BENEATH | RESOLVE_NO_XDEV};
  // The C library of Debian 12 has no function for it.
  const auto opened = ::syscall(SYS_openat2, folder, name.c_str(), &how, sizeof how);
  error = opened < 0 ? errno : 0;
  return FileDescriptor(static_cast<int>(opened));
}

FileDescriptor FolderTree::openParent(std::string_view path, std::string& name, int& error) const {
  const auto slash = path.rfind('/');
  name = path.substr(slash == std::string_view::npos ? 0 : slash + 1);
  if (!isComponent(name) || slash == 0) return refused(error, EINVAL);
  return openFolder(slash == std::string_view::npos ? "" : path.substr(0, slash), error);
}

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

FolderWalk::FolderWalk(const FolderTree& tree, FailureHandler onFailure, std::string start)
    : onFailure_(std::move(onFailure)) {
  int error = tree.error();
  FileDescriptor root = tree.isOpen() ? tree.openFolder(start, error) : FileDescriptor();
  if (!root.isOpen()) {
    onFailure_(start, error);
    return;
  }
  if (!start.empty()) entry_ = {std::move(start), Kind::kFolder};
  enter(std::move(root), 0);
}

const FolderWalk::Entry* FolderWalk::next() {
  if (!levels_.empty() && entry_.kind == Kind::kFolder) {
    int error = 0;
    FileDescriptor inside = FolderTree::openFolderIn(folder(), std::string(entry_.name()), error);
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
                         : FolderTree::openFileIn(folder(), std::string(entry_.name()), error);
}

}  // namespace tarvo
