// volume ls, get and rm: files on a mounted card, or on a camera in disk mode.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/VolumeFiles.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"
#include "tools/access/Batch.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/FetchRun.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"
#include "tools/volumes/OpenedVolume.h"

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

using Kind = FolderWalk::Kind;
using Entry = FolderWalk::Entry;

PropertyDictionary namesOf(const Entry& entry) {
  return {{"name", validUTF8(entry.name())}, {"path", validUTF8(entry.path)}};
}

/// As a PTP device would tell of the file, so that both lists have the same keys.
XTExtendedObjectInfo infoOf(const Entry& entry, const struct stat& attributes) {
  constexpr off_t kMost = 0xFFFFFFFF;
  XTExtendedObjectInfo info;
  const bool isFolder = entry.kind == Kind::kFolder;
  info.setObjFmtCode(isFolder ? ptp::kAssociationFormat
                              : ptpFormatOfExtension(lowerCaseExtension(entry.name())));
  info.setCompressedSize(
      isFolder ? 0 : static_cast<std::uint32_t>(std::min(attributes.st_size, kMost)));
  info.setFileName(validUTF8(entry.name()));
  info.setModDataStr(ptpDateOfTime(attributes.st_mtime).value_or(""));
  return info;
}

/// One run of volume ls.
class VolumeList {
 public:
  VolumeList(ToolContext& context, const VolumeListOptions& options)
      : context_(context),
        options_(options),
        volume_(context, kOperation),
        listing_(context.output, columnsFor(options), Listing::kStreamed) {}

  int run() {
    context_.output.gather();
    const auto which = options_.all ? VolumeFiles::kEverything : VolumeFiles::kPictures;
    volume_.visit(
        {}, which,
        {.onEntry = [this](const auto& walk, const Entry& entry, bool) { show(walk, entry); },
         .onUnreadable =
             [this](const std::string& path, const Failure& failure) {
               exitCode_ = kFailed;
               listing_.addFailure({{"path", validUTF8(path)}}, failure);
             },
         .onUnmatched = [](const std::string&) {},
         .goesOn = [this] { return !context_.interrupt.isSet(); }});
    endIfInterrupted(context_, kOperation);
    listing_.finish();
    return exitCode_;
  }

 private:
  static constexpr const char* kOperation = "volume ls";

  static std::vector<Column> columnsFor(const VolumeListOptions& options) {
    if (!options.isLong) return {{"NAME"}};
    return {{"FORMAT", 15}, {"SIZE", 10, true}, {"DATE", 19}, {"NAME"}};
  }

  void show(const FolderWalk& walk, const Entry& entry) {
    PropertyDictionary json = namesOf(entry);
    const std::string name = entry.kind == Kind::kFolder ? entry.path + "/" : entry.path;
    if (!options_.isLong) {
      listing_.add(json, {name});
      return;
    }
    const auto attributes = walk.attributes();
    if (!attributes) return;  // it has gone in this moment
    const auto info = infoOf(entry, *attributes);
    json.update(jsonFromObjectInfo(info));
    std::string size;
    if (entry.kind != Kind::kFolder) {
      json["size"] = attributes->st_size;
      size = sizeInWords(static_cast<std::uint64_t>(attributes->st_size));
    }
    const std::string format =
        entry.kind == Kind::kOther ? "not a file" : formatInWords(info.objFmtCode());
    listing_.add(json, {format, size, dateInWords(info.modDataStr()), name});
  }

  ToolContext& context_;
  const VolumeListOptions& options_;
  OpenedVolume volume_;
  Listing listing_;
  int exitCode_ = kDone;
};

/// What get and rm have in common: files that were named, each with its result.
class VolumeBatch {
 public:
  VolumeBatch(ToolContext& context, const char* operation, const char* done)
      : context_(context), volume_(context, operation), batch_(context, operation, done) {}

 protected:
  /// As OpenedVolume::visit().
  std::uint64_t visit(const std::vector<std::string>& objects, VolumeFiles others,
                      decltype(VolumeVisitor::onEntry) onEntry) {
    return volume_.visit(objects, others,
                         {.onEntry = std::move(onEntry),
                          .onUnreadable =
                              [this](const std::string& path, const Failure& failure) {
                                batch_.failed({{"path", validUTF8(path)}}, failure);
                              },
                          .onUnmatched =
                              [this](const std::string& operand) {
                                auto failure =
                                    volume_.failure(operand, status::kFileNotFound,
                                                    "no file on the volume has that name");
                                failure.advice = "'tarvoctl volume ls --all' shows the files.";
                                batch_.failed({{"name", validUTF8(operand)}}, failure);
                              },
                          .goesOn = [this] { return batch_.goesOn(); }});
  }

  void fail(PropertyDictionary json, const std::string& object, Status status, std::string why) {
    // What the user has ended is said once, for the command.
    if (!context_.interrupt.isSet())
      batch_.failed(std::move(json), volume_.failure(object, status, std::move(why)));
  }

  void refuseFolder(const Entry& entry) {
    auto failure = volume_.failure(entry.path, status::kNotAFile, "it is a folder");
    failure.advice = "Use a pattern such as '" + entry.path + "/*'.";
    batch_.failed(namesOf(entry), failure);
  }

  ToolContext& context_;
  OpenedVolume volume_;
  Batch batch_;
};

/// One run of volume get.
class VolumeFetching : VolumeBatch {
 public:
  static constexpr const char* kOperation = "volume get";

  VolumeFetching(ToolContext& context, const FetchOptions& options, FetchRun& run)
      : VolumeBatch(context, kOperation, "files fetched"), options_(options), run_(run) {
    // Copies would be found and copied again.
    if (volume_.tree().holds(run_.folder()))
      refuseUsage(kOperation, "'" + run_.folder() + "' lies on the volume itself");
  }

  int run() {
    const bool hasNames = !options_.objects.empty();
    VolumeFiles others = hasNames ? VolumeFiles::kNone : VolumeFiles::kPictures;
    if (options_.all) others = VolumeFiles::kEverything;
    lookAhead(others);
    const auto passedOver = visit(options_.objects, others,
                                  [this](const FolderWalk& walk, const Entry& entry,
                                         bool wasNamed) { fetchOne(walk, entry, wasNamed); });
    if (passedOver > 0)
      context_.output.message(counted(passedOver, "files passed over") +
                              ": no pictures or films, or hidden. --all takes every file.");
    return batch_.finish();
  }

 private:
  static std::uint64_t sizeOf(const struct stat& attributes) {
    return static_cast<std::uint64_t>(attributes.st_size);
  }

  bool isThere(const Entry& entry, const struct stat& attributes, bool looksAhead = false) {
    return run_.isThere(std::string(entry.name()), sizeOf(attributes), attributes.st_mtim.tv_sec,
                        looksAhead);
  }

  /// What is only new must be known before the first one; else there is only room to be looked at,
  /// and only where not all that the volume can hold has some.
  void lookAhead(VolumeFiles others) {
    const auto there = fileSystemSizeOf(volume_.tree().path());
    const auto here = fileSystemSizeOf(run_.folder());
    const bool hasRoom = !here || (there && there->whole <= here->free);
    if (hasRoom && !options_.onlyNew) return;
    std::size_t count = 0;
    std::uint64_t bytes = 0;
    volume_.visit(options_.objects, others,
                  {.onEntry =
                       [&](const FolderWalk& walk, const Entry& entry, bool) {
                         const auto attributes = walk.attributes();
                         if (entry.kind != Kind::kFile || !attributes) return;
                         run_.meet(std::string(entry.name()), sizeOf(*attributes));
                         if (isThere(entry, *attributes, true)) return;
                         ++count;
                         bytes += sizeOf(*attributes);
                       },
                   .onUnreadable = [](const std::string&, const Failure&) {},
                   .onUnmatched = [](const std::string&) {},
                   .goesOn = [this] { return batch_.goesOn(); }});
    if (batch_.goesOn()) run_.expect(count, bytes);
  }

  void fetchOne(const FolderWalk& walk, const Entry& entry, bool wasNamed) {
    if (entry.kind != Kind::kFile) {
      // Among everything there are folders, and nobody has asked for them.
      if (!wasNamed) return;
      if (entry.kind == Kind::kFolder) {
        refuseFolder(entry);
      } else {
        fail(namesOf(entry), entry.path, status::kNotAFile, "it is a link or a device");
      }
      return;
    }
    const auto attributes = walk.attributes();
    if (attributes && isThere(entry, *attributes)) {
      batch_.skipped();
      return;
    }
    int error = 0;
    const FileDescriptor file = walk.openFile(error);
    if (!file.isOpen() || !attributes) {
      fail(namesOf(entry), entry.path, status::kIOError,
           "it cannot be opened: " + errorText(error));
    } else if (const auto obstacle = run_.obstacle(entry.path)) {
      batch_.left(namesOf(entry), *obstacle, sizeOf(*attributes));
    } else {
      fetch(file.get(), entry, sizeOf(*attributes));
    }
  }

  void fetch(int file, const Entry& entry, std::uint64_t size) {
    const std::string name(entry.name());
    const auto result = copy_.toFile(file, name, run_.begin(name, size));
    run_.end(result);
    if (result.room != Room::kEnough) {
      batch_.left(namesOf(entry), volume_.failure(entry.path, result.status, result.why), size);
    } else if (result.status != status::kOK) {
      // That a file is there is all that there is to say.
      const bool wasThere = result.status == status::kDuplicateFile;
      fail(namesOf(entry), entry.path, result.status, wasThere ? "" : result.why);
    } else if (result.wasThere) {
      batch_.skipped();
    } else {
      const PropertyDictionary json = {{"name", validUTF8(name)},
                                       {"source", validUTF8(entry.path)},
                                       {"path", validUTF8(result.path)},
                                       {"size", result.size}};
      batch_.succeeded(json, result.path, result.size);
    }
  }

  const FetchOptions& options_;
  FetchRun& run_;
  VolumeCopy copy_;
};

/// One run of volume rm: everything is looked up first, so that the question can say what would go.
class VolumeRemoving : VolumeBatch {
 public:
  static constexpr const char* kOperation = "volume rm";

  explicit VolumeRemoving(ToolContext& context)
      : VolumeBatch(context, kOperation, "files deleted") {}

  int run(const std::vector<std::string>& objects, const Consent& consent) {
    visit(objects, VolumeFiles::kNone, [this](const FolderWalk& walk, const Entry& entry, bool) {
      if (entry.kind == Kind::kFolder) {
        refuseFolder(entry);
        return;
      }
      found_.push_back(entry.path);
      const auto attributes = walk.attributes();
      if (attributes) bytes_ += static_cast<std::uint64_t>(attributes->st_size);
    });
    const std::string what = found_.size() == 1 ? found_.front() : counted(found_.size(), "files");
    if (batch_.goesOn() && !found_.empty())
      consent.require(
          "Delete " + what + ", " + sizeInWords(bytes_) + ", from " + volume_.summary().name + "?",
          "nothing was deleted");
    for (const auto& path : found_) {
      if (!batch_.goesOn()) break;
      remove(path);
    }
    return batch_.finish();
  }

 private:
  void remove(const std::string& path) {
    const int error = volume_.tree().removeFile(path);
    const PropertyDictionary json = {{"path", validUTF8(path)}};
    if (error == 0) {
      batch_.succeeded(json, path);
      return;
    }
    const Status status = error == ENOENT ? status::kFileNotFound : status::kWriteNotPermitted;
    fail(json, path, status, errorText(error));
  }

  std::vector<std::string> found_;
  std::uint64_t bytes_ = 0;
};

/// `objects` are names, paths and patterns. Each file is whole or not there at all, with its dates
/// and permissions, but as no program.
int runVolumeGet(ToolContext& context, const FetchOptions& options) {
  // Options that make no sense are a mistake whether there is a volume or not.
  FetchRun run(context, VolumeFetching::kOperation, options);
  return VolumeFetching(context, options, run).run();
}

/// Asks first. Each file has its own result; folders stay.
int runVolumeRemove(ToolContext& context, const VolumeRemoveOptions& options) {
  const Consent consent(context, VolumeRemoving::kOperation, options.yes, "delete files");
  return VolumeRemoving(context).run(options.objects, consent);
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
                    [get](ToolContext& context) { return runVolumeGet(context, *get); });
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
