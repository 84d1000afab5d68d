#include "tools/objects/FetchRun.h"

#include <utility>

#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FilePlace.h"
#include "tools/access/Devices.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

bool isOneObject(const FetchOptions& options) {
  return options.objects.size() == 1 && !options.all &&
         options.objects.front().find_first_of("*?[") == std::string::npos;
}

const FetchOptions& checked(const std::string& operation, const FetchOptions& options) {
  if (options.objects.empty() && !options.all && !options.onlyNew)
    refuseUsage(operation, "say what to fetch: names, patterns, --all or --new");
  if (options.overwrite && options.keepBoth)
    refuseUsage(operation, "--overwrite and --keep-both exclude each other");
  return options;
}

/// What came of an object, where it is kept; empty where nothing is.
std::string keptInWords(const Error& error, const std::string& name) {
  if (error.part().empty()) return {};
  return "what came of " + name + ", " + sizeInWords(error.kept()) + ", is kept in '" +
         error.part() + "'; the next get goes on there, unless that file is deleted";
}

}  // namespace

void addFetchOptions(CommandOptions& command, FetchOptions& options, const std::string& objects,
                     const std::string& all) {
  command.operand("OBJECT", options.objects, objects)
      .flag("--all", options.all, all)
      .flag("--new", options.onlyNew,
            "Only what is not there yet; names that are taken get a number")
      .option("--output", options.output, "PATH", "Folder, or the name of the one file")
      .flag("--overwrite", options.overwrite, "Replace files that are there")
      .flag("--keep-both", options.keepBoth, "Number new files whose name is taken");
}

FetchRun::FetchRun(ToolContext& context, const FetchOptions& options)
    : context_(context),
      options_(checked(context.operation, options)),
      target_(resolvedTarget(context.operation, options.output, isOneObject(options))),
      progress_(context.output, context.interrupt,
                isOneObject(options) ? 1 : options.objects.size()),
      run_(downloadOptions()) {}

DownloadOptions FetchRun::downloadOptions() {
  DownloadOptions options;
  options.folder(target_.folder).thumbnail(options_.thumbnails);
  if (target_.name) options.name(*target_.name);
  if (options_.keepBoth) options.existing(Existing::kKeepBoth);
  // A picture that is new may bear the name of one that is there: cameras count from 1 again after
  // a reset.
  if (options_.onlyNew) options.existing(Existing::kKeepOthers);
  if (options_.overwrite) options.existing(Existing::kOverwrite);
  return options
      .begin([this](const ObjectInfo& object) {
        progress_.begin(object.name(),
                        options_.thumbnails ? object.thumbnailSize() : object.size());
      })
      .progress(progress_.callback());
}

void FetchRun::expect(const ObjectInfo& object) {
  if (options_.onlyNew) run_.expect(object);
}

void FetchRun::tellSum(std::size_t count, std::uint64_t bytes) {
  progress_.expect(count);
  // A warning and no refusal: what fits is worth fetching, and somebody may make room meanwhile.
  const auto here = fileSystemSizeOf(target_.folder);
  if (!here || bytes <= here->free) return;
  context_.output.message("There is no room for all that is to be fetched (" +
                          counted(count, "files") + ", " + sizeInWords(bytes) +
                          "): " + sizeInWords(here->free) + " are free in '" + target_.folder +
                          "', " + sizeInWords(bytes - here->free) + " are missing.");
}

bool FetchRun::passesOver(const ObjectInfo& object, bool looksAhead) {
  return options_.onlyNew && run_.isThere(object, looksAhead);
}

void FetchRun::fetch(Device& device, Batch& batch, const ObjectInfo& object,
                     PropertyDictionary json) {
  const std::uint64_t size = options_.thumbnails ? object.thumbnailSize() : object.size();
  // Once full is full for all: the next object would only be cut, too.
  if (isFull_) {
    batch.left(std::move(json),
               {.object = objectInWords(object),
                .status = status::kIOError,
                .why = "there is no room left"},
               size);
    return;
  }
  try {
    const auto file = device.download(object, run_);
    progress_.end();
    if (file.wasThere()) return batch.skipped();
    json["path"] = validUTF8(file.path());
    json["size"] = file.size();
    if (file.resumed() > 0) json["resumed"] = file.resumed();
    batch.succeeded(json, file.path(), file.size());
  } catch (const Error& error) {
    progress_.end();
    fail(batch, object, std::move(json), error);
  }
}

void FetchRun::fail(Batch& batch, const ObjectInfo& object, PropertyDictionary json,
                    const Error& error) {
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
  if (!hasNoRoom) return batch.failed(std::move(json), error, "", why);
  Failure failure = failureOf(error);
  failure.why = why;
  batch.left(std::move(json), std::move(failure),
             options_.thumbnails ? object.thumbnailSize() : object.size());
}

}  // namespace tarvo::tools
