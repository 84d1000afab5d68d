#include "simulator/ObjectStore.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace tarvo::simulator {
namespace {

/// Bytes that a test can predict: each follows from handle and offset.
class PatternPayload : public Payload {
 public:
  PatternPayload(std::uint32_t handle, std::uint32_t size) : handle_(handle), size_(size) {}
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override {
    for (auto& byte : room) {
      byte = static_cast<std::byte>(offset ^ (offset >> 8) ^ (std::uint64_t{handle_} * 37));
      ++offset;
    }
  }

 private:
  std::uint32_t handle_;
  std::uint32_t size_;
};

bool matches(const StoredObject& object, const ObjectFilter& filter) {
  if (filter.storage != 0xFFFFFFFF && filter.storage != object.storage) return false;
  if (filter.format != 0 && filter.format != object.format) return false;
  if (filter.association == 0) return true;
  return object.parent == (filter.association == 0xFFFFFFFF ? 0 : filter.association);
}

}  // namespace

// Object format codes of ISO 15740.
std::uint16_t formatOfExtension(const std::string& name) {
  static constexpr std::array<std::pair<std::string_view, std::uint16_t>, 10> kFormats = {{
      {"jpg", 0x3801},
      {"jpeg", 0x3801},
      {"tif", 0x380D},
      {"png", 0x380B},
      {"gif", 0x3807},
      {"avi", 0x300A},
      {"mpg", 0x300B},
      {"mov", 0x300D},
      {"wav", 0x3008},
      {"txt", 0x3004},
  }};
  auto extension = name.substr(std::min(name.size(), name.rfind('.') + 1));
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  for (const auto& [known, format] : kFormats) {
    if (known == extension) return format;
  }
  return 0x3000;
}

ObjectStore::ObjectStore(const std::vector<StoreDescription>& stores) {
  for (const auto& store : stores)
    add(store.content, store.id, 0);
}

void ObjectStore::add(const std::vector<ContentNode>& content, std::uint32_t storage,
                      std::uint32_t parent) {
  for (const auto& node : content) {
    if (node.kind == ContentNode::Kind::kGenerated) {
      addRange(node, storage, parent);
    } else {
      addObject(node, storage, parent);
    }
  }
}

void ObjectStore::addObject(const ContentNode& node, std::uint32_t storage, std::uint32_t parent) {
  StoredObject object;
  object.handle = nextHandle_++;
  object.storage = storage;
  object.parent = parent;
  object.name = node.name;
  object.size = static_cast<std::uint32_t>(node.size);
  object.text = node.text;
  const bool folder = node.kind == ContentNode::Kind::kFolder;
  object.format = folder ? StoredObject::kAssociation : node.format;
  if (object.format == 0) object.format = formatOfExtension(node.name);
  // Before the object is moved away; what lies in it gets the numbers behind its own.
  const auto handle = object.handle;
  objects_.push_back(std::move(object));
  add(node.children, storage, handle);
}

void ObjectStore::addRange(const ContentNode& node, std::uint32_t storage, std::uint32_t parent) {
  Range range;
  range.first = nextHandle_;
  range.files = node.generated;
  range.common.storage = storage;
  range.common.parent = parent;
  range.common.format = formatOfExtension("." + node.generated.extension);
  range.common.size = node.generated.size;
  nextHandle_ += node.generated.count;
  ranges_.push_back(std::move(range));
}

std::optional<StoredObject> ObjectStore::object(std::uint32_t handle) const {
  for (const auto& range : ranges_) {
    if (handle < range.first || handle - range.first >= range.files.count) continue;
    auto object = range.common;
    object.handle = handle;
    object.name = range.files.nameOf(handle - range.first);
    return object;
  }
  const auto found = std::lower_bound(
      objects_.begin(), objects_.end(), handle,
      [](const StoredObject& each, std::uint32_t wanted) { return each.handle < wanted; });
  if (found == objects_.end() || found->handle != handle) return std::nullopt;
  return *found;
}

// Objects and ranges are each in order; sorting is what merges them.
std::vector<std::uint32_t> ObjectStore::handles(const ObjectFilter& filter) const {
  std::vector<std::uint32_t> result;
  for (const auto& object : objects_) {
    if (matches(object, filter)) result.push_back(object.handle);
  }
  for (const auto& range : ranges_) {
    if (!matches(range.common, filter)) continue;
    for (std::uint32_t i = 0; i < range.files.count; ++i)
      result.push_back(range.first + i);
  }
  std::sort(result.begin(), result.end());
  return result;
}

std::uint32_t ObjectStore::count(const ObjectFilter& filter) const {
  auto total = static_cast<std::uint32_t>(std::count_if(
      objects_.begin(), objects_.end(), [&](const auto& each) { return matches(each, filter); }));
  for (const auto& range : ranges_) {
    if (matches(range.common, filter)) total += range.files.count;
  }
  return total;
}

std::shared_ptr<const Payload> ObjectStore::content(const StoredObject& object) {
  if (!object.text) return std::make_shared<PatternPayload>(object.handle, object.size);
  ByteWriter writer;
  for (const char letter : *object.text)
    writer.u8(static_cast<std::uint8_t>(letter));
  return std::make_shared<BytesPayload>(writer.take());
}

}  // namespace tarvo::simulator
