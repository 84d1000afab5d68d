#include "simulator/description/ContentFiles.h"

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

namespace tarvo::simulator {

namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, std::uint64_t size, const std::optional<std::string>& text) {
  std::ofstream file(path, std::ios::binary);
  if (text) file << *text;
  file.close();
  // What has no text is a hole of its size, which takes no memory.
  if (!text) fs::resize_file(path, size);
}

}  // namespace

void writeContent(const fs::path& folder, const std::vector<ContentNode>& content) {
  for (const auto& node : content) {
    switch (node.kind) {
      case ContentNode::Kind::kFolder:
        fs::create_directory(folder / node.name);
        writeContent(folder / node.name, node.children);
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

}  // namespace tarvo::simulator
