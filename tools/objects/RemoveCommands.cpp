// rm and rename: objects of a device go, or get another name.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Batch.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
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

constexpr const char* kRemoving = "rm";

/// One run of rm: everything is looked up first, so that the question can say what would go.
class Removing {
 public:
  Removing(ToolContext& context, const RemoveOptions& options)
      : options_(options),
        // Before the device is opened: where nobody can be asked nothing need be looked up.
        consent_(context, kRemoving, options.yes, "delete objects"),
        device_(context, kRemoving),
        batch_(context, kRemoving, "objects deleted") {}

  int run() {
    lookUp();
    if (batch_.goesOn() && !found_.empty() && !options_.yes)
      consent_.require("Delete " + foundInWords() + " from " + device_.device().name() + "?",
                       "nothing was deleted");
    for (const auto& object : found_) {
      if (!batch_.goesOn()) break;
      batch_.attempt(device_, {{"handle", object.handle}}, object.path, [&] { remove(object); });
    }
    return batch_.finish();
  }

 private:
  struct Found {
    std::uint32_t handle = 0;
    std::string path;
    bool isFolder = false;
  };

  void lookUp() {
    batch_.visit(
        device_, options_.objects, false,
        [this](std::uint32_t handle, const XTExtendedObjectInfo& info, const std::string& path) {
          found_.push_back({handle, path, isFolder(info)});
          if (!isFolder(info)) bytes_ += info.compressedSize();
        });
  }

  /// "2 objects and folder DCIM with 3 objects, 7.7 MB,"; one object by its name.
  std::string foundInWords() {
    std::vector<std::string> words;
    const auto files = std::ranges::count(found_, false, &Found::isFolder);
    if (files == 1) words.push_back(std::ranges::find(found_, false, &Found::isFolder)->path);
    if (files > 1) words.push_back(counted(static_cast<std::uint64_t>(files), "objects"));
    for (const auto& each : found_)
      if (each.isFolder) words.push_back("folder " + each.path + contentInWords(each));
    return joined(words, " and ") + ", " + sizeInWords(bytes_) + ",";
  }

  /// What goes with a folder; its sizes count as well.
  std::string contentInWords(const Found& folder) {
    std::uint64_t count = 0;
    const Status status = ObjectListing(device_.transactions())
                              .visit({.folder = folder.handle, .isDeep = true},
                                     [&](std::uint32_t, const ReadInfo& read) {
                                       const bool counts = !read.info || !isFolder(*read.info);
                                       if (counts) ++count;
                                       if (counts && read.info)
                                         bytes_ += read.info->compressedSize();
                                       return batch_.goesOn();
                                     });
    // A number that may be too small would make the question a lie.
    return status == status::kOK ? " with " + counted(count, "objects") : " with all that is in it";
  }

  void remove(const Found& object) {
    PropertyDictionary json = {{"handle", object.handle}, {"path", object.path}};
    const Status status = device_.device().deleteObject(ObjectReference(object.handle));
    if (status == status::kOK || status == status::kPTPOK) {
      batch_.succeeded(json, handleText(object.handle) + "  " + object.path);
      return;
    }
    batch_.failed(device_, std::move(json), object.path + " (" + handleText(object.handle) + ")",
                  status);
  }

  const RemoveOptions& options_;
  Consent consent_;
  OpenedDevice device_;
  Batch batch_;
  std::vector<Found> found_;
  std::uint64_t bytes_ = 0;
};

/// Names that a device cannot keep are refused before they are sent.
int runRename(ToolContext& context, const RenameOptions& options) {
  const std::string operation = "rename";
  const std::uint32_t handle = numberArgument(operation, "handle", options.handle);
  if (options.name.empty() || nameLength(options.name) >= kNameLimit)
    throw ToolError({.operation = operation,
                     .object = handleText(handle),
                     .status = status::kBadParameter,
                     .why = "a name has 1 to 254 characters",
                     .advice = "Choose another name."});
  const OpenedDevice device(context, operation);
  // For devices that know an object only once its folder was listed.
  ObjectListing(device.transactions()).find(handle);
  device.require(device.device().renamePTPObject(handle, options.name), handleText(handle));
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
