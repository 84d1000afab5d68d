// Order marker files of a device through plain Image Capture: found in the "tree", downloaded,
// parsed and deleted.
#include <string_view>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"
#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "platform/files/HostFileNames.h"
#include "platform/files/ScratchFolder.h"

namespace tarvo {

namespace {

constexpr char kTree[] = "tree";
constexpr std::string_view kMarkerSuffix = ".MRK";

std::string nameOf(const PropertyDictionary& node) {
  return textForKey(node, "ifil").value_or("");
}

/// "icao" as a handle; 0, which names nothing, without one.
ICAObject handleOf(const PropertyDictionary& node) {
  return static_cast<ICAObject>(int32ForKey(node, "icao").value_or(0));
}

/// Calls `visit` with each file below `node` and its index in its folder, folders as they come. The
/// number of the node's own children.
template <typename Visit>
std::size_t eachFileBelow(const PropertyDictionary& node, const Visit& visit) {
  const auto* children = arrayForKey(node, kTree);
  const std::size_t count = children ? children->size() : 0;
  TraceLog::trace("this node's name is %s, and it has %i members", nameOf(node).c_str(),
                  static_cast<int>(count));
  for (std::size_t i = 0; i < count; ++i) {
    const auto& child = (*children)[i];
    // A folder may be named like a file that is looked for.
    if (child.is_object() && child.contains(kTree)) {
      TraceLog::trace("node %i is another tree: %s", static_cast<int>(i), nameOf(child).c_str());
      eachFileBelow(child, visit);
    } else {
      visit(i, child);
    }
  }
  return count;
}

/// Downloads a file object to a folder of its own; the path of the file, or empty.
std::string downloadToFolder(ICAObject object) {
  ScratchFolder folder;
  std::string path;
  const Status status = folder.path().empty()
                            ? status::kIOError
                            : PictureDeviceRoom::required().services().imageCapture.downloadFile(
                                  object, folder.path(), path);
  if (status != status::kOK) {
    TraceLog::trace("parseTreeForOrderFiles downloadFilePB.header.err: 0x%x",
                    static_cast<unsigned>(status));
    return {};
  }
  folder.leave();
  return path;
}

}  // namespace

std::size_t XTImageCaptureDevice::parseTreeForFiles(const PropertyDictionary& node,
                                                    std::string_view suffix,
                                                    ObjectReferences& list) {
  return eachFileBelow(node, [&](std::size_t, const PropertyDictionary& file) {
    if (nameOf(file).ends_with(suffix)) list.push_back(file);
  });
}

std::size_t XTImageCaptureDevice::parseTreeForOrderFiles(const PropertyDictionary& node,
                                                         std::vector<std::string>& list) {
  return eachFileBelow(node, [&](std::size_t index, const PropertyDictionary& file) {
    const std::string name = nameOf(file);
    TraceLog::trace("node %i is a file: %s", static_cast<int>(index), name.c_str());
    if (!name.ends_with(kMarkerSuffix)) return;
    ++lastReading_.listed;
    std::string path = downloadToFolder(handleOf(file));
    if (path.empty()) {
      lastReading_.leaveOut("marker file", handleOf(file), status::kIOError);
      return;
    }
    ++lastReading_.read;
    TraceLog::trace("Found an Order file: %s", name.c_str());
    TraceLog::trace("downloadFilePB path: %s", path.c_str());
    list.push_back(std::move(path));
  });
}

std::optional<std::vector<std::string>> XTImageCaptureDevice::orderFiles() {
  lastReading_ = {};
  if (icaObject_ == 0) {
    TraceLog::trace("orderFiles couldn't get an ICA object");
    return std::nullopt;
  }
  std::vector<std::string> paths;
  Status failure = status::kOK;
  const bool hasTree = loadedProperty(kTree, &failure) != nullptr;
  if (failure != status::kICAPropertyNotFound) lastReading_.fail(failure);
  // A copy: whoever is told of a download may have the dictionary fetched anew.
  if (hasTree) parseTreeForOrderFiles(PropertyDictionary(*icaDictionary_), paths);
  return paths;
}

ObjectReferences XTImageCaptureDevice::markerFiles(Status& failure) {
  ObjectReferences markers;
  failure = status::kOK;
  if (loadedProperty(kTree, &failure)) parseTreeForFiles(*icaDictionary_, kMarkerSuffix, markers);
  // No tree at all is an answer; not to know of one is none.
  if (failure == status::kICAPropertyNotFound) failure = status::kOK;
  return markers;
}

Status XTImageCaptureDevice::deleteOrderFiles() {
  Status status = status::kOK;
  const ObjectReferences markers = markerFiles(status);
  for (auto marker = markers.begin(); status == status::kOK && marker != markers.end(); ++marker)
    status = deleteObject(*marker);
  return status;
}

Status XTImageCaptureDevice::eachMarkerFile(
    bool (*isWanted)(std::string_view),
    const std::function<Status(const std::string& path)>& parse) {
  lastReading_ = {};
  Status status = status::kOK;
  for (const auto& marker : markerFiles(status)) {
    const std::string name = nameOf(marker);
    if (status != status::kOK || !isWanted(name)) continue;
    ++lastReading_.listed;
    const ScratchFolder folder;
    const auto safeName = safeFileName(name);
    const std::string path = folder.path() + "/" + safeName.value_or("");
    status = folder.path().empty() || !safeName ? status::kIOError : downloadFile(marker, path);
    if (status == status::kOK) status = parse(path);
    if (status == status::kOK) {
      ++lastReading_.read;
    } else {
      lastReading_.leaveOut("marker file", handleOf(marker), status);
    }
  }
  lastReading_.fail(status);
  return status;
}

std::optional<EmailOrders> XTImageCaptureDevice::emailOrderList() {
  EmailOrders list;
  const auto& encoding = PictureDeviceRoom::required().services().defaultEncoding;
  const Status status = eachMarkerFile(isEmailMarker, [&](const std::string& path) {
    return fillInEmailOrderList(list, path, encoding);
  });
  return status == status::kOK ? std::optional(std::move(list)) : std::nullopt;
}

std::optional<PrintOrders> XTImageCaptureDevice::printOrderList() {
  PrintOrders list;
  const auto& encoding = PictureDeviceRoom::required().services().defaultEncoding;
  const Status status = eachMarkerFile(isPrintMarker, [&](const std::string& path) {
    return fillInPrintOrderList(list, path, encoding);
  });
  return status == status::kOK ? std::optional(std::move(list)) : std::nullopt;
}

}  // namespace tarvo
