#include "NativeServices/PictureDevice/devices/XTImageCaptureVolume.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "Utilities/Exception.h"
#include "platform/files/FolderTree.h"
#include "platform/imagecapture/DeviceContents.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

const std::string& pathOf(const ObjectReference& object) {
  assertParameter(object.is_string() && !object.get_ref<const std::string&>().empty(), "path");
  return object.get_ref<const std::string&>();
}

/// First of the removable volumes that are mounted under that name.
std::optional<std::string> mountPathOf(const std::string& volume) {
  const auto& table = PictureDeviceRoom::required().services().mounts;
  const std::string inFolder = table.volumesFolder() + "/";
  for (const Mount& mount : table.mounts()) {
    // Directly in the folder, as for the service: deeper mounts belong to somebody's own
    // arrangement.
    const bool isRemovable = mount.mountPoint.starts_with(inFolder) &&
                             mount.mountPoint.find('/', inFolder.size()) == std::string::npos;
    if (isRemovable && mount.mountPoint.substr(inFolder.size()) == volume) return mount.mountPoint;
  }
  return std::nullopt;
}

}  // namespace

std::shared_ptr<XTImageCaptureVolume> XTImageCaptureVolume::withICAObject(ICAObject object,
                                                                          Status* failure) {
  const std::shared_ptr<XTImageCaptureVolume> device(new XTImageCaptureVolume);
  return initialized(device, object, failure);
}

Status XTImageCaptureVolume::loadDeviceInfo() {
  // The status does not matter: only the dictionary does.
  (void)XTImageCaptureDevice::loadDeviceInfo();
  const auto& maker = PictureDeviceRoom::required().services().maker;
  // A volume is not its reader: what the USB device says of itself is left out.
  fields_.deviceManufacturer.clear();
  fields_.deviceModel.clear();
  fields_.deviceVersion.clear();
  fields_.deviceSerialNumber = maker.volumeSerialPlaceholder;
  fields_.capabilities.deviceSupportsIntention = false;
  fields_.capabilities.deviceAcceptsFiles = false;
  if (!icaDictionary_) raiseAssertion("loadDeviceInfo requires an Image Capture dictionary");
  const auto volume = textForKey(*icaDictionary_, "volume");
  volumePath_ = volume && !volume->empty() ? mountPathOf(*volume) : std::nullopt;
  return status::kOK;
}

void XTImageCaptureVolume::eachPicture(
    const char* operation, const std::function<void(const std::string& path)>& onPicture) const {
  if (!volumePath_) raiseAssertion(std::string(operation) + " requires a Volume Path");
  // By descriptors from the volume's top on, so that a link on it leads nowhere.
  const FolderTree volume(*volumePath_);
  FolderWalk walk(volume, [&](const std::string& path, int error) {
    TraceLog::trace("%s: '%s' cannot be read: %s", operation, path.c_str(),
                    errorText(error).c_str());
  });
  while (const auto* entry = walk.next()) {
    if (entry->kind == FolderWalk::Kind::kFile && isPictureName(entry->name()))
      onPicture(entry->path);
  }
}

std::int32_t XTImageCaptureVolume::imageCount() {
  std::int32_t count = 0;
  eachPicture("imageCount", [&](const std::string&) { ++count; });
  return count;
}

std::optional<ObjectReferences> XTImageCaptureVolume::pictureFiles() {
  std::vector<std::string> paths;
  eachPicture("pictureFiles",
              [&](const std::string& path) { paths.push_back(*volumePath_ + "/" + path); });
  // The order of a folder on FAT is that of its writing, and another one after each deletion.
  std::ranges::sort(paths);
  return ObjectReferences(std::make_move_iterator(paths.begin()),
                          std::make_move_iterator(paths.end()));
}

bool XTImageCaptureVolume::isProtected(const ObjectReference& path) {
  struct stat attributes {};
  if (::stat(pathOf(path).c_str(), &attributes) != 0) return false;
  // FAT's read-only bit shows as a missing write permission.
  return (attributes.st_mode & S_IWUSR) == 0 || isImmutable(AT_FDCWD, pathOf(path).c_str());
}

std::int64_t XTImageCaptureVolume::objectSize(const ObjectReference& path) {
  struct stat attributes {};
  if (::stat(pathOf(path).c_str(), &attributes) != 0) return XTImageCaptureDevice::objectSize(path);
  return static_cast<std::int32_t>(attributes.st_size);
}

std::optional<std::string> XTImageCaptureVolume::objectFilename(const ObjectReference& path) {
  return lastPathComponent(pathOf(path));
}

std::shared_ptr<XTExtendedObjectInfo> XTImageCaptureVolume::objectInfoForHandle(
    const ObjectReference& path) {
  auto info = std::make_shared<XTExtendedObjectInfo>();
  const CodeList none;
  const PTPDeviceFacts facts = {.model = fields_.deviceModel,
                                .operations = none,
                                .properties = none,
                                .imageFormats = none,
                                .capabilities = fields_.capabilities};
  // What cannot be told of the file stays as it is in a new record.
  (void)tarvo::fillInObjInfo(*info, pathOf(path), opCodeList(), facts,
                             PictureDeviceRoom::required().services().maker, nullptr);
  return info;
}

Status XTImageCaptureVolume::downloadImage(const ObjectReference& path,
                                           const std::string& destination) {
  const std::string& source = pathOf(path);
  assertParameter(!destination.empty(), "destination");
  const auto duplicate = [&] {
    TraceLog::trace("downloadImage: there is already a file at: %s", destination.c_str());
    return status::kDuplicateFile;
  };
  struct stat attributes {};
  // lstat(), as a link that leads nowhere is a file that is there, too.
  if (::lstat(destination.c_str(), &attributes) == 0) return duplicate();
  const fs::path target(destination);
  const FileDescriptor file = openSource(source);
  FetchResult result = {.status = status::kIOError};
  if (file.isOpen()) {
    const std::string folder = target.parent_path().string();
    result = copy_.toFile(file.get(), lastPathComponent(source),
                          {.folder = folder.empty() ? "." : folder,
                           .name = target.filename().string(),
                           .progress = downloadUpdateCb()});
  }
  if (result.status == status::kDuplicateFile) return duplicate();
  if (result.status == status::kOK || result.status == status::kCancelled) return result.status;
  TraceLog::trace("downloadImage: there was an error copying %s to %s", source.c_str(),
                  destination.c_str());
  return status::kIOError;
}

Status XTImageCaptureVolume::downloadVolumeObject(const ObjectReference& path) {
  pathOf(path);
  return status::kOK;
}

Status XTImageCaptureVolume::deleteObject(const ObjectReference& path) {
  const std::string& file = pathOf(path);
  const auto onVolume = pathOnVolume(file);
  // A path outside of the volume is the caller's own file.
  const int error = onVolume ? FolderTree(*volumePath_).removeFile(*onVolume)
                             : (::unlink(file.c_str()) == 0 ? 0 : errno);
  if (error == ENOENT || error == ENOTDIR) return status::kFileNotFound;
  return error == 0 ? status::kOK : status::kWriteNotPermitted;
}

std::optional<std::string> XTImageCaptureVolume::pathOnVolume(const std::string& path) const {
  if (!volumePath_) return std::nullopt;
  // As text alone: nothing is followed before it is known to lie on the volume.
  const std::string normal = fs::path(path).lexically_normal().string();
  const std::string prefix = *volumePath_ + "/";
  return normal.starts_with(prefix) ? std::optional(normal.substr(prefix.size())) : std::nullopt;
}

FileDescriptor XTImageCaptureVolume::openSource(const std::string& path) const {
  int error = 0;
  if (const auto onVolume = pathOnVolume(path))
    return FolderTree(*volumePath_).openFile(*onVolume, error);
  // O_NONBLOCK and O_NOCTTY, so that a pipe or a terminal at the path neither waits nor takes us
  // over; the test behind it refuses both.
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat attributes {};
  const bool isFile =
      file.isOpen() && ::fstat(file.get(), &attributes) == 0 && S_ISREG(attributes.st_mode);
  return isFile ? std::move(file) : FileDescriptor();
}

}  // namespace tarvo
