// Folders for what is downloaded to be read at once, which no other user can look into.
#pragma once

#include <optional>
#include <string>

namespace tarvo {

/// This user's own folder under the system's temporary folder, made where it is not there; none
/// where somebody else could get at it.
std::optional<std::string> privateTemporaryFolder();

/// A new folder in that one, which goes with everything in it.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  /// Empty where it could not be made.
  const std::string& path() const { return path_; }
  /// Leaves the folder to whoever gets the paths of its files.
  void leave() { path_.clear(); }

 private:
  std::string path_;
};

}  // namespace tarvo
