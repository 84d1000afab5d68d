#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"

#include <typeinfo>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/DeviceInspection.h"
#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo {

namespace {

ImageCapture& imageCapture() {
  return PictureDeviceRoom::required().services().imageCapture;
}

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
  if (!icaDictionaryDirty_ && icaDictionary_) return status::kOK;
  if (icaObject_ == 0) {
    TraceLog::trace("refreshIcaDictionary couldn't get an ICA object");
    return status::kIOError;
  }
  PropertyDictionary dictionary;
  const Status status = imageCapture().copyObjectPropertyDictionary(icaObject_, dictionary);
  if (status == status::kOK) {
    traceDictionary(dictionary);
    icaDictionary_ = std::move(dictionary);
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
  lastMessageStatus_ = imageCapture().objectSendMessage(block);
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
  const bool isOfSameObject =
      icaObject_ != 0 && typeid(*this) == typeid(other) &&
      static_cast<const XTImageCaptureDevice&>(other).icaObject_ == icaObject_;
  return isOfSameObject || XTPictureDevice::isSameDeviceAs(other);
}

std::int64_t XTImageCaptureDevice::thumbSize(const ObjectReference& object) {
  return sizeForKey(object, "tsiz");
}

std::int64_t XTImageCaptureDevice::objectSize(const ObjectReference& object) {
  if (!object.is_object()) raiseAssertion("_objectHandle is not a dictionary!");
  return sizeForKey(object, "isiz");
}

std::optional<std::string> XTImageCaptureDevice::objectFilename(const ObjectReference& object) {
  return textForKey(object, "ifil");
}

}  // namespace tarvo
