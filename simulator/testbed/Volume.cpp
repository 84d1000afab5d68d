#include "simulator/testbed/Volume.h"

#include <sys/mount.h>

#include <cerrno>
#include <system_error>

#include "simulator/description/ContentFiles.h"

namespace tarvo::simulator {

namespace fs = std::filesystem;

Volume::Volume(const fs::path& folder, const fs::path& staging, const std::string& source,
               const VolumeDescription& description)
    : mountPoint_(folder / description.label) {
  const auto fail = [&](const char* what) {
    throw std::system_error(errno, std::generic_category(), what + mountPoint_.string());
  };
  fs::create_directories(mountPoint_);
  fs::create_directories(staging);
  if (::mount(source.c_str(), staging.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    fail("cannot mount a volume at ");
  }
  // The content is there before the mount shows in the volumes folder: a volume arrives whole.
  writeContent(staging, description.content);
  if (::mount(staging.c_str(), mountPoint_.c_str(), nullptr, MS_MOVE, nullptr) != 0) {
    ::umount2(staging.c_str(), MNT_DETACH);
    fail("cannot move a volume to ");
  }
}

Volume::~Volume() {
  // Lazily, as when the medium is pulled out under a reader.
  ::umount2(mountPoint_.c_str(), MNT_DETACH);
  std::error_code ignored;
  fs::remove(mountPoint_, ignored);
}

}  // namespace tarvo::simulator
