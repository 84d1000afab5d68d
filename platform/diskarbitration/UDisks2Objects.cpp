#include "platform/diskarbitration/UDisks2Objects.h"

#include <algorithm>
#include <memory>

#include "platform/foundation/GlibPtr.h"

namespace tarvo {
namespace {

/// More block devices than any machine has that cameras are plugged into.
/// What the bus brings is another process's word.
constexpr std::size_t kMostBlocks = 4096;

using TextList = std::unique_ptr<char*, GlibRelease<g_strfreev>>;

/// The properties of an interface among those of an object; null where it has none of that name.
GVariantPtr interfaceOf(GVariant* interfaces, const char* name) {
  return GVariantPtr(g_variant_lookup_value(interfaces, name, G_VARIANT_TYPE_VARDICT));
}

/// `format` is "o" or "^ay". An object path that stands for none is "/".
std::string text(GVariant* properties, const char* name, const char* format) {
  char* value = nullptr;
  if (!g_variant_lookup(properties, name, format, &value)) return {};
  std::string result = takeText(value);
  return result == "/" ? "" : result;
}

std::vector<std::string> mountPointsOf(GVariant* filesystem) {
  char** values = nullptr;
  // "aay": a mount point is bytes, each ended by a zero, since paths need not be UTF-8.
  if (!g_variant_lookup(filesystem, "MountPoints", "^aay", &values)) return {};
  const TextList owner(values);
  std::vector<std::string> mountPoints;
  for (char** value = values; *value != nullptr; ++value)
    if (**value != '\0') mountPoints.emplace_back(*value);
  return mountPoints;
}

BlockObject blockObject(const char* path, GVariant* block, GVariant* interfaces) {
  BlockObject object{.path = path,
                     .device = text(block, "Device", "^ay"),
                     .drive = text(block, "Drive", "o"),
                     .mountPoints = {}};
  if (const auto filesystem = interfaceOf(interfaces, udisks2::kFilesystem)) {
    object.hasFilesystem = true;
    object.mountPoints = mountPointsOf(filesystem.get());
  }
  return object;
}

}  // namespace

std::vector<BlockObject> blockObjects(GVariant* managedObjects) {
  std::vector<BlockObject> blocks;
  GVariantIter iterator;
  g_variant_iter_init(&iterator, managedObjects);
  while (const auto entry = GVariantPtr(g_variant_iter_next_value(&iterator))) {
    if (blocks.size() == kMostBlocks) break;
    const GVariantPtr path(g_variant_get_child_value(entry.get(), 0));
    const GVariantPtr interfaces(g_variant_get_child_value(entry.get(), 1));
    if (const auto block = interfaceOf(interfaces.get(), udisks2::kBlock))
      blocks.push_back(
          blockObject(g_variant_get_string(path.get(), nullptr), block.get(), interfaces.get()));
  }
  return blocks;
}

const BlockObject* blockNamed(const std::vector<BlockObject>& blocks, std::string_view bsdName) {
  // Not by the preferred device, which may be a link that the user has made.
  const std::string device = "/dev/" + std::string(bsdName);
  const auto block = std::ranges::find(blocks, device, &BlockObject::device);
  return block == blocks.end() ? nullptr : &*block;
}

}  // namespace tarvo
