#include "platform/files/FolderTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tarvo {
namespace {

/// Tells mounts apart, two of one file system as well (statx(2), STATX_MNT_ID). 0 or an errno.
int mountOf(int descriptor, std::uint64_t& mount) {
  struct statx attributes {};
  if (::statx(descriptor, "", AT_EMPTY_PATH, STATX_MNT_ID, &attributes) != 0) return errno;
  mount = attributes.stx_mnt_id;
  return (attributes.stx_mask & STATX_MNT_ID) != 0 ? 0 : ENOSYS;
}

bool isComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('\0') == std::string_view::npos;
}

FileDescriptor refused(int& error, int why) {
  error = why;
  return {};
}

}  // namespace

FolderTree::FolderTree(std::string path) : path_(std::move(path)) {
  FileDescriptor folder(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  error_ = folder.isOpen() ? mountOf(folder.get(), mount_) : errno;
  if (error_ == 0) folder_ = std::move(folder);
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

FileDescriptor FolderTree::openFolderIn(int folder, const std::string& name, int& error) const {
  return openIn(folder, name, O_DIRECTORY, error);
}

FileDescriptor FolderTree::openFileIn(int folder, const std::string& name, int& error) const {
  // A pipe is not to be waited for.
  FileDescriptor file = openIn(folder, name, O_NONBLOCK, error);
  struct stat attributes {};
  if (!file.isOpen()) return {};
  if (::fstat(file.get(), &attributes) != 0) return refused(error, errno);
  if (S_ISDIR(attributes.st_mode)) return refused(error, EISDIR);
  return S_ISREG(attributes.st_mode) ? std::move(file) : refused(error, EINVAL);
}

FileDescriptor FolderTree::openIn(int folder, const std::string& name, int flags,
                                  int& error) const {
  if (!isComponent(name)) return refused(error, EINVAL);
  FileDescriptor found(
      ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | flags));
  if (!found.isOpen()) return refused(error, errno);
  std::uint64_t mount = 0;
  error = mountOf(found.get(), mount);
  if (error == 0 && mount != mount_) error = EXDEV;
  return error == 0 ? std::move(found) : FileDescriptor();
}

FileDescriptor FolderTree::openParent(std::string_view path, std::string& name, int& error) const {
  const auto slash = path.rfind('/');
  name = path.substr(slash == std::string_view::npos ? 0 : slash + 1);
  if (!isComponent(name) || slash == 0) return refused(error, EINVAL);
  return openFolder(slash == std::string_view::npos ? "" : path.substr(0, slash), error);
}

}  // namespace tarvo
