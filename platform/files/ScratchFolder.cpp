#include "platform/files/ScratchFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tarvo {

ScratchFolder::ScratchFolder() {
  std::error_code error;
  path_ = std::filesystem::temp_directory_path(error) / "tarvo-XXXXXX";
  // mkdtemp gives the folder to this user alone (mode 0700).
  if (!error && ::mkdtemp(path_.data()) == nullptr) error = {errno, std::generic_category()};
  if (error)
    throw std::system_error(error, "no folder can be made in the temporary folder (TMPDIR)");
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace tarvo
