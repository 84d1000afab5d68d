#include "tarvo/Transfer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <ostream>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "NativeServices/PictureDevice/datasets/JSONValues.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "platform/files/WholeFile.h"

namespace tarvo {

using namespace library;
namespace fs = std::filesystem;

struct DownloadOptions::Data {
  std::string folder = ".";
  std::optional<std::string> name{};
  Existing existing = Existing::kRefuse;
  bool thumbnail = false;
  std::function<void(const ObjectInfo&)> begin{};
  TransferProgress progress{};
  TransferContent content{};
};

DownloadOptions::DownloadOptions() : data_(std::make_shared<Data>()) {}

DownloadOptions& DownloadOptions::folder(std::string path) {
  return set<&Data::folder>(*this, data_, std::move(path));
}
DownloadOptions& DownloadOptions::name(std::string name) {
  return set<&Data::name>(*this, data_, std::move(name));
}
DownloadOptions& DownloadOptions::existing(Existing what) {
  return set<&Data::existing>(*this, data_, what);
}
DownloadOptions& DownloadOptions::thumbnail(bool is) {
  return set<&Data::thumbnail>(*this, data_, is);
}
DownloadOptions& DownloadOptions::begin(std::function<void(const ObjectInfo&)> told) {
  return set<&Data::begin>(*this, data_, std::move(told));
}
DownloadOptions& DownloadOptions::progress(TransferProgress told) {
  return set<&Data::progress>(*this, data_, std::move(told));
}
DownloadOptions& DownloadOptions::content(TransferContent told) {
  return set<&Data::content>(*this, data_, std::move(told));
}

struct Downloaded::Data : FetchResult {};

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

/// The rooms below count them the same way.
constexpr ExistingFile existingFile(Existing what) { return static_cast<ExistingFile>(what); }
static_assert(existingFile(Existing::kRefuse) == ExistingFile::kRefuse &&
              existingFile(Existing::kOverwrite) == ExistingFile::kOverwrite &&
              existingFile(Existing::kKeepBoth) == ExistingFile::kKeepBoth &&
              existingFile(Existing::kKeepOthers) == ExistingFile::kKeepOthers);

FetchRequest requestOf(const DownloadOptions::Data& options, RunFiles* files) {
  // Nothing that comes off a device is run by its name.
  constexpr mode_t kNoProgram = 0666;
  return {.folder = options.folder,
          .name = options.name,
          .existing = existingFile(options.existing),
          .mostPermissions = kNoProgram,
          .run = files,
          .content = options.content};
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

struct UploadOptions::Data {
  std::uint32_t store = 0;
  std::uint32_t folder = 0;
  std::function<void(const std::string&, std::uint64_t)> begin{};
  TransferProgress progress{};
};

UploadOptions::UploadOptions() : data_(std::make_shared<Data>()) {}

UploadOptions& UploadOptions::store(std::uint32_t id) {
  return set<&Data::store>(*this, data_, id);
}
UploadOptions& UploadOptions::folder(std::uint32_t handle) {
  return set<&Data::folder>(*this, data_, handle);
}
UploadOptions& UploadOptions::begin(std::function<void(const std::string&, std::uint64_t)> told) {
  return set<&Data::begin>(*this, data_, std::move(told));
}
UploadOptions& UploadOptions::progress(TransferProgress told) {
  return set<&Data::progress>(*this, data_, std::move(told));
}

struct Uploaded::Data {
  std::uint32_t handle = 0;
  std::string name{};
  std::uint64_t size = 0;
};

std::uint32_t Uploaded::handle() const { return data_->handle; }
const std::string& Uploaded::name() const { return data_->name; }
std::uint64_t Uploaded::size() const { return data_->size; }

std::ostream& operator<<(std::ostream& out, const Uploaded& object) {
  return out << printable(object.name()) << " (" << handleText(object.handle()) << ", "
             << object.size() << " bytes)";
}

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

[[noreturn]] void fail(DeviceState& device, const ObjectInfo& object, const FetchResult& result) {
  Failure failure = {.object = object.path(), .status = result.status, .why = result.why};
  if (device.isCamera())
    failure = device.camera().failure(object.path() + " (" + handleText(object.handle()) + ")",
                                      result.status, result.why);
  if (result.room != Room::kEnough)
    failure.kind = result.room == Room::kNone ? ErrorKind::kDiskFull : ErrorKind::kTooLarge;
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
  return device.volume().openFile(object.path(), error);
}

FetchResult copyFile(DeviceState& device, const ObjectInfo& object, const FetchRequest& request) {
  int error = 0;
  const FileDescriptor file = openFile(device, object, error);
  if (!file.isOpen())
    return {.status = status::kIOError, .why = "it cannot be opened: " + errorText(error)};
  return device.copy.toFile(file.get(), object.name(), request);
}

void refuseWhatIsNoFile(const ObjectInfo& object) {
  if (!object.isFolder() && !object.isSpecial()) return;
  raise({.object = object.path(),
         .status = status::kNotAFile,
         .why = object.isFolder() ? "it is a folder" : "it is a link or a device"});
}

std::vector<std::byte> contentOf(DeviceState& device, const ObjectInfo& object) {
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

}  // namespace

Downloaded Device::download(const ObjectInfo& object, DownloadRun& run) {
  return called(state_, "download", [&](DeviceState& device) {
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
    return valueOf<Downloaded>({std::move(result)});
  });
}

Downloaded Device::download(const ObjectInfo& object, const DownloadOptions& options) {
  DownloadRun run(options);
  return download(object, run);
}

std::vector<std::byte> Device::read(const ObjectInfo& object) {
  return called(state_, "read", [&](DeviceState& device) {
    if (!device.isCamera()) return contentOf(device, object);
    auto& camera = device.camera();
    return camera.require(camera.device().downloadObject(ObjectReference(object.handle())),
                          object.path());
  });
}

std::vector<std::byte> Device::thumbnail(const ObjectInfo& object) {
  return asked(state_, "thumbnail", [&](OpenedDevice& camera) {
    if (object.thumbnailSize() == 0)
      raise({.object = object.path(), .status = status::kPTPNoThumbnailPresent});
    return camera.require(camera.device().downloadThumb(ObjectReference(object.handle())),
                          object.path());
  });
}

namespace {

/// An object's size has 32 bits (ISO 15740, "ObjectInfo dataset").
constexpr std::uint64_t kSizeLimit = std::uint64_t{1} << 32;

/// What cannot be sent whatever the device.
void refuseToSend(const std::string& path) {
  // The codec wraps the count of a longer text, and the object would get another name.
  if (utf16Length(fs::path(path).filename().string()) > kMostStringUnits)
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

Status sendContents(PTPTransactions& device, const std::string& path, XTExtendedObjectInfo& info,
                    const UploadOptions::Data& options, std::uint32_t& handle) {
  const auto send = [&](std::uint32_t store) {
    return device.sendContentsOfFile(path, info, store, options.folder, &handle);
  };
  const Status sent = send(options.store);
  if (sent != status::kPTPInvalidStorageID || options.store != 0) return sent;
  // Store 0 lets the device choose (ISO 15740, SendObjectInfo); some want to be told: the first.
  const auto stores = device.storageIDs();
  return stores && !stores->empty() && stores->front() != 0 ? send(stores->front()) : sent;
}

}  // namespace

Uploaded Device::upload(const std::string& path, const UploadOptions& uploadOptions) {
  return called(state_, "upload", [&](DeviceState& state) {
    const auto& options = uploadOptions.data();
    auto& camera = state.camera();
    auto& device = camera.device();
    if (!device.acceptsFiles())
      raise(camera.failure(camera.info().description(), status::kPTPOperationNotSupported,
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
    // Sending adjusts the information.
    Uploaded::Data sent = {.name = info.fileName(), .size = info.compressedSize()};
    if (options.begin) options.begin(sent.name, sent.size);
    device.setDownloadUpdateCb(counting(options.progress, sent.size, *state.session()));
    const AtEnd unset([&] { device.setDownloadUpdateCb({}); });
    const auto transfer = state.session()->transfer();
    const Status status = sendContents(camera.transactions(), path, info, options, sent.handle);
    if (!isGood(status)) raise(camera.failure(path, status));
    return valueOf<Uploaded>(std::move(sent));
  });
}

}  // namespace tarvo
