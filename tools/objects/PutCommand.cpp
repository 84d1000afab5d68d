// put: files as objects on a device.
#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct PutOptions {
  std::vector<std::string> files{};
  std::string store{};   ///< label or id; empty: the device chooses
  std::string folder{};  ///< name, path or handle; empty: the device chooses
};

/// Where files go on the device.
void placeInto(const ToolContext& context, Device& device, const PutOptions& options,
               UploadOptions& upload) {
  if (!options.store.empty()) upload.store(storeArgument(device, options.store));
  if (options.folder.empty()) return;
  // A handle is the device's to refuse.
  if (const auto handle = handleArgument(options.folder)) {
    upload.folder(*handle);
    return;
  }
  const auto folder = objectArgument(context, device, pathArgument(options.folder), true);
  if (!folder.isFolder())
    throw ToolError({.object = objectInWords(folder),
                     .status = status::kBadParameter,
                     .why = "it is no folder"});
  upload.folder(folder.handle());
  // A folder has its store, which some devices want to be told.
  if (options.store.empty()) upload.store(folder.store());
}

/// Each file has its own result.
int runPut(ToolContext& context, const PutOptions& options) {
  UploadOptions upload;
  auto device = openCamera(context);
  if (!device.facts().can("acceptsFiles"))
    throw ToolError({.object = device.info().description(),
                     .status = status::kPTPOperationNotSupported,
                     .why = "it takes no files"});
  placeInto(context, device, options, upload);
  Progress progress(context.output, context.interrupt, options.files.size());
  upload.progress(progress.callback()).begin([&](const std::string& name, std::uint64_t size) {
    progress.begin(name, size);
  });
  Batch batch(context, "files sent");
  batch.forEach(options.files, [&](const std::string& path) {
    PropertyDictionary json = {{"file", validUTF8(path)}};
    batch.attempt(json, path, [&] {
      const auto sent = device.upload(path, upload);
      progress.end();
      json.update(
          {{"handle", sent.handle()}, {"name", validUTF8(sent.name())}, {"size", sent.size()}});
      batch.succeeded(json, handleText(sent.handle()) + "  " + sent.name(), sent.size());
    });
    progress.end();
  });
  return batch.finish();
}

}  // namespace

void addPutCommand(CommandGroup& root) {
  auto [command, options] = root.command("put", "Send files to the device",
                                         "tarvoctl put photo.jpg --to DCIM/100TARVO", runPut);
  command.required("FILE", options.files, "Files to send")
      .option("--store", options.store, "STORE", "Into this store: its label or its id")
      .option("--to", options.folder, "FOLDER",
              "Into this folder: DCIM/100TARVO, its name, or its handle")
      .more("Names of 255 characters and files of 4 GiB, and more, are refused.");
}

}  // namespace tarvo::tools
