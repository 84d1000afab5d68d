#include "platform/imagecapture/DeviceContents.h"

#include <unordered_map>
#include <utility>

#include "Utilities/PTPCodes.h"

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
    for (std::size_t i = 0; i < files.size(); ++i)
      if (files[i].object.isFolder()) folders.emplace(files[i].object.handle, i);
    for (std::size_t i = 0; i < files.size(); ++i) {
      const auto parent = folders.find(files[i].object.parent);
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
  if (key == kCapabilities) return !withCapabilities_.contains(device);
  return (key == kPictures || key == kTree) && !dictionary.contains(key);
}

Status DeviceContents::load(ICAObject device, PTPChannel& channel, std::string_view key,
                            PropertyDictionary& dictionary, std::string* why) {
  return key == kCapabilities ? loadCapabilities(device, channel, dictionary, why)
                              : loadFiles(device, channel, dictionary, why);
}

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

const FileObject* DeviceContents::file(ICAObject handle) const {
  const auto found = files_.find(handle);
  return found == files_.end() ? nullptr : &found->second;
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

}  // namespace tarvo
