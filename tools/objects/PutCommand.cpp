// put: files as objects on a device.
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
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
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct PutOptions {
  std::vector<std::string> files{};
  std::string store{};   ///< id as the user wrote it; empty: the device chooses
  std::string parent{};  ///< handle of a folder; empty: the device chooses
};

namespace fs = std::filesystem;

constexpr const char* kSending = "put";
/// An object's size has 32 bits (ISO 15740, "ObjectInfo dataset").
constexpr std::uint64_t kSizeLimit = std::uint64_t{1} << 32;

/// What cannot be sent whatever the device; none where all is well.
std::optional<Failure> refusal(const std::string& path) {
  const auto because = [&](Status status, std::string why, std::string advice) {
    return Failure{.operation = kSending,
                   .object = path,
                   .status = status,
                   .why = std::move(why),
                   .advice = std::move(advice)};
  };
  // The codec wraps the count of a longer text, and the object would get another name.
  if (nameLength(fs::path(path).filename().string()) >= kNameLimit)
    return because(status::kBadParameter, "its name has 255 characters or more",
                   "Give it a shorter name.");
  std::error_code error;
  const auto size = fs::file_size(path, error);
  // What is no file is found out, and said, where the file is looked at.
  if (!error && size >= kSizeLimit)
    return because(status::kBadParameter, "it has 4 GiB or more, which PTP cannot carry",
                   "Split it.");
  return std::nullopt;
}

/// One run of the command.
class Sending {
 public:
  Sending(ToolContext& context, const PutOptions& options)
      : options_(options),
        store_(number("store id", options.store)),
        parent_(number("handle", options.parent)),
        device_(context, kSending),
        progress_(context.output, context.interrupt, options.files.size()),
        batch_(context, kSending, "files sent") {
    if (!device_.device().acceptsFiles())
      throw ToolError(device_.failure(inWords(device_.summary()), status::kPTPOperationNotSupported,
                                      "it takes no files"));
    device_.device().setDownloadUpdateCb(progress_.callback());
  }
  // The callback leads into this object.
  ~Sending() { device_.device().setDownloadUpdateCb({}); }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  int run() {
    // A device may know a folder only once the one above it was listed; what is no folder is the
    // device's to refuse.
    if (parent_ != ListingQuery::kAnywhere && parent_ != ListingQuery::kTop)
      ObjectListing(device_.transactions()).find(parent_);
    for (const auto& path : options_.files) {
      if (!batch_.goesOn()) break;
      batch_.attempt(device_, {{"file", validUTF8(path)}}, path, [&] { sendOne(path); });
    }
    return batch_.finish();
  }

 private:
  static std::uint32_t number(const std::string& what, const std::string& text) {
    return text.empty() ? 0 : numberArgument(kSending, what, text);
  }

  /// For a device that does not choose one itself: the first, from now on.
  bool choosesStore() {
    const auto stores = device_.transactions().storageIDs();
    if (stores && !stores->empty()) store_ = stores->front();
    return store_ != 0;
  }

  void sendOne(const std::string& path) {
    PropertyDictionary json = {{"file", validUTF8(path)}};
    if (const auto refused = refusal(path)) {
      batch_.failed(std::move(json), *refused);
      return;
    }
    XTExtendedObjectInfo info;
    bool sendRequired = false;
    auto& device = device_.device();
    const Status filled = device.fillInObjInfo(info, path, device.opCodeList(), &sendRequired);
    if (filled != status::kOK) {
      batch_.failed(std::move(json), {.operation = kSending, .object = path, .status = filled});
      return;
    }
    const std::uint64_t size = info.compressedSize();
    const std::string name = info.fileName();
    progress_.begin(name, size);
    std::uint32_t handle = 0;
    const auto send = [&] {
      return device_.transactions().sendContentsOfFile(path, info, store_, parent_, &handle);
    };
    Status sent = send();
    // Store 0 lets the device choose (ISO 15740, SendObjectInfo); some want to be told.
    if (sent == status::kPTPInvalidStorageID && store_ == 0 && choosesStore()) sent = send();
    progress_.end();
    if (sent != status::kOK && sent != status::kPTPOK) {
      batch_.failed(device_, std::move(json), path, sent);
      return;
    }
    json.update({{"handle", handle}, {"name", validUTF8(name)}, {"size", size}});
    batch_.succeeded(json, handleText(handle) + "  " + name, size);
  }

  const PutOptions& options_;
  std::uint32_t store_;
  std::uint32_t parent_;
  OpenedDevice device_;
  Progress progress_;
  Batch batch_;
};

}  // namespace

void addPutCommand(CommandGroup& root) {
  const auto options = std::make_shared<PutOptions>();
  root.command("put", "Send files to the device", "tarvoctl put photo.jpg",
               [options](ToolContext& context) { return Sending(context, *options).run(); })
      .operand("FILE", options->files, "Files to send")
      .required()
      .option("--store", options->store, "ID", "Into this store")
      .option("--parent", options->parent, "HANDLE", "Into this folder, by its handle")
      .more("Names of 255 characters and files of 4 GiB, and more, are refused.");
}

}  // namespace tarvo::tools
