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

Volume::Volume(const fs::path& folder, const std::string& source,
               const VolumeDescription& description)
    : mountPoint_(folder / description.label) {
  fs::create_directories(mountPoint_);
  // The content is there before the mount shows: a volume arrives whole.
  const auto hidden = fs::path(folder) / ("." + description.label + ".new");
  fs::create_directories(hidden);
  const auto fail = [](const fs::path& path, const char* what) {
    throw std::system_error(errno, std::generic_category(), what + path.string());
  };
  if (::mount(source.c_str(), hidden.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    fail(mountPoint_, "cannot mount a volume at ");
  }
  fill(hidden, description.content);
  const int moved = ::mount(hidden.c_str(), mountPoint_.c_str(), nullptr, MS_MOVE, nullptr);
  if (moved != 0) ::umount2(hidden.c_str(), MNT_DETACH);
  std::error_code ignored;
  fs::remove(hidden, ignored);
  if (moved != 0) fail(mountPoint_, "cannot mount a volume at ");
}

Volume::~Volume() {
  // Lazily, as when the medium is pulled out under a reader.
  ::umount2(mountPoint_.c_str(), MNT_DETACH);
  std::error_code ignored;
  fs::remove(mountPoint_, ignored);
}

}  // namespace tarvo::simulator
