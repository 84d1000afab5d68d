#include "platform/imagecapture/ImageCaptureService.h"

#include <ctime>
#include <utility>

#include "Utilities/Format.h"
#include "platform/imagecapture/PTPMessages.h"

namespace tarvo {
namespace {

/// The scope of a device that has nothing to claim.
class IdleScope : public ICAScope {};

constexpr ICAObjectInfo kDeviceListInfo{ica::kObjectList, ica::kDevice};
constexpr ICAObjectInfo kDeviceInfo{ica::kDevice, ica::kCamera};

std::string nameOf(const DeviceObject& device) {
  return textForKey(device.dictionary, "ifil").value_or("");
}

}  // namespace

ImageCaptureService::ImageCaptureService(Registry& registry, MountTable& mounts,
                                         ptp::PTPConnector& connector, LogSink log)
    : connector_(connector),
      log_(std::move(log)),
      events_(log_),
      cameras_(registry, *this, log_),
      volumes_(registry, mounts, *this, log_) {}

Status ImageCaptureService::getDeviceList(ICAObject& list) {
  list = ObjectTable::kDeviceList;
  return status::kOK;
}

Status ImageCaptureService::getObjectInfo(ICAObject object, ICAObjectInfo& info) {
  if (!objects_.contains(object)) return objects_.statusOfMissing(object);
  info = object == ObjectTable::kDeviceList ? kDeviceListInfo : kDeviceInfo;
  return status::kOK;
}

// What lies on a device is not listed among its children.
Status ImageCaptureService::getChildCount(ICAObject object, std::uint32_t& count,
                                          Status& headerErr) {
  // Zero for a device, and for what is not there.
  const bool isList = object == ObjectTable::kDeviceList;
  count = isList ? static_cast<std::uint32_t>(objects_.devices().size()) : 0;
  headerErr = objects_.contains(object) ? status::kOK : objects_.statusOfMissing(object);
  return headerErr;
}

Status ImageCaptureService::getNthChild(ICAObject parent, std::uint32_t index,
                                        ICAChildInfo& child) {
  if (!objects_.contains(parent)) return objects_.statusOfMissing(parent);
  const auto& devices = objects_.devices();
  if (parent != ObjectTable::kDeviceList || index >= devices.size())
    return status::kICAInvalidObject;
  child = {devices[index].handle, kDeviceInfo};
  return status::kOK;
}

Status ImageCaptureService::copyObjectPropertyDictionary(ICAObject object,
                                                         PropertyDictionary& dictionary) {
  const DeviceObject* device = objects_.device(object);
  if (!device) return objects_.statusOfMissing(object);
  dictionary = device->dictionary;
  return status::kOK;
}

Status ImageCaptureService::copyObjectProperty(ICAObject object, std::string_view key,
                                               PropertyDictionary& value) {
  const DeviceObject* device = objects_.device(object);
  if (!device) return objects_.statusOfMissing(object);
  const auto found = device->dictionary.find(key);
  if (found == device->dictionary.end()) return status::kICAPropertyNotFound;
  value = *found;
  return status::kOK;
}

void ImageCaptureService::forgetContents(ICAObject) {}

Status ImageCaptureService::registerForEventNotification(ICAObject object, FourCharCode type,
                                                         EventCallback callback) {
  if (object != 0 && !objects_.contains(object)) return objects_.statusOfMissing(object);
  events_.set(object, type, std::move(callback));
  return status::kOK;
}

Status ImageCaptureService::objectSendMessage(ICAObjectSendMessagePB& block) {
  block.headerErr = sendMessage(block);
  return block.headerErr;
}

Status ImageCaptureService::getPropertyByType(ICAObject object, FourCharCode type,
                                              ICAPropertyInfo& info) {
  std::string label;
  const Status result = getPropertyData(object, type, label);
  if (result == status::kOK) info = {ica::kDataTypeText, label.size()};
  return result;
}

Status ImageCaptureService::getPropertyData(ICAObject object, FourCharCode type,
                                            std::string& data) {
  const DeviceObject* device = objects_.device(object);
  if (!device) return objects_.statusOfMissing(object);
  if (type != ica::kPropertyVolumeLabel) return status::kICAPropertyNotFound;
  const auto label = textForKey(device->dictionary, "volume");
  if (!label) return status::kICAPropertyNotFound;
  data = *label;
  return status::kOK;
}

Status ImageCaptureService::downloadFile(ICAObject object, const std::string&, std::string&) {
  return objects_.contains(object) ? status::kICAInvalidObject : objects_.statusOfMissing(object);
}

std::unique_ptr<ICAScope> ImageCaptureService::openScope(ICAObject object, Status* failure,
                                                         std::string* why) {
  const DeviceObject* device = objects_.device(object);
  if (device && !device->isVolume()) return PTPScope::open(device->channel, failure, why);
  const Status result = device ? status::kOK : objects_.statusOfMissing(object);
  if (failure) *failure = result;
  // A client opens a scope on any device without asking for its kind first.
  if (device) return std::make_unique<IdleScope>();
  if (why) *why = statusText(result);
  return nullptr;
}

ICAObject ImageCaptureService::deviceCame(FoundDevice found) {
  std::shared_ptr<PTPChannel> channel;
  if (found.interface) channel = std::make_shared<PTPChannel>(connector_, *found.interface);
  const DeviceObject& device = objects_.add(std::move(found.dictionary), std::move(channel));
  // Listeners may bring about other arrivals, which move the table: take what is needed first.
  const ICAObject object = device.handle;
  const std::string name = nameOf(device);
  logTo(log_, LogLevel::kDebug, formatted("device 0x%X came: '%s'", object, name.c_str()));
  events_.deliver({object, ica::kDeviceAdded, {{"ifil", name}}});
  return object;
}

void ImageCaptureService::deviceWent(ICAObject object) {
  // First off the table, then told: who enumerates on hearing of it does not find it any more.
  const DeviceObject device = objects_.remove(object);
  if (device.handle == 0) return;
  if (device.channel) device.channel->deviceWent();
  const std::string name = nameOf(device);
  logTo(log_, LogLevel::kDebug, formatted("device 0x%X went: '%s'", object, name.c_str()));
  events_.deliver({object, ica::kDeviceRemoved, {{"ifil", name}}});
  // After the delivery, or its own listener would not hear of the end.
  events_.forget(object);
}

Status ImageCaptureService::sendMessage(ICAObjectSendMessagePB& block) {
  const DeviceObject* device = objects_.device(block.object);
  if (!device) return objects_.statusOfMissing(block.object);
  // Neither a message to a volume's interface nor the deletion of a whole device makes sense.
  if (device->isVolume() || block.messageType == ica::kMessageDelete)
    return status::kICAInvalidObject;
  const std::shared_ptr<PTPChannel> channel = device->channel;  // the table may change meanwhile
  std::string why;
  Status result = status::kOK;
  const auto scope = PTPScope::open(channel, &result, &why);
  if (scope) result = runMessage(*channel, block, &why);
  // The caller reports the status as loudly as the device deserves; the words are for the curious.
  if (result != status::kOK && !why.empty())
    logTo(log_, LogLevel::kDebug, formatted("device 0x%X: %s", block.object, why.c_str()));
  return result;
}

Status ImageCaptureService::runMessage(PTPChannel& channel, ICAObjectSendMessagePB& block,
                                       std::string* why) {
  switch (block.messageType) {
    case ica::kMessagePass:
      return block.data ? passThrough(channel, *block.data, why) : status::kBadParameter;
    case ica::kMessageSyncClock:
      return setClock(channel, std::time(nullptr), why);
    default:
      return status::kUnsupported;
  }
}

}  // namespace tarvo
