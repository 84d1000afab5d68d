#include "tools/ListCommand.h"

#include <algorithm>
#include <cctype>
#include <deque>
#include <set>
#include <vector>

#include "NativeServices/PictureDevice/FileTypeTables.h"
#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/PTPCodes.h"
#include "platform/foundation/Numbers.h"
#include "tools/Listing.h"
#include "tools/ObjectPaths.h"
#include "tools/OpenedDevice.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

constexpr const char* kOperation = "ls";
constexpr std::uint32_t kRoot = 0xFFFFFFFF;
constexpr std::uint16_t kUndefinedFormat = 0x3000;

std::vector<Column> columnsFor(const ListOptions& options) {
  if (options.handlesOnly) return {{"HANDLE"}};
  if (!options.isLong) return {{"HANDLE", 10}, {"NAME"}};
  return {{"HANDLE", 10}, {"FORMAT", 15}, {"SIZE", 10, true}, {"DATE", 19}, {"NAME"}};
}

std::string sizeText(const XTExtendedObjectInfo& info) {
  if (isFolder(info)) return "";
  // The field cannot hold more (ISO 15740, "ObjectInfo dataset").
  return info.compressedSize() == 0xFFFFFFFF ? "4 GB or more" : sizeInWords(info.compressedSize());
}

/// One run of the command.
class ObjectList {
 public:
  ObjectList(ToolContext& context, const ListOptions& options)
      : context_(context),
        options_(options),
        store_(options.store.empty() ? ptp::kAllStores
                                     : numberArgument(kOperation, "store id", options.store)),
        format_(options.format.empty() ? std::uint16_t{0}
                                       : formatArgument(kOperation, options.format)),
        device_(context, kOperation),
        paths_(device_.transactions()),
        listing_(context.output, columnsFor(options), Listing::kStreamed) {}

  int run() {
    if (!options_.association.empty()) {
      walk(numberArgument(kOperation, "handle", options_.association));
    } else if (options_.isRecursive || format_ != 0) {
      // The device gives all that there is at once.
      showAll(device_.objectHandles(store_, format_, std::nullopt, "the objects"));
    } else {
      showAll(device_.objectHandles(store_, 0, kRoot, "the root"));
    }
    endIfInterrupted(context_, kOperation);
    listing_.finish();
    return exitCode_;
  }

 private:
  bool isEnough() const {
    return (options_.limit && shown_ >= *options_.limit) || hasEnded_ || context_.interrupt.isSet();
  }

  void showAll(const ObjectHandles& handles) {
    for (const std::uint32_t handle : handles) {
      if (isEnough()) return;
      show(handle);
    }
  }

  /// What lies in a folder and, where wanted, in those below it.
  void walk(std::uint32_t folder) {
    std::deque<std::uint32_t> folders = {folder};
    std::set<std::uint32_t> visited;  // a folder may claim to lie in itself
    while (!folders.empty() && !isEnough()) {
      const std::uint32_t current = folders.front();
      folders.pop_front();
      if (!visited.insert(current).second) continue;
      const auto handles =
          device_.objectHandles(store_, folderFormat(), current, "folder " + handleText(current));
      for (const std::uint32_t handle : handles) {
        if (isEnough()) break;
        if (isShownFolder(handle)) folders.push_back(handle);
      }
    }
  }

  /// Below a folder everything is asked for, so that the folders in it are found.
  std::uint16_t folderFormat() const { return options_.isRecursive ? std::uint16_t{0} : format_; }
  bool needsInfo() const {
    return !options_.handlesOnly || (options_.isRecursive && !options_.association.empty());
  }

  /// Shows an object of a folder; whether its own objects are wanted too.
  bool isShownFolder(std::uint32_t handle) {
    const auto info = show(handle);
    return options_.isRecursive && info && isFolder(*info);
  }

  ObjectInfoPointer show(std::uint32_t handle) {
    if (!needsInfo()) {
      ++shown_;
      listing_.add(handle, {handleText(handle)});
      return nullptr;
    }
    const auto [info, status, why] = readInfo(device_.transactions(), handle);
    if (!info) {
      fail(handle, status, why);
      return nullptr;
    }
    if (format_ == 0 || info->objFmtCode() == format_) add(handle, *info);
    return info;
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
    if (options_.handlesOnly) {
      listing_.add(handle, {handleText(handle)});
      return;
    }
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
  std::uint32_t store_;
  std::uint16_t format_;
  OpenedDevice device_;
  ObjectPaths paths_;
  Listing listing_;
  std::uint64_t shown_ = 0;
  int exitCode_ = kDone;
  bool hasEnded_ = false;
};

}  // namespace

std::uint16_t formatArgument(const std::string& operation, const std::string& text) {
  if (const auto code = numberOf(text, 0xFFFF)) return static_cast<std::uint16_t>(*code);
  std::string extension = text;
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  const std::uint16_t code = XTPictureDevice::PTPTypeFromExt(extension);
  if (code == kUndefinedFormat)
    refuseUsage(operation, "'" + text + "' is neither a format code nor a known file extension");
  return code;
}

int runList(ToolContext& context, const ListOptions& options) {
  return ObjectList(context, options).run();
}

}  // namespace tarvo::tools
