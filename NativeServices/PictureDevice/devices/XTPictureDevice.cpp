#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"

#include <algorithm>
#include <typeinfo>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/operations/CapabilityDetection.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileTypeTables.h"

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
  // The name has been cleared by the time it is logged; this is intended.
  TraceLog::traceWithTag("launcher procName: ", XTOptDebugLog);
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
    device->loadDeviceInfo();
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

}  // namespace tarvo
