// get: objects of a device as files.
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "platform/files/PartFile.h"
#include "tools/access/Batch.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/FetchRun.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

/// `objects` are handles, names and patterns.
struct GetOptions : FetchOptions {
  bool thumbnails = false;
};

namespace fs = std::filesystem;

constexpr const char* kFetching = "get";

/// "TARV0001.JPG" gives "TARV0001.thumb.jpg".
std::string thumbnailName(const std::string& name) {
  return fs::path(name).stem().string() + ".thumb.jpg";
}

/// What came of an object, where it is kept; empty where nothing is.
std::string keptInWords(const FetchResult& result, const std::string& name) {
  if (result.part.empty()) return {};
  return "what came of " + name + ", " + sizeInWords(result.kept) + ", is kept in '" + result.part +
         "'; the next get goes on there, unless that file is deleted";
}

/// One run: each object is a file of its own, whole or not at all. All are looked up first, so that
/// what there is no room for is said beforehand.
class Fetching {
 public:
  Fetching(ToolContext& context, const GetOptions& options)
      : context_(context),
        options_(options),
        run_(context, kFetching, options),
        device_(context, kFetching),
        batch_(context, kFetching, options.thumbnails ? "thumbnails fetched" : "files fetched"),
        fetch_(device_.transactions()) {}

  int run() {
    lookUp();
    // Before the sum, so that the room is reckoned for what is really fetched.
    passOverWhatIsThere();
    std::uint64_t bytes = 0;
    for (const auto& object : found_)
      bytes += object.size;
    if (batch_.goesOn()) run_.expect(found_.size(), bytes);
    for (const auto& object : found_) {
      if (!batch_.goesOn()) break;
      fetchOne(object);
    }
    // Who has just ended the command need not be told of more.
    if (!context_.interrupt.isSet()) tellOldParts();
    return batch_.finish();
  }

 private:
  struct Found {
    std::uint32_t handle = 0;
    std::string name;
    std::string path;
    std::uint64_t size = 0;  ///< of what is fetched
    std::optional<std::time_t> date;
  };

  void lookUp() {
    // Without names --new is about everything.
    const bool all = options_.all || (options_.onlyNew && options_.objects.empty());
    batch_.visit(device_, options_.objects, all,
                 [this](std::uint32_t handle, const XTExtendedObjectInfo& info,
                        const std::string& path) { take(handle, info, path); });
  }

  void take(std::uint32_t handle, const XTExtendedObjectInfo& info, const std::string& path) {
    const Found found = {
        .handle = handle,
        .name = info.fileName(),
        .path = path,
        .size = options_.thumbnails ? info.thumbCompressedSize() : info.compressedSize(),
        .date = dateOfObject(info)};
    if (isFolder(info)) {
      batch_.failed(jsonOf(found), {.operation = kFetching,
                                    .object = inWords(found),
                                    .status = status::kNotAFile,
                                    .why = "it is a folder",
                                    .advice = "Use a pattern such as '" + path + "/*'."});
    } else {
      found_.push_back(found);
    }
  }

  void passOverWhatIsThere() {
    for (const auto& object : found_)
      run_.meet(fileName(object.name), object.size);
    std::erase_if(found_, [&](const Found& object) {
      const bool isThere = run_.isThere(fileName(object.name), object.size, object.date);
      if (isThere) batch_.skipped();
      return isThere;
    });
  }

  /// Empty where there is none.
  std::string fileName(const std::string& name) const {
    if (!options_.thumbnails) return name;
    const auto safe = safeFileName(name);
    return safe ? thumbnailName(*safe) : "";
  }

  static PropertyDictionary jsonOf(const Found& object) {
    return {{"handle", object.handle}, {"name", object.name}};
  }

  static std::string inWords(const Found& object) {
    return object.path + " (" + handleText(object.handle) + ")";
  }

  void fetchOne(const Found& object) {
    if (const auto obstacle = run_.obstacle(inWords(object))) {
      batch_.left(jsonOf(object), *obstacle, object.size);
      return;
    }
    batch_.attempt(device_, jsonOf(object), inWords(object), [&] {
      auto request = run_.begin(object.name, object.size);
      // Names the parts of a cut download: only this device's objects are gone on with.
      request.device = device_.device().serialNumber();
      auto result = options_.thumbnails ? fetchThumbnail(object, std::move(request))
                                        : fetch_.toFile(object.handle, request);
      run_.end(result);
      tell(object, result);
    });
  }

  void tell(const Found& object, const FetchResult& result) {
    PropertyDictionary json = jsonOf(object);
    if (result.status != status::kOK) {
      tellFailure(object, result, json);
    } else if (result.wasThere) {
      batch_.skipped();
    } else {
      json["path"] = result.path;
      json["size"] = result.size;
      if (result.resumed > 0) json["resumed"] = result.resumed;
      batch_.succeeded(json, result.path, result.size);
    }
  }

  void tellFailure(const Found& object, const FetchResult& result, PropertyDictionary& json) {
    std::string why = keptInWords(result, object.name);
    if (!why.empty()) {
      json["part"] = result.part;
      json["kept"] = result.kept;
    }
    // That a file is there is all that there is to say.
    if (!result.why.empty() && result.status != status::kDuplicateFile)
      why = result.why + (why.empty() ? "" : "; ") + why;
    if (result.room != Room::kEnough) {
      batch_.left(json, device_.failure(inWords(object), result.status, why), object.size);
    } else {
      batch_.failed(device_, json, inWords(object), result.status, why);
    }
  }

  FetchResult fetchThumbnail(const Found& object, FetchRequest request) {
    const auto name = safeFileName(fileName(object.name));
    if (!name) return {.status = status::kFileNotFound, .why = "its name is no file name"};
    if (!request.name) request.name = name;
    // Where it has none the device is not even asked.
    if (object.size == 0) return {.status = status::kPTPNoThumbnailPresent};
    // A thumbnail is some kilobytes, so it may lie in memory.
    const auto image = device_.device().downloadThumb(ObjectReference(object.handle));
    if (!image) return {.status = device_.transactions().lastOutcome()};
    auto result = writeWhole(request, *image, object.date);
    result.size = image->size();
    return result;
  }

  /// Somebody may still mean to go on with them, so that they are only named.
  void tellOldParts() const {
    constexpr std::time_t kOld = std::time_t{30} * 24 * 60 * 60;
    const auto names = PartFile::leftSince(run_.folder(), std::time(nullptr) - kOld);
    if (names.empty()) return;
    context_.output.message("Cut downloads that are older than 30 days are in " + run_.folder() +
                            ": " + joined(names) +
                            ". 'tarvoctl leftovers' removes what is not to be gone on with.");
  }

  ToolContext& context_;
  const GetOptions& options_;
  FetchRun run_;
  OpenedDevice device_;
  Batch batch_;
  ObjectFetch fetch_;
  std::vector<Found> found_;
};

}  // namespace

void addGetCommand(CommandGroup& root) {
  const auto options = std::make_shared<GetOptions>();
  auto command =
      root.command("get", "Fetch objects as files", "tarvoctl get 'TARV*.JPG' --output pictures/",
                   [options](ToolContext& context) { return Fetching(context, *options).run(); });
  addFetchOptions(command, *options, "Handles, names, or patterns such as '*.JPG'",
                  "Everything but folders");
  command.flag("--thumbnail", options->thumbnails, "The small picture in place of the object")
      .more(
          "An OBJECT with a slash is a whole path; patterns have *, ? and [...], and find\n"
          "no hidden names, of which a file gets \"_\" in place of the dot. A name means the\n"
          "first object that has it. A file is whole or not there at all;\n"
          "large ones go on where a cut download stopped: what came is kept beside them in\n"
          "a hidden file, which is named and may be deleted. A file that is there is\n"
          "refused, unless --overwrite or --keep-both is given. --new passes over what the\n"
          "folder has already, by name, size and date, or else by its content. What has no\n"
          "room here is said first, and not begun. A folder that ends with a slash is made.");
}

}  // namespace tarvo::tools
