#include "NativeServices/PictureDevice/operations/VolumeFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/files/FileNames.h"

namespace tarvo {
namespace {

constexpr mode_t kAllRead = 0444;
constexpr mode_t kPermissionBits = 0777;

/// What the copy gets; the values here are those for a source that cannot be asked.
struct Attributes {
  std::uint64_t size = 0;
  mode_t permissions = 0644;
  std::array<timespec, 2> dates = {
      {{.tv_sec = 0, .tv_nsec = UTIME_NOW}, {.tv_sec = 0, .tv_nsec = UTIME_NOW}}};
};

Attributes attributesOf(int source) {
  Attributes attributes;
  struct stat found {};
  if (::fstat(source, &found) != 0) return attributes;
  attributes.size = static_cast<std::uint64_t>(found.st_size);
  attributes.permissions = found.st_mode & kPermissionBits;
  if (isImmutable(source, "")) attributes.permissions &= kAllRead;
  attributes.dates = {found.st_atim, found.st_mtim};
  return attributes;
}

/// A file system that cannot hold them keeps a copy without.
/// FAT has no attributes, and no owner's permissions; the results are not looked at for that.
void setTypeAndDates(int copy, const std::string& sourceName, const Attributes& attributes) {
  // Only the low half of the type, as it stands.
  const std::uint32_t type = fileTypeOfExtension(lowerCaseExtension(sourceName)) & 0xFFFFU;
  const std::array<char, 4> characters = {0, 0, static_cast<char>(type >> 8U),
                                          static_cast<char>(type)};
  ::fsetxattr(copy, kFileTypeAttribute, characters.data(), characters.size(), 0);
  ::futimens(copy, attributes.dates.data());
}

}  // namespace

bool isImmutable(int directory, const char* path) {
  struct statx attributes {};
  const int flags = *path == '\0' ? AT_EMPTY_PATH : 0;
  if (::statx(directory, path, flags, 0, &attributes) != 0) return false;
  // The mask says which attributes the file system knows: elsewhere a cleared bit means nothing.
  return (attributes.stx_attributes & attributes.stx_attributes_mask & STATX_ATTR_IMMUTABLE) != 0;
}

FetchResult VolumeCopy::toFile(int source, const std::string& sourceName,
                               const FetchRequest& request) {
  FetchResult result;
  FilePlace place(request, result);
  if (!place.prepare(sourceName)) return result;
  const Attributes attributes = attributesOf(source);
  result.size = attributes.size;
  // A file beside the final name, so that a card that is pulled out leaves nothing half under it.
  PartFile part(place.folder(), PartFile::nameFor(place.name(), ""));
  if (const int error = part.open(PartFile::Opening::kNew); error != 0) {
    place.failToWrite("no file can be made in the folder", error);
    return result;
  }
  if (!place.hasRoom(result.size)) return result;
  if (!copyContent(source, part, place, request, result)) return result;
  setTypeAndDates(part.descriptor(), sourceName, attributes);
  place.put(part, std::nullopt, attributes.permissions & request.mostPermissions);
  return result;
}

bool VolumeCopy::copyContent(int source, PartFile& part, FilePlace& place,
                             const FetchRequest& request, const FetchResult& result) {
  const auto outcome = copy_.run(source, part.descriptor(), result.size, request.progress);
  if (outcome.wasCancelled) return place.fail(status::kCancelled, "");
  if (outcome.error == ENODATA)
    return place.fail(status::kIOError, "the file has become shorter while it was read");
  if (outcome.error != 0) return place.failToWrite("it cannot be copied", outcome.error);
  return true;
}

}  // namespace tarvo
