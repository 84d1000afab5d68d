#include "platform/files/ScratchFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tarvo {

std::optional<std::string> privateTemporaryFolder() {
  std::error_code error;
  const std::string temporary = std::filesystem::temp_directory_path(error);
  if (error) return std::nullopt;
  const std::string path = temporary + "/tarvo-" + std::to_string(::geteuid());
  if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) return std::nullopt;
  struct stat attributes {};
  if (::lstat(path.c_str(), &attributes) != 0) return std::nullopt;
  const bool isPrivate = S_ISDIR(attributes.st_mode) && attributes.st_uid == ::geteuid() &&
                         (attributes.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  return isPrivate ? std::optional(path) : std::nullopt;
}

ScratchFolder::ScratchFolder() {
  const auto parent = privateTemporaryFolder();
  std::string pattern = parent.value_or("") + "/XXXXXX";
  if (parent && ::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace tarvo
