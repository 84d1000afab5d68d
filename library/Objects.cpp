#include "tarvo/Objects.h"

#include <algorithm>
#include <functional>
#include <ostream>
#include <set>
#include <span>
#include <utility>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/Records.h"
#include "library/access/DeviceState.h"
#include "library/access/ObjectSelection.h"
#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

using namespace library;

struct ObjectInfo::Data {
  /// Of a volume: what a camera would tell.
  std::shared_ptr<const XTExtendedObjectInfo> info;
  std::uint32_t handle = 0;
  std::string name{};  ///< of a volume: the bytes of the file system
  std::string path{};
  std::uint64_t size = 0;
  std::optional<std::time_t> modified{};
  FolderWalk::Kind kind = FolderWalk::Kind::kFile;
};

std::uint32_t ObjectInfo::handle() const { return data_->handle; }
const std::string& ObjectInfo::name() const {
  return data_->name.empty() ? data_->info->fileName() : data_->name;
}
const std::string& ObjectInfo::path() const { return data_->path; }
std::uint64_t ObjectInfo::size() const { return data_->size; }
std::uint32_t ObjectInfo::thumbnailSize() const { return data_->info->thumbCompressedSize(); }
std::uint16_t ObjectInfo::format() const { return data_->info->objFmtCode(); }
bool ObjectInfo::isFolder() const { return data_->info->objFmtCode() == ptp::kAssociationFormat; }
bool ObjectInfo::isSpecial() const { return data_->kind == FolderWalk::Kind::kOther; }
bool ObjectInfo::isProtected() const { return data_->info->protectionStatus() != 0; }
std::optional<std::time_t> ObjectInfo::modified() const { return data_->modified; }
const std::string& ObjectInfo::captureDate() const { return data_->info->captureDateStr(); }
const std::string& ObjectInfo::modificationDate() const { return data_->info->modDataStr(); }
std::uint32_t ObjectInfo::parent() const { return data_->info->parentObject(); }
std::uint32_t ObjectInfo::store() const { return data_->info->storageID(); }
std::uint32_t ObjectInfo::width() const { return data_->info->imagePixWidth(); }
std::uint32_t ObjectInfo::height() const { return data_->info->imagePixHeight(); }

std::ostream& operator<<(std::ostream& out, const ObjectInfo& object) {
  return out << printable(object.path()) << " (" << handleText(object.handle()) << ", format 0x"
             << std::hex << object.format() << std::dec << ", " << object.size() << " bytes)";
}

const XTExtendedObjectInfo& library::recordOf(const ObjectInfo& object) {
  return *object.data().info;
}

struct ObjectQuery::Data {
  bool isRecursive = false;
  std::uint16_t format = 0;
  std::uint32_t store = 0;
  std::uint32_t folder = 0;
  std::optional<std::string> path{};  ///< of a folder on a volume; none: all that there is
  bool namesOnly = false;
};

ObjectQuery::ObjectQuery() : data_(std::make_shared<Data>()) {}

ObjectQuery& ObjectQuery::recursive(bool is) { return set<&Data::isRecursive>(*this, data_, is); }
ObjectQuery& ObjectQuery::store(std::uint32_t id) { return set<&Data::store>(*this, data_, id); }
ObjectQuery& ObjectQuery::format(std::uint16_t code) {
  return set<&Data::format>(*this, data_, code);
}
ObjectQuery& ObjectQuery::folder(std::uint32_t handle) {
  return set<&Data::folder>(*this, data_, handle);
}
ObjectQuery& ObjectQuery::folder(std::string path) {
  return set<&Data::path>(*this, data_, std::move(path));
}
ObjectQuery& ObjectQuery::namesOnly(bool is) { return set<&Data::namesOnly>(*this, data_, is); }

struct ObjectChoice::Data {
  std::vector<std::string> names{};
  bool ignoresCase = false;
  bool findsFolders = false;  ///< by patterns
  Others others = Others::kNone;
  bool namesOnly = false;
};

ObjectChoice::ObjectChoice() : data_(std::make_shared<Data>()) {}

ObjectChoice& ObjectChoice::names(std::vector<std::string> texts) {
  return set<&Data::names>(*this, data_, std::move(texts));
}
ObjectChoice& ObjectChoice::ignoringCase(bool is) {
  return set<&Data::ignoresCase>(*this, data_, is);
}
ObjectChoice& ObjectChoice::folders(bool is) { return set<&Data::findsFolders>(*this, data_, is); }
ObjectChoice& ObjectChoice::others(Others which) { return set<&Data::others>(*this, data_, which); }
ObjectChoice& ObjectChoice::namesOnly(bool is) { return set<&Data::namesOnly>(*this, data_, is); }

struct ObjectVisitor::Data {
  std::function<bool(const ObjectInfo&, bool)> onObject{};
  std::function<bool(std::uint32_t, const std::string&, const Error&)> onUnreadable{};
  std::function<void(const std::string&)> onUnmatched{};
  std::function<void()> onLooked{};
};

ObjectVisitor::ObjectVisitor() : data_(std::make_shared<Data>()) {}

ObjectVisitor& ObjectVisitor::onObject(std::function<bool(const ObjectInfo&, bool)> visit) {
  return set<&Data::onObject>(*this, data_, std::move(visit));
}
ObjectVisitor& ObjectVisitor::onUnreadable(
    std::function<bool(std::uint32_t, const std::string&, const Error&)> visit) {
  return set<&Data::onUnreadable>(*this, data_, std::move(visit));
}
ObjectVisitor& ObjectVisitor::onUnmatched(std::function<void(const std::string&)> visit) {
  return set<&Data::onUnmatched>(*this, data_, std::move(visit));
}
ObjectVisitor& ObjectVisitor::onLooked(std::function<void()> looked) {
  return set<&Data::onLooked>(*this, data_, std::move(looked));
}

namespace {

// Wider than what the library counts as a picture, which is that of the maker's own devices.
constexpr std::string_view kPictures[] = {"jpg",  "jpeg", "jpe", "jfif", "jp2",  "jpx",  "jxl",
                                          "tif",  "tiff", "bmp", "bmg",  "fpx",  "fpix", "gif",
                                          "png",  "pict", "pcd", "heic", "heif", "hif",  "avif",
                                          "webp", "mpo",  "jps", "insp"};
/// Raw pictures, maker by maker.
constexpr std::string_view kRawPictures[] = {
    "dng", "raw", "crw", "cr2", "cr3", "nef", "nrw", "arw", "srf", "sr2", "orf", "ori",
    "rw2", "rwl", "raf", "pef", "ptx", "srw", "x3f", "kdc", "dcr", "dc2", "dcs", "k25",
    "tdc", "mrw", "3fr", "fff", "iiq", "mos", "mef", "erf", "gpr", "bay", "cap"};
constexpr std::string_view kFilms[] = {"mov", "qt",   "mp4",  "m4v",  "mpg", "mpeg", "mpe", "avi",
                                       "mts", "m2ts", "m2t",  "ts",   "mod", "tod",  "3gp", "3g2",
                                       "wmv", "asf",  "mkv",  "webm", "mxf", "vob",  "dv",  "insv",
                                       "360", "lrv",  "braw", "crm",  "r3d"};

bool endsInOneOf(std::span<const std::string_view> extensions, std::string_view name) {
  return !name.starts_with('.') &&
         std::ranges::find(extensions, lowerCaseExtension(name)) != extensions.end();
}

}  // namespace

bool isFilm(std::string_view name) { return endsInOneOf(kFilms, name); }

bool isPictureOrFilm(std::string_view name) {
  return endsInOneOf(kPictures, name) || endsInOneOf(kRawPictures, name) || isFilm(name);
}

namespace {

/// As a PTP device would tell of the file, so that both kinds of devices have the same.
std::shared_ptr<const XTExtendedObjectInfo> infoOf(const FolderWalk::Entry& entry,
                                                   const std::optional<struct stat>& attributes) {
  constexpr off_t kMost = 0xFFFFFFFF;
  auto info = std::make_shared<XTExtendedObjectInfo>();
  const bool isFolder = entry.kind == FolderWalk::Kind::kFolder;
  info->setObjFmtCode(isFolder ? ptp::kAssociationFormat
                               : ptpFormatOfExtension(lowerCaseExtension(entry.name())));
  info->setFileName(validUTF8(entry.name()));
  if (!attributes) return info;
  if (!isFolder)
    info->setCompressedSize(static_cast<std::uint32_t>(std::min(attributes->st_size, kMost)));
  info->setModDataStr(ptpDateOfTime(attributes->st_mtime).value_or(""));
  return info;
}

ListingQuery listingQuery(const ObjectQuery::Data& query) {
  ListingQuery listing = {.isDeep = query.isRecursive};
  if (query.store != 0) listing.store = query.store;
  listing.format = query.format;
  if (query.folder != 0) {
    listing.folder = query.folder;
  } else if (!query.isRecursive && query.format == 0) {
    listing.folder = ListingQuery::kTop;
  }
  return listing;
}

ObjectInfo cameraObject(std::uint32_t handle, ObjectInfoPointer info, std::string path) {
  const std::uint64_t size = info->compressedSize();
  const auto modified = dateOfObject(*info);
  return valueOf<ObjectInfo>({.info = std::move(info),
                              .handle = handle,
                              .path = std::move(path),
                              .size = size,
                              .modified = modified});
}

ObjectInfo volumeObject(const FolderWalk::Entry& entry,
                        const std::optional<struct stat>& attributes) {
  ObjectInfo::Data data{.info = infoOf(entry, attributes),
                        .name = std::string(entry.name()),
                        .path = entry.path,
                        .kind = entry.kind};
  if (attributes && entry.kind != FolderWalk::Kind::kFolder)
    data.size = static_cast<std::uint64_t>(attributes->st_size);
  if (attributes) data.modified = attributes->st_mtim.tv_sec;
  return valueOf<ObjectInfo>(std::move(data));
}

/// One visit: what the visitor has no callback for ends it with its error.
class Visit {
 public:
  Visit(DeviceState& device, const ObjectVisitor& visitor)
      : device_(device), visitor_(visitor.data()) {}

  bool goesOn() const { return goesOn_ && !device_.session()->isInterrupted(); }

  /// The same, once for each object.
  bool looksOn() const {
    if (visitor_.onLooked) visitor_.onLooked();
    return goesOn();
  }

  void object(const ObjectInfo& object, bool isNamed) {
    if (visitor_.onObject && !visitor_.onObject(object, isNamed)) goesOn_ = false;
  }
  void unreadable(std::uint32_t handle, const std::string& path, Failure failure) {
    const Error error = errorOf(std::move(failure));
    if (!visitor_.onUnreadable) throw error;
    if (!visitor_.onUnreadable(handle, path, error)) goesOn_ = false;
  }
  void unmatched(const std::string& text) {
    if (!visitor_.onUnmatched)
      raise({.object = text,
             .status = status::kFileNotFound,
             .why = "no object on the device has that name"});
    visitor_.onUnmatched(text);
  }

  void camera(const ObjectQuery::Data& query) {
    auto& camera = device_.camera();
    ObjectPaths paths(camera.transactions());
    ObjectListing listing(camera.transactions());
    const auto listed = listing.visit(listingQuery(query), [&](auto handle, const ReadInfo& read) {
      if (isReadable(handle, read))
        object(cameraObject(handle, read.info,
                            query.isRecursive ? paths.pathOf(*read.info) : read.info->fileName()),
               false);
      return looksOn();
    });
    if (goesOn()) camera.require(listed, inWords(query));
  }

  void volume(const ObjectQuery::Data& query) {
    const bool isDeep = query.isRecursive || !query.path;
    walk(query.path.value_or(""), [&](FolderWalk& walk, const FolderWalk::Entry& entry) {
      at(walk, entry, query.namesOnly, [&](const ObjectInfo& found) { object(found, false); });
      if (!isDeep) walk.passOver();
      return looksOn();
    });
  }

  std::uint64_t choice(const ObjectChoice::Data& choice) {
    std::vector<std::string> names = choice.names;
    if (device_.isCamera())
      // Handles first: they cost one question each, names the whole listing.
      std::erase_if(names, [&](const std::string& name) { return tookHandle(name); });
    Operands operands(names, choice.ignoresCase, choice.findsFolders);
    const bool isForNames = choice.others == ObjectChoice::Others::kNone;
    const auto hasMore = [&] { return looksOn() && !(isForNames && operands.areComplete()); };
    if (goesOn() && !(names.empty() && isForNames))
      device_.isCamera() ? camera(choice, operands, hasMore) : volume(choice, operands, hasMore);
    if (goesOn())
      operands.finish([&](const ObjectInfo& kept) { object(kept, true); },
                      [&](const std::string& text) { unmatched(text); });
    return passedOver_;
  }

 private:
  static std::string inWords(const ObjectQuery::Data& query) {
    if (query.folder != 0) return "folder " + handleText(query.folder);
    return query.isRecursive || query.format != 0 ? "the objects" : "the root";
  }

  bool isReadable(std::uint32_t handle, const ReadInfo& read) {
    if (!read.info)
      unreadable(handle, "", device_.camera().failure(handleText(handle), read.status, read.why));
    return read.info != nullptr;
  }

  /// Whether it is a handle, whose object is visited.
  bool tookHandle(const std::string& text) {
    const auto number = numberOf(text, 0xFFFFFFFF);
    if (!number || !goesOn()) return number.has_value();
    auto& transactions = device_.camera().transactions();
    const auto handle = static_cast<std::uint32_t>(*number);
    const auto read = ObjectListing(transactions).find(handle);
    const bool isNew = visited_.insert(handle).second;
    if (isNew && isReadable(handle, read))
      object(cameraObject(handle, read.info, ObjectPaths(transactions).pathOf(*read.info)), true);
    return true;
  }

  void camera(const ObjectChoice::Data& choice, Operands& operands,
              const std::function<bool()>& hasMore) {
    auto& camera = device_.camera();
    ObjectPaths paths(camera.transactions());
    const Status listed =
        ObjectListing(camera.transactions()).visit({}, [&](auto handle, const ReadInfo& read) {
          // One whose content is missing comes a second time.
          const bool isNew = visited_.insert(handle).second || !read.info;
          if (isNew && isReadable(handle, read)) {
            const auto& info = *read.info;
            const std::string path = paths.pathOf(info);
            consider(choice, operands, {info.fileName(), path, isFolder(info), !isFolder(info)},
                     [&](const auto& use) { use(cameraObject(handle, read.info, path)); });
          }
          // A name is done with when it is found, which may be long before the end.
          return hasMore();
        });
    if (goesOn()) camera.require(listed, "the objects");
  }

  void volume(const ObjectChoice::Data& choice, Operands& operands,
              const std::function<bool()>& hasMore) {
    walk("", [&](FolderWalk& walk, const FolderWalk::Entry& entry) {
      consider(choice, operands,
               {std::string(entry.name()), entry.path, entry.kind == FolderWalk::Kind::kFolder,
                entry.kind == FolderWalk::Kind::kFile},
               [&](const auto& use) { at(walk, entry, choice.namesOnly, use); });
      return hasMore();
    });
  }

  struct Candidate {
    const std::string& name;
    const std::string& path;
    bool isFolder;
    bool isFile;
  };
  using Use = std::function<void(const ObjectInfo&)>;

  /// `make` makes the object for what is done with it.
  void consider(const ObjectChoice::Data& choice, Operands& operands, const Candidate& candidate,
                const std::function<void(const Use&)>& make) {
    using Others = ObjectChoice::Others;
    const auto meant = operands.take(candidate.name, candidate.path, candidate.isFolder);
    const bool isForPictures = choice.others == Others::kPictures && candidate.isFile;
    const bool isAmongOthers =
        (choice.others == Others::kEverything && !(device_.isCamera() && candidate.isFolder)) ||
        (isForPictures && isPictureOrFilm(candidate.name));
    const bool isNamed = meant == Operands::Meant::kYes;
    if (isNamed || isAmongOthers) {
      make([&](const ObjectInfo& found) { object(found, isNamed); });
    } else if (meant == Operands::Meant::kNearly) {
      make([&](const ObjectInfo& found) { operands.keep(found); });
    } else if (isForPictures) {
      ++passedOver_;
    }
  }

  /// Uses the object at which the walk stands, unless it has gone in this moment.
  void at(const FolderWalk& walk, const FolderWalk::Entry& entry, bool namesOnly, const Use& use) {
    const auto attributes = namesOnly ? std::nullopt : walk.attributes();
    if (!namesOnly && !attributes) return;
    device_.walk = &walk;
    device_.walkPath = entry.path;
    const AtEnd moveOn([this] { device_.walk = nullptr; });
    use(volumeObject(entry, attributes));
  }

  /// Each entry below a folder of the volume, until `visit` says no.
  void walk(const std::string& start,
            const std::function<bool(FolderWalk&, const FolderWalk::Entry&)>& visit) {
    const auto onFailure = [&](const std::string& path, int error) {
      unreadable(0, path,
                 {.object = path.empty() ? device_.info().path() : path,
                  .status = status::kIOError,
                  .why = "the folder cannot be read: " + errorText(error)});
    };
    FolderWalk walk(device_.volume(), onFailure, start);
    for (const auto* entry = walk.next(); entry && goesOn(); entry = walk.next())
      if (!visit(walk, *entry)) return;
  }

  DeviceState& device_;
  const ObjectVisitor::Data& visitor_;
  bool goesOn_ = true;
  std::set<std::uint32_t> visited_;
  std::uint64_t passedOver_ = 0;  ///< by ObjectChoice::Others::kPictures
};

}  // namespace

void Device::visit(const ObjectQuery& query, const ObjectVisitor& visitor) {
  called(state_, "visit", [&](DeviceState& device) {
    Visit visit(device, visitor);
    device.isCamera() ? visit.camera(query.data()) : visit.volume(query.data());
    device.session()->endIfInterrupted();
  });
}

std::uint64_t Device::visit(const ObjectChoice& choice, const ObjectVisitor& visitor) {
  return called(state_, "visit", [&](DeviceState& device) {
    const auto passedOver = Visit(device, visitor).choice(choice.data());
    device.session()->endIfInterrupted();
    return passedOver;
  });
}

std::vector<std::uint32_t> Device::handles(const ObjectQuery& query) {
  return asked(state_, "handles", [&](OpenedDevice& camera) {
    return camera.objectHandles(listingQuery(query.data()), "the objects");
  });
}

ObjectInfo Device::object(std::uint32_t handle) {
  return asked(state_, "object", [&](OpenedDevice& camera) {
    const auto read = ObjectListing(camera.transactions()).find(handle);
    if (!read.info) raise(camera.failure(handleText(handle), read.status, read.why));
    return cameraObject(handle, read.info, ObjectPaths(camera.transactions()).pathOf(*read.info));
  });
}

}  // namespace tarvo
