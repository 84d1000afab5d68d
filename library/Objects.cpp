#include <algorithm>
#include <functional>
#include <ostream>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "library/access/ObjectData.h"
#include "library/access/ObjectSelection.h"
#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

using namespace library;

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

ObjectQuery::ObjectQuery() : data_(std::make_shared<Data>()) {}

ObjectQuery& ObjectQuery::recursive(bool is) {
  ownOf(data_).isRecursive = is;
  return *this;
}
ObjectQuery& ObjectQuery::store(std::uint32_t id) {
  ownOf(data_).store = id;
  return *this;
}
ObjectQuery& ObjectQuery::format(std::uint16_t code) {
  ownOf(data_).format = code;
  return *this;
}
ObjectQuery& ObjectQuery::folder(std::uint32_t handle) {
  ownOf(data_).folder = handle;
  return *this;
}
ObjectQuery& ObjectQuery::folder(std::string path) {
  ownOf(data_).path = std::move(path);
  return *this;
}
ObjectQuery& ObjectQuery::namesOnly(bool is) {
  ownOf(data_).namesOnly = is;
  return *this;
}

ObjectChoice::ObjectChoice() : data_(std::make_shared<Data>()) {}

ObjectChoice& ObjectChoice::names(std::vector<std::string> texts) {
  ownOf(data_).names = std::move(texts);
  return *this;
}
ObjectChoice& ObjectChoice::ignoringCase(bool is) {
  ownOf(data_).ignoresCase = is;
  return *this;
}
ObjectChoice& ObjectChoice::folders(bool is) {
  ownOf(data_).findsFolders = is;
  return *this;
}
ObjectChoice& ObjectChoice::others(Others which) {
  ownOf(data_).others = which;
  return *this;
}
ObjectChoice& ObjectChoice::namesOnly(bool is) {
  ownOf(data_).namesOnly = is;
  return *this;
}

ObjectVisitor::ObjectVisitor() : data_(std::make_shared<Data>()) {}

ObjectVisitor& ObjectVisitor::onObject(std::function<bool(const ObjectInfo&, bool)> visit) {
  ownOf(data_).onObject = std::move(visit);
  return *this;
}
ObjectVisitor& ObjectVisitor::onUnreadable(
    std::function<bool(std::uint32_t, const std::string&, const Error&)> visit) {
  ownOf(data_).onUnreadable = std::move(visit);
  return *this;
}
ObjectVisitor& ObjectVisitor::onUnmatched(std::function<void(const std::string&)> visit) {
  ownOf(data_).onUnmatched = std::move(visit);
  return *this;
}

ObjectVisitor& ObjectVisitor::onLooked(std::function<void()> looked) {
  ownOf(data_).onLooked = std::move(looked);
  return *this;
}

bool isPictureOrFilm(std::string_view name) { return library::isPictureOrFilmName(name); }
bool isFilm(std::string_view name) { return library::isFilmName(name); }

namespace library {
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

/// The walk stands at an entry, as long as this lives.
class WalkHere {
 public:
  WalkHere(DeviceState& device, const FolderWalk& walk, const FolderWalk::Entry& entry)
      : device_(device) {
    device_.walk = &walk;
    device_.walkPath = entry.path;
  }
  ~WalkHere() { device_.walk = nullptr; }
  WalkHere(const WalkHere&) = delete;
  WalkHere& operator=(const WalkHere&) = delete;

 private:
  DeviceState& device_;
};

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
    const Status listed = ObjectListing(camera.transactions())
                              .visit(listingQuery(query), [&](auto handle, const ReadInfo& read) {
                                if (isReadable(handle, read))
                                  object(cameraObject(handle, read.info,
                                                      query.isRecursive ? paths.pathOf(*read.info)
                                                                        : read.info->fileName()),
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
        (isForPictures && isPictureOrFilmName(candidate.name));
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
    const WalkHere here(device_, walk, entry);
    use(volumeObject(entry, attributes));
  }

  /// Each entry below a folder of the volume, until `visit` says no.
  void walk(const std::string& start,
            const std::function<bool(FolderWalk&, const FolderWalk::Entry&)>& visit) {
    const auto& volume = device_.volume();
    const auto onFailure = [&](const std::string& path, int error) {
      unreadable(0, path,
                 {.object = path.empty() ? volume.summary().path : path,
                  .status = status::kIOError,
                  .why = "the folder cannot be read: " + errorText(error)});
    };
    FolderWalk walk(volume.tree(), onFailure, start);
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
  return ObjectInfo(
      std::make_shared<const ObjectInfo::Data>(ObjectInfo::Data{.info = std::move(info),
                                                                .handle = handle,
                                                                .path = std::move(path),
                                                                .size = size,
                                                                .modified = modified}));
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
  return ObjectInfo(std::make_shared<const ObjectInfo::Data>(std::move(data)));
}

void visitObjects(DeviceState& device, const ObjectQuery& query, const ObjectVisitor& visitor) {
  Visit visit(device, visitor);
  device.isCamera() ? visit.camera(query.data()) : visit.volume(query.data());
  device.session()->endIfInterrupted();
}

std::uint64_t visitObjects(DeviceState& device, const ObjectChoice& choice,
                           const ObjectVisitor& visitor) {
  const auto passedOver = Visit(device, visitor).choice(choice.data());
  device.session()->endIfInterrupted();
  return passedOver;
}

}  // namespace library
}  // namespace tarvo
