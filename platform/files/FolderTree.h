// A folder whose inside is never left: a volume that somebody else has filled.
//
//   FolderTree volume("/media/u/CARD");
//   int error = 0;
//   const FileDescriptor picture = volume.openFile("DCIM/100TARVO/TARV0001.JPG", error);
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
  [[nodiscard]] int removeFile(std::string_view path) const;

  /// A member of an open folder of this tree.
  static FileDescriptor openFolderIn(int folder, const std::string& name, int& error);
  static FileDescriptor openFileIn(int folder, const std::string& name, int& error);

 private:
  static FileDescriptor openIn(int folder, const std::string& name, unsigned flags, int& error);
  /// The folder that holds the last component of `path`, which `name` gets.
  FileDescriptor openParent(std::string_view path, std::string& name, int& error) const;

  std::string path_;
  FileDescriptor folder_;
  int error_ = 0;
};

// Everything that lies below a folder, one entry at a time as it is read, whatever the number.
//
//   const FolderTree volume("/media/u/CARD");
//   FolderWalk walk(volume, [&](const std::string& path, int error) { report(path, error); });
//   while (const auto* entry = walk.next()) {
//     if (entry->kind == FolderWalk::Kind::kFile) use(entry->path);
//   }

/// Any thread, one at a time. Errors are errno numbers.
///
/// The order is that of the file system. It holds one open folder a level and nothing of what was
/// given; folders that lie more than kMostLevels deep are failures (ELOOP), and so is one that lies
/// in itself, as a damaged file system can have it. What is made or removed meanwhile may or may
/// not be given; what has gone before it was looked at is passed over.
class FolderWalk {
 public:
  static constexpr std::size_t kMostLevels = 128;

  enum class Kind : std::uint8_t {
    kFile,    ///< regular
    kFolder,  ///< what lies in it comes next, unless it is another mount
    kOther,   ///< a link, a pipe, a device
  };

  struct Entry {
    std::string path{};  ///< relative to the tree, bytes as the file system has them
    Kind kind = Kind::kOther;
    std::string_view name() const {
      return std::string_view(path).substr(path.rfind('/') + 1);  // npos + 1 is the beginning
    }
  };

  /// Told of each folder that cannot be read, or not to its end; the walk goes on behind it. The
  /// tree itself has an empty path.
  using FailureHandler = std::function<void(const std::string& path, int error)>;

  /// `start` is the folder of the tree that is walked, empty for the tree itself.
  FolderWalk(const FolderTree& tree, FailureHandler onFailure, std::string start = {});

  /// Null at the end. Valid until the next call.
  const Entry* next();
  /// What lies in the folder that next() gave last is not given.
  void passOver() { entry_.kind = Kind::kOther; }
  /// Of what next() gave last, a link itself; none when it has gone.
  std::optional<struct stat> attributes() const;
  /// The same for reading, as FolderTree::openFile().
  FileDescriptor openFile(int& error) const;

 private:
  struct Closer {
    void operator()(DIR* folder) const { ::closedir(folder); }
  };
  struct Level {
    std::unique_ptr<DIR, Closer> folder;
    std::size_t pathLength;
    dev_t device;
    ino_t inode;
  };

  void enter(FileDescriptor folder, int error);
  /// False for what is no entry, or none any more.
  bool take(const dirent& member);
  int folder() const { return ::dirfd(levels_.back().folder.get()); }

  FailureHandler onFailure_;
  std::vector<Level> levels_;
  Entry entry_;
};

}  // namespace tarvo
