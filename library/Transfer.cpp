#include "tarvo/Transfer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <ostream>
#include <set>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "library/access/ObjectData.h"
#include "library/access/ObjectSelection.h"
#include "library/access/TransferData.h"
#include "platform/files/WholeFile.h"

namespace tarvo {

using namespace library;
namespace fs = std::filesystem;

DownloadOptions::DownloadOptions() : data_(std::make_shared<Data>()) {}

DownloadOptions& DownloadOptions::folder(std::string path) {
  ownOf(data_).folder = std::move(path);
  return *this;
}
DownloadOptions& DownloadOptions::name(std::string name) {
  ownOf(data_).name = std::move(name);
  return *this;
}
DownloadOptions& DownloadOptions::existing(Existing what) {
  ownOf(data_).existing = what;
  return *this;
}
DownloadOptions& DownloadOptions::thumbnail(bool is) {
  ownOf(data_).thumbnail = is;
  return *this;
}
DownloadOptions& DownloadOptions::begin(std::function<void(const ObjectInfo&)> told) {
  ownOf(data_).begin = std::move(told);
  return *this;
}
DownloadOptions& DownloadOptions::progress(TransferProgress told) {
  ownOf(data_).progress = std::move(told);
  return *this;
}

const std::string& Downloaded::path() const { return data_->path; }
std::uint64_t Downloaded::size() const { return data_->size; }
std::uint64_t Downloaded::resumed() const { return data_->resumed; }
bool Downloaded::wasThere() const { return data_->wasThere; }

std::ostream& operator<<(std::ostream& out, const Downloaded& file) {
  return out << printable(file.path()) << ", " << file.size() << " bytes";
}

struct DownloadRun::Data {
  DownloadOptions options;
  RunFiles files{};
  std::unordered_map<std::string, std::size_t> met{};  ///< how many of a name and size
};

namespace {

ExistingFile existingFile(Existing existing) {
  switch (existing) {
    case Existing::kOverwrite:
      return ExistingFile::kOverwrite;
    case Existing::kKeepBoth:
      return ExistingFile::kKeepBoth;
    case Existing::kKeepOthers:
      return ExistingFile::kKeepOthers;
    case Existing::kRefuse:
      break;
  }
  return ExistingFile::kRefuse;
}

FetchRequest requestOf(const DownloadOptions::Data& options, RunFiles* files) {
  // Nothing that comes off a device is run by its name.
  constexpr mode_t kNoProgram = 0666;
  return {.folder = options.folder,
          .name = options.name,
          .existing = existingFile(options.existing),
          .mostPermissions = kNoProgram,
          .run = files};
}

/// "TARV0001.JPG" gives "TARV0001.thumb.jpg".
std::string thumbnailName(const std::string& name) {
  const auto safe = safeFileName(name);
  return safe ? fs::path(*safe).stem().string() + ".thumb.jpg" : "";
}

std::string nameOf(const DownloadOptions::Data& options, const ObjectInfo& object) {
  return options.thumbnail ? thumbnailName(object.name()) : object.name();
}

std::uint64_t sizeOf(const DownloadOptions::Data& options, const ObjectInfo& object) {
  return options.thumbnail ? object.thumbnailSize() : object.size();
}

/// No name has a slash in it.
/// Of the safe name: two names that become the same file are one here.
std::string keyOf(const DownloadOptions::Data& options, const ObjectInfo& object) {
  return safeFileName(nameOf(options, object)).value_or("") + "/" +
         std::to_string(sizeOf(options, object));
}

}  // namespace

DownloadRun::DownloadRun(DownloadOptions options)
    : data_(std::make_shared<Data>(Data{std::move(options)})) {}

const DownloadOptions& DownloadRun::options() const { return data_->options; }

void DownloadRun::expect(const ObjectInfo& object) {
  ++data_->met[keyOf(data_->options.data(), object)];
}

bool DownloadRun::isThere(const ObjectInfo& object, bool looksAhead) {
  const auto& options = data_->options.data();
  // Two objects of one name and size are not told apart by the file that is there, so both are
  // fetched.
  if (data_->met[keyOf(options, object)] > 1) return false;
  const auto request = requestOf(options, looksAhead ? nullptr : &data_->files);
  FetchResult ignored;
  FilePlace place(request, ignored);
  return place.prepare(nameOf(options, object)) &&
         place.isThere(sizeOf(options, object), object.modified());
}

UploadOptions::UploadOptions() : data_(std::make_shared<Data>()) {}

UploadOptions& UploadOptions::store(std::uint32_t id) {
  ownOf(data_).store = id;
  return *this;
}
UploadOptions& UploadOptions::folder(std::uint32_t handle) {
  ownOf(data_).folder = handle;
  return *this;
}
UploadOptions& UploadOptions::begin(std::function<void(const std::string&, std::uint64_t)> told) {
  ownOf(data_).begin = std::move(told);
  return *this;
}
UploadOptions& UploadOptions::progress(TransferProgress told) {
  ownOf(data_).progress = std::move(told);
  return *this;
}

std::uint32_t Uploaded::handle() const { return data_->handle; }
const std::string& Uploaded::name() const { return data_->name; }
std::uint64_t Uploaded::size() const { return data_->size; }

std::ostream& operator<<(std::ostream& out, const Uploaded& object) {
  return out << printable(object.name()) << " (" << handleText(object.handle()) << ", "
             << object.size() << " bytes)";
}

namespace library {
namespace {

constexpr std::size_t kReadAtOnce = std::size_t{1} << 20;

/// The progress of one transfer as the rooms below tell it.
ProgressCallback counting(const TransferProgress& told, std::uint64_t size, SessionState& session) {
  return [&told, size, &session, done = std::uint64_t{0}](std::uint32_t bytes) mutable {
    done += bytes;
    const bool goesOn = !told || told(done, size);
    return !goesOn || session.isInterrupted();
  };
}

ErrorKind kindOf(const FetchResult& result, Status status) {
  if (result.room == Room::kNone) return ErrorKind::kDiskFull;
  return result.room == Room::kTooLittle ? ErrorKind::kTooLarge
                                         : errorOf({.status = status}).kind();
}

[[noreturn]] void fail(DeviceState& device, const ObjectInfo& object, const FetchResult& result) {
  Failure failure = {.object = object.path(), .status = result.status, .why = result.why};
  if (device.isCamera())
    failure = device.camera().failure(object.path() + " (" + handleText(object.handle()) + ")",
                                      result.status, result.why);
  failure.kind = kindOf(result, failure.status);
  failure.part = result.part;
  failure.kept = result.kept;
  raise(std::move(failure));
}

FetchResult fetchThumbnail(DeviceState& device, const ObjectInfo& object, FetchRequest request) {
  auto& camera = device.camera();
  const std::string name = thumbnailName(object.name());
  if (name.empty()) return {.status = status::kFileNotFound, .why = "its name is no file name"};
  if (!request.name) request.name = name;
  // Where it has none the device is not even asked.
  if (object.thumbnailSize() == 0) return {.status = status::kPTPNoThumbnailPresent};
  // A thumbnail is some kilobytes, so it may lie in memory.
  const auto image = camera.device().downloadThumb(ObjectReference(object.handle()));
  if (!image) return {.status = camera.transactions().lastOutcome()};
  auto result = writeWhole(request, *image, object.modified());
  result.size = image->size();
  return result;
}

/// Where a walk stands at the object no path can lead anywhere else meanwhile.
FileDescriptor openFile(DeviceState& device, const ObjectInfo& object, int& error) {
  if (device.walk && device.walkPath == object.path()) return device.walk->openFile(error);
  return device.volume().tree().openFile(object.path(), error);
}

FetchResult copyFile(DeviceState& device, const ObjectInfo& object, const FetchRequest& request) {
  int error = 0;
  const FileDescriptor file = openFile(device, object, error);
  if (!file.isOpen())
    return {.status = status::kIOError, .why = "it cannot be opened: " + errorText(error)};
  return device.copy.toFile(file.get(), object.name(), request);
}

void refuseWhatIsNoFile(const ObjectInfo& object) {
  if (object.isFolder())
    raise({.object = object.path(), .status = status::kNotAFile, .why = "it is a folder"});
  if (object.isSpecial())
    raise(
        {.object = object.path(), .status = status::kNotAFile, .why = "it is a link or a device"});
}

}  // namespace

std::vector<std::byte> readFile(DeviceState& device, const ObjectInfo& object) {
  refuseWhatIsNoFile(object);
  int error = 0;
  const FileDescriptor file = openFile(device, object, error);
  std::vector<std::byte> content;
  ssize_t length = file.isOpen() ? 1 : -1;
  while (length > 0 && content.size() <= kMostBytesInMemory) {
    const std::size_t before = content.size();
    content.resize(before + kReadAtOnce);
    length = ::read(file.get(), content.data() + before, kReadAtOnce);
    if (length < 0) error = errno;
    content.resize(before + static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  }
  if (length < 0)
    raise({.object = object.path(), .status = status::kIOError, .why = errorText(error)});
  if (content.size() > kMostBytesInMemory)
    raise({.object = object.path(), .status = status::kObjectTooLarge});
  return content;
}

Downloaded download(DeviceState& device, const ObjectInfo& object, DownloadRun& run) {
  refuseWhatIsNoFile(object);
  const auto& options = run.data().options.data();
  auto request = requestOf(options, &run.data().files);
  if (options.begin) options.begin(object);
  request.progress = counting(options.progress, sizeOf(options, object), *device.session());
  FetchResult result;
  {
    const auto transfer = device.session()->transfer();
    if (!device.isCamera()) {
      result = copyFile(device, object, request);
    } else if (options.thumbnail) {
      result = fetchThumbnail(device, object, std::move(request));
    } else {
      // Names the parts of a cut download: only this device's objects are gone on with.
      request.device = device.camera().device().serialNumber();
      result = device.fetch().toFile(object.handle(), request);
    }
  }
  if (result.status != status::kOK) fail(device, object, result);
  return Downloaded(std::make_shared<const Downloaded::Data>(std::move(result)));
}

namespace {

/// An object's size has 32 bits (ISO 15740, "ObjectInfo dataset").
constexpr std::uint64_t kSizeLimit = std::uint64_t{1} << 32;

/// What cannot be sent whatever the device.
void refuseToSend(const std::string& path) {
  // The codec wraps the count of a longer text, and the object would get another name.
  if (nameLength(fs::path(path).filename().string()) >= kNameLimit)
    raise({.object = path,
           .status = status::kBadParameter,
           .why = "its name has 255 characters or more",
           .advice = "Give it a shorter name."});
  std::error_code error;
  const auto size = fs::file_size(path, error);
  // What is no file is found out, and said, where the file is looked at.
  if (!error && size >= kSizeLimit)
    raise({.object = path,
           .status = status::kBadParameter,
           .why = "it has 4 GiB or more, which PTP cannot carry",
           .advice = "Split it."});
}

/// A device that asks for progress, as long as this lives.
class Asking {
 public:
  Asking(XTPictureDevice& device, ProgressCallback callback) : device_(device) {
    device_.setDownloadUpdateCb(std::move(callback));
  }
  ~Asking() { device_.setDownloadUpdateCb({}); }
  Asking(const Asking&) = delete;
  Asking& operator=(const Asking&) = delete;

 private:
  XTPictureDevice& device_;
};

}  // namespace

Uploaded upload(DeviceState& state, const std::string& path, const UploadOptions::Data& options) {
  auto& camera = state.camera();
  auto& device = camera.device();
  if (!device.acceptsFiles())
    raise(camera.failure(inWords(camera.summary()), status::kPTPOperationNotSupported,
                         "it takes no files"));
  refuseToSend(path);
  // A device may know a folder only once the one above it was listed; what is no folder is the
  // device's to refuse.
  if (options.folder != ListingQuery::kAnywhere && options.folder != ListingQuery::kTop)
    ObjectListing(camera.transactions()).find(options.folder);
  XTExtendedObjectInfo info;
  bool sendRequired = false;
  const Status filled = device.fillInObjInfo(info, path, device.opCodeList(), &sendRequired);
  if (filled != status::kOK) raise({.object = path, .status = filled});
  const std::uint64_t size = info.compressedSize();
  std::string name = info.fileName();
  if (options.begin) options.begin(name, size);
  const Asking asking(device, counting(options.progress, size, *state.session()));
  const auto transfer = state.session()->transfer();
  std::uint32_t handle = 0;
  std::uint32_t store = options.store;
  const auto send = [&] {
    return camera.transactions().sendContentsOfFile(path, info, store, options.folder, &handle);
  };
  Status sent = send();
  // Store 0 lets the device choose (ISO 15740, SendObjectInfo); some want to be told: the first.
  if (sent == status::kPTPInvalidStorageID && store == 0) {
    const auto stores = camera.transactions().storageIDs();
    if (stores && !stores->empty()) store = stores->front();
    if (store != 0) sent = send();
  }
  if (sent != status::kOK && sent != status::kPTPOK) raise(camera.failure(path, sent));
  return Uploaded(
      std::make_shared<const Uploaded::Data>(Uploaded::Data{handle, std::move(name), size}));
}

}  // namespace library
}  // namespace tarvo
