// put: files as objects on a device.
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
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct PutOptions {
  std::vector<std::string> files{};
  std::string store{};   ///< id as the user wrote it; empty: the device chooses
  std::string parent{};  ///< handle of a folder; empty: the device chooses
};

std::uint32_t numberOrNone(const std::string& what, const std::string& text) {
  return text.empty() ? 0 : numberArgument("put", what, text);
}

/// Each file has its own result.
int runPut(ToolContext& context, const PutOptions& options) {
  UploadOptions upload;
  upload.store(numberOrNone("store id", options.store))
      .folder(numberOrNone("handle", options.parent));
  auto device = openCamera(context);
  if (!device.facts().can("acceptsFiles"))
    throw ToolError({.operation = context.operation,
                     .object = device.info().description(),
                     .status = status::kPTPOperationNotSupported,
                     .why = "it takes no files"});
  Progress progress(context.output, context.interrupt, options.files.size());
  upload.progress(progress.callback()).begin([&](const std::string& name, std::uint64_t size) {
    progress.begin(name, size);
  });
  Batch batch(context, "files sent");
  for (const auto& path : options.files) {
    if (!batch.goesOn()) break;
    PropertyDictionary json = {{"file", validUTF8(path)}};
    batch.attempt(json, path, [&] {
      const auto sent = device.upload(path, upload);
      progress.end();
      json.update(
          {{"handle", sent.handle()}, {"name", validUTF8(sent.name())}, {"size", sent.size()}});
      batch.succeeded(json, handleText(sent.handle()) + "  " + sent.name(), sent.size());
    });
    progress.end();
  }
  return batch.finish();
}

}  // namespace

void addPutCommand(CommandGroup& root) {
  const auto options = std::make_shared<PutOptions>();
  root.command("put", "Send files to the device", "tarvoctl put photo.jpg",
               [options](ToolContext& context) { return runPut(context, *options); })
      .operand("FILE", options->files, "Files to send")
      .required()
      .option("--store", options->store, "ID", "Into this store")
      .option("--parent", options->parent, "HANDLE", "Into this folder, by its handle")
      .more("Names of 255 characters and files of 4 GiB, and more, are refused.");
}

}  // namespace tarvo::tools
