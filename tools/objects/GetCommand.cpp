// get: objects of a device as files.
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"
#include "platform/files/FolderTree.h"
#include "platform/files/PartFile.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/ObjectCommands.h"
#include "tools/objects/ObjectFilter.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct FetchOptions {
  std::vector<std::string> objects{};  ///< what is to be fetched, as the command names it
  bool all = false;
  bool onlyNew = false;  ///< not what the folder has already
  /// A folder, or the name of the one file; empty: the current folder.
  std::string output{};
  bool overwrite = false;
  bool keepBoth = false;
  bool thumbnails = false;
  bool tree = false;    ///< each file below the folders that it has on the device
  bool dryRun = false;  ///< nothing is fetched or made
  bool onlyVolumes = false;
  ObjectFilter filter{};
};

bool isOneObject(const FetchOptions& options) {
  return options.objects.size() == 1 && !options.all && !options.tree &&
         options.objects.front().find_first_of("*?[") == std::string::npos;
}

/// What came of an object, where it is kept; empty where nothing is.
std::string keptInWords(const Error& error, const std::string& name) {
  if (error.part().empty()) return {};
  return "what came of " + name + ", " + sizeInWords(error.kept()) + ", is kept in '" +
         error.part() + "'; unless that file is deleted the same command goes on there";
}

std::string afterInterruption(const FetchOptions& options) {
  const bool isSame = isOneObject(options) || options.onlyNew || options.overwrite;
  return std::string("What was fetched stays; the same command") + (isSame ? "" : " with --new") +
         " goes on there.";
}

/// One run: each object is a file of its own, whole or not at all. All are looked for first where
/// something is to be said or to be known beforehand. What is only new counts as there by its name,
/// size and date, else by its content; its name gets a number where another file has it.
class Fetching {
 public:
  Fetching(ToolContext& context, const FetchOptions& options)
      : context_(context),
        options_(options),
        sieve_(options.filter),
        target_(target()),
        progress_(context.output, context.interrupt,
                  isOneObject(options) ? 1 : options.objects.size()),
        device_(openDevice(context, options.onlyVolumes)),
        isVolume_(device_.info().kind() == DeviceKind::kVolume),
        batch_(context, std::string(options.thumbnails ? "thumbnails" : "files") +
                            (options.dryRun ? " would be fetched" : " fetched")) {
    if (isVolume_ && options.thumbnails) refuseUsage("the files of a volume have no thumbnails");
    // Copies would be found and copied again.
    if (isVolume_ && FolderTree(device_.info().path()).holds(target_.folder))
      refuseUsage("'" + target_.folder + "' lies on the volume itself");
    sieve_.useStoresOf(device_);
    batch_.advise(afterInterruption(options));
  }

  int run() {
    // A card may hold more files than are to be kept in mind, and is soon looked through again.
    if (isVolume_ && !sieve_.isSorted()) {
      fetchAsFound();
    } else {
      fetchFound();
    }
    // Who has just ended the command need not be told of more.
    if (!context_.interrupt.isSet()) tellOldParts();
    return batch_.finish();
  }

 private:
  /// Makes the folder where it is missing. Options that make no sense are a mistake whether there
  /// is a device or not.
  LocalTarget target() const {
    if (options_.objects.empty() && !options_.all && !options_.onlyNew && sieve_.isOpen())
      refuseUsage("say what to fetch: names, patterns, --all, --new or --pictures");
    if (options_.overwrite && options_.keepBoth)
      refuseUsage("--overwrite and --keep-both exclude each other");
    if (!options_.dryRun) return resolvedTarget(options_.output, isOneObject(options_));
    return {.folder = options_.output.empty() ? "." : options_.output};
  }

  ObjectChoice choice() const {
    using Others = ObjectChoice::Others;
    Others others = options_.all ? Others::kEverything : Others::kNone;
    // Without names it is about everything; of a card, which holds other things, too, about what a
    // camera takes.
    if (options_.objects.empty() && !options_.all)
      others = isVolume_ && sieve_.format() == 0 ? Others::kPictures : Others::kEverything;
    return ObjectChoice().names(options_.objects).ignoringCase().others(others);
  }

  /// Calls `take` for each file that is meant, which fetches it unless it only `looks`.
  void visit(bool looks, const std::function<void(const ObjectInfo&)>& take) {
    const auto onObject = [&](const ObjectInfo& object, bool isNamed) {
      if (!sieve_.passes(object)) return;
      if (isFile(object)) return take(object);
      // Among everything there are folders, and nobody has asked for them.
      if (isNamed) batch_.refuseNoFile(identityOf(object, "source"), object);
    };
    const auto passedOver = batch_.visit(device_, choice(), onObject, !looks);
    if (passedOver > 0)
      context_.output.message(counted(passedOver, "files passed over") +
                              ": no pictures or films, or hidden. --all takes every file.");
  }

  static bool isFile(const ObjectInfo& object) { return !object.isFolder() && !object.isSpecial(); }

  void fetchFound() {
    std::vector<ObjectInfo> found;
    visit(true, [&](const ObjectInfo& object) {
      expect(object);
      found.push_back(object);
    });
    // Before the sum, so that the room is reckoned for what is really fetched.
    std::erase_if(found, [this](const ObjectInfo& object) { return passesOver(object); });
    sieve_.arrange(found);
    std::uint64_t bytes = 0;
    for (const auto& object : found)
      bytes += sizeOf(object);
    tellSum(found.size(), bytes);
    batch_.forEach(found, [this](const ObjectInfo& object) { fetch(object); });
  }

  void fetchAsFound() {
    if (options_.onlyNew || needsSum()) lookAhead();
    std::uint64_t count = 0;
    visit(false, [&](const ObjectInfo& object) {
      if (passesOver(object) || sieve_.isEnough(count)) return;
      ++count;
      fetch(object);
    });
  }

  void lookAhead() {
    std::size_t count = 0;
    std::uint64_t bytes = 0;
    Search search(context_.output, device_.info().name());
    ObjectVisitor visitor;
    visitor.onLooked(search.counter()).onObject([&](const ObjectInfo& object, bool) {
      if (!isFile(object) || !sieve_.passes(object)) return true;
      expect(object);
      if (isThere(object, true) || sieve_.isEnough(count)) return true;
      ++count;
      bytes += sizeOf(object);
      return true;
    });
    // The visit after it tells of these.
    visitor.onUnreadable([](std::uint32_t, const std::string&, const Error&) { return true; })
        .onUnmatched([](const std::string&) {});
    device_.visit(choice(), visitor);
    tellSum(count, bytes);
  }

  /// Whether somebody is to be told how much of the volume is to come: who watches, and who may not
  /// have room for all that it can hold.
  bool needsSum() const {
    const auto here = fileSystemSizeOf(target_.folder);
    const auto there = fileSystemSizeOf(device_.info().path());
    return context_.output.showsStatus() || (here && !(there && there->whole <= here->free));
  }

  /// Tells before anything is fetched how much is to come, and what has no room.
  void tellSum(std::size_t count, std::uint64_t bytes) {
    if (!batch_.goesOn()) return;
    progress_.expect(count);
    warnOfRoom(context_.output, target_.folder, "to be fetched", count, bytes);
  }

  /// Each object of the run, before the first isThere().
  void expect(const ObjectInfo& object) {
    if (options_.onlyNew) runOf(object).expect(object);
  }
  /// Whether it is only new and the folder has it. Unless this only `looksAhead`, the file is no
  /// other object's then.
  bool isThere(const ObjectInfo& object, bool looksAhead) {
    return options_.onlyNew && runOf(object).isThere(object, looksAhead);
  }
  bool passesOver(const ObjectInfo& object) {
    const bool isPassed = isThere(object, false);
    if (isPassed) batch_.skipped();
    return isPassed;
  }
  /// Of what is fetched of it.
  std::uint64_t sizeOf(const ObjectInfo& object) const {
    return options_.thumbnails ? object.thumbnailSize() : object.size();
  }

  /// The folder of an object's file below the target, with a slash before it; mostly empty.
  std::string folderOf(const ObjectInfo& object) const {
    std::string folder;
    std::string_view path = object.path();
    // A name may be anything; each part stays one name below the target.
    for (auto end = path.find('/'); options_.tree && end != path.npos; end = path.find('/')) {
      folder += "/" + safeFileName(path.substr(0, end)).value_or("_");
      path.remove_prefix(end + 1);
    }
    return folder;
  }

  DownloadRun& runOf(const ObjectInfo& object) {
    const std::string below = folderOf(object);
    const auto known = runs_.find(below);
    if (known != runs_.end()) return known->second;
    return runs_.emplace(below, DownloadRun(downloadOptions(below))).first->second;
  }

  /// Of a folder that lies below the target, or of that itself.
  DownloadOptions downloadOptions(const std::string& below) {
    DownloadOptions options;
    options.folder(target_.folder + below).thumbnail(options_.thumbnails);
    if (target_.name) options.name(*target_.name);
    if (options_.keepBoth) options.existing(Existing::kKeepBoth);
    // A picture that is new may bear the name of one that is there: cameras count from 1 again
    // after a reset.
    if (options_.onlyNew) options.existing(Existing::kKeepOthers);
    if (options_.overwrite) options.existing(Existing::kOverwrite);
    return options
        .begin([this](const ObjectInfo& object) { progress_.begin(object.name(), sizeOf(object)); })
        .progress(progress_.callback());
  }

  void fetch(const ObjectInfo& object) {
    PropertyDictionary json = identityOf(object, "source");
    if (options_.dryRun) return foretell(object, std::move(json));
    // Once full is full for all: the next object would only be cut, too.
    if (isFull_) {
      const Failure failure = {.object = objectInWords(object),
                               .status = status::kIOError,
                               .why = "there is no room left"};
      return batch_.left(std::move(json), failure, sizeOf(object));
    }
    try {
      if (options_.tree) makeFolder(target_.folder + folderOf(object));
      const auto file = device_.download(object, runOf(object));
      progress_.end();
      if (file.wasThere()) return batch_.skipped();
      json["path"] = validUTF8(file.path());
      json["size"] = file.size();
      if (file.resumed() > 0) json["resumed"] = file.resumed();
      batch_.succeeded(json, file.path(), file.size());
    } catch (const Error& error) {
      progress_.end();
      fail(object, std::move(json), error);
    } catch (const ToolError& error) {
      batch_.failed(std::move(json), error.failure());
    }
  }

  void foretell(const ObjectInfo& object, PropertyDictionary json) {
    const std::string path =
        target_.folder + folderOf(object) + "/" + safeFileName(object.name()).value_or("");
    std::error_code ignored;
    const bool isRefused = !options_.overwrite && !options_.keepBoth && !options_.onlyNew &&
                           !options_.thumbnails && std::filesystem::exists(path, ignored);
    if (isRefused)
      return batch_.failed(std::move(json),
                           Failure{.object = path, .status = status::kDuplicateFile});
    const std::uint64_t size = sizeOf(object);
    json["size"] = size;
    json["dryRun"] = true;
    batch_.succeeded(json, objectInWords(object) + ", " + sizeInWords(size), size);
  }

  void fail(const ObjectInfo& object, PropertyDictionary json, const Error& error) {
    isFull_ = isFull_ || error.kind() == ErrorKind::kDiskFull;
    std::string why = keptInWords(error, object.name());
    if (!why.empty()) {
      json["part"] = validUTF8(error.part());
      json["kept"] = error.kept();
    }
    // That a file is there is all that there is to say.
    if (!error.reason().empty() && error.kind() != ErrorKind::kExists)
      why = error.reason() + (why.empty() ? "" : "; ") + why;
    const bool hasNoRoom =
        error.kind() == ErrorKind::kDiskFull || error.kind() == ErrorKind::kTooLarge;
    if (!hasNoRoom) return batch_.failed(std::move(json), error, "", why);
    Failure failure = failureOf(error);
    failure.why = why;
    batch_.left(std::move(json), std::move(failure), sizeOf(object));
  }

  /// Somebody may still mean to go on with them, so that they are only named.
  void tellOldParts() const {
    constexpr std::time_t kOld = std::time_t{30} * 24 * 60 * 60;
    const auto names = PartFile::leftSince(target_.folder, std::time(nullptr) - kOld);
    if (names.empty()) return;
    context_.output.message("Cut downloads that are older than 30 days are in " + target_.folder +
                            ": " + joined(names) +
                            ". 'tarvoctl leftovers' removes what is not to be gone on with.");
  }

  ToolContext& context_;
  const FetchOptions& options_;
  ObjectSieve sieve_;
  LocalTarget target_;
  Progress progress_;
  std::map<std::string, DownloadRun> runs_;  ///< one a folder
  bool isFull_ = false;
  Device device_;
  bool isVolume_;
  Batch batch_;
};

int runGet(ToolContext& context, const FetchOptions& options) {
  return Fetching(context, options).run();
}

constexpr const char* kMoreOfGet =
    "An OBJECT with a slash is a whole path; patterns have *, ? and [...], and find\n"
    "no hidden names, of which a file gets \"_\" in place of the dot. A name means the\n"
    "first object that has it, with the case of its letters or else without. A file\n"
    "is whole or not there at all;\n"
    "large ones go on where a cut download stopped: what came is kept beside them in\n"
    "a hidden file, which is named and may be deleted. A file that is there is\n"
    "refused, unless --overwrite or --keep-both is given. --new passes over what the\n"
    "folder has already, by name, size and date, or else by its content. What has no\n"
    "room here is said first, and not begun. A folder that ends with a slash is made.";

constexpr const char* kMoreOfVolumeGet =
    "With their dates and permissions, but as no programs. Patterns find no hidden\n"
    "files; without a name --new is about the pictures and films, and says how many\n"
    "files it passed over. The rest is as for get.";

}  // namespace

void addGet(CommandGroup& group, Devices devices) {
  const bool onlyVolumes = devices == Devices::kVolumes;
  auto [command, options] =
      group.command("get", onlyVolumes ? "Copy files off it" : "Fetch objects as files",
                    onlyVolumes ? "tarvoctl volume get --new --output pictures/"
                                : "tarvoctl get 'TARV*.JPG' --output pictures/",
                    runGet);
  options.onlyVolumes = onlyVolumes;
  command
      .operand("OBJECT", options.objects,
               onlyVolumes ? "Names, paths, or patterns such as '*.JPG'"
                           : "Handles, names, or patterns such as '*.JPG'")
      .flag("--all", options.all,
            onlyVolumes ? "Every file, pictures or not" : "Everything but folders")
      .flag("--new", options.onlyNew,
            "Only what is not there yet; names that are taken get a number")
      .option("--output", options.output, "PATH", "Folder, or the name of the one file")
      .flag("--tree", options.tree, "Below the folders that it has on the device")
      .flag("--overwrite", options.overwrite, "Replace files that are there")
      .flag("--keep-both", options.keepBoth, "Number new files whose name is taken");
  if (!onlyVolumes)
    command.flag("--thumbnail", options.thumbnails, "The small picture in place of the object");
  addFilterOptions(command, options.filter)
      .flag("--dry-run", options.dryRun, "Say what would be fetched, and fetch nothing")
      .more(onlyVolumes ? kMoreOfVolumeGet : kMoreOfGet);
}

void addGetCommand(CommandGroup& root) {
  addGet(root, Devices::kAll);
}

}  // namespace tarvo::tools
