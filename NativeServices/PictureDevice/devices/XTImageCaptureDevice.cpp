#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/DeviceInspection.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"
#include "platform/files/ScratchFolder.h"

namespace tarvo {

namespace {

void traceDictionary(const PropertyDictionary& dictionary) {
  // Dumping a dictionary with thousands of pictures is dear; texts of devices need not be valid
  // UTF-8.
  if (!TraceLog::isActive()) return;
  TraceLog::trace("* * * * Here is the Dictionary Dump * * * *");
  TraceLog::dump(dictionary.dump(2, ' ', false, PropertyDictionary::error_handler_t::replace));
  TraceLog::trace("* * * * Here is the end of the Dictionary Dump * * * *");
}

/// In bytes; of a film it takes more than 31 bits. 0 where there is none.
std::int64_t sizeForKey(const PropertyDictionary& object, const char* key) {
  const bool isNumber =
      object.is_object() && object.contains(key) && object[key].is_number_integer();
  return isNumber ? object[key].get<std::int64_t>() : 0;
}

}  // namespace

Status XTImageCaptureDevice::initObject(ICAObject object) {
  icaObject_ = object;
  icaDictionary_.reset();
  icaDictionaryDirty_ = true;
  // Only the information; the pictures are read when somebody asks for them, so that an arrival
  // costs the same whatever the card holds.
  const Status status = loadDeviceInfo();
  if (status != status::kOK) {
    TraceLog::trace("XTImageCaptureDevice: ERROR - initObject call to loadDeviceInfo failed");
  }
  return status;
}

Status XTImageCaptureDevice::refreshIcaDictionary() {
  TraceLog::traceMethod(className(), "refreshIcaDictionary", this);
  // Fetching is a look into a table, but the copy of a card with thousands of pictures is not
  // small.
  if (!icaDictionaryDirty_ && icaDictionary_) return status::kOK;
  if (icaObject_ == 0) {
    TraceLog::trace("refreshIcaDictionary couldn't get an ICA object");
    return status::kIOError;
  }
  PropertyDictionary dictionary;
  const Status status =
      PictureDeviceRoom::imageCapture().copyObjectPropertyDictionary(icaObject_, dictionary);
  if (status == status::kOK) {
    traceDictionary(dictionary);
    icaDictionary_ = std::move(dictionary);
    // The new copy has only what the service has loaded, which may be less.
    loadedKeys_.clear();
  } else {
    icaDictionary_.reset();
    TraceLog::trace("refreshIcaDictionary copyObjectPropertyDictionaryPB.header.err: %i", status);
  }
  // After a failure it is fetched again on next use.
  icaDictionaryDirty_ = !icaDictionary_;
  return status;
}

Status XTImageCaptureDevice::icaObjectSendMessage(ICAObjectSendMessagePB& block) {
  if (disconnected()) {
    TraceLog::traceWithTag(formatted("Device 0x%8X is disconnected!", icaObject_), XTOptDebugLog);
    // Callers read the response first, so it must not be what an earlier message left.
    if (block.data) block.data->pb().resultCode = status::kPTPGeneralError;
    return status::kPTPGeneralError;
  }
  // Kept because the PTP statuses that callers pass on do not tell a time-out from an unplugging.
  lastMessageStatus_ = PictureDeviceRoom::imageCapture().objectSendMessage(block);
  if (lastMessageStatus_ != status::kOK) {
    TraceLog::trace("XTImageCaptureDevice: ERROR - ICAObjectSendMessage returned status = %d",
                    lastMessageStatus_);
    return lastMessageStatus_;
  }
  // A response other than OK is traced only: callers read it from the block.
  if (block.data && block.data->pb().resultCode != status::kPTPOK) {
    TraceLog::trace(
        "XTImageCaptureDevice: ERROR - ICAObjectSendMessage returned PTP resultCode = %d",
        static_cast<int>(block.data->pb().resultCode));
  }
  return status::kOK;
}

Status XTImageCaptureDevice::loadDeviceInfoUncached() {
  const Status status = refreshIcaDictionary();
  if (!icaDictionary_) {
    TraceLog::trace("loadDeviceInfoUncached couldn't get an ICA dictionary");
    return status::kIOError;
  }
  const auto name = textForKey(*icaDictionary_, "ifil");
  if (!name) {
    TraceLog::trace("loadDeviceInfoUncached couldn't get a device name");
    return status::kIOError;
  }
  fields_.deviceName = *name;
  fields_.deviceModel = *name;  // until a class that knows better replaces it
  loadDeviceIcon();
  return status;
}

bool XTImageCaptureDevice::isOfMaker() const {
  return icaDictionary_ &&
         tarvo::isOfMaker(*icaDictionary_, PictureDeviceRoom::required().services().maker);
}

std::string XTImageCaptureDevice::description() const {
  return XTPictureDevice::description() + formatted(", icaObject 0x%08X", icaObject_);
}

bool XTImageCaptureDevice::isSameDeviceAs(const XTPictureDevice& other) const {
  // One object is one device however often it is inspected, also without a serial number.
  const bool isOfSameObject =
      icaObject_ != 0 && typeid(*this) == typeid(other) &&
      static_cast<const XTImageCaptureDevice&>(other).icaObject_ == icaObject_;
  return isOfSameObject || XTPictureDevice::isSameDeviceAs(other);
}

std::int64_t XTImageCaptureDevice::thumbSize(const ObjectReference& object) {
  return sizeForKey(object, "tsiz");
}

std::int64_t XTImageCaptureDevice::objectSize(const ObjectReference& object) {
  // References of one class of devices given to another are a mistake of ours.
  if (!object.is_object()) raiseAssertion("_objectHandle is not a dictionary!");
  return sizeForKey(object, "isiz");
}

std::optional<std::string> XTImageCaptureDevice::objectFilename(const ObjectReference& object) {
  return textForKey(object, "ifil");
}

namespace {

constexpr char kCapabilities[] = "capa";
constexpr char kPictures[] = "data";

}  // namespace

const PropertyDictionary* XTImageCaptureDevice::loadedProperty(const std::string& key,
                                                               Status* failure) {
  Status status = refreshIcaDictionary();
  if (icaDictionary_ && icaDictionary_->is_object() && !loadedKeys_.contains(key)) {
    PropertyDictionary value;
    status = PictureDeviceRoom::imageCapture().copyObjectProperty(icaObject_, key, value);
    // After a failure the device is asked again the next time.
    if (status == status::kOK) (*icaDictionary_)[key] = std::move(value);
    // A key that the device does not have stays absent; asking for it again would read all its
    // objects once more.
    if (status == status::kOK || status == status::kICAPropertyNotFound) loadedKeys_.insert(key);
  }
  if (failure) *failure = status;
  return icaDictionary_ ? arrayForKey(*icaDictionary_, key) : nullptr;
}

std::int32_t XTImageCaptureDevice::imageCount() {
  const auto* pictures = loadedProperty(kPictures);
  return pictures ? static_cast<std::int32_t>(pictures->size()) : 0;
}

std::optional<ObjectReferences> XTImageCaptureDevice::pictureFiles() {
  const auto* pictures = loadedProperty(kPictures);
  return pictures ? ObjectReferences(pictures->begin(), pictures->end()) : ObjectReferences();
}

Status XTImageCaptureDevice::deleteObject(const ObjectReference& object) {
  // The message goes to the object itself, not to its device.
  const auto handle = int32ForKey(object, "icao");
  if (!handle) return status::kICAInvalidObject;
  ICAObjectSendMessagePB block;
  block.object = static_cast<ICAObject>(*handle);
  block.messageType = ica::kMessageDelete;
  const Status status = icaObjectSendMessage(block);
  if (status != status::kOK || !icaDictionary_ || !arrayForKey(*icaDictionary_, kPictures)) {
    return status;
  }
  // Our own copy, which nobody else brings up to date.
  auto& pictures = (*icaDictionary_)[kPictures];
  // Erased here and not fetched anew: a user who deletes a hundred pictures would have them all
  // listed a hundred times.
  const auto deleted = std::ranges::find_if(
      pictures, [&](const auto& picture) { return int32ForKey(picture, "icao") == handle; });
  if (deleted != pictures.end()) pictures.erase(deleted);
  return status;
}

Status XTImageCaptureDevice::setDateTime() {
  Status failure = status::kOK;
  const auto* capabilities = loadedProperty(kCapabilities, &failure);
  const std::size_t count = capabilities ? capabilities->size() : 0;
  // Only a device that lists the message is sent it.
  for (std::size_t i = 0; i < count; ++i) {
    const auto& element = (*capabilities)[i];
    const auto code = element.is_number_integer() ? element.get<FourCharCode>() : FourCharCode{0};
    TraceLog::trace("Capability %d: %s", static_cast<int>(i), fourCharText(code).c_str());
    if (code != ica::kMessageSyncClock) continue;
    ICAObjectSendMessagePB block;
    block.object = icaObject_;
    block.messageType = ica::kMessageSyncClock;
    const Status status = icaObjectSendMessage(block);
    if (status != status::kOK) {
      TraceLog::trace("setDateTime CameraSyncClock objectSendMessagePB.header.err: 0x%x",
                      static_cast<unsigned>(status));
    }
    return status;
  }
  // A device that could not be asked may have a clock.
  const bool isKnown = failure == status::kOK || failure == status::kICAPropertyNotFound;
  return isKnown ? status::kUnsupported : failure;
}

void XTImageCaptureDevice::forgetContents() {
  // The copy itself stays until it is fetched again: who holds a look into it goes on.
  if (icaObject_ != 0) PictureDeviceRoom::imageCapture().forgetContents(icaObject_);
  icaDictionaryDirty_ = true;
}

void XTImageCaptureDevice::storesChanged() {
  // Handles of objects and stores are given anew when a card was changed.
  fields_.objectInfoCache.clear();
  fields_.storageIDCache.reset();
  fields_.cachedAlbumDict.reset();
  forgetContents();
  icaDictionary_.reset();
}

Status XTImageCaptureDevice::registerForExtendedEvents() {
  // Weak, so that a registration does not keep a device alive.
  const auto listener = [weak = weak_from_this()](const ICAEvent& event) {
    // An event can be on its way while the last holder lets the device go.
    const auto device = std::dynamic_pointer_cast<XTImageCaptureDevice>(weak.lock());
    if (device && PictureDeviceRoom::current()) device->extendedEvent(event.dictionary);
  };
  const Status status = PictureDeviceRoom::imageCapture().registerForEventNotification(
      icaObject_, ica::kExtended, listener);
  if (status != status::kOK) {
    TraceLog::trace("Extended : registerEventNotificationPB.header.err: %i", status);
  }
  return status;
}

void XTImageCaptureDevice::unregisterForExtendedEvents() {
  const Status status = PictureDeviceRoom::imageCapture().registerForEventNotification(
      icaObject_, ica::kExtended, {});
  if (status != status::kOK) {
    TraceLog::trace("Extended : registerEventNotificationPB.header.err: %i", status);
  }
}

void XTImageCaptureDevice::extendedEvent(const PropertyDictionary& event) {
  const auto number = [&](const char* key) {
    return static_cast<std::uint32_t>(int32ForKey(event, key).value_or(0));
  };
  std::vector<std::uint32_t> parameters;
  if (const auto* list = arrayForKey(event, "params")) {
    for (const auto& parameter : *list)
      parameters.push_back(parameter.is_number_integer() ? parameter.get<std::uint32_t>() : 0);
  }
  const auto code = static_cast<std::uint16_t>(number("code"));
  // As the service has forgotten its own lists by now.
  if (code == ptp::kObjectAdded || code == ptp::kObjectRemoved) icaDictionaryDirty_ = true;
  handlePTPEvent(code, number("session"), number("transaction"), parameters);
}

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
  const Status status = PictureDeviceRoom::imageCapture().downloadFile(object, folder.path(), path);
  if (status != status::kOK) {
    TraceLog::trace("parseTreeForOrderFiles downloadFilePB.header.err: 0x%x",
                    static_cast<unsigned>(status));
    return {};
  }
  // The caller removes it with the file.
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
  // The first that cannot be deleted ends it, and its status is the result.
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
    // One for each marker, since cards hold several of one name in different folders.
    const ScratchFolder folder;
    const auto safeName = safeFileName(name);
    const std::string path = folder.path() + "/" + safeName.value_or("");
    status = safeName ? downloadFile(marker, path) : status::kIOError;
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

namespace {

/// In bytes. A record without a data phase still has one byte of room.
/// A payload that goes straight to its sink needs no room in the record, and a large room is made
/// apart: clearing megabytes costs more than reading into them.
std::size_t recordRoomFor(const PTPRequest& request) {
  const bool isElsewhere = request.sink != nullptr || request.source != nullptr ||
                           request.room > PassThroughTransaction::kLargestClearedRoom;
  return isElsewhere ? 1 : std::max<std::size_t>({request.room, request.data.size(), 1});
}

/// What the record announces: the exact size of what is sent, the room for what is received; the
/// service writes there how much came.
std::uint64_t dataSizeOf(const PTPRequest& request) {
  if (request.dataUsageMode != kDataToDevice) return request.room;
  return request.source ? request.source->size() : request.data.size();
}

[[noreturn]] void raiseMalloc(const PTPRequest& request) {
  throw Exception(std::string(exception_name::kMalloc), request.mallocFailure);
}

}  // namespace

PassThroughTransaction::PassThroughTransaction(PTPRequest request)
    : request_(std::move(request)), record_(recordRoomFor(request_), request_.mallocFailure) {
  // Most operations name themselves alike in all lines.
  if (request_.headerFailure.empty()) request_.headerFailure = request_.method;
  if (request_.resultFailure.empty()) request_.resultFailure = request_.headerFailure;

  const std::size_t most =
      request_.sink || request_.source ? std::numeric_limits<std::uint32_t>::max() : kLargestRoom;
  if (dataSizeOf(request_) > most) raiseMalloc(request_);
  if (!request_.sink && request_.room > kLargestClearedRoom) makeLargeRoom();

  auto& pb = record_.pb();
  pb.commandCode = request_.operation;
  pb.numOfInputParams = static_cast<std::uint32_t>(
      std::min<std::size_t>(request_.parameters.size(), std::size(pb.params)));
  std::copy_n(request_.parameters.begin(), pb.numOfInputParams, pb.params);
  pb.numOfOutputParams = request_.responseParameters;
  pb.dataUsageMode = request_.dataUsageMode;
  pb.dataSize = static_cast<std::uint32_t>(dataSizeOf(request_));
  record_.setSink(request_.sink);
  record_.setSource(request_.source);
  // Also ends the loan: a retry or a late look at the record must not reach the caller's bytes.
  // Small: what is large is sent from a source.
  if (!request_.source) std::ranges::copy(request_.data, record_.data().begin());
}

void PassThroughTransaction::makeLargeRoom() {
  try {
    largeSink_ =
        std::make_unique<BufferSink>(largeData_, static_cast<std::uint32_t>(request_.room));
  } catch (const std::bad_alloc&) {
    raiseMalloc(request_);
  }
  request_.sink = largeSink_.get();
}

bool PassThroughTransaction::run(XTImageCaptureDevice& device) {
  // Remembered, since a device may lose its object while the transaction runs.
  hadObject_ = device.icaObject() != 0;
  if (!hadObject_) {
    TraceLog::trace("%s couldn't get an ICA object", request_.method.c_str());
    return false;
  }
  ICAObjectSendMessagePB block;
  block.object = device.icaObject();
  block.messageType = ica::kMessagePass;
  block.data = &record_;
  block.dataSize = static_cast<std::uint32_t>(record_.allocationSize());
  block.dataType = ica::kDataTypeData;
  status_ = device.icaObjectSendMessage(block);
  headerErr_ = block.headerErr;
  // Lent no longer; our own sink cuts its data to what came.
  // The record may be taken and kept by the caller, longer than the sink lives.
  record_.setSink(nullptr);
  record_.setSource(nullptr);
  largeSink_.reset();
  const bool succeeded = outcome() == status::kOK;
  // An answer that is expected ("there are none of that format") is no failure and would fill the
  // trace.
  const bool isAnswer = responseCode() != 0 && responseCode() == request_.untracedResponse;
  if (!succeeded && !isAnswer) traceFailure();
  return succeeded;
}

Status PassThroughTransaction::outcome() const {
  // The response says more than the message's status; the status counts when the response is OK.
  if (!hadObject_) return status::kPTPSessionNotOpen;
  // The device has no word for it: the user, or whoever takes or gives the data, wanted no more.
  if (status_ == status::kCancelled) return status_;
  const auto response = static_cast<Status>(responseCode());
  if (response == status::kPTPOK) return status_;
  // 0 is what stands there when the device has not answered.
  return response == 0 ? status::kPTPGeneralError : response;
}

std::span<const std::byte> PassThroughTransaction::received() const {
  if (!largeData_.empty()) return largeData_;
  if (request_.sink) return {};
  const auto data = record_.data();
  // The size is the device's word by now and is not trusted.
  return data.first(std::min<std::size_t>(record_.pb().dataSize, data.size()));
}

XTPTPDataSet PassThroughTransaction::reader() const {
  return reader(request_.room);
}

XTPTPDataSet PassThroughTransaction::reader(std::size_t length) const {
  // The whole room, not what was received: the rest was cleared and reads as zeros.
  const auto data = request_.sink ? received() : record_.data();
  return XTPTPDataSet::ptpDataSetWithBytesNoCpy(data.first(std::min(length, data.size())),
                                                kPTPByteOrder);
}

bool PassThroughTransaction::wasShort(const XTPTPDataSet& reader) const {
  const bool isShort = reader.position() > received().size();
  if (isShort) {
    TraceLog::trace("%s read %u bytes, the device sent %zu", request_.method.c_str(),
                    reader.position(), received().size());
  }
  return isShort;
}

void PassThroughTransaction::traceFailure() const {
  const char* const header = request_.headerFailure.c_str();
  const auto error = static_cast<unsigned>(headerErr_);
  switch (request_.failureTrace) {
    case FailureTrace::kStatusAndResponse:
      TraceLog::trace("%s status %d response 0x%X", header, status_, responseCode());
      return;
    case FailureTrace::kHeaderAndResultInOne:
      TraceLog::trace("%s objectSendMessagePB.header.err: 0x%x, result %i: resultCode: 0x%x",
                      header, error, status_, responseCode());
      return;
    case FailureTrace::kHeaderAndResult:
      TraceLog::trace("%s objectSendMessagePB.header.err: 0x%x", header, error);
      TraceLog::trace("%s result %i: resultCode: 0x%x", request_.resultFailure.c_str(), status_,
                      responseCode());
      return;
  }
}

}  // namespace tarvo
