#include "platform/imagecapture/VolumeContents.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <unordered_map>
#include <utility>

#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FileCopy.h"
#include "platform/files/FolderWalk.h"
#include "platform/files/TemporaryFile.h"

namespace tarvo {
namespace {

/// "bmg" is spelt so: this is intended, and there is no "bmp".
constexpr std::array<std::string_view, 16> kPictureExtensions = {
    "jpg",  "jp2", "jpeg", "jpe",  "tif", "tiff", "bmg",  "fpx",
    "fpix", "gif", "png",  "pict", "mov", "mpg",  "mpeg", "avi"};

constexpr std::size_t kMostObjects = 100'000;

// ISO 15740, "Object format codes": an association, an image that is a JPEG, undefined. Only the
// kind is read of them.
constexpr std::uint16_t kAssociation = 0x3001;
constexpr std::uint16_t kPicture = 0x3801;
constexpr std::uint16_t kUndefined = 0x3000;

std::uint32_t sizeOf(const FolderWalk& walk) {
  const auto attributes = walk.attributes();
  const auto size = attributes ? static_cast<std::uint64_t>(attributes->st_size) : 0;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, PTPObject::kUnknownSize));
}

Status statusOf(int error) {
  return error == ENOENT || error == ENOTDIR ? status::kFileNotFound : status::kIOError;
}

}  // namespace

bool isPictureName(std::string_view name) {
  if (name.starts_with('.')) return false;
  std::string extension = std::filesystem::path(name).extension().string();
  if (extension.empty()) return false;
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::ranges::find(kPictureExtensions, extension.substr(1)) != kPictureExtensions.end();
}

Status readVolume(const std::string& mountPoint, std::vector<VolumeObject>& objects) {
  const FolderTree tree(mountPoint);
  if (!tree.isOpen()) return status::kICADeviceGone;
  // A folder that cannot be read is shown as an empty one.
  FolderWalk walk(tree, [](const std::string&, int) {});
  std::unordered_map<std::string, std::uint32_t> folders;
  while (const auto* entry = walk.next()) {
    if (entry->kind == FolderWalk::Kind::kOther) continue;
    if (objects.size() == kMostObjects) return status::kOutOfMemory;
    const bool isFolder = entry->kind == FolderWalk::Kind::kFolder;
    const auto slash = entry->path.rfind('/');
    const auto parent = folders.find(entry->path.substr(0, slash == std::string::npos ? 0 : slash));
    const auto handle = static_cast<std::uint32_t>(objects.size() + 1);
    const std::uint16_t fileFormat = isPictureName(entry->name()) ? kPicture : kUndefined;
    objects.push_back({{.handle = handle,
                        .format = isFolder ? kAssociation : fileFormat,
                        .size = isFolder ? 0 : sizeOf(walk),
                        .parent = parent == folders.end() ? 0 : parent->second,
                        .name = validUTF8(entry->name())},
                       entry->path});
    if (isFolder) folders.emplace(entry->path, handle);
  }
  return status::kOK;
}

Status copyFromVolume(const std::string& mountPoint, const VolumeObject& file,
                      const std::string& folder, std::string& path) {
  int error = 0;
  const FileDescriptor source = FolderTree(mountPoint).openFile(file.path, error);
  if (!source.isOpen()) return statusOf(error);
  struct stat attributes {};
  if (::fstat(source.get(), &attributes) != 0) return status::kIOError;
  const std::string target = folder + "/" + lastPathComponent(file.path);
  TemporaryFile copy(folder);
  if (!copy.isOpen()) return statusOf(errno);
  const auto outcome = FileCopy().run(source.get(), copy.descriptor(),
                                      static_cast<std::uint64_t>(attributes.st_size), {});
  if (outcome.error != 0) return status::kIOError;
  const Status result = copy.rename(target);
  if (result == status::kOK) path = target;
  return result;
}

Status removeFromVolume(const std::string& mountPoint, const std::string& path) {
  const int error = FolderTree(mountPoint).removeFile(path);
  if (error == 0) return status::kOK;
  return statusOf(error) == status::kFileNotFound ? status::kFileNotFound
                                                  : status::kWriteNotPermitted;
}

}  // namespace tarvo
