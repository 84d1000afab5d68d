#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"

#include <algorithm>
#include <string>
#include <typeinfo>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/operations/CapabilityDetection.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"

namespace tarvo {

namespace {

constexpr std::string_view kWirelessDeviceDestroyed = "XTWirelessDeviceDestroyed";

/// False also when the launcher cannot be told.
bool isLaunchedByHelper(const PictureDeviceServices& services) {
  return services.applications.launcherIdentifier() == services.maker.helperBundleIdentifier;
}

}  // namespace

XTPictureDevice::~XTPictureDevice() {
  if (fields_.acquisitions > 0) {
    TraceLog::traceMethod("XTPictureDevice", "dealloc", this);
    TraceLog::trace("Warning dealloc'ing a device with %d pending acquisitions.",
                    static_cast<int>(fields_.acquisitions));
  }
  // The last holder may let go long after the room has ended.
  if (auto* room = PictureDeviceRoom::current()) room->services().center.removeObserver(this);
}

std::vector<std::shared_ptr<XTPictureDevice>> XTPictureDevice::deviceList() {
  auto* room = PictureDeviceRoom::current();
  return room ? room->deviceRegistry().devices() : DeviceRegistry::DeviceList();
}

void XTPictureDevice::registerAllNotifications() {
  auto& room = PictureDeviceRoom::required();
  TraceLog::traceMethod("XTPictureDevice", "registerAllNotifications", nullptr);
  // The name has been cleared by the time it is logged: intended, see docs/oddities.md.
  TraceLog::traceWithTag("launcher procName: ", XTOptDebugLog);
  // The helper has a wireless device of its own under way, and starts discovery when that has gone.
  const bool byHelper = isLaunchedByHelper(room.services());
  TraceLog::traceWithTag(byHelper ? "Launched by helper" : "Not launched by helper", XTOptDebugLog);

  // Whoever starts discovery is in the middle of its own start and not ready to hear of devices.
  auto& style = room.deviceRegistry().discoveryNotificationPostingStyle;
  style = PostingStyle::kWhenIdle;
  if (byHelper) {
    room.services().center.addObserver(&room, std::string(kWirelessDeviceDestroyed),
                                       [](const Notification&) { deferredRegistrations(); });
  } else {
    XTImageCaptureDevice::registerDeviceAddedNotifications();
  }
  style = PostingStyle::kNow;
}

void XTPictureDevice::deferredRegistrations() {
  auto& room = PictureDeviceRoom::required();
  // Once is enough: from now on arrivals come as events.
  room.services().center.removeObserver(&room, kWirelessDeviceDestroyed);
  XTImageCaptureDevice::registerDeviceAddedNotifications();
}

void XTPictureDevice::unregisterAllNotifications() {
  PictureDeviceRoom::required().deviceRegistry().clear();
}

std::vector<std::string> XTPictureDevice::detectAllDevices(
    std::vector<std::string>* classes, std::vector<std::shared_ptr<XTPictureDevice>>* devices) {
  std::vector<std::string> names;
  for (const auto& device : deviceList()) {
    // Loaded once; a device that failed before is tried again here, and has no name if it fails.
    (void)device->loadDeviceInfo();
    // Nothing that a user could choose by.
    if (device->name().empty()) continue;
    names.push_back(device->name());
    if (classes) classes->emplace_back(device->className());
    if (devices) devices->push_back(device);
  }
  return names;
}

std::shared_ptr<XTPictureDevice> XTPictureDevice::deviceWithSerialNumber(
    std::string_view serialNumber) {
  for (const auto& device : deviceList()) {
    if (device->serialNumber() == serialNumber) return device;
  }
  return nullptr;
}

// The index is only a hint: the list may have changed since it was taken.
std::shared_ptr<XTPictureDevice> XTPictureDevice::device(std::string_view name, std::size_t index) {
  const auto devices = deviceList();
  if (index < devices.size() && devices[index]->name() == name) return devices[index];
  const auto found =
      std::ranges::find_if(devices, [&](const auto& device) { return device->name() == name; });
  return found == devices.end() ? nullptr : *found;
}

std::shared_ptr<XTPictureDevice> XTPictureDevice::deviceWithName(std::string_view,
                                                                 std::string_view) {
  TraceLog::trace("deviceWithName: URL devices are not supported");
  return nullptr;
}

FourCharCode XTPictureDevice::OSTypeFromExt(std::string_view extension) {
  return fileTypeOfExtension(extension);
}

std::uint16_t XTPictureDevice::PTPTypeFromExt(std::string_view extension) {
  return ptpFormatOfExtension(extension);
}

std::string XTPictureDevice::description() const {
  return std::string(className()) + " named " + name() + ", model " + model() + " and serial# " +
         serialNumber();
}

bool XTPictureDevice::isSameDeviceAs(const XTPictureDevice& other) const {
  if (this == &other) return true;
  // A missing serial number identifies nothing. The name does not count: the user can change it
  // between two arrivals.
  return typeid(*this) == typeid(other) && !serialNumber().empty() &&
         other.serialNumber() == serialNumber() && other.manufacturer() == manufacturer();
}

std::shared_ptr<XTPictureDevice> XTPictureDevice::cache() {
  auto self = std::static_pointer_cast<XTPictureDevice>(shared_from_this());
  PictureDeviceRoom::required().deviceRegistry().add(self);
  return self;
}

void XTPictureDevice::uncache() {
  PictureDeviceRoom::required().deviceRegistry().remove(*this);
}

void XTPictureDevice::notifySelfAdded() {
  TraceLog::traceMethod(className(), "notifySelfAdded", this);
  TraceLog::trace("Notifying addition of %s", description().c_str());
  PictureDeviceRoom::required().deviceRegistry().notify(kDeviceAddedNotification, *this);
}

void XTPictureDevice::notifySelfRemoved() {
  TraceLog::traceMethod(className(), "notifySelfRemoved", this);
  TraceLog::trace("Notifying removal of %s", description().c_str());
  PictureDeviceRoom::required().deviceRegistry().notify(kDeviceRemovedNotification, *this);
}

Status XTPictureDevice::loadDeviceInfo() {
  if (fields_.deviceInfoLoaded) return status::kOK;
  const Status status = loadDeviceInfoUncached();
  // A failure is not kept: a camera that was busy may answer the next time.
  fields_.deviceInfoLoaded = status == status::kOK;
  if (!fields_.deviceInfoLoaded) {
    TraceLog::trace("XTPictureDevice: loadDeviceInfo: bad status from loadDeviceInfoUncached");
  }
  return status;
}

void XTPictureDevice::deviceWasSetupNotification(const Notification& notification) {
  if (textForKey(notification.userInfo, "XTDeviceSerialNumber") == serialNumber()) {
    fields_.cachedAlbumDict.reset();
  }
}

bool XTPictureDevice::supportsCobaltDatasets() {
  const CodeList* operations = opCodeList();
  return operations && containsCode(*operations, ptp::XTO_GET_SUPPORTED_DATASETS);
}

bool XTPictureDevice::canBeWireless() {
  return numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_WIRELESS_CONFIG) > 0;
}

bool XTPictureDevice::supportsOperation(std::uint16_t operation) {
  const auto& maker = PictureDeviceRoom::required().services().maker;
  return isOperationSupported(operation, opCodeList(),
                              vendorExtensionID() == maker.ptpVendorExtensionID);
}

namespace {

/// Logs that `selector` is not provided and gives back its default. Nothing is raised: callers go
/// on with the default.
template <typename Default>
Default subclassResponsibility(const XTPictureDevice& device, std::string_view selector,
                               Default value) {
  TraceLog::traceMethod(device.className(), selector, &device);
  TraceLog::trace("Subclass responsibility not overridden");
  return value;
}

}  // namespace

Status XTPictureDevice::displayOnDevice(std::string_view, std::string_view, std::string_view,
                                        std::string_view, std::string_view, std::string_view) {
  return status::kUnsupported;
}

Status XTPictureDevice::indicateFulfillment(std::uint32_t, std::uint32_t) {
  return status::kUnsupported;
}

const CodeList* XTPictureDevice::opCodeList() {
  return subclassResponsibility(*this, "opCodeList", nullptr);
}

const CodeList* XTPictureDevice::eventCodeList() {
  return subclassResponsibility(*this, "eventCodeList", nullptr);
}

const CodeList* XTPictureDevice::propertyList() {
  return subclassResponsibility(*this, "propertyList", nullptr);
}

const CodeList* XTPictureDevice::captureFormatList() {
  return subclassResponsibility(*this, "captureFormatList", nullptr);
}

const CodeList* XTPictureDevice::imageFormatList() {
  return subclassResponsibility(*this, "imageFormatList", nullptr);
}

std::uint8_t XTPictureDevice::batteryLevel() {
  return subclassResponsibility(*this, "batteryLevel", std::uint8_t{255});
}

Status XTPictureDevice::setDateTime() {
  return subclassResponsibility(*this, "setDateTime", status::kUnsupported);
}

Status XTPictureDevice::loadDeviceInfoUncached() {
  return subclassResponsibility(*this, "loadDeviceInfoUncached", status::kBadParameter);
}

std::unique_ptr<PTPPassThroughRecord> XTPictureDevice::deviceInfoDataset() {
  return subclassResponsibility(*this, "deviceInfoDataset", nullptr);
}

std::int32_t XTPictureDevice::imageCount() {
  return subclassResponsibility(*this, "imageCount", 0);
}

std::int32_t XTPictureDevice::squirtTransferCount() {
  return subclassResponsibility(*this, "squirtTransferCount", 0);
}

std::int32_t XTPictureDevice::squirtPrintCount() {
  return subclassResponsibility(*this, "squirtPrintCount", 0);
}

std::int32_t XTPictureDevice::squirtEmailCount() {
  return subclassResponsibility(*this, "squirtEmailCount", 0);
}

std::int32_t XTPictureDevice::numberOfObjectsOnStore(std::uint32_t, std::uint16_t) {
  return subclassResponsibility(*this, "numberOfObjectsOnStore:ofType:", -1);
}

std::int32_t XTPictureDevice::numberOfObjectsOnStore(std::uint32_t, std::uint16_t, std::uint32_t) {
  return subclassResponsibility(*this, "numberOfObjectsOnStore:ofType:withAssociation:", 0);
}

std::optional<ObjectReferences> XTPictureDevice::pictureFiles() {
  return subclassResponsibility(*this, "pictureFiles", std::nullopt);
}

std::optional<std::vector<std::string>> XTPictureDevice::orderFiles() {
  return subclassResponsibility(*this, "orderFiles", std::nullopt);
}

std::optional<EmailOrders> XTPictureDevice::emailOrderList() {
  return subclassResponsibility(*this, "emailOrderList", std::nullopt);
}

std::optional<PrintOrders> XTPictureDevice::printOrderList() {
  return subclassResponsibility(*this, "printOrderList", std::nullopt);
}

std::optional<std::vector<TransferOrder>> XTPictureDevice::transferOrderList() {
  return subclassResponsibility(*this, "transferOrderList", std::nullopt);
}

std::optional<std::vector<std::uint32_t>> XTPictureDevice::storageIDs() {
  return subclassResponsibility(*this, "storageIDs", std::nullopt);
}

std::shared_ptr<const PTPStorageInfo> XTPictureDevice::storageInfo(std::uint32_t) {
  return subclassResponsibility(*this, "storageInfo:", nullptr);
}

Status XTPictureDevice::addressBookInfo(XT_AddressBookInfo&) {
  return subclassResponsibility(*this, "addressBookInfo:", status::kOK);
}

std::optional<AddressBook> XTPictureDevice::addressBookDictUncached() {
  return subclassResponsibility(*this, "addressBookDictUncached", std::nullopt);
}

Status XTPictureDevice::setAddressBookDict(AddressBook&) {
  return subclassResponsibility(*this, "setAddressBookDict:", status::kUnsupported);
}

Status XTPictureDevice::setAddressBook(const std::string&) {
  return subclassResponsibility(*this, "setAddressBook:", status::kUnsupported);
}

std::int64_t XTPictureDevice::thumbSize(const ObjectReference&) {
  return subclassResponsibility(*this, "thumbSize:", 0);
}

std::int64_t XTPictureDevice::objectSize(const ObjectReference&) {
  return subclassResponsibility(*this, "objectSize:", 0);
}

std::optional<std::string> XTPictureDevice::objectFilename(const ObjectReference&) {
  return subclassResponsibility(*this, "objectFilename:", std::nullopt);
}

std::shared_ptr<XTExtendedObjectInfo> XTPictureDevice::objectInfoForHandle(const ObjectReference&) {
  return subclassResponsibility(*this, "objectInfoForHandle:", nullptr);
}

Status XTPictureDevice::objectInfo(std::shared_ptr<XTExtendedObjectInfo>&, std::uint32_t) {
  return subclassResponsibility(*this, "objectInfo:forHandle:", status::kNotRecognised);
}

std::optional<std::string> XTPictureDevice::hostObjectWrapperFile() {
  return subclassResponsibility(*this, "hostObjectWrapperFile", std::nullopt);
}

std::optional<ByteBuffer> XTPictureDevice::downloadThumb(const ObjectReference&) {
  return subclassResponsibility(*this, "downloadThumb:", std::nullopt);
}

Status XTPictureDevice::downloadImage(const ObjectReference&, const std::string&) {
  return subclassResponsibility(*this, "downloadImage:destination:", status::kUnsupported);
}

Status XTPictureDevice::downloadFile(const ObjectReference&, const std::string&) {
  return subclassResponsibility(*this, "downloadFile:destination:", status::kUnsupported);
}

std::optional<ByteBuffer> XTPictureDevice::downloadObject(const ObjectReference&) {
  return subclassResponsibility(*this, "downloadObject:", std::nullopt);
}

Status XTPictureDevice::sendObjectInfo(XTExtendedObjectInfo&, std::uint32_t, std::uint32_t,
                                       std::uint32_t*) {
  return subclassResponsibility(
      *this, "sendObjectInfo:storage:parent:resultHandle:", status::kBadParameter);
}

Status XTPictureDevice::updateExtObjectInfo(XTExtendedObjectInfo&, std::uint32_t) {
  return subclassResponsibility(*this, "updateExtObjectInfo:objectHandle:", status::kBadParameter);
}

Status XTPictureDevice::sendObjectData(std::span<const std::byte>) {
  return subclassResponsibility(*this, "sendObjectData:", status::kBadParameter);
}

Status XTPictureDevice::deleteFilesOfType(std::uint16_t) {
  return subclassResponsibility(*this, "deleteFilesOfType:", status::kUnsupported);
}

Status XTPictureDevice::deleteOrderFiles() {
  return subclassResponsibility(*this, "deleteOrderFiles", status::kUnsupported);
}

Status XTPictureDevice::deleteBragbookFiles() {
  return subclassResponsibility(*this, "deleteBragbookFiles", status::kPTPInvalidObjectFormatCode);
}

Status XTPictureDevice::deleteHostObjectWrapperFiles() {
  return subclassResponsibility(*this, "deleteHostObjectWrapperFiles",
                                status::kPTPInvalidObjectFormatCode);
}

// An operation that no class has to provide: it is also reported as not recognised.
Status XTPictureDevice::formatStore(std::uint32_t) {
  subclassResponsibility(*this, "formatStore:", status::kBadParameter);
  TraceLog::trace("-[%s formatStore:]: unrecognized selector sent to instance %p",
                  std::string(className()).c_str(), static_cast<const void*>(this));
  return status::kBadParameter;
}

namespace {

// Set by the room itself for its life. The class operations have no object to reach it through.
PictureDeviceRoom* currentRoom = nullptr;

}  // namespace

PictureDeviceRoom::PictureDeviceRoom(PictureDeviceServices services)
    : services_(std::move(services)),
      deviceRegistry_(services_.center, services_.queue, services_.runLoop, services_.log),
      pendingInspections_(services_.runLoop) {
  currentRoom = this;
}

PictureDeviceRoom::~PictureDeviceRoom() {
  // The wait for the helper's wireless device is observed in the room's name.
  services_.center.removeObserver(this);
  // While the room is still current: devices look it up as they end.
  deviceRegistry_.clear();
  if (currentRoom == this) currentRoom = nullptr;
}

PictureDeviceRoom* PictureDeviceRoom::current() {
  return currentRoom;
}

PictureDeviceRoom& PictureDeviceRoom::required() {
  if (!currentRoom) raiseAssertion("There is no PictureDeviceRoom.");
  return *currentRoom;
}

void DeviceRegistry::add(const std::shared_ptr<XTPictureDevice>& device) {
  // A camera that announces itself twice, or comes back before its removal was seen, is one device.
  // The older one stays, since it may be in use.
  const auto known = std::ranges::find_if(
      deviceSet_, [&](const auto& each) { return each->isSameDeviceAs(*device); });
  if (known != deviceSet_.end()) {
    const std::string shown = (*known)->description();
    // One that was only looked at once more is nothing to wonder about.
    logTo(log_, shown == device->description() ? LogLevel::kDebug : LogLevel::kInfo,
          device->description() + " is ignored: it is known already, as " + shown);
    return;
  }
  // First, so that an observer finds the device in the list that it asks for.
  deviceSet_.push_back(device);
  try {
    device->notifySelfAdded();
  } catch (const std::exception&) {
    TraceLog::trace("exception while caching a new device %s", device->description().c_str());
    throw;
  }
}

void DeviceRegistry::remove(XTPictureDevice& device) {
  const auto isDevice = [&](const auto& known) { return known.get() == &device; };
  const auto found = std::ranges::find_if(deviceSet_, isDevice);
  if (found == deviceSet_.end()) return;
  const auto kept = *found;  // observers may drop every other holder
  // A device must not hear of its own removal: it would act on a list that still has it.
  center_.removeObserver(&device);
  try {
    device.notifySelfRemoved();
  } catch (...) {
    // Whatever an observer does, a device that is gone must not stay.
    std::erase_if(deviceSet_, isDevice);
    throw;
  }
  std::erase_if(deviceSet_, isDevice);
}

void DeviceRegistry::notify(std::string_view name, XTPictureDevice& device) {
  Notification notification{std::string(name), device.shared_from_this()};
  if (discoveryNotificationPostingStyle != PostingStyle::kWhenIdle) {
    center_.post(notification);
    return;
  }
  // Delivered from the loop, so that observers are never called from inside discovery.
  runLoop_.performOnMainThread([this, alive = alive_, notification = std::move(notification)] {
    // The registry may have ended while the call waited in the loop.
    if (*alive) postAtIdleTime(notification);
  });
}

void DeviceRegistry::postAtIdleTime(const Notification& notification) {
  // The style of now, not that of the discovery which deferred it.
  queue_.enqueue(notification, discoveryNotificationPostingStyle);
}

PendingInspections::~PendingInspections() {
  // The loop keeps its timers by itself and would fire them into nothing.
  for (const auto& [object, timer] : timers_)
    timer->invalidate();
}

bool PendingInspections::isWaiting(ICAObject object) const {
  const auto found = timers_.find(object);
  return found != timers_.end() && found->second->isValid();
}

void PendingInspections::schedule(ICAObject object, std::chrono::milliseconds delay,
                                  std::function<void()> inspect) {
  cancelTimer(object);
  // `this` is safe in it: the destructor invalidates every timer.
  timers_[object] = runLoop_.scheduleTimer(delay, false, [this, object, work = std::move(inspect)] {
    timers_.erase(object);  // first: the work may schedule the next one
    work();
  });
}

int PendingInspections::countRetry(ICAObject object, int limit) {
  const int number = ++retries_[object];
  return number <= limit ? number : 0;
}

void PendingInspections::forget(ICAObject object) {
  cancelTimer(object);
  retries_.erase(object);
}

void PendingInspections::cancelTimer(ICAObject object) {
  const auto found = timers_.find(object);
  if (found == timers_.end()) return;
  found->second->invalidate();
  timers_.erase(found);
}

}  // namespace tarvo
