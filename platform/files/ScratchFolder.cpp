#include "platform/files/ScratchFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace tarvo {
namespace {

constexpr std::string_view kNames = "tarvo-XXXXXX";
/// The sticky bit says nothing in a folder of one user: it is the mark of ours, which somebody's
/// "tarvo-photos" does not have.
constexpr mode_t kMarked = S_IRWXU | S_ISVTX;

}  // namespace

ScratchFolder::ScratchFolder() {
  std::error_code error;
  path_ = std::filesystem::temp_directory_path(error) / kNames;
  // mkdtemp gives the folder to this user alone (mode 0700).
  if (!error && ::mkdtemp(path_.data()) == nullptr) error = {errno, std::generic_category()};
  if (error)
    throw std::system_error(error, "no folder can be made in the temporary folder (TMPDIR)");
  folder_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Where there are no locks it stays without the mark, and nobody takes it for left over.
  if (::flock(folder_.get(), LOCK_SH) == 0) (void)::fchmod(folder_.get(), kMarked);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

bool isScratchFolder(const std::string& path) {
  const std::filesystem::path at(path);
  const std::string name = at.filename();
  std::error_code error;
  const auto temporary = std::filesystem::temp_directory_path(error);
  if (error || !std::filesystem::equivalent(at.parent_path(), temporary, error)) return false;
  struct stat attributes {};
  return name.size() == kNames.size() && name.starts_with(kNames.substr(0, kNames.find('X'))) &&
         ::lstat(path.c_str(), &attributes) == 0 && S_ISDIR(attributes.st_mode) &&
         attributes.st_uid == ::geteuid() && (attributes.st_mode & ALLPERMS) == kMarked;
}

}  // namespace tarvo
