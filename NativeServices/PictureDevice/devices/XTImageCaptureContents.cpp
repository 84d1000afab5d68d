// What lies on a device as Image Capture shows it ("tree", "data", "capa"), and what can be done
// with that through plain messages.
#include <algorithm>
#include <string_view>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

constexpr char kCapabilities[] = "capa";
constexpr char kPictures[] = "data";

ImageCapture& imageCapture() {
  return PictureDeviceRoom::required().services().imageCapture;
}

}  // namespace

const PropertyDictionary* XTImageCaptureDevice::loadedProperty(const std::string& key,
                                                               Status* failure) {
  Status status = refreshIcaDictionary();
  if (icaDictionary_ && icaDictionary_->is_object() && !loadedKeys_.contains(key)) {
    PropertyDictionary value;
    status = imageCapture().copyObjectProperty(icaObject_, key, value);
    // After a failure the device is asked again the next time.
    if (status == status::kOK) (*icaDictionary_)[key] = std::move(value);
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
  const auto deleted = std::ranges::find_if(
      pictures, [&](const auto& picture) { return int32ForKey(picture, "icao") == handle; });
  if (deleted != pictures.end()) pictures.erase(deleted);
  return status;
}

Status XTImageCaptureDevice::setDateTime() {
  Status failure = status::kOK;
  const auto* capabilities = loadedProperty(kCapabilities, &failure);
  const std::size_t count = capabilities ? capabilities->size() : 0;
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
  if (icaObject_ != 0) imageCapture().forgetContents(icaObject_);
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
  const auto listener = [weak = weak_from_this()](const ICAEvent& event) {
    // An event can be on its way while the last holder lets the device go.
    const auto device = std::dynamic_pointer_cast<XTImageCaptureDevice>(weak.lock());
    if (device && PictureDeviceRoom::current()) device->extendedEvent(event.dictionary);
  };
  const Status status =
      imageCapture().registerForEventNotification(icaObject_, ica::kExtended, listener);
  if (status != status::kOK) {
    TraceLog::trace("Extended : registerEventNotificationPB.header.err: %i", status);
  }
  return status;
}

void XTImageCaptureDevice::unregisterForExtendedEvents() {
  const Status status = imageCapture().registerForEventNotification(icaObject_, ica::kExtended, {});
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

}  // namespace tarvo
