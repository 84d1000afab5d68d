#include "import/Previews.h"

#include <span>
#include <vector>

#include "import/CaptureDate.h"
#include "import/Files.h"
#include "import/Groups.h"
#include "platform/files/FolderTree.h"

namespace tarvo::importing {
namespace {

constexpr std::uint64_t kMostOfPicture = std::uint64_t{16} << 20;

std::vector<std::byte> inFile(const Device& volume, const ObjectInfo& object) {
  int error = 0;
  const auto file = FolderTree(volume.info().path()).openFile(object.path(), error);
  if (!file.isOpen()) return {};
  const auto beginning = beginningOf(file.get());
  return embeddedThumbnail(beginning);
}

std::vector<std::byte> smallPicture(Device& device, const ObjectInfo& object) {
  if (device.info().kind() == DeviceKind::kVolume) return inFile(device, object);
  return object.thumbnailSize() > 0 ? device.thumbnail(object) : std::vector<std::byte>();
}

}  // namespace

std::optional<Thumbnail> previewOf(Device& device, const ObjectInfo& object) {
  try {
    if (auto preview = thumbnailOf(smallPicture(device, object))) return preview;
    if (mediaKindOf(object.name()) != MediaKind::kPicture || object.size() > kMostOfPicture)
      return std::nullopt;
    return thumbnailOf(device.read(object));
  } catch (const Error& error) {
    if (error.endsDevice()) throw;
    return std::nullopt;
  }
}

}  // namespace tarvo::importing
