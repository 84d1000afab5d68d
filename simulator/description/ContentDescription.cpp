#include "simulator/description/ContentDescription.h"

#include <glib.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "Utilities/Format.h"
#include "simulator/bytes/ByteWriter.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/description/Scenery.h"

namespace tarvo::simulator {
namespace {

/// More units do not fit a PTP string, whose count is one byte.
constexpr std::size_t kLongestName = 255;

std::u16string readRawName(const JsonNode& node) {
  node.allowKeys({"raw", "utf16", "repeat"});
  std::u16string part;
  if (const auto text = node.find("raw")) part = utf16(text->text());
  std::vector<std::uint16_t> units;
  node.read("utf16", units);
  part.append(units.begin(), units.end());
  std::uint8_t times = 1;
  node.read("repeat", times);
  std::u16string name;
  for (unsigned i = 0; i < times; ++i)
    name += part;
  if (name.size() > kLongestName) node.fail("at most 255 units are expected");
  return name;
}

std::u16string readName(const JsonNode& node, NameRule rule) {
  if (rule == NameRule::kAnything && node.json().is_object()) return readUnits(node);
  return utf16(readFileName(node));
}

/// Generated files have 32-bit handles and no text; the bound keeps a listing of them in memory.
ContentNode readGenerated(const JsonNode& node) {
  ContentNode content;
  content.kind = ContentNode::Kind::kGenerated;
  content.generated.count = static_cast<std::uint32_t>(node.at("count").number(10'000'000));
  node.readAll(
      {"count"}, Key("size", content.generated.size), Key("prefix", content.generated.prefix),
      Key("extension", content.generated.extension), Key("thumbnail", content.traits.hasThumbnail));
  return content;
}

void readTraits(const JsonNode& node, ObjectTraits& traits) {
  node.read("format", traits.format);
  node.read("captured", traits.captured);
  traits.modified = traits.captured;
  node.read("modified", traits.modified);
  node.read("keywords", traits.keywords);
  node.read("protected", traits.isProtected);
  node.read("thumbnail", traits.hasThumbnail);
  node.read("hidesSize", traits.hidesSize);
  node.read("appearsWith", traits.appearsWith);
}

/// UTF-8 text in the encoding that a device's firmware writes.
std::string encoded(const JsonNode& encoding, const std::string& text) {
  gsize size = 0;
  const std::unique_ptr<gchar, decltype(&g_free)> bytes(
      g_convert(text.data(), static_cast<gssize>(text.size()), encoding.text().c_str(), "UTF-8",
                nullptr, &size, nullptr),
      &g_free);
  if (!bytes) encoding.fail("an encoding that has all of the text is expected");
  return {bytes.get(), size};
}

/// The bytes that "text" or "lines" (each ends with CR LF) give; none where neither is there.
std::optional<std::string> readFileText(const JsonNode& node) {
  std::optional<std::string> text;
  node.read("text", text);
  std::vector<std::string> lines;
  node.read("lines", lines);
  for (const auto& line : lines)
    text = text.value_or("") + line + "\r\n";
  const auto encoding = node.find("encoding");
  return encoding && text ? encoded(*encoding, *text) : text;
}

/// A picture of its own for each name, taken when the file says.
std::string readPicture(const JsonNode& node, const ContentNode& file) {
  constexpr std::uint64_t kMostOfASide = 8192;
  const auto sides = node.items();
  if (sides.size() != 2) node.fail("width and height are expected");
  const auto width = static_cast<int>(sides[0].number(kMostOfASide));
  const auto height = static_cast<int>(sides[1].number(kMostOfASide));
  if (width == 0 || height == 0) node.fail("a picture has pixels");
  return sceneryJPEG(width, height, utf8(file.name), file.traits.captured);
}

ContentNode readFile(const JsonNode& node, NameRule rule) {
  node.allowKeys({"file", "size", "text", "lines", "encoding", "picture", "format", "captured",
                  "modified", "keywords", "protected", "thumbnail", "hidesSize", "appearsWith"});
  ContentNode content;
  content.name = readName(node.at("file"), rule);
  readTraits(node, content.traits);
  node.read("size", content.size);
  content.text = readFileText(node);
  if (const auto picture = node.find("picture")) content.text = readPicture(*picture, content);
  if (content.text) content.size = content.text->size();
  return content;
}

ContentNode readFolder(const JsonNode& node, NameRule rule) {
  node.allowKeys({"folder", "content", "captured", "modified", "protected"});
  ContentNode content;
  content.kind = ContentNode::Kind::kFolder;
  content.name = readName(node.at("folder"), rule);
  readTraits(node, content.traits);
  if (const auto children = node.find("content")) content.children = readContent(*children, rule);
  return content;
}

}  // namespace

std::string GeneratedFiles::nameOf(std::uint32_t index) const {
  return prefix + formatted("%06u", index + 1) + "." + extension;
}

std::u16string readUnits(const JsonNode& node) {
  return node.json().is_object() ? readRawName(node) : utf16(node.text());
}

std::string readFileName(const JsonNode& node) {
  auto name = node.text();
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    node.fail("a file name without \"/\" is expected");
  }
  return name;
}

ContentNode readContentNode(const JsonNode& node, NameRule rule) {
  if (const auto generated = node.find("generate")) return readGenerated(*generated);
  return node.find("folder") ? readFolder(node, rule) : readFile(node, rule);
}

std::vector<ContentNode> readContent(const JsonNode& list, NameRule rule) {
  std::vector<ContentNode> content;
  for (const auto& item : list.items())
    content.push_back(readContentNode(item, rule));
  return content;
}

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
