// ls: the objects on a device.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "library/Records.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/ObjectCommands.h"
#include "tools/objects/ObjectFilter.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct ListOptions {
  std::vector<std::string> objects{};  ///< names, folders, patterns; empty: the top
  ObjectFilter filter{};
  bool isLong = false;
  bool isRecursive = false;  ///< all that lies below
  bool handlesOnly = false;  ///< asks nothing of the objects themselves
  bool onlyVolumes = false;
  bool all = false;  ///< of a volume, not pictures and films alone
};

std::string sizeText(const ObjectInfo& object) {
  if (object.isFolder()) return "";
  // The field of a camera cannot hold more (ISO 15740, "ObjectInfo dataset").
  const bool isMore = object.handle() != 0 && object.size() == ptp::kUnknownObjectSize;
  return isMore ? "4 GB or more" : sizeInWords(object.size());
}

/// One run of the command.
class ObjectList {
 public:
  ObjectList(ToolContext& context, const ListOptions& options)
      : context_(context),
        options_(options),
        sieve_(options.filter),
        device_(openDevice(context, options.onlyVolumes)),
        isVolume_(device_.info().kind() == DeviceKind::kVolume),
        // Among pictures wherever they lie a name alone says little.
        isDeep_(options.isRecursive || !sieve_.isOpen() || options.onlyVolumes),
        hasPaths_(isDeep_ || !options.objects.empty()),
        listing_(context.output, columns(), Listing::kStreamed) {
    if (options.handlesOnly && isVolume_) refuseUsage("the files of a volume have no handles");
    // A card may have more files than a terminal is to be asked for one by one.
    if (isVolume_) context.output.gather();
    sieve_.useStoresOf(device_);
  }

  int run() {
    // One transaction in place of one for each object.
    if (options_.handlesOnly) {
      showHandles();
    } else if (options_.objects.empty()) {
      list(query());
    } else {
      listNamed();
    }
    endIfInterrupted(context_);
    return listing_.finish();
  }

 private:
  std::vector<Column> columns() const {
    std::vector<Column> columns;
    if (!isVolume_) columns.push_back({"HANDLE", 10});
    if (options_.handlesOnly) return columns;
    if (options_.isLong)
      columns.insert(columns.end(), {{"FORMAT", 15}, {"SIZE", 10, true}, {"DATE", 19}});
    columns.push_back({"NAME"});
    return columns;
  }

  ObjectQuery query() const {
    ObjectQuery query;
    query.recursive(isDeep_).store(sieve_.store()).format(sieve_.format());
    if (isVolume_) query.folder("").namesOnly(!options_.isLong && !sieve_.needsDetails());
    return query;
  }

  bool isEnough() const { return sieve_.isEnough(shown_); }

  void list(const ObjectQuery& query) {
    if (!isEnough()) device_.visit(query, showing({}));
    showSorted();
  }

  void showHandles() {
    for (const std::uint32_t handle : device_.handles(query())) {
      if (isEnough() || context_.interrupt.isSet()) break;
      ++shown_;
      listing_.add(handle, {handleText(handle)});
    }
  }

  /// As a shell does: what is a folder is listed, behind all that is none.
  void listNamed() {
    std::vector<std::string> names;
    for (const auto& object : options_.objects)
      names.push_back(pathArgument(object));
    std::vector<ObjectInfo> folders;
    const auto visitor = showing([&](const ObjectInfo& folder) { folders.push_back(folder); });
    device_.visit(ObjectChoice().names(names).ignoringCase().folders(), visitor);
    showSorted();
    for (const auto& folder : folders) {
      folder_ = folder.path() + "/";
      list(isVolume_ ? query().folder(folder.path()) : query().folder(folder.handle()));
    }
  }

  /// Of each folder by itself.
  void showSorted() {
    sieve_.arrange(found_);
    for (const auto& object : std::exchange(found_, {}))
      if (!isEnough()) show(object);
  }

  /// Folders go to `onFolder` where that is given.
  ObjectVisitor showing(std::function<void(const ObjectInfo&)> onFolder) {
    ObjectVisitor visitor([this, onFolder = std::move(onFolder)](const ObjectInfo& object) {
      if (onFolder && object.isFolder()) {
        onFolder(object);
      } else if (passes(object)) {
        sieve_.isSorted() ? found_.push_back(object) : show(object);
      }
      return !isEnough();
    });
    visitor
        .onUnreadable([this](std::uint32_t handle, const std::string& path, const Error& error) {
          return fail(handle == 0 ? PropertyDictionary{{"path", validUTF8(path)}}
                                  : PropertyDictionary{{"handle", handle}},
                      error);
        })
        .onUnmatched([this](const std::string& name) {
          listing_.addFailure({{"name", validUTF8(name)}},
                              {.operation = context_.operation,
                               .object = name,
                               .status = status::kFileNotFound,
                               .why = "nothing on the device has that name",
                               .advice = "'tarvoctl ls --recursive' shows all that there is."});
        });
    return visitor;
  }

  bool passes(const ObjectInfo& object) const {
    const bool isForPictures =
        options_.onlyVolumes && !options_.all && options_.objects.empty() && sieve_.format() == 0;
    return sieve_.passes(object) && (!isForPictures || (!object.isFolder() && !object.isSpecial() &&
                                                        isPictureOrFilm(object.name())));
  }

  /// A device that was lost is told of with the object that it was lost at.
  bool fail(const PropertyDictionary& json, const Error& error) {
    if (context_.interrupt.isSet()) return false;
    return addFailure(context_, listing_, json, error);
  }

  void show(const ObjectInfo& object) {
    // A camera tells no path with what lies in one folder.
    const std::string path =
        isDeep_ || isVolume_ || folder_.empty() ? object.path() : folder_ + object.name();
    ++shown_;
    // A card may have a million of them: what is not shown is not made.
    if (context_.output.isJSON()) {
      listing_.add(asJSON(object, path), {});
    } else {
      listing_.add({}, cells(object, hasPaths_ ? path : object.name()));
    }
  }

  PropertyDictionary asJSON(const ObjectInfo& object, const std::string& path) const {
    PropertyDictionary json;
    if (!isVolume_) json["handle"] = object.handle();
    if (options_.isLong) json.update(jsonFromObjectInfo(library::recordOf(object)));
    // A camera's own field says it, as far as it can.
    if (options_.isLong && isVolume_ && !object.isFolder()) json["size"] = object.size();
    json["name"] = validUTF8(object.name());
    if (hasPaths_ || isVolume_) json["path"] = validUTF8(path);
    return json;
  }

  std::vector<std::string> cells(const ObjectInfo& object, const std::string& name) const {
    std::vector<std::string> cells;
    if (!isVolume_) cells.push_back(handleText(object.handle()));
    if (options_.isLong) {
      const auto& date =
          object.captureDate().empty() ? object.modificationDate() : object.captureDate();
      cells.push_back(object.isSpecial() ? "not a file" : formatInWords(object.format()));
      cells.push_back(sizeText(object));
      cells.push_back(dateInWords(date));
    }
    cells.push_back(name + (object.isFolder() ? "/" : ""));
    return cells;
  }

  ToolContext& context_;
  const ListOptions& options_;
  ObjectSieve sieve_;
  Device device_;
  bool isVolume_;
  bool isDeep_;
  bool hasPaths_;
  Listing listing_;
  std::string folder_;             ///< in which a camera's objects lie that come without a path
  std::vector<ObjectInfo> found_;  ///< those that are to be sorted
  std::uint64_t shown_ = 0;
};

int runList(ToolContext& context, const ListOptions& options) {
  return ObjectList(context, options).run();
}

}  // namespace

void addList(CommandGroup& group, Devices devices) {
  const bool onlyVolumes = devices == Devices::kVolumes;
  auto [command, options] = group.command(
      "ls", onlyVolumes ? "Every picture by its path, as it is found" : "Objects on the device",
      onlyVolumes ? "tarvoctl volume ls --long" : "tarvoctl ls --long DCIM", runList);
  options.onlyVolumes = onlyVolumes;
  command.operand("OBJECT", options.objects, "Names, folders, or patterns such as '*.JPG'")
      .flag("--long", options.isLong, "With format, size and date");
  if (onlyVolumes) {
    command.flag("--all", options.all, "Every file and folder");
  } else {
    command.flag("--recursive", options.isRecursive, "With all that lies below, by its path")
        .flag("--handles", options.handlesOnly, "Handles alone; asks nothing of the objects");
  }
  addFilterOptions(command, options.filter)
      .more(
          onlyVolumes
              ? "Pictures and films, in no order. The volume is the only one that is mounted, or\n"
                "the one that --device names by serial number, location or its own name. Links "
                "on\nit are not followed."
              : "Each is shown as soon as it is known. Without OBJECT they are those of the top;\n"
                "with --pictures, --films, --since or --format, wherever they lie. Of a folder\n"
                "that is named it is what lies in it. The case of letters does not matter.\n"
                "--handles is fast on a full card.");
}

void addListCommand(CommandGroup& root) {
  addList(root, Devices::kAll);
}

}  // namespace tarvo::tools
