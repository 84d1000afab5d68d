#include "import/Previews.h"

#include "import/CaptureDate.h"
#include "import/Files.h"
#include "import/Groups.h"
#include "platform/files/FolderTree.h"

namespace tarvo::importing {
namespace {

constexpr std::uint64_t kMostOfPicture = std::uint64_t{16} << 20;

std::optional<Thumbnail> inFile(const Device& volume, const ObjectInfo& object) {
  int error = 0;
  const auto file = FolderTree(volume.info().path()).openFile(object.path(), error);
  if (!file.isOpen()) return std::nullopt;
  const auto beginning = beginningOf(file.get());
  return thumbnailOf(embeddedThumbnail(beginning), orientationOf(beginning));
}

std::optional<Thumbnail> smallPicture(Device& device, const ObjectInfo& object) {
  if (device.info().kind() == DeviceKind::kVolume) return inFile(device, object);
  if (object.thumbnailSize() == 0) return std::nullopt;
  return thumbnailOf(device.thumbnail(object));
}

}  // namespace

std::optional<Thumbnail> previewOf(Device& device, const ObjectInfo& object) {
  try {
    if (auto preview = smallPicture(device, object)) return preview;
    if (mediaKindOf(object.name()) != MediaKind::kPicture || object.size() > kMostOfPicture)
      return std::nullopt;
    return thumbnailOf(device.read(object));
  } catch (const Error& error) {
    if (error.endsDevice()) throw;
    return std::nullopt;
  }
}

}  // namespace tarvo::importing
