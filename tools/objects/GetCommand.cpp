// get: objects of a device as files.
#include <cstdint>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include "platform/files/PartFile.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/FetchRun.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

/// One run: each object is a file of its own, whole or not at all. All are looked up first, so that
/// what there is no room for is said beforehand.
class Fetching {
 public:
  Fetching(ToolContext& context, const FetchOptions& options)
      : context_(context),
        options_(options),
        run_(context, options),
        device_(openCamera(context)),
        batch_(context, options.thumbnails ? "thumbnails fetched" : "files fetched") {}

  int run() {
    lookUp();
    // Before the sum, so that the room is reckoned for what is really fetched.
    passOverWhatIsThere();
    std::uint64_t bytes = 0;
    for (const auto& object : found_)
      bytes += options_.thumbnails ? object.thumbnailSize() : object.size();
    if (batch_.goesOn()) run_.tellSum(found_.size(), bytes);
    for (const auto& object : found_) {
      if (!batch_.goesOn()) break;
      run_.fetch(device_, batch_, object, jsonOf(object));
    }
    // Who has just ended the command need not be told of more.
    if (!context_.interrupt.isSet()) tellOldParts();
    return batch_.finish();
  }

 private:
  void lookUp() {
    // Without names --new is about everything.
    const bool all = options_.all || (options_.onlyNew && options_.objects.empty());
    batch_.visit(device_, chosen(options_.objects, all), "ls --recursive",
                 [this](const ObjectInfo& object, bool) { take(object); });
  }

  void take(const ObjectInfo& object) {
    if (!object.isFolder()) {
      found_.push_back(object);
      return;
    }
    batch_.failed(jsonOf(object),
                  Failure{.object = objectInWords(object),
                          .status = status::kNotAFile,
                          .why = "it is a folder",
                          .advice = "Use a pattern such as '" + object.path() + "/*'."});
  }

  void passOverWhatIsThere() {
    for (const auto& object : found_)
      run_.expect(object);
    std::erase_if(found_, [&](const ObjectInfo& object) {
      const bool isThere = run_.passesOver(object);
      if (isThere) batch_.skipped();
      return isThere;
    });
  }

  static PropertyDictionary jsonOf(const ObjectInfo& object) {
    return {{"handle", object.handle()}, {"name", object.name()}};
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
  const FetchOptions& options_;
  FetchRun run_;
  Device device_;
  Batch batch_;
  std::vector<ObjectInfo> found_;
};

}  // namespace

void addGetCommand(CommandGroup& root) {
  const auto options = std::make_shared<FetchOptions>();
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
