// ls: the objects on a device.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"
#include "platform/foundation/Numbers.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct ListOptions {
  std::string store{};        ///< id as the user wrote it; empty: all
  std::string format{};       ///< code or extension; empty: all
  std::string association{};  ///< handle of a folder; empty: the root
  bool isLong = false;
  bool isRecursive = false;  ///< all that lies below
  bool handlesOnly = false;  ///< asks nothing of the objects themselves
  std::optional<std::uint64_t> limit{};
};

constexpr const char* kListing = "ls";

std::vector<Column> columnsFor(const ListOptions& options) {
  if (options.handlesOnly) return {{"HANDLE"}};
  if (!options.isLong) return {{"HANDLE", 10}, {"NAME"}};
  return {{"HANDLE", 10}, {"FORMAT", 15}, {"SIZE", 10, true}, {"DATE", 19}, {"NAME"}};
}

std::string sizeText(const XTExtendedObjectInfo& info) {
  if (isFolder(info)) return "";
  // The field cannot hold more (ISO 15740, "ObjectInfo dataset").
  return info.compressedSize() == ptp::kUnknownObjectSize ? "4 GB or more"
                                                          : sizeInWords(info.compressedSize());
}

/// A format as a user writes it: a code (0x3801), or a file extension ("jpg"). Raises kBadUsage.
std::uint16_t formatArgument(const std::string& operation, const std::string& text) {
  if (const auto code = numberOf(text, 0xFFFF)) return static_cast<std::uint16_t>(*code);
  std::string extension = text;
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  const std::uint16_t code = XTPictureDevice::PTPTypeFromExt(extension);
  if (code == ptp::kUndefinedFormat)
    refuseUsage(operation, "'" + text + "' is neither a format code nor a known file extension");
  return code;
}

ListingQuery queryFor(const ListOptions& options) {
  ListingQuery query = {.isDeep = options.isRecursive};
  if (!options.store.empty()) query.store = numberArgument(kListing, "store id", options.store);
  if (!options.format.empty()) query.format = formatArgument(kListing, options.format);
  if (!options.association.empty()) {
    query.folder = numberArgument(kListing, "handle", options.association);
  } else if (!options.isRecursive && options.format.empty()) {
    query.folder = ListingQuery::kTop;
  }
  return query;
}

/// One run of the command.
class ObjectList {
 public:
  ObjectList(ToolContext& context, const ListOptions& options)
      : context_(context),
        options_(options),
        query_(queryFor(options)),
        device_(context, kListing),
        paths_(device_.transactions()),
        listing_(context.output, columnsFor(options), Listing::kStreamed) {}

  int run() {
    ObjectListing objects(device_.transactions());
    const Status listed =
        // One transaction in place of one for each object.
        options_.handlesOnly
            ? showHandles(objects)
            : objects.visit(query_, [this](std::uint32_t handle, const ReadInfo& read) {
                if (!isEnough()) show(handle, read);
                return !isEnough();
              });
    // A device that was lost has been reported with the object that it was lost at.
    if (!hasEnded_) device_.require(listed, whatIsListed());
    endIfInterrupted(context_, kListing);
    listing_.finish();
    return exitCode_;
  }

 private:
  bool isEnough() const {
    return (options_.limit && shown_ >= *options_.limit) || hasEnded_ || context_.interrupt.isSet();
  }

  std::string whatIsListed() const {
    if (query_.folder == ListingQuery::kAnywhere) return "the objects";
    return query_.folder == ListingQuery::kTop ? "the root" : "folder " + handleText(query_.folder);
  }

  Status showHandles(ObjectListing& objects) {
    ObjectHandles handles;
    const Status listed = objects.handles(query_, handles);
    for (const std::uint32_t handle : handles) {
      if (isEnough()) break;
      ++shown_;
      listing_.add(handle, {handleText(handle)});
    }
    return listed;
  }

  void show(std::uint32_t handle, const ReadInfo& read) {
    if (read.info) {
      add(handle, *read.info);
    } else {
      fail(handle, read.status, read.why);
    }
  }

  void fail(std::uint32_t handle, Status status, const std::string& why) {
    if (context_.interrupt.isSet()) return;
    exitCode_ = kFailed;
    hasEnded_ = device_.isLost(status);
    listing_.addFailure({{"handle", handle}}, device_.failure(handleText(handle), status, why));
  }

  void add(std::uint32_t handle, const XTExtendedObjectInfo& info) {
    ++shown_;
    std::string name = options_.isRecursive ? paths_.pathOf(info) : info.fileName();
    PropertyDictionary json = {{"handle", handle}};
    if (options_.isLong) json.update(jsonFromObjectInfo(info));
    json["name"] = info.fileName();
    if (options_.isRecursive) json["path"] = name;
    if (isFolder(info)) name += "/";
    if (!options_.isLong) {
      listing_.add(json, {handleText(handle), name});
      return;
    }
    listing_.add(json, {handleText(handle), formatInWords(info.objFmtCode()), sizeText(info),
                        dateInWords(info.captureDateStr().empty() ? info.modDataStr()
                                                                  : info.captureDateStr()),
                        name});
  }

  ToolContext& context_;
  const ListOptions& options_;
  ListingQuery query_;
  OpenedDevice device_;
  ObjectPaths paths_;
  Listing listing_;
  std::uint64_t shown_ = 0;
  int exitCode_ = kDone;
  bool hasEnded_ = false;
};

}  // namespace

void addListCommand(CommandGroup& root) {
  const auto options = std::make_shared<ListOptions>();
  root.command("ls", "Objects on the device", "tarvoctl ls --long --recursive",
               [options](ToolContext& context) { return ObjectList(context, *options).run(); })
      .option("--store", options->store, "ID", "In this store alone")
      .option("--format", options->format, "FORMAT",
              "Of this format alone: a code, or an extension (jpg)")
      .option("--association", options->association, "HANDLE", "In this folder, by its handle")
      .flag("--long", options->isLong, "With format, size and date")
      .flag("--recursive", options->isRecursive, "With all that lies below, by its path")
      .flag("--handles", options->handlesOnly, "Handles alone; asks nothing of the objects")
      .count("--limit", options->limit, "End after N objects")
      .more(
          "Each is shown as soon as it is known. Without --association they are those of\n"
          "the root. --handles is fast on a full card.");
}

}  // namespace tarvo::tools
