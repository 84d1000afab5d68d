#include "simulator/testbed/Volume.h"

#include <sys/mount.h>

#include <cerrno>
#include <fstream>
#include <system_error>

namespace tarvo::simulator {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, std::uint64_t size, const std::optional<std::string>& text) {
  std::ofstream file(path, std::ios::binary);
  if (text) file << *text;
  file.close();
  // What has no text is a hole of its size, which takes no memory.
  if (!text) fs::resize_file(path, size);
}

void fill(const fs::path& folder, const std::vector<ContentNode>& content) {
  for (const auto& node : content) {
    switch (node.kind) {
      case ContentNode::Kind::kFolder:
        fs::create_directory(folder / node.name);
        fill(folder / node.name, node.children);
        break;
      case ContentNode::Kind::kFile:
        writeFile(folder / node.name, node.size, node.text);
        break;
      case ContentNode::Kind::kGenerated:
        for (std::uint32_t i = 0; i < node.generated.count; ++i) {
          writeFile(folder / node.generated.nameOf(i), node.generated.size, std::nullopt);
        }
        break;
    }
  }
}

}  // namespace

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
  fill(staging, description.content);
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
