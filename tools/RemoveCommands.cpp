#include "tools/RemoveCommands.h"

#include <cstdint>
#include <utility>

#include "NativeServices/PictureDevice/ObjectListing.h"
#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/Batch.h"
#include "tools/OpenedDevice.h"
#include "tools/PutCommand.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

constexpr const char* kOperation = "rm";

/// One run of rm: everything is looked up first, so that the question can say what would go.
class Removing {
 public:
  Removing(ToolContext& context, const RemoveOptions& options)
      : context_(context),
        options_(options),
        device_(context, kOperation),
        batch_(context, kOperation, "objects deleted") {}

  int run() {
    lookUp();
    if (batch_.goesOn() && !found_.empty() && !isAllowed()) {
      context_.output.message("Nothing was deleted.");
      context_.output.endList();
      return kFailed;
    }
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
  };

  void lookUp() {
    batch_.visit(
        device_, options_.objects, false,
        [this](std::uint32_t handle, const XTExtendedObjectInfo&, const std::string& path) {
          found_.push_back({handle, path});
        });
  }

  bool isAllowed() {
    if (options_.yes || !canAsk(context_)) return true;
    const std::string what =
        found_.size() == 1 ? found_.front().path : std::to_string(found_.size()) + " objects";
    return isConfirmed(context_, "Delete " + what + " from " + device_.device().name() + "?");
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

  ToolContext& context_;
  const RemoveOptions& options_;
  OpenedDevice device_;
  Batch batch_;
  std::vector<Found> found_;
};

}  // namespace

int runRemove(ToolContext& context, const RemoveOptions& options) {
  return Removing(context, options).run();
}

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
  ObjectListing(device.transactions()).find(handle);
  device.require(device.device().renamePTPObject(handle, options.name), handleText(handle));
  if (context.output.isJSON()) {
    context.output.document({{"handle", handle}, {"name", validUTF8(options.name)}});
  } else {
    context.output.line(handleText(handle) + "  " + printable(options.name));
  }
  return kDone;
}

}  // namespace tarvo::tools
