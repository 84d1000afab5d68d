// ls: the objects on a device.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "library/Records.h"
#include "platform/files/FileNames.h"
#include "tools/access/Devices.h"
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

std::string sizeText(const ObjectInfo& object) {
  if (object.isFolder()) return "";
  // The field cannot hold more (ISO 15740, "ObjectInfo dataset").
  return object.size() == ptp::kUnknownObjectSize ? "4 GB or more" : sizeInWords(object.size());
}

/// A format as a user writes it: a code (0x3801), or a file extension ("jpg"). Raises kBadUsage.
std::uint16_t formatArgument(const std::string& operation, const std::string& text) {
  if (const auto code = numberOf(text, 0xFFFF)) return static_cast<std::uint16_t>(*code);
  const std::uint16_t code = ptpFormatOfExtension(lowerCaseExtension("x." + text));
  if (code == ptp::kUndefinedFormat)
    refuseUsage(operation, "'" + text + "' is neither a format code nor a known file extension");
  return code;
}

ObjectQuery queryFor(const ListOptions& options) {
  ObjectQuery query;
  query.recursive(options.isRecursive);
  if (!options.store.empty()) query.store(numberArgument(kListing, "store id", options.store));
  if (!options.format.empty()) query.format(formatArgument(kListing, options.format));
  if (!options.association.empty())
    query.folder(numberArgument(kListing, "handle", options.association));
  return query;
}

/// One run of the command.
class ObjectList {
 public:
  ObjectList(ToolContext& context, const ListOptions& options)
      : context_(context),
        options_(options),
        query_(queryFor(options)),
        device_(openCamera(context)),
        listing_(context.output, columnsFor(options), Listing::kStreamed) {}

  int run() {
    // One transaction in place of one for each object.
    if (options_.handlesOnly) {
      showHandles();
    } else if (!isEnough()) {
      device_.visit(query_, ObjectVisitor([this](const ObjectInfo& object) {
                              add(object);
                              return !isEnough();
                            }).onUnreadable([this](auto handle, const auto&, const Error& error) {
        return fail(handle, error);
      }));
    }
    endIfInterrupted(context_, kListing);
    listing_.finish();
    return exitCode_;
  }

 private:
  bool isEnough() const { return options_.limit && shown_ >= *options_.limit; }

  void showHandles() {
    for (const std::uint32_t handle : device_.handles(query_)) {
      if (isEnough() || context_.interrupt.isSet()) break;
      ++shown_;
      listing_.add(handle, {handleText(handle)});
    }
  }

  /// A device that was lost is told of with the object that it was lost at.
  bool fail(std::uint32_t handle, const Error& error) {
    if (context_.interrupt.isSet()) return false;
    exitCode_ = kFailed;
    listing_.addFailure({{"handle", handle}}, failureOf(context_, error));
    return !error.endsDevice();
  }

  void add(const ObjectInfo& object) {
    ++shown_;
    std::string name = options_.isRecursive ? object.path() : object.name();
    PropertyDictionary json = {{"handle", object.handle()}};
    if (options_.isLong) json.update(jsonFromObjectInfo(library::recordOf(object)));
    json["name"] = object.name();
    if (options_.isRecursive) json["path"] = name;
    if (object.isFolder()) name += "/";
    if (!options_.isLong) {
      listing_.add(json, {handleText(object.handle()), name});
      return;
    }
    listing_.add(json,
                 {handleText(object.handle()), formatInWords(object.format()), sizeText(object),
                  dateInWords(object.captureDate().empty() ? object.modificationDate()
                                                           : object.captureDate()),
                  name});
  }

  ToolContext& context_;
  const ListOptions& options_;
  ObjectQuery query_;
  Device device_;
  Listing listing_;
  std::uint64_t shown_ = 0;
  int exitCode_ = kDone;
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
