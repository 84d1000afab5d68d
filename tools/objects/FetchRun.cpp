#include "tools/objects/FetchRun.h"

#include <utility>

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

/// No name has a slash in it.
/// Of the safe name: two names that become the same file are one here.
std::string keyOf(const std::string& name, std::uint64_t size) {
  return safeFileName(name).value_or("") + "/" + std::to_string(size);
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

FetchRun::FetchRun(ToolContext& context, std::string operation, const FetchOptions& options)
    : context_(context),
      operation_(std::move(operation)),
      options_(checked(operation_, options)),
      target_(resolvedTarget(operation_, options.output, isOneObject(options))),
      progress_(context.output, context.interrupt,
                isOneObject(options) ? 1 : options.objects.size()) {}

void FetchRun::expect(std::size_t count, std::uint64_t bytes) {
  progress_.expect(count);
  // A warning and no refusal: what fits is worth fetching, and somebody may make room meanwhile.
  const auto here = fileSystemSizeOf(target_.folder);
  if (!here || bytes <= here->free) return;
  context_.output.message("There is no room for all that is to be fetched (" +
                          counted(count, "files") + ", " + sizeInWords(bytes) +
                          "): " + sizeInWords(here->free) + " are free in '" + target_.folder +
                          "', " + sizeInWords(bytes - here->free) + " are missing.");
}

FetchRequest FetchRun::request(RunFiles* files) const {
  auto existing = options_.keepBoth ? ExistingFile::kKeepBoth : ExistingFile::kRefuse;
  // A picture that is new may bear the name of one that is there: cameras count from 1 again after
  // a reset.
  if (options_.onlyNew) existing = ExistingFile::kKeepOthers;
  if (options_.overwrite) existing = ExistingFile::kOverwrite;
  // Nothing that comes off a device is run by its name.
  constexpr mode_t kNoProgram = 0666;
  return {.folder = target_.folder,
          .name = target_.name,
          .existing = existing,
          .mostPermissions = kNoProgram,
          .run = files};
}

void FetchRun::meet(const std::string& name, std::uint64_t size) {
  if (options_.onlyNew) ++met_[keyOf(name, size)];
}

bool FetchRun::isThere(const std::string& name, std::uint64_t size, std::optional<std::time_t> date,
                       bool looksAhead) {
  // Two objects of one name and size are not told apart by the file that is there, so both are
  // fetched.
  if (!options_.onlyNew || met_[keyOf(name, size)] > 1) return false;
  const auto request = FetchRun::request(looksAhead ? nullptr : &files_);
  FetchResult ignored;
  FilePlace place(request, ignored);
  return place.prepare(name) && place.isThere(size, date);
}

FetchRequest FetchRun::begin(const std::string& name, std::uint64_t size) {
  progress_.begin(name, size);
  auto request = FetchRun::request(&files_);
  request.progress = progress_.callback();
  return request;
}

void FetchRun::end(const FetchResult& result) {
  progress_.end();
  // Once full is full for all: the next object would only be cut, too.
  isFull_ = isFull_ || result.room == Room::kNone;
}

std::optional<Failure> FetchRun::obstacle(const std::string& object) const {
  if (!isFull_) return std::nullopt;
  return Failure{.operation = operation_,
                 .object = object,
                 .status = status::kIOError,
                 .why = "there is no room left"};
}

}  // namespace tarvo::tools
