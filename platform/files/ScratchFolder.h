// Folders for what is downloaded to be read at once, which no other user can look into.
#pragma once

#include <string>

#include "Utilities/FileDescriptor.h"

namespace tarvo {

/// A new folder in the system's temporary folder (TMPDIR, else /tmp), which goes with everything in
/// it. Its name, "tarvo-" and six characters that nobody can know beforehand, is free whatever
/// another user has laid there. It is locked, shared (flock(2)), as long as this lives.
class ScratchFolder {
 public:
  /// Raises std::system_error where none can be made: the fault is this machine's, and no device is
  /// to be blamed for it.
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  /// Leaves the folder to whoever gets the paths of its files.
  void leave() { path_.clear(); }

 private:
  std::string path_;
  FileDescriptor folder_;
};

/// Whether a ScratchFolder of this user has made what lies at `path`, in use or left over.
bool isScratchFolder(const std::string& path);

}  // namespace tarvo
