#include "tools/GetCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "NativeServices/PictureDevice/ObjectFetch.h"
#include "NativeServices/PictureDevice/PartFile.h"
#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "tools/Batch.h"
#include "tools/LocalFiles.h"
#include "tools/ObjectPaths.h"
#include "tools/OpenedDevice.h"
#include "tools/Progress.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOperation = "get";

ExistingFile existingFile(const GetOptions& options) {
  if (options.overwrite) return ExistingFile::kOverwrite;
  return options.keepBoth ? ExistingFile::kKeepBoth : ExistingFile::kRefuse;
}

/// "TARV0001.JPG" gives "TARV0001.thumb.jpg".
std::string thumbnailName(const std::string& name) {
  return fs::path(name).stem().string() + ".thumb.jpg";
}

void checkUsage(const GetOptions& options) {
  if (options.objects.empty() && !options.all && !options.onlyNew)
    refuseUsage(kOperation, "say what to fetch: handles, names, patterns, --all or --new");
  if (options.overwrite && options.keepBoth)
    refuseUsage(kOperation, "--overwrite and --keep-both exclude each other");
}

/// What came of an object, where it is kept; empty where nothing is.
std::string keptInWords(const FetchResult& result, const std::string& name) {
  if (result.part.empty()) return {};
  return "what came of " + name + ", " + sizeInWords(result.kept) + ", is kept in '" + result.part +
         "'; the next get goes on there, unless that file is deleted";
}

/// One run of the command.
class Fetching {
 public:
  Fetching(ToolContext& context, const GetOptions& options)
      : context_(context),
        options_(options),
        target_(resolvedTarget(kOperation, options.output, isOneObject(options))),
        device_(context, kOperation),
        progress_(context.output, context.interrupt,
                  isOneObject(options) ? 1 : options.objects.size()),
        batch_(context, kOperation, options.thumbnails ? "thumbnails fetched" : "files fetched"),
        fetch_(device_.transactions()) {}

  int run() {
    // Without names --new is about everything.
    const bool all = options_.all || (options_.onlyNew && options_.objects.empty());
    batch_.visit(device_, options_.objects, all,
                 [this](std::uint32_t handle, const XTExtendedObjectInfo& info,
                        const std::string& path) { fetchOne(handle, info, path); });
    if (!context_.interrupt.isSet()) tellOldParts();
    return batch_.finish();
  }

 private:
  static bool isOneObject(const GetOptions& options) {
    return options.objects.size() == 1 && !options.all &&
           options.objects.front().find_first_of("*?[") == std::string::npos;
  }

  void fetchOne(std::uint32_t handle, const XTExtendedObjectInfo& info, const std::string& path) {
    const PropertyDictionary json = {{"handle", handle}, {"name", info.fileName()}};
    const std::string object = path + " (" + handleText(handle) + ")";
    if (isFolder(info)) {
      batch_.failed(json, {.operation = kOperation,
                           .object = object,
                           .status = status::kNotAFile,
                           .why = "it is a folder",
                           .advice = "Use a pattern such as '" + path + "/*'."});
      return;
    }
    if (options_.onlyNew && isThere(info)) {
      batch_.skipped();
      return;
    }
    batch_.attempt(device_, json, object, [&] {
      if (options_.thumbnails) {
        fetchThumbnail(handle, info, json, object);
      } else {
        fetchWhole(handle, info, json, object);
      }
    });
  }

  /// Somebody may still mean to go on with them, so that they are only named.
  void tellOldParts() const {
    constexpr std::time_t kOld = std::time_t{30} * 24 * 60 * 60;
    const auto names = PartFile::leftSince(target_.folder, std::time(nullptr) - kOld);
    if (names.empty()) return;
    context_.output.message("Cut downloads that are older than 30 days are in " + target_.folder +
                            ": " + joined(names) +
                            ". Delete those that are not to be gone on with.");
  }

  bool isThere(const XTExtendedObjectInfo& info) const {
    const auto name = safeFileName(info.fileName());
    if (!name) return false;
    if (options_.thumbnails) {
      std::error_code error;
      return fs::exists(fs::path(target_.folder) / thumbnailName(*name), error);
    }
    return hasFileOfSize(target_.folder, target_.name.value_or(*name), info.compressedSize());
  }

  void fetchWhole(std::uint32_t handle, const XTExtendedObjectInfo& info, PropertyDictionary json,
                  const std::string& object) {
    progress_.begin(info.fileName(), info.compressedSize());
    const auto result = fetch_.toFile(handle, {.folder = target_.folder,
                                               .name = target_.name,
                                               .existing = existingFile(options_),
                                               .progress = progress_.callback(),
                                               .device = device_.device().serialNumber()});
    progress_.end();
    if (result.status != status::kOK) {
      std::string why = keptInWords(result, info.fileName());
      if (!why.empty()) {
        json["part"] = result.part;
        json["kept"] = result.kept;
      }
      // That a file is there is all that there is to say.
      if (!result.why.empty() && result.status != status::kDuplicateFile)
        why = result.why + (why.empty() ? "" : "; ") + why;
      batch_.failed(device_, std::move(json), object, result.status, std::move(why));
      return;
    }
    json["path"] = result.path;
    json["size"] = result.size;
    if (result.resumed > 0) json["resumed"] = result.resumed;
    batch_.succeeded(json, result.path, result.size);
  }

  void fetchThumbnail(std::uint32_t handle, const XTExtendedObjectInfo& info,
                      PropertyDictionary json, const std::string& object) {
    const auto name = safeFileName(info.fileName());
    if (!name) {
      batch_.failed(device_, std::move(json), object, status::kFileNotFound,
                    "its name is no file name");
      return;
    }
    const auto image = device_.device().downloadThumb(ObjectReference(handle));
    if (!image) {
      batch_.failed(device_, std::move(json), object, thumbnailStatus(info));
      return;
    }
    const auto made = writeWhole(target_.folder, target_.name.value_or(thumbnailName(*name)),
                                 *image, existingFile(options_));
    if (made.status != status::kOK) {
      batch_.failed(
          std::move(json),
          {.operation = kOperation, .object = object, .status = made.status, .why = made.why});
      return;
    }
    json["path"] = made.path;
    json["size"] = image->size();
    batch_.succeeded(json, made.path, image->size());
  }

  /// Why there is no thumbnail: what the device says, or that it was not even asked.
  Status thumbnailStatus(const XTExtendedObjectInfo& info) const {
    return info.thumbCompressedSize() == 0 ? status::kPTPNoThumbnailPresent
                                           : device_.transactions().lastOutcome();
  }

  ToolContext& context_;
  const GetOptions& options_;
  LocalTarget target_;
  OpenedDevice device_;
  Progress progress_;
  Batch batch_;
  ObjectFetch fetch_;
};

}  // namespace

int runGet(ToolContext& context, const GetOptions& options) {
  checkUsage(options);
  return Fetching(context, options).run();
}

}  // namespace tarvo::tools
