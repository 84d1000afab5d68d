#include "tarvo/Objects.h"

#include <fnmatch.h>
#include <glib.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

using namespace library;

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

ListingQuery listingQuery(const ObjectQuery::Data& query) {
  const bool isOfTop = query.folder == 0 && !query.isRecursive && query.format == 0;
  return {.store = query.store != 0 ? query.store : ptp::kAllStores,
          .format = query.format,
          .folder = isOfTop ? ListingQuery::kTop : query.folder,
          .isDeep = query.isRecursive};
}

/// Where an object lies: the names of the folders above it, each asked for once in a run.
class ObjectPaths {
 public:
  explicit ObjectPaths(PTPTransactions& device) : device_(device) {}

  /// "DCIM/100TARVO/TARV0001.JPG". A folder that cannot be read, or that lies in itself, is left
  /// out.
  std::string pathOf(const XTExtendedObjectInfo& info) {
    return folderPath(info.parentObject(), 0) + info.fileName();
  }

 private:
  /// Deeper than any device goes; a device that puts two folders into each other has no end.
  static constexpr int kDeepest = 16;

  /// With a slash at its end; empty for the root.
  std::string folderPath(std::uint32_t handle, int depth) {
    // Devices name the root in either way.
    if (handle == 0 || handle == ListingQuery::kTop || depth == kDeepest) return {};
    if (const auto known = folders_.find(handle); known != folders_.end()) return known->second;
    const auto info = readInfo(device_, handle).info;
    std::string path;
    if (info) path = folderPath(info->parentObject(), depth + 1) + info->fileName() + "/";
    return folders_[handle] = path;
  }

  PTPTransactions& device_;
  std::map<std::uint32_t, std::string> folders_;
};

/// One visit: what the visitor has no callback for ends it with its error.
class Visit {
 public:
  Visit(DeviceState& device, const ObjectVisitor& visitor)
      : device_(device), visitor_(visitor.data()) {}

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
    const bool isOfAll = query.isRecursive || query.format != 0;
    if (goesOn())
      camera.require(listed, query.folder != 0 ? "folder " + handleText(query.folder)
                             : isOfAll         ? "the objects"
                                               : "the root");
  }

  void volume(const ObjectQuery::Data& query) {
    const bool isDeep = query.isRecursive || !query.path;
    walk(query.path.value_or(""), [&](FolderWalk& walk, const FolderWalk::Entry& entry) {
      at(walk, entry, query.namesOnly, [&](const ObjectInfo& found) { object(found, false); });
      if (!isDeep) walk.passOver();
      return looksOn();
    });
  }

 protected:
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
  bool isReadable(std::uint32_t handle, const ReadInfo& read) {
    if (!read.info)
      unreadable(handle, "", device_.camera().failure(handleText(handle), read.status, read.why));
    return read.info != nullptr;
  }
  void unmatched(const std::string& text) {
    if (!visitor_.onUnmatched)
      raise({.object = text,
             .status = status::kFileNotFound,
             .why = "no object on the device has that name"});
    visitor_.onUnmatched(text);
  }

  /// Uses the object at which the walk stands, unless it has gone in this moment.
  void at(const FolderWalk& walk, const FolderWalk::Entry& entry, bool namesOnly,
          const std::function<void(const ObjectInfo&)>& use) {
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

 private:
  const ObjectVisitor::Data& visitor_;
  bool goesOn_ = true;
};

/// The same of what a person has written.
class ChoiceVisit : public Visit {
 public:
  ChoiceVisit(DeviceState& device, const ObjectVisitor& visitor, const ObjectChoice::Data& choice)
      : Visit(device, visitor), choice_(choice) {}

  /// How many files were passed over as neither pictures nor films.
  std::uint64_t run() {
    for (const auto& text : choice_.names)
      // Handles first: they cost one question each, names the whole listing.
      if (!device_.isCamera() || !tookHandle(text))
        operands_.push_back({text, text.find_first_of("*?[") != std::string::npos});
    if (goesOn() && !(operands_.empty() && isForNames_)) device_.isCamera() ? camera() : volume();
    if (goesOn()) finish();
    return passedOver_;
  }

 private:
  using Others = ObjectChoice::Others;

  /// What an object is to the choice, the most that any operand makes of it.
  enum class Meant : std::uint8_t {
    kNot,
    kNearly,  ///< but for case, by a name that may still find its own
    kOther,
    kNamed,
  };

  struct Operand {
    std::string text;
    bool isPattern = false;
    bool wasMatched = false;
    std::optional<std::size_t> kept{};  ///< place of what it means but for case
  };

  struct Candidate {
    const std::string& name;
    const std::string& path;
    bool isFolder;
    bool isFile;
  };

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

  void camera() {
    auto& camera = device_.camera();
    ObjectPaths paths(camera.transactions());
    ObjectListing listing(camera.transactions());
    const auto listed = listing.visit({}, [&](auto handle, const ReadInfo& read) {
      // One whose content is missing comes a second time.
      const bool isNew = visited_.insert(handle).second || !read.info;
      if (isNew && isReadable(handle, read)) {
        const auto& info = *read.info;
        const std::string path = paths.pathOf(info);
        const Meant meant = look({info.fileName(), path, isFolder(info), !isFolder(info)});
        if (meant != Meant::kNot) take(meant, cameraObject(handle, read.info, path));
      }
      return hasMore();
    });
    if (goesOn()) camera.require(listed, "the objects");
  }

  void volume() {
    walk("", [&](FolderWalk& walk, const FolderWalk::Entry& entry) {
      const Meant meant =
          look({std::string(entry.name()), entry.path, entry.kind == FolderWalk::Kind::kFolder,
                entry.kind == FolderWalk::Kind::kFile});
      if (meant != Meant::kNot)
        at(walk, entry, choice_.namesOnly, [&](const auto& found) { take(meant, found); });
      return hasMore();
    });
  }

  /// A name is done with when it is found, which may be long before the end.
  bool hasMore() const {
    const auto isDone = [](const Operand& each) { return each.wasMatched && !each.isPattern; };
    return looksOn() && !(isForNames_ && std::ranges::all_of(operands_, isDone));
  }

  Meant look(const Candidate& candidate) {
    const Meant meant = matchAll(candidate);
    if (meant == Meant::kNamed) return meant;
    const bool isForPictures = choice_.others == Others::kPictures && candidate.isFile;
    if ((choice_.others == Others::kEverything && !(device_.isCamera() && candidate.isFolder)) ||
        (isForPictures && isPictureOrFilm(candidate.name)))
      return Meant::kOther;
    if (isForPictures && meant == Meant::kNot) ++passedOver_;
    return meant;
  }

  Meant matchAll(const Candidate& candidate) {
    Meant meant = Meant::kNot;
    bool isNear = false;
    for (auto& operand : operands_) {
      const bool isSpent =
          operand.isPattern ? candidate.isFolder && !choice_.findsFolders : operand.wasMatched;
      const Meant by = isSpent ? Meant::kNot : match(operand, candidate);
      if (by == Meant::kNamed) operand.wasMatched = true;
      if (by == Meant::kNearly) operand.kept = kept_.size();
      isNear = isNear || by == Meant::kNearly;
      meant = std::max(meant, by);
    }
    // Empty where something else means it, too: it is given once.
    if (isNear) kept_.emplace_back();
    return meant;
  }

  Meant match(const Operand& operand, const Candidate& candidate) const {
    const bool hasSlash = operand.text.find('/') != std::string::npos;
    const std::string& compared = hasSlash ? candidate.path : candidate.name;
    if (operand.isPattern) {
      // As in a shell: a star stops at a slash, and finds no hidden name.
      const int flags = FNM_PATHNAME | FNM_PERIOD | (choice_.ignoresCase ? FNM_CASEFOLD : 0);
      const int differs = ::fnmatch(operand.text.c_str(), compared.c_str(), flags);
      return differs == 0 ? Meant::kNamed : Meant::kNot;
    }
    if (compared == operand.text) return Meant::kNamed;
    const bool isNear = choice_.ignoresCase && !operand.kept &&
                        g_ascii_strcasecmp(compared.c_str(), operand.text.c_str()) == 0;
    return isNear ? Meant::kNearly : Meant::kNot;
  }

  void take(Meant meant, const ObjectInfo& found) {
    if (meant == Meant::kNearly) {
      kept_.back() = found;
    } else {
      object(found, meant == Meant::kNamed);
    }
  }

  /// What was kept and is meant after all, and what nothing has.
  void finish() {
    for (const auto& operand : operands_) {
      if (operand.wasMatched) continue;
      if (!operand.kept) {
        unmatched(operand.text);
      } else if (const auto found = std::exchange(kept_[*operand.kept], std::nullopt)) {
        object(*found, true);
      }
    }
  }

  const ObjectChoice::Data& choice_;
  const bool isForNames_ = choice_.others == Others::kNone;
  std::vector<Operand> operands_;
  std::vector<std::optional<ObjectInfo>> kept_;
  std::set<std::uint32_t> visited_;
  std::uint64_t passedOver_ = 0;
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
    const auto passedOver = ChoiceVisit(device, visitor, choice.data()).run();
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
