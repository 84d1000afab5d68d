// rm and rename: objects of a device go, or get another name.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/objects/ObjectCommands.h"
#include "tools/objects/ObjectFilter.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct RemoveOptions {
  std::vector<std::string> objects{};  ///< handles, names and patterns; not empty
  ObjectFilter filter{};
  bool yes = false;     ///< does not ask
  bool dryRun = false;  ///< deletes nothing
  bool onlyVolumes = false;
};

struct RenameOptions {
  std::string object{};  ///< handle or name
  std::string name{};
};

/// Of an object on a device, in UTF-16 units.
constexpr std::size_t kLongestName = 254;

/// One run of rm: everything is looked up first, so that the question can say what would go.
class Removing {
 public:
  Removing(ToolContext& context, const RemoveOptions& options)
      : options_(options),
        sieve_(options.filter),
        // Before the device is opened: where nobody can be asked nothing need be looked up.
        consent_(context, options.yes || options.dryRun, "delete objects"),
        device_(openDevice(context, options.onlyVolumes)),
        isVolume_(device_.info().kind() == DeviceKind::kVolume),
        things_(isVolume_ ? "files" : "objects"),
        batch_(context, things_ + (options.dryRun ? " would be deleted" : " deleted")) {
    sieve_.useStoresOf(device_);
  }

  int run() {
    batch_.visit(device_, ObjectChoice().names(options_.objects),
                 [this](const ObjectInfo& object, bool) { take(object); });
    sieve_.arrange(found_);
    for (const auto& object : found_)
      if (!object.isFolder()) bytes_ += object.size();
    if (batch_.goesOn() && !found_.empty() && !options_.yes && !options_.dryRun)
      consent_.require("Delete " + foundInWords() + " from " + nameOf(device_) + "?",
                       "nothing was deleted");
    batch_.forEach(found_, [this](const ObjectInfo& object) { remove(object); });
    return batch_.finish();
  }

 private:
  void take(const ObjectInfo& object) {
    if (!sieve_.passes(object)) return;
    if (object.isFolder() && isVolume_)
      return batch_.refuseNoFile(identityOf(object, "path"), object);
    found_.push_back(object);
  }

  void remove(const ObjectInfo& object) {
    PropertyDictionary json = identityOf(object, "path");
    const std::string handle = isVolume_ ? "" : handleText(object.handle()) + "  ";
    if (options_.dryRun) json["dryRun"] = true;
    batch_.attempt(json, objectInWords(object), [&] {
      if (!options_.dryRun) device_.remove(object);
      batch_.succeeded(json, handle + object.path(), options_.dryRun ? object.size() : 0);
    });
  }

  /// "2 objects and folder DCIM with 3 objects, 7.7 MB,"; one object by its name.
  std::string foundInWords() {
    std::vector<std::string> words;
    const auto files = std::ranges::count(found_, false, &ObjectInfo::isFolder);
    if (files == 1)
      words.push_back(std::ranges::find(found_, false, &ObjectInfo::isFolder)->path());
    if (files > 1) words.push_back(counted(static_cast<std::uint64_t>(files), things_));
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
  ObjectSieve sieve_;
  Consent consent_;
  Device device_;
  bool isVolume_;
  std::string things_;
  Batch batch_;
  std::vector<ObjectInfo> found_;
  std::uint64_t bytes_ = 0;
};

int runRemove(ToolContext& context, const RemoveOptions& options) {
  return Removing(context, options).run();
}

/// Names that a device cannot keep are refused before they are sent.
void runRename(ToolContext& context, const RenameOptions& options) {
  // Without a device: none takes another one.
  const std::size_t length = utf16FromUTF8(options.name).size();
  if (length == 0 || length > kLongestName)
    throw ToolError({.object = options.object,
                     .status = status::kBadParameter,
                     .why = "a name has 1 to 254 characters",
                     .advice = "Choose another name."});
  Device device = openCamera(context);
  const auto number = handleArgument(options.object);
  const std::uint32_t handle =
      number ? *number : objectArgument(context, device, options.object).handle();
  device.rename(handle, options.name);
  context.output.result({{"handle", handle}, {"name", validUTF8(options.name)}},
                        handleText(handle) + "  " + options.name);
}

}  // namespace

void addRemove(CommandGroup& group, Devices devices) {
  const bool onlyVolumes = devices == Devices::kVolumes;
  auto [command, options] = group.command(
      "rm", onlyVolumes ? "Delete files on it" : "Delete objects on the device",
      onlyVolumes ? "tarvoctl volume rm TARV0001.JPG --yes" : "tarvoctl rm TARV0002.JPG --yes",
      runRemove);
  options.onlyVolumes = onlyVolumes;
  command
      .required("OBJECT", options.objects,
                onlyVolumes ? "Names, paths, or patterns such as '*.JPG'"
                            : "Handles, names, or patterns such as '*.JPG'")
      .flag("--yes", options.yes, "Do not ask")
      .flag("--dry-run", options.dryRun, "Say what would be deleted, and delete nothing");
  addFilterOptions(command, options.filter)
      .more(onlyVolumes
                ? "Folders stay. The case of letters matters."
                : "Objects are named as for get, but the case of letters matters. A folder\n"
                  "goes with all that is in it; folders on a card stay.");
}

void addRemoveCommands(CommandGroup& root) {
  addRemove(root, Devices::kAll);
  auto [rename, options] = root.command("rename", "Give an object another name",
                                        "tarvoctl rename TARV0002.JPG HOLIDAY.JPG", runRename);
  rename.required("OBJECT", options.object, "Its handle, name or path; the case matters")
      .required("NAME", options.name, "Its new name");
}

}  // namespace tarvo::tools
