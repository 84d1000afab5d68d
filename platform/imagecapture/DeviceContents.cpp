#include "platform/imagecapture/DeviceContents.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <unordered_map>
#include <utility>

#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileCopy.h"
#include "platform/files/FilePlace.h"
#include "platform/files/FolderTree.h"
#include "platform/files/PartFile.h"

namespace tarvo {
namespace {

constexpr std::string_view kCapabilities = "capa";
constexpr std::string_view kPictures = "data";
constexpr std::string_view kTree = "tree";

/// Builds the nested dictionaries. Each file is shown once, whatever the device says of parents.
class TreeBuilder {
 public:
  explicit TreeBuilder(const std::vector<FileObject>& files)
      : files_(files), children_(files.size()), isShown_(files.size()) {
    std::unordered_map<std::uint32_t, std::size_t> folders;
    // Two passes, for a device may list what lies in a folder before the folder.
    for (std::size_t i = 0; i < files.size(); ++i)
      if (files[i].object.isFolder()) folders.emplace(files[i].object.handle, i);
    for (std::size_t i = 0; i < files.size(); ++i) {
      const auto parent = folders.find(files[i].object.parent);
      // A parent that is not listed (0, or 0xFFFFFFFF on some devices) is the top.
      (parent == folders.end() ? top_ : children_[parent->second]).push_back(i);
    }
  }

  PropertyDictionary build() {
    auto tree = PropertyDictionary::array();
    showFromTop(tree);
    // Folders that lie in each other are reached from nowhere.
    for (std::size_t i = 0; i < files_.size(); ++i) {
      if (isShown_[i]) continue;
      top_.push_back(i);
      showFromTop(tree);
    }
    return tree;
  }

 private:
  // The dictionary is walked recursively by whoever reads it: a device decides how deep it is, so
  // it is not to decide about our stack.
  static constexpr int kMostLevels = 32;

  /// What turns out to lie too deep comes to the top behind the rest.
  void showFromTop(PropertyDictionary& tree) {
    while (!top_.empty())
      show(std::exchange(top_, {}), tree, 1);
  }

  void show(const std::vector<std::size_t>& members, PropertyDictionary& tree, int level) {
    for (const std::size_t i : members) {
      if (isShown_[i]) continue;
      isShown_[i] = true;
      auto node = files_[i].dictionary();
      if (files_[i].object.isFolder()) {
        node[kTree] = PropertyDictionary::array();
        // Too deep lies at the top instead of nowhere: every object is shown once.
        if (level < kMostLevels) {
          show(children_[i], node[kTree], level + 1);
        } else {
          top_.insert(top_.end(), children_[i].begin(), children_[i].end());
        }
      }
      tree.push_back(std::move(node));
    }
  }

  const std::vector<FileObject>& files_;
  std::vector<std::vector<std::size_t>> children_;  ///< by place of the folder
  std::vector<bool> isShown_;
  std::vector<std::size_t> top_;
};

}  // namespace

PropertyDictionary FileObject::dictionary() const {
  return {{"ifil", object.name},
          {"icao", handle},
          {"isiz", object.size},
          {"tsiz", object.thumbnailSize}};
}

PropertyDictionary pictureList(const std::vector<FileObject>& files) {
  auto pictures = PropertyDictionary::array();
  for (const FileObject& file : files)
    if (file.object.isPicture()) pictures.push_back(file.dictionary());
  return pictures;
}

PropertyDictionary folderTree(const std::vector<FileObject>& files) {
  return TreeBuilder(files).build();
}

bool DeviceContents::isMissing(ICAObject device, const PropertyDictionary& dictionary,
                               std::string_view key) const {
  // The key is always there, so a set of its own says whether its value has been read.
  if (key == kCapabilities) return !withCapabilities_.contains(device);
  return (key == kPictures || key == kTree) && !dictionary.contains(key);
}

Status DeviceContents::load(ICAObject device, PTPChannel& channel, std::string_view key,
                            PropertyDictionary& dictionary, std::string* why) {
  return key == kCapabilities ? loadCapabilities(device, channel, dictionary, why)
                              : loadFiles(device, channel, dictionary, why);
}

// Handles of files stay valid, so that who holds one may still download or delete it after another
// object has come.
void DeviceContents::forget(ICAObject device, PropertyDictionary& dictionary) {
  // The key itself is there from the beginning.
  if (withCapabilities_.erase(device) > 0) dictionary[kCapabilities] = PropertyDictionary::array();
  dictionary.erase(std::string(kPictures));
  dictionary.erase(std::string(kTree));
}

void DeviceContents::dropFiles(ICAObject device) {
  std::erase_if(files_, [&](const auto& each) { return each.second.device == device; });
}

void DeviceContents::dropDevice(ICAObject device) {
  withCapabilities_.erase(device);
  dropFiles(device);
}

Status DeviceContents::loadCapabilities(ICAObject device, PTPChannel& channel,
                                        PropertyDictionary& dictionary, std::string* why) {
  bool hasClock = false;
  const Status result = readWhetherPropertyIsListed(channel, ptp::kDateTime, hasClock, why);
  if (result != status::kOK) return result;
  auto capabilities = PropertyDictionary::array();
  if (hasClock) capabilities.push_back(ica::kMessageSyncClock);
  dictionary[kCapabilities] = std::move(capabilities);
  withCapabilities_.insert(device);
  return status::kOK;
}

Status DeviceContents::loadFiles(ICAObject device, PTPChannel& channel,
                                 PropertyDictionary& dictionary, std::string* why) {
  std::vector<PTPObject> objects;
  const Status result = readObjects(channel, objects, why);
  if (result != status::kOK) return result;
  std::vector<FileObject> files;
  files.reserve(objects.size());
  for (PTPObject& object : objects)
    files.push_back({0, device, std::move(object)});
  return take(std::move(files), device, dictionary);
}

Status DeviceContents::loadVolume(ICAObject device, const std::string& mountPoint,
                                  PropertyDictionary& dictionary) {
  std::vector<VolumeObject> objects;
  const Status result = readVolume(mountPoint, objects);
  if (result != status::kOK) return result;
  std::vector<FileObject> files;
  files.reserve(objects.size());
  for (VolumeObject& each : objects)
    files.push_back({0, device, std::move(each.object), std::move(each.path)});
  return take(std::move(files), device, dictionary);
}

Status DeviceContents::take(std::vector<FileObject> files, ICAObject device,
                            PropertyDictionary& dictionary) {
  // Handles are never given twice: a client that holds an old one must not delete another file by
  // it.
  if (files.size() > UINT32_MAX - nextFile_) return status::kOutOfMemory;
  for (FileObject& file : files)
    file.handle = nextFile_++;
  dictionary[kPictures] = pictureList(files);
  dictionary[kTree] = folderTree(files);
  dropFiles(device);
  for (FileObject& file : files)
    files_.emplace(file.handle, std::move(file));
  return status::kOK;
}

namespace {

/// "bmg" is spelt so, and there is no "bmp": intended, see docs/oddities.md.
constexpr std::array<std::string_view, 16> kPictureExtensions = {
    "jpg",  "jp2", "jpeg", "jpe",  "tif", "tiff", "bmg",  "fpx",
    "fpix", "gif", "png",  "pict", "mov", "mpg",  "mpeg", "avi"};

constexpr std::size_t kMostKept = 100'000;

std::uint32_t sizeOf(const FolderWalk& walk) {
  const auto attributes = walk.attributes();
  const auto size = attributes ? static_cast<std::uint64_t>(attributes->st_size) : 0;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, ptp::kUnknownObjectSize));
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
  // As a card with a damaged folder still has the others.
  FolderWalk walk(tree, [](const std::string&, int) {});
  std::unordered_map<std::string, std::uint32_t> folders;
  while (const auto* entry = walk.next()) {
    if (entry->kind == FolderWalk::Kind::kOther) continue;
    // A volume is what somebody plugs in; the dictionary of all its files lies in memory.
    if (objects.size() == kMostKept) return status::kOutOfMemory;
    const bool isFolder = entry->kind == FolderWalk::Kind::kFolder;
    const auto slash = entry->path.rfind('/');
    const auto parent = folders.find(entry->path.substr(0, slash == std::string::npos ? 0 : slash));
    const auto handle = static_cast<std::uint32_t>(objects.size() + 1);
    const std::uint16_t fileFormat =
        isPictureName(entry->name()) ? ptp::kJPEGFormat : ptp::kUndefinedFormat;
    objects.push_back({{.handle = handle,
                        .format = isFolder ? ptp::kAssociationFormat : fileFormat,
                        .size = isFolder ? 0 : sizeOf(walk),
                        .parent = parent == folders.end() ? 0 : parent->second,
                        // Names on a card are bytes of any kind, and the dictionary is JSON.
                        .name = validUTF8(entry->name())},
                       entry->path});
    if (isFolder) folders.emplace(entry->path, handle);
  }
  return status::kOK;
}

Status copyFromVolume(const std::string& mountPoint, const VolumeObject& file,
                      const std::string& folder, std::string& path) {
  int error = 0;
  // By FolderTree, so that a link on the card leads to no file of this machine.
  const FileDescriptor source = FolderTree(mountPoint).openFile(file.path, error);
  if (!source.isOpen()) return statusOf(error);
  struct stat attributes {};
  if (::fstat(source.get(), &attributes) != 0) return status::kIOError;
  // Clients name the folder; it is theirs to make.
  if (::access(folder.c_str(), F_OK) != 0) return status::kFileNotFound;
  FetchResult placed;
  const FetchRequest request{.folder = folder};
  FilePlace place(request, placed);
  if (!place.prepare(file.path)) return placed.status;
  PartFile copy(place.folder(), PartFile::nameFor(place.name(), ""));
  if (const int failed = copy.open(PartFile::Opening::kNew); failed != 0) return statusOf(failed);
  const auto outcome = FileCopy().run(source.get(), copy.descriptor(),
                                      static_cast<std::uint64_t>(attributes.st_size), {});
  if (outcome.error != 0) return status::kIOError;
  place.put(copy, std::nullopt);
  if (placed.status == status::kOK) path = placed.path;
  return placed.status;
}

Status removeFromVolume(const std::string& mountPoint, const std::string& path) {
  const int error = FolderTree(mountPoint).removeFile(path);
  if (error == 0) return status::kOK;
  // Of everything else that can go wrong a read-only card is by far the commonest.
  return statusOf(error) == status::kFileNotFound ? status::kFileNotFound
                                                  : status::kWriteNotPermitted;
}

}  // namespace tarvo
