// rm and rename: objects of a device go, or get another name.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct RemoveOptions {
  std::vector<std::string> objects{};  ///< handles, names and patterns; not empty
  bool yes = false;                    ///< does not ask
};

struct RenameOptions {
  std::string handle{};
  std::string name{};
};

/// Of an object on a device, in UTF-16 units.
constexpr std::size_t kLongestName = 254;

/// One run of rm: everything is looked up first, so that the question can say what would go.
class Removing {
 public:
  Removing(ToolContext& context, const RemoveOptions& options)
      : options_(options),
        // Before the device is opened: where nobody can be asked nothing need be looked up.
        consent_(context, "rm", options.yes, "delete objects"),
        device_(openCamera(context)),
        batch_(context, "objects deleted") {}

  int run() {
    batch_.visit(device_, chosen(options_.objects, false), "ls --recursive",
                 [this](const ObjectInfo& object, bool) {
                   found_.push_back(object);
                   if (!object.isFolder()) bytes_ += object.size();
                 });
    if (batch_.goesOn() && !found_.empty() && !options_.yes)
      consent_.require("Delete " + foundInWords() + " from " + device_.facts().name() + "?",
                       "nothing was deleted");
    for (const auto& object : found_) {
      if (!batch_.goesOn()) break;
      const PropertyDictionary json = {{"handle", object.handle()}, {"path", object.path()}};
      batch_.attempt(json, objectInWords(object), [&] {
        device_.remove(object);
        batch_.succeeded(json, handleText(object.handle()) + "  " + object.path());
      });
    }
    return batch_.finish();
  }

 private:
  /// "2 objects and folder DCIM with 3 objects, 7.7 MB,"; one object by its name.
  std::string foundInWords() {
    std::vector<std::string> words;
    const auto files = std::ranges::count(found_, false, &ObjectInfo::isFolder);
    if (files == 1)
      words.push_back(std::ranges::find(found_, false, &ObjectInfo::isFolder)->path());
    if (files > 1) words.push_back(counted(static_cast<std::uint64_t>(files), "objects"));
    for (const auto& each : found_)
      if (each.isFolder()) words.push_back("folder " + each.path() + contentInWords(each));
    return joined(words, " and ") + ", " + sizeInWords(bytes_) + ",";
  }

  /// What goes with a folder; its sizes count as well.
  std::string contentInWords(const ObjectInfo& folder) {
    std::uint64_t count = 0;
    ObjectVisitor visitor([&](const ObjectInfo& object) {
      if (!object.isFolder()) {
        ++count;
        bytes_ += object.size();
      }
      return batch_.goesOn();
    });
    visitor.onUnreadable([&](std::uint32_t, const std::string&, const Error&) {
      ++count;
      return batch_.goesOn();
    });
    try {
      device_.visit(ObjectQuery().folder(folder.handle()).recursive(), visitor);
    } catch (const Error&) {
      // A number that may be too small would make the question a lie.
      return " with all that is in it";
    }
    return " with " + counted(count, "objects");
  }

  const RemoveOptions& options_;
  Consent consent_;
  Device device_;
  Batch batch_;
  std::vector<ObjectInfo> found_;
  std::uint64_t bytes_ = 0;
};

/// Names that a device cannot keep are refused before they are sent.
int runRename(ToolContext& context, const RenameOptions& options) {
  const std::uint32_t handle = numberArgument("rename", "handle", options.handle);
  // Without a device: none takes another one.
  const std::size_t length = utf16FromUTF8(options.name).size();
  if (length == 0 || length > kLongestName)
    throw ToolError({.operation = "rename",
                     .object = handleText(handle),
                     .status = status::kBadParameter,
                     .why = "a name has 1 to 254 characters",
                     .advice = "Choose another name."});
  openCamera(context).rename(handle, options.name);
  if (context.output.isJSON()) {
    context.output.document({{"handle", handle}, {"name", validUTF8(options.name)}});
  } else {
    context.output.line(handleText(handle) + "  " + options.name);
  }
  return kDone;
}

}  // namespace

void addRemoveCommands(CommandGroup& root) {
  const auto remove = std::make_shared<RemoveOptions>();
  root.command("rm", "Delete objects on the device", "tarvoctl rm TARV0002.JPG --yes",
               [remove](ToolContext& context) { return Removing(context, *remove).run(); })
      .operand("OBJECT", remove->objects, "Handles, names, or patterns such as '*.JPG'")
      .required()
      .flag("--yes", remove->yes, "Do not ask")
      .more("Objects are named as for get. A folder goes with all that is in it.");
  const auto rename = std::make_shared<RenameOptions>();
  root.command("rename", "Give an object another name", "tarvoctl rename 0x00000003 HOLIDAY.JPG",
               [rename](ToolContext& context) { return runRename(context, *rename); })
      .operand("HANDLE", rename->handle, "The object")
      .required()
      .operand("NAME", rename->name, "Its new name")
      .required();
}

}  // namespace tarvo::tools
