#include "platform/imagecapture/ImageCaptureService.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/foundation/MainLoopGuard.h"
#include "platform/imagecapture/PTPChannel.h"
#include "platform/imagecapture/PTPObjectReader.h"

namespace tarvo {

namespace {

/// The scope of a device that has nothing to claim.
class IdleScope : public ICAScope {};

constexpr ICAObjectInfo kDeviceListInfo{ica::kObjectList, ica::kDevice};
constexpr ICAObjectInfo kDeviceInfo{ica::kDevice, ica::kCamera};

/// Containers on USB do not say which session an event belongs to.
constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

ICAObjectInfo infoOf(const FileObject& file) {
  if (file.object.isFolder()) return {ica::kDirectory, ica::kDirectory};
  return {ica::kFile, file.object.isPicture() ? ica::kPictureFile : ica::kOtherFile};
}

PropertyDictionary dictionaryOf(const ptp::Event& event) {
  auto parameters = PropertyDictionary::array();
  for (unsigned i = 0; i < event.parameterCount; ++i)
    parameters.push_back(event.parameters.at(i));
  return {{"code", event.code},
          {"session", kNoSession},
          {"transaction", event.transactionID},
          {"params", std::move(parameters)}};
}

std::string nameOf(const DeviceObject& device) {
  return textForKey(device.dictionary, "ifil").value_or("");
}

}  // namespace

ImageCaptureService::ImageCaptureService(Registry& registry, MountTable& mounts,
                                         ptp::PTPConnector& connector, LogSink log)
    : registry_(registry),
      mounts_(mounts),
      connector_(connector),
      log_(std::move(log)),
      events_(log_) {}

ImageCaptureService::~ImageCaptureService() {
  // A channel may outlive the service in a client's scope, and its handler points here.
  for (const DeviceObject& device : objects_.devices())
    if (device.channel) device.channel->watchEvents(nullptr);
}

void ImageCaptureService::look() {
  // Not in the constructor: sources announce what is present, and nobody is registered yet by then.
  if (cameras_) return;
  DeviceSink& sink = *this;  // Only here is it known to be one.
  cameras_.emplace(registry_, sink, log_);
  volumes_.emplace(registry_, mounts_, sink, log_);
}

Status ImageCaptureService::getDeviceList(ICAObject& list) {
  list = ObjectTable::kDeviceList;
  return status::kOK;
}

Status ImageCaptureService::getObjectInfo(ICAObject object, ICAObjectInfo& info) {
  if (const FileObject* file = contents_.file(object)) {
    info = infoOf(*file);
    return status::kOK;
  }
  if (!objects_.contains(object)) return objects_.statusOfMissing(object);
  info = object == ObjectTable::kDeviceList ? kDeviceListInfo : kDeviceInfo;
  return status::kOK;
}

// What lies on a device is not listed among its children: its dictionary has it.
Status ImageCaptureService::getChildCount(ICAObject object, std::uint32_t& count,
                                          Status& headerErr) {
  // Whoever enumerates without having registered sees devices, too.
  look();
  // Zero for a device, and for what is not there.
  const bool isList = object == ObjectTable::kDeviceList;
  count = isList ? static_cast<std::uint32_t>(objects_.devices().size()) : 0;
  const bool isThere = objects_.contains(object) || contents_.file(object) != nullptr;
  headerErr = isThere ? status::kOK : objects_.statusOfMissing(object);
  return headerErr;
}

Status ImageCaptureService::getNthChild(ICAObject parent, std::uint32_t index,
                                        ICAChildInfo& child) {
  look();
  if (!objects_.contains(parent)) return objects_.statusOfMissing(parent);
  const auto& devices = objects_.devices();
  if (parent != ObjectTable::kDeviceList || index >= devices.size())
    return status::kICAInvalidObject;
  child = {devices[index].handle, kDeviceInfo};
  return status::kOK;
}

Status ImageCaptureService::copyObjectPropertyDictionary(ICAObject object,
                                                         PropertyDictionary& dictionary) {
  if (const FileObject* file = contents_.file(object)) {
    dictionary = file->dictionary();
    return status::kOK;
  }
  const DeviceObject* device = objects_.device(object);
  if (!device) return objects_.statusOfMissing(object);
  dictionary = device->dictionary;
  return status::kOK;
}

// Unlike the dictionary this loads what is missing, so only who asks for "data" or "tree" pays for
// reading them.
Status ImageCaptureService::copyObjectProperty(ICAObject object, std::string_view key,
                                               PropertyDictionary& value) {
  Status result = loadProperty(object, key);
  if (result != status::kOK) return result;
  PropertyDictionary dictionary;
  const DeviceObject* device = objects_.device(object);
  // A device's dictionary may be large: it is looked into where it lies.
  if (!device) result = copyObjectPropertyDictionary(object, dictionary);
  if (result != status::kOK) return result;
  const PropertyDictionary& properties = device ? device->dictionary : dictionary;
  const auto found = properties.find(key);
  if (found == properties.end()) return status::kICAPropertyNotFound;
  value = *found;
  return status::kOK;
}

Status ImageCaptureService::loadProperty(ICAObject object, std::string_view key) {
  const DeviceObject* device = objects_.device(object);
  // A volume has no capabilities to be asked for.
  const bool isNeverLoaded = !device || (device->isVolume() && key == "capa");
  if (isNeverLoaded || !contents_.isMissing(object, device->dictionary, key)) return status::kOK;
  if (device->isVolume()) {
    DeviceObject* volume = objects_.device(object);
    return contents_.loadVolume(object, mountPointOf(object), volume->dictionary);
  }
  // A copy, for the transactions let events in, and the device may go or be forgotten meanwhile.
  PropertyDictionary loaded = device->dictionary;
  const auto load = [&](PTPChannel& channel, std::string* why) {
    return contents_.load(object, channel, key, loaded, why);
  };
  const Status result = withChannel(object, load);
  // Looked up anew: the table may have moved.
  DeviceObject* owner = objects_.device(object);
  if (result == status::kOK && owner) owner->dictionary = std::move(loaded);
  return result;
}

void ImageCaptureService::forgetContents(ICAObject object) {
  if (DeviceObject* device = objects_.device(object)) contents_.forget(object, device->dictionary);
}

Status ImageCaptureService::registerForEventNotification(ICAObject object, FourCharCode type,
                                                         EventCallback callback) {
  look();
  if (object != 0 && !objects_.contains(object)) return objects_.statusOfMissing(object);
  events_.set(object, type, std::move(callback));
  if (type == ica::kExtended)
    // Cameras are watched only while somebody listens.
    for (const DeviceObject& device : objects_.devices())
      updateWatching(device);
  return status::kOK;
}

void ImageCaptureService::updateWatching(const DeviceObject& device) {
  const bool isWanted = events_.hears(device.handle, ica::kExtended);
  if (device.isVolume() || isWanted == device.channel->isWatchingEvents()) return;
  PTPChannel::EventHandler handler;
  if (isWanted)
    handler = [this, object = device.handle](const auto& event) { cameraReported(object, event); };
  device.channel->watchEvents(std::move(handler));
}

void ImageCaptureService::cameraReported(ICAObject object, const ptp::Event& event) {
  const bool stores = event.code == ptp::kStoreAdded || event.code == ptp::kStoreRemoved;
  // Forgotten first, so that who hears of it reads anew. Another store may use the same handles.
  if (stores) contents_.dropFiles(object);
  if (stores || event.code == ptp::kObjectAdded || event.code == ptp::kObjectRemoved)
    forgetContents(object);
  events_.deliver({object, ica::kExtended, dictionaryOf(event)});
  const DeviceObject* device = objects_.device(object);
  if (!stores || !device) return;
  const auto type = event.code == ptp::kStoreAdded ? ica::kStoreAdded : ica::kStoreRemoved;
  events_.deliver({object, type, {{"ifil", nameOf(*device)}}});
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
  if (contents_.file(object)) return status::kICAPropertyNotFound;
  const DeviceObject* device = objects_.device(object);
  if (!device) return objects_.statusOfMissing(object);
  if (type != ica::kPropertyVolumeLabel) return status::kICAPropertyNotFound;
  const auto label = textForKey(device->dictionary, "volume");
  if (!label) return status::kICAPropertyNotFound;
  data = *label;
  return status::kOK;
}

Status ImageCaptureService::downloadFile(ICAObject object, const std::string& folder,
                                         std::string& path) {
  const FileObject* found = contents_.file(object);
  if (!found)
    return objects_.contains(object) ? status::kICAInvalidObject : objects_.statusOfMissing(object);
  if (found->object.isFolder()) return status::kNotAFile;
  const FileObject file = *found;  // it may be dropped meanwhile
  if (const std::string mountPoint = mountPointOf(file.device); !mountPoint.empty())
    return copyFromVolume(mountPoint, {file.object, file.path}, folder, path);
  return withChannel(file.device, [&](PTPChannel& channel, std::string* why) {
    return downloadObject(channel, file.object, folder, path, why);
  });
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
  updateWatching(device);
  const ICAObject object = device.handle;
  const std::string name = nameOf(device);
  logTo(log_, LogLevel::kDebug, formatted("device 0x%X came: '%s'", object, name.c_str()));
  for (const auto type : {ica::kDeviceAdded, ica::kICANotificationTypeDeviceAdded})
    events_.deliver({object, type, {{"ifil", name}}});
  return object;
}

void ImageCaptureService::deviceWent(ICAObject object) {
  // First off the table, then told: who enumerates on hearing of it does not find it any more.
  const DeviceObject device = objects_.remove(object);
  if (device.handle == 0) return;
  if (device.channel) device.channel->deviceWent();
  contents_.dropDevice(object);
  const std::string name = nameOf(device);
  logTo(log_, LogLevel::kDebug, formatted("device 0x%X went: '%s'", object, name.c_str()));
  events_.deliver({object, ica::kDeviceRemoved, {{"ifil", name}}});
  // After the delivery, or its own listener would not hear of the end.
  events_.forget(object);
}

Status ImageCaptureService::sendMessage(ICAObjectSendMessagePB& block) {
  // A file handle takes one message, its deletion; all others are for a device.
  if (const FileObject* file = contents_.file(block.object))
    return block.messageType == ica::kMessageDelete ? deleteFile(*file) : status::kICAInvalidObject;
  // The deletion of a whole device makes no sense, and neither does a message to a volume.
  if (objects_.device(block.object) && block.messageType == ica::kMessageDelete)
    return status::kICAInvalidObject;
  return withChannel(block.object, [&](PTPChannel& channel, std::string* why) {
    switch (block.messageType) {
      case ica::kMessagePass:
        return block.data ? passThrough(channel, *block.data, why) : status::kBadParameter;
      case ica::kMessageSyncClock:
        return setClock(channel, std::time(nullptr), why);
      default:
        return status::kUnsupported;
    }
  });
}

Status ImageCaptureService::deleteFile(const FileObject& deleted) {
  const FileObject file = deleted;
  const std::string mountPoint = mountPointOf(file.device);
  const auto onCamera = [&](PTPChannel& channel, std::string* why) {
    return deleteObject(channel, file.object.handle, why);
  };
  const Status result = mountPoint.empty() ? withChannel(file.device, onCamera)
                                           : removeFromVolume(mountPoint, file.path);
  if (result != status::kOK) return result;
  contents_.dropFile(file.handle);
  forgetContents(file.device);
  return status::kOK;
}

std::string ImageCaptureService::mountPointOf(ICAObject object) const {
  const DeviceObject* device = objects_.device(object);
  if (!device || !device->isVolume()) return {};
  return mounts_.volumesFolder() + "/" + textForKey(device->dictionary, "volume").value_or("");
}

Status ImageCaptureService::withChannel(
    ICAObject object, const std::function<Status(PTPChannel& channel, std::string* why)>& work) {
  const DeviceObject* device = objects_.device(object);
  if (!device) return objects_.statusOfMissing(object);
  if (device->isVolume()) return status::kICAInvalidObject;
  const std::shared_ptr<PTPChannel> channel = device->channel;  // the table may change meanwhile
  // For the log, where the caller has no use for words.
  std::string why;
  Status result = status::kOK;
  const auto scope = PTPScope::open(channel, &result, &why);
  if (scope) result = work(*channel, &why);
  // The caller reports the status as loudly as the device deserves; the words are for the curious.
  if (result != status::kOK && !why.empty())
    logTo(log_, LogLevel::kDebug, formatted("device 0x%X: %s", object, why.c_str()));
  return result;
}

const DeviceObject& ObjectTable::add(PropertyDictionary dictionary,
                                     std::shared_ptr<PTPChannel> channel) {
  return devices_.emplace_back(
      DeviceObject{++lastHandle_, std::move(dictionary), std::move(channel)});
}

DeviceObject ObjectTable::remove(ICAObject handle) {
  const auto found = std::ranges::find(devices_, handle, &DeviceObject::handle);
  // Handle 0, which is no object.
  if (found == devices_.end()) return {};
  DeviceObject removed = std::move(*found);
  devices_.erase(found);
  return removed;
}

const DeviceObject* ObjectTable::device(ICAObject handle) const {
  const auto found = std::ranges::find(devices_, handle, &DeviceObject::handle);
  return found == devices_.end() ? nullptr : &*found;
}

Status ObjectTable::statusOfMissing(ICAObject handle) const {
  // Handles count up, so one that was given out and is not there any more has gone.
  // Clients are told the difference, for a device that has gone is no mistake of theirs.
  return handle > kDeviceList && handle <= lastHandle_ ? status::kICADeviceGone
                                                       : status::kICAInvalidObject;
}

void EventRegistrations::set(ICAObject object, FourCharCode type,
                             ImageCapture::EventCallback callback) {
  if (callback) {
    callbacks_[{object, type}] = std::move(callback);
  } else {
    callbacks_.erase({object, type});
  }
}

void EventRegistrations::deliver(const ICAEvent& event) const {
  // The object's own listener first: it knows the object, the other may ask it.
  deliverTo(event.object, event);
  deliverTo(0, event);
}

void EventRegistrations::forget(ICAObject object) {
  std::erase_if(callbacks_, [&](const auto& each) { return each.first.first == object; });
}

void EventRegistrations::deliverTo(ICAObject registered, const ICAEvent& event) const {
  const auto found = callbacks_.find({registered, event.type});
  if (found == callbacks_.end()) return;
  const auto callback = found->second;  // it may be replaced while it runs
  guardedEntry(log_, "Image Capture event", [&] { callback(event); });
}

std::optional<PropertyDictionary> usbDeviceAbove(Registry& registry, ServiceHandle service) {
  // The nearest: below a hub both are USB devices, and the camera is the inner one.
  auto found = nearestAncestor(registry, service, {.key = "USB Product Name"});
  return found.handle == 0 ? std::nullopt : std::optional(std::move(found.properties));
}

PropertyDictionary deviceDictionary(const std::string& name, std::string_view module,
                                    const PropertyDictionary& usbDevice) {
  // Clients compare the last component of the path alone.
  PropertyDictionary dictionary = {
      {"ifil", name},
      {"device module", "/System/Library/Image Capture/Devices/" + std::string(module)},
      {"capa", PropertyDictionary::array()}};
  for (const char* key : {"idVendor", "idProduct", "locationID"}) {
    const auto number = usbDevice.find(key);
    // A device that tells no number has no key, which clients take for unknown; 0 would be a
    // number.
    if (number != usbDevice.end()) dictionary[key] = *number;
  }
  return dictionary;
}

PTPSource::PTPSource(Registry& registry, DeviceSink& sink, LogSink log)
    : registry_(registry), sink_(sink), log_(std::move(log)) {
  const PropertyDictionary match = {{"IOClass", "usb_interface"},
                                    {"bInterfaceClass", ptp::kStillImageClass},
                                    {"bInterfaceSubClass", ptp::kStillImageSubclass},
                                    {"bInterfaceProtocol", ptp::kPTPProtocol}};
  // Subscribed before what is present is looked at, so that nothing falls in between;
  // interfaceCame() passes over what comes twice.
  subscription_ = registry_.addMatchingNotification(
      match, [this](ServiceHandle service) { interfaceCame(service); },
      [this](ServiceHandle service) { interfaceWent(service); });
  for (const ServiceHandle service : subscription_->present())
    interfaceCame(service);
}

void PTPSource::interfaceCame(ServiceHandle service) {
  // udev repeats events, and what is found may be announced as well.
  if (devices_.contains(service)) return;
  auto device = describe(service);
  if (!device) {
    logTo(log_, LogLevel::kDebug, formatted("PTP interface %u went before it was read", service));
    return;
  }
  devices_[service] = sink_.deviceCame(std::move(*device));
}

void PTPSource::interfaceWent(ServiceHandle service) {
  // Off the map first: listeners may look for devices in their turn.
  const auto device = devices_.extract(service);
  if (device) sink_.deviceWent(device.mapped());
}

std::optional<FoundDevice> PTPSource::describe(ServiceHandle service) {
  const auto interface = registry_.properties(service);
  const auto usbDevice = usbDeviceAbove(registry_, service);
  if (!interface || !usbDevice) return std::nullopt;
  const auto number = int32ForKey(*interface, "bInterfaceNumber");
  const auto node = textForKey(*usbDevice, "USB Device Node");
  // Without them the interface cannot be claimed; an entry loses them when its device goes.
  if (!number || !node) return std::nullopt;
  const std::string name = textForKey(*usbDevice, "USB Product Name").value_or("");
  return FoundDevice{deviceDictionary(name, device_module::kPTPCamera, *usbDevice),
                     ptp::USBInterfaceAddress{*node, static_cast<std::uint8_t>(*number)}};
}

namespace {

bool holdsPictureFolder(const std::string& mountPoint) {
  // DCF, the rule for camera cards, wants this folder at the top; it is what every camera makes. A
  // card that cannot be read is a card all the same.
  std::error_code unreadable;  // counts as no folder
  return std::filesystem::is_directory(mountPoint + "/DCIM", unreadable);
}

}  // namespace

VolumeSource::VolumeSource(Registry& registry, MountTable& mounts, DeviceSink& sink, LogSink log)
    : registry_(registry), mounts_(mounts), sink_(sink), log_(std::move(log)) {
  mounts_.watch([this] { mountsChanged(); });
  // What is mounted already counts as having come: units and cards are plugged in before the
  // session starts.
  mountsChanged();
}

VolumeSource::~VolumeSource() {
  mounts_.watch(nullptr);
}

void VolumeSource::mountsChanged() {
  const std::vector<Mount> present = volumesMounted();
  const auto isGone = [&](const Volume& volume) {
    return std::ranges::find(present, volume.mount) == present.end();
  };
  // A volume that was mounted anew from another disk has gone and come: both are told in this
  // order.
  // Taken off before anybody is told: a listener that asks for the devices must not find one that
  // has gone.
  std::vector<Volume> gone;
  std::ranges::copy_if(volumes_, std::back_inserter(gone), isGone);
  std::erase_if(volumes_, isGone);
  for (const Volume& volume : gone) {
    if (volume.object != 0) sink_.deviceWent(volume.object);
  }
  for (const Mount& mount : present) {
    if (std::ranges::find(volumes_, mount, &Volume::mount) == volumes_.end()) volumeCame(mount);
  }
}

void VolumeSource::volumeCame(const Mount& mount) {
  auto device = describe(mount);
  if (!device) logTo(log_, LogLevel::kDebug, mount.mountPoint + " is no volume of a USB device");
  // Also where it is no device, so that it is not looked at again at every change of the mount
  // table.
  volumes_.push_back({mount, device ? sink_.deviceCame(std::move(*device)) : 0});
}

// Of several filesystems mounted on one folder the last one is what is seen there.
std::vector<Mount> VolumeSource::volumesMounted() const {
  std::vector<Mount> present;
  for (Mount& mount : mounts_.mounts()) {
    if (nameOfVolume(mount.mountPoint).empty()) continue;
    std::erase_if(present, [&](const Mount& each) { return each.mountPoint == mount.mountPoint; });
    present.push_back(std::move(mount));
  }
  return present;
}

std::string VolumeSource::nameOfVolume(std::string_view mountPoint) const {
  std::string_view folder = mounts_.volumesFolder();
  while (folder.ends_with('/'))
    folder.remove_suffix(1);
  if (!mountPoint.starts_with(folder)) return {};
  mountPoint.remove_prefix(folder.size());
  // Exactly one level below: deeper mounts belong to somebody's own arrangement.
  if (!mountPoint.starts_with('/') || mountPoint.find('/', 1) != std::string_view::npos) return {};
  return std::string(mountPoint.substr(1));
}

std::optional<FoundDevice> VolumeSource::describe(const Mount& mount) {
  // The kernel name of the disk, as the registry has it.
  const std::string bsdName = lastPathComponent(mount.device);
  // Once, when it comes: the disk behind a mount does not change while it is mounted.
  const auto services = registry_.servicesMatchingBSDName(bsdName);
  // tmpfs, network and loop mounts have no disk of the registry behind them.
  if (services.empty()) return std::nullopt;
  const auto usbDevice = usbDeviceAbove(registry_, services.front());
  if (!usbDevice) return std::nullopt;
  const auto module = holdsPictureFolder(mount.mountPoint) ? device_module::kMassStorageCamera
                                                           : device_module::kMassStorage;
  const std::string name = nameOfVolume(mount.mountPoint);
  PropertyDictionary dictionary = deviceDictionary(name, module, *usbDevice);
  dictionary["volume"] = name;
  dictionary["bsdName"] = bsdName;
  return FoundDevice{std::move(dictionary), std::nullopt};
}

}  // namespace tarvo
