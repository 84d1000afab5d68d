// A folder whose inside is never left: a volume that somebody else has filled.
//
//   FolderTree volume("/media/u/CARD");
//   int error = 0;
//   const FileDescriptor picture = volume.openFile("DCIM/100TARVO/TARV0001.JPG", error);
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Utilities/FileDescriptor.h"

namespace tarvo {

/// Any thread, one at a time. Errors are errno numbers.
///
/// Links are not followed and other mounts below the folder are not entered, whatever is moved
/// about meanwhile: each component is opened below the one before it. Paths are relative to the
/// folder and hold bytes; EINVAL for one with an empty component, "." or "..", ELOOP or ENOTDIR for
/// one that leads through a link, EXDEV for one that leads to another mount.
class FolderTree {
 public:
  /// What `path` leads to is the folder; links in `path` itself are followed.
  explicit FolderTree(std::string path);

  const std::string& path() const { return path_; }
  bool isOpen() const { return folder_.isOpen(); }
  /// Why it is not.
  int error() const { return error_; }

  /// Whether another folder is this one or lies below it.
  bool holds(const std::string& folder) const;

  /// The folder itself where `path` is empty. An owner of nothing, with the cause in `error`, on
  /// failure.
  FileDescriptor openFolder(std::string_view path, int& error) const;
  /// For reading. EISDIR, or EINVAL for a device, a pipe and the like, where it is no regular file.
  FileDescriptor openFile(std::string_view path, int& error) const;
  /// Removes a file, or a link itself. EISDIR for a folder. 0 on success.
  int removeFile(std::string_view path) const;

  /// A member of an open folder of this tree.
  FileDescriptor openFolderIn(int folder, const std::string& name, int& error) const;
  FileDescriptor openFileIn(int folder, const std::string& name, int& error) const;

 private:
  FileDescriptor openIn(int folder, const std::string& name, int flags, int& error) const;
  /// The folder that holds the last component of `path`, which `name` gets.
  FileDescriptor openParent(std::string_view path, std::string& name, int& error) const;

  std::string path_;
  FileDescriptor folder_;
  int error_ = 0;
  std::uint64_t mount_ = 0;
};

}  // namespace tarvo
