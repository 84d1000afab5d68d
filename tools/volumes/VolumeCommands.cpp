// volume ls, get and rm: files on a mounted card, or on a camera in disk mode.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "library/Records.h"
#include "platform/files/FilePlace.h"
#include "platform/files/FolderTree.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/FetchRun.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct VolumeListOptions {
  bool isLong = false;
  bool all = false;  ///< every file and folder, not the pictures alone
};

struct VolumeRemoveOptions {
  std::vector<std::string> objects{};  ///< names, paths and patterns; not empty
  bool yes = false;                    ///< does not ask
};

constexpr const char* kLook = "volume ls --all";

PropertyDictionary namesOf(const ObjectInfo& file) {
  return {{"name", validUTF8(file.name())}, {"path", validUTF8(file.path())}};
}

/// One run of volume ls.
class VolumeList {
 public:
  VolumeList(ToolContext& context, const VolumeListOptions& options)
      : options_(options),
        context_(context),
        volume_(openVolume(context)),
        listing_(context.output, columnsFor(options), Listing::kStreamed) {}

  int run() {
    context_.output.gather();
    ObjectVisitor visitor([this](const ObjectInfo& file) {
      show(file);
      return true;
    });
    visitor.onUnreadable([this](std::uint32_t, const std::string& path, const Error& error) {
      exitCode_ = kFailed;
      listing_.addFailure({{"path", validUTF8(path)}}, failureOf(context_, error));
      return true;
    });
    volume_.visit(ObjectChoice()
                      .others(options_.all ? ObjectChoice::Others::kEverything
                                           : ObjectChoice::Others::kPictures)
                      .namesOnly(!options_.isLong),
                  visitor);
    listing_.finish();
    return exitCode_;
  }

 private:
  static std::vector<Column> columnsFor(const VolumeListOptions& options) {
    if (!options.isLong) return {{"NAME"}};
    return {{"FORMAT", 15}, {"SIZE", 10, true}, {"DATE", 19}, {"NAME"}};
  }

  void show(const ObjectInfo& file) {
    PropertyDictionary json = namesOf(file);
    const std::string name = file.path() + (file.isFolder() ? "/" : "");
    if (!options_.isLong) {
      listing_.add(json, {name});
      return;
    }
    json.update(jsonFromObjectInfo(library::recordOf(file)));
    std::string size;
    if (!file.isFolder()) {
      json["size"] = file.size();
      size = sizeInWords(file.size());
    }
    const std::string format = file.isSpecial() ? "not a file" : formatInWords(file.format());
    listing_.add(json, {format, size, dateInWords(file.modificationDate()), name});
  }

  const VolumeListOptions& options_;
  ToolContext& context_;
  Device volume_;
  Listing listing_;
  int exitCode_ = kDone;
};

void refuseFolder(Batch& batch, const ObjectInfo& folder) {
  batch.failed(namesOf(folder),
               Failure{.object = folder.path(),
                       .status = status::kNotAFile,
                       .why = "it is a folder",
                       .advice = "Use a pattern such as '" + folder.path() + "/*'."});
}

/// One run of volume get.
class VolumeFetching {
 public:
  VolumeFetching(ToolContext& context, const FetchOptions& options)
      : context_(context),
        options_(options),
        // Options that make no sense are a mistake whether there is a volume or not.
        run_(context, options),
        volume_(openVolume(context)),
        batch_(context, "files fetched") {
    // Copies would be found and copied again.
    if (FolderTree(volume_.info().path()).holds(run_.folder()))
      refuseUsage(context.operation, "'" + run_.folder() + "' lies on the volume itself");
    choice_.names(options.objects)
        .others(options.objects.empty() ? ObjectChoice::Others::kPictures
                                        : ObjectChoice::Others::kNone);
    if (options.all) choice_.others(ObjectChoice::Others::kEverything);
  }

  int run() {
    lookAhead();
    const auto passedOver =
        batch_.visit(volume_, choice_, kLook,
                     [this](const ObjectInfo& file, bool isNamed) { fetchOne(file, isNamed); });
    if (passedOver > 0)
      context_.output.message(counted(passedOver, "files passed over") +
                              ": no pictures or films, or hidden. --all takes every file.");
    return batch_.finish();
  }

 private:
  static bool isFile(const ObjectInfo& entry) { return !entry.isFolder() && !entry.isSpecial(); }

  /// What is only new must be known before the first one; else there is only room to be looked at,
  /// and only where not all that the volume can hold has some.
  void lookAhead() {
    const auto there = fileSystemSizeOf(volume_.info().path());
    const auto here = fileSystemSizeOf(run_.folder());
    const bool hasRoom = !here || (there && there->whole <= here->free);
    if (hasRoom && !options_.onlyNew) return;
    std::size_t count = 0;
    std::uint64_t bytes = 0;
    ObjectVisitor visitor([&](const ObjectInfo& file) {
      if (!isFile(file)) return true;
      run_.expect(file);
      if (run_.passesOver(file, true)) return true;
      ++count;
      bytes += file.size();
      return true;
    });
    // The second visit tells of these.
    visitor.onUnreadable([](std::uint32_t, const std::string&, const Error&) { return true; })
        .onUnmatched([](const std::string&) {});
    volume_.visit(choice_, visitor);
    run_.tellSum(count, bytes);
  }

  void fetchOne(const ObjectInfo& file, bool isNamed) {
    if (isFile(file)) {
      if (run_.passesOver(file)) return batch_.skipped();
      run_.fetch(volume_, batch_, file,
                 {{"name", validUTF8(file.name())}, {"source", validUTF8(file.path())}});
      return;
    }
    // Among everything there are folders, and nobody has asked for them.
    if (!isNamed) return;
    if (file.isFolder()) return refuseFolder(batch_, file);
    batch_.failed(namesOf(file), Failure{.object = file.path(),
                                         .status = status::kNotAFile,
                                         .why = "it is a link or a device"});
  }

  ToolContext& context_;
  const FetchOptions& options_;
  FetchRun run_;
  Device volume_;
  Batch batch_;
  ObjectChoice choice_;
};

/// Asks first: everything is looked up, so that the question can say what would go. Each file has
/// its own result; folders stay.
int runVolumeRemove(ToolContext& context, const VolumeRemoveOptions& options) {
  const Consent consent(context, context.operation, options.yes, "delete files");
  auto volume = openVolume(context);
  Batch batch(context, "files deleted");
  std::vector<ObjectInfo> found;
  std::uint64_t bytes = 0;
  batch.visit(volume, ObjectChoice().names(options.objects), kLook,
              [&](const ObjectInfo& file, bool) {
                if (file.isFolder()) return refuseFolder(batch, file);
                found.push_back(file);
                bytes += file.size();
              });
  const std::string what =
      found.size() == 1 ? found.front().path() : counted(found.size(), "files");
  if (batch.goesOn() && !found.empty())
    consent.require(
        "Delete " + what + ", " + sizeInWords(bytes) + ", from " + volume.info().name() + "?",
        "nothing was deleted");
  for (const auto& file : found) {
    if (!batch.goesOn()) break;
    const PropertyDictionary json = {{"path", validUTF8(file.path())}};
    batch.attempt(json, file.path(), [&] {
      volume.remove(file);
      batch.succeeded(json, file.path());
    });
  }
  return batch.finish();
}

}  // namespace

void addVolumeCommands(CommandGroup& root) {
  auto group = root.group("volume", "Files on a mounted card, or a camera in disk mode",
                          "tarvoctl volume ls");
  const auto list = std::make_shared<VolumeListOptions>();
  group
      .command("ls", "Every picture by its path, as it is found", "tarvoctl volume ls --long",
               [list](ToolContext& context) { return VolumeList(context, *list).run(); })
      .flag("--long", list->isLong, "With format, size and date")
      .flag("--all", list->all, "Every file and folder")
      .more(
          "Pictures and films, in no order. The volume is the only one that is mounted, or\n"
          "the one that --device names by serial number, location or its own name. Links on\n"
          "it are not followed.");
  const auto get = std::make_shared<FetchOptions>();
  auto command =
      group.command("get", "Copy files off it", "tarvoctl volume get --new --output pictures/",
                    [get](ToolContext& context) { return VolumeFetching(context, *get).run(); });
  addFetchOptions(command, *get, "Names, paths, or patterns such as '*.JPG'",
                  "Every file, pictures or not");
  command.more(
      "With their dates and permissions, but as no programs. Patterns find no hidden\n"
      "files; without a name --new is about the pictures and films, and says how many\n"
      "files it passed over. The rest is as for get.");
  const auto remove = std::make_shared<VolumeRemoveOptions>();
  group
      .command("rm", "Delete files on it", "tarvoctl volume rm TARV0001.JPG --yes",
               [remove](ToolContext& context) { return runVolumeRemove(context, *remove); })
      .operand("OBJECT", remove->objects, "Names, paths, or patterns such as '*.JPG'")
      .required()
      .flag("--yes", remove->yes, "Do not ask")
      .more("Folders stay.");
}

}  // namespace tarvo::tools
