#include "NativeServices/PictureDevice/devices/DeviceInspection.h"

#include <chrono>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo {
namespace {

// A device that has just come needs a moment before it answers.
constexpr std::chrono::milliseconds kInspectionDelay{500};

constexpr std::string_view kPictureCDName = "Tarvo PictureCD";

std::string moduleOf(const PropertyDictionary& properties) {
  return lastPathComponent(textForKey(properties, "device module").value_or(""));
}

/// The one disc that mounts like a card but is none.
bool isPictureCD(const PropertyDictionary& properties) {
  return moduleOf(properties) == device_module::kMassStorage &&
         textForKey(properties, "ifil") == std::string(kPictureCDName);
}

// Events of Image Capture. They can be delivered after the room has gone.

/// Calls `handler`; what the system raises in it is traced and ends here, anything else passes on.
template <typename Handler>
void guardedEvent(const char* callback, const Handler& handler) {
  try {
    handler();
  } catch (const Exception& exception) {
    TraceLog::trace("handling uncaught exception in %s: %s", callback, exception.what());
  }
}

void notifyICADeviceAdded(const ICAEvent& event) {
  // Image Capture keeps a registration until it is replaced, which is longer than the room lives.
  if (!PictureDeviceRoom::current()) return;
  TraceLog::trace("notifyICADeviceAdded called with registerEventNotificationPB->object: %x",
                  event.object);
  guardedEvent("notifyICADeviceAdded", [&] { XTImageCaptureDevice::deviceAdded(event.object); });
}

void notifyICADeviceRemoved(const ICAEvent& event) {
  if (!PictureDeviceRoom::current()) return;
  TraceLog::trace("notifyICADeviceRemoved called with registerEventNotificationPB->object: %x",
                  event.object);
  guardedEvent("notifyICADeviceRemoved",
               [&] { XTImageCaptureDevice::deviceRemoved(event.object); });
}

// The store events have no guard of their own; what they raise reaches Image Capture's.
void notifyICAStoreAdded(const ICAEvent& event) {
  if (!PictureDeviceRoom::current()) return;
  TraceLog::trace("notifyICAStoreAdded called with registerEventNotificationPB->object: %x",
                  event.object);
  XTImageCaptureDevice::storeAdded(event.object);
}

void notifyICAStoreRemoved(const ICAEvent& event) {
  if (!PictureDeviceRoom::current()) return;
  TraceLog::trace("notifyICAStoreRemoved called with registerEventNotificationPB->object: %x",
                  event.object);
  XTImageCaptureDevice::storeRemoved(event.object);
}

/// Registers and traces a failure under `label`. The status of Image Capture.
Status registerForEvent(ICAObject object, FourCharCode type, const char* label,
                        ImageCapture::EventCallback callback) {
  const Status status = PictureDeviceRoom::imageCapture().registerForEventNotification(
      object, type, std::move(callback));
  if (status != status::kOK) {
    TraceLog::trace("%s: registerEventNotificationPB.header.err: %i", label, status);
  }
  return status;
}

void raiseUnlessRegistered(Status status) {
  if (status == status::kOK) return;
  // Without arrivals, or ends, nothing of this room works: no start is better than half a one.
  throw Exception(std::string(exception_name::kEventRegistration), "Event registration failed.");
}

/// Makes the device read its stores again, then tells whoever observes. The device may be unknown.
void storesOfObjectChanged(ICAObject object, std::string_view notification) {
  const auto device = XTImageCaptureDevice::deviceWithICAObject(object);
  // Before the notification: an observer that counts pictures must get the new number.
  // A device that is not in the registry has nothing that could be stale.
  if (device) device->storesChanged();
  PictureDeviceRoom::required().services().center.post({std::string(notification), device});
}

/// A code that is not the expected one, in words.
std::string codeMismatch(const char* what, FourCharCode code, FourCharCode expected) {
  return formatted("%s: '%s'; should have been '%s'", what, fourCharText(code).c_str(),
                   fourCharText(expected).c_str());
}

/// Says what is odd about the device list. Enumeration goes on all the same.
void traceDeviceListInfo(ICAObject list) {
  ICAObjectInfo info;
  const Status status = PictureDeviceRoom::imageCapture().getObjectInfo(list, info);
  TraceLog::trace("Get Device List Info: objectType: '%s'; objectSubtype: '%s'",
                  fourCharText(info.objectType).c_str(), fourCharText(info.objectSubtype).c_str());
  if (status != status::kOK) TraceLog::trace("getObjectInfoPB.header.err: %i", status);
  // Only said, not acted on: the count and the children below decide.
  if (info.objectType != ica::kObjectList) {
    TraceLog::trace("%s", codeMismatch("getObjectInfoPB.objectInfo.objectType", info.objectType,
                                       ica::kObjectList)
                              .c_str());
    // Said in so many words since it is what a broken service would show first.
    TraceLog::trace(
        "ICA appears to be confused; an object list was reported, but when examined it was not "
        "valid.");
  }
  if (info.objectSubtype != ica::kDevice) {
    TraceLog::trace("%s", codeMismatch("getObjectInfoPB.objectInfo.objectSubtype",
                                       info.objectSubtype, ica::kDevice)
                              .c_str());
  }
}

/// How many children the device list has; none, traced, when Image Capture cannot tell. The call
/// and its header fail apart from each other, and either failure counts.
std::optional<std::uint32_t> childCountOf(ICAObject list) {
  std::uint32_t count = 0;
  Status headerErr = status::kOK;
  const Status status = PictureDeviceRoom::imageCapture().getChildCount(list, count, headerErr);
  if (status == status::kOK && headerErr == status::kOK) return count;
  TraceLog::trace("getChildCountPB.header.err: %i", headerErr != 0 ? headerErr : status);
  return std::nullopt;
}

/// Class that enumeration names for a module; it differs from the one that an inspection makes of a
/// mass-storage module: intended, see docs/oddities.md.
std::optional<std::string_view> classNameForModule(std::string_view module) {
  if (module == device_module::kPTPCamera) return "XTImageCapturePTPDevice";
  if (module == device_module::kMassStorage) return "XTImageCaptureVolume";
  return std::nullopt;
}

void say(std::string* why, std::string words) {
  if (why) *why = std::move(words);
}

/// The device when it has the maker's PTP vendor extension: that is how a camera of the maker is
/// recognised.
std::shared_ptr<XTImageCaptureDevice> makersPTPDevice(ICAObject object, std::string* why) {
  Status failure = status::kOK;
  auto device = XTImageCapturePTPDevice::withICAObject(object, &failure);
  if (!device) {
    say(why, statusText(failure));
    return nullptr;
  }
  // Not by the USB vendor id: the extension is what the vendor operations hang on.
  const auto& maker = PictureDeviceRoom::required().services().maker;
  if (device->vendorExtensionID() == maker.ptpVendorExtensionID) return device;
  TraceLog::trace("deviceFromICAObject: vendorExtensionID != TARVO_PTP_VENDOR_EXTENSION_ID");
  say(why, formatted("its PTP vendor extension is 0x%08x", device->vendorExtensionID()));
  return nullptr;
}

/// The property dictionary of a device that is being built; none, traced, when there is none.
std::optional<PropertyDictionary> copyProperties(ICAObject object) {
  PropertyDictionary properties;
  const Status status =
      PictureDeviceRoom::imageCapture().copyObjectPropertyDictionary(object, properties);
  if (status != status::kOK) {
    TraceLog::trace("icaDevices copyObjectPropertyDictionaryPB.header.err: %i", status);
    return std::nullopt;
  }
  return properties;
}

}  // namespace

void XTImageCaptureDevice::registerDeviceAddedNotifications() {
  auto& room = PictureDeviceRoom::required();
  // Kept apart from the look at what is there, which every call repeats.
  if (!room.registeredForDeviceAdded) {
    raiseUnlessRegistered(
        registerForEvent(0, ica::kDeviceAdded, "DeviceAdded", notifyICADeviceAdded));
    room.registeredForDeviceAdded = true;
  }
  checkForDevicesAtStartup();
}

void XTImageCaptureDevice::registerForDeviceRemovedEvent(ICAObject object) {
  raiseUnlessRegistered(
      registerForEvent(object, ica::kDeviceRemoved, "DeviceRemoved", notifyICADeviceRemoved));
}

void XTImageCaptureDevice::registerForStoreAddedEvent(ICAObject object) {
  raiseUnlessRegistered(
      registerForEvent(object, ica::kStoreAdded, "StoreAdded", notifyICAStoreAdded));
}

void XTImageCaptureDevice::registerForStoreRemovedEvent(ICAObject object) {
  registerForEvent(object, ica::kStoreRemoved, "StoreRemoved", notifyICAStoreRemoved);
}

void XTImageCaptureDevice::checkForDevicesAtStartup(bool) {
  // Taken at once: inspections can change the list that they are taken from.
  std::vector<ICAObject> objects;
  icaDevices(nullptr, &objects);
  for (const ICAObject object : objects)
    // Each guarded by itself: one bad camera must not keep the others from being found.
    inspectGuarded(object, "checkForDevicesAtStartup");
}

std::optional<std::vector<std::string>> XTImageCaptureDevice::icaDevices(
    std::vector<std::string>* classes, std::vector<ICAObject>* objects) {
  ICAObject list = 0;
  if (const Status status = PictureDeviceRoom::imageCapture().getDeviceList(list);
      status != status::kOK) {
    TraceLog::trace("getDeviceListPB.header.err: %i", status);
    return std::nullopt;
  }
  traceDeviceListInfo(list);
  const auto count = childCountOf(list);
  if (!count) return std::nullopt;
  TraceLog::trace("found %i ICA image source(s)", static_cast<int>(*count));

  std::vector<std::string> names;
  for (std::uint32_t index = 0; index < *count; ++index) {
    // Scanners and the like are children too; they are passed over, not counted as failures.
    const ICAObject object = cameraObjectAtIndex(index, list);
    if (object == 0) continue;
    const auto properties = copyProperties(object);
    // One dictionary that cannot be read ends the enumeration: what was found is not reported.
    // A list with a gap would number the devices otherwise than the user sees them.
    if (!properties) return std::nullopt;
    if (isPictureCD(*properties)) continue;
    names.push_back(textForKey(*properties, "ifil").value_or(""));
    const auto className = classNameForModule(moduleOf(*properties));
    if (classes && className) classes->emplace_back(*className);
    if (objects) objects->push_back(object);
  }
  return names;
}

ICAObject XTImageCaptureDevice::cameraObjectAtIndex(std::uint32_t index, ICAObject deviceList) {
  ICAChildInfo child;
  if (const Status status = PictureDeviceRoom::imageCapture().getNthChild(deviceList, index, child);
      status != status::kOK) {
    TraceLog::trace("getNthChildPB.header.err: %i", status);
    return 0;
  }
  const auto traceMismatch = [&](const char* field, FourCharCode code, FourCharCode expected) {
    TraceLog::trace("child %d %s", static_cast<int>(index),
                    codeMismatch(field, code, expected).c_str());
  };
  if (child.info.objectType != ica::kDevice) {
    traceMismatch("getNthChildPB.childInfo.objectType", child.info.objectType, ica::kDevice);
    return 0;
  }
  if (child.info.objectSubtype != ica::kCamera) {
    traceMismatch("getNthChildPB.childInfo.objectSubtype", child.info.objectSubtype, ica::kCamera);
    return 0;
  }
  return child.object;
}

void XTImageCaptureDevice::primeICADevice(ICAObject object) {
  TraceLog::traceWithTag(formatted("primeICADevice 0x%X", object), XTOptDebugLog);
  // The asynchronous copy would end in nothing, so it is not begun and no device results: intended,
  // see docs/oddities.md.
  if (PictureDeviceRoom::required().gEnableAsyncDeviceInspection) return;
  PropertyDictionary properties;
  const Status status =
      PictureDeviceRoom::imageCapture().copyObjectPropertyDictionary(object, properties);
  if (status != status::kOK) {
    // It went within the half second, or answers nobody: its removal or its next arrival will tell.
    TraceLog::trace("Device inspection failed for Image Capture device 0x%X status = %d", object,
                    status);
    return;
  }
  completeDeviceInspection(object, properties);
}

void XTImageCaptureDevice::completeDeviceInspection(ICAObject object,
                                                    const PropertyDictionary& properties) {
  TraceLog::traceWithTag(formatted("completeDeviceInspection 0x%X", object), XTOptDebugLog);
  // Before the device is built, so that a removal is heard whether or not one results.
  registerForDeviceRemovedEvent(object);
  // A device that gives nothing is dropped, but its removal is still heard and ends its retries.
  const auto device = DeviceInspection(PictureDeviceRoom::required(), object, properties).run();
  if (!device) return;
  registerForStoreAddedEvent(object);
  registerForStoreRemovedEvent(object);
  // Last, and outside the scope: who hears of the device may claim it at once.
  device->cache();
}

std::shared_ptr<XTImageCaptureDevice> XTImageCaptureDevice::deviceFromICAObject(
    ICAObject object, const PropertyDictionary* properties, std::string* why) {
  std::optional<PropertyDictionary> copied;
  if (!properties) {
    copied = copyProperties(object);
    if (!copied) return nullptr;
    properties = &*copied;
  }
  if (!properties->is_object()) {
    TraceLog::trace("ICACopyObjectPropertyDictionary returned nil dictionary");
    return nullptr;
  }
  // Events do not come by way of the enumeration, so the disc is kept out here as well.
  if (isPictureCD(*properties)) return nullptr;
  // The module says how Image Capture reaches the device, which decides the class.
  const std::string module = moduleOf(*properties);
  if (module == device_module::kPTPCamera) return makersPTPDevice(object, why);
  // No test for the maker here: who hears of a mass-storage device filters.
  // A card in anybody's reader may come from a camera of the maker.
  if (module != device_module::kMassStorageCamera && module != device_module::kMassStorage)
    return nullptr;
  Status failure = status::kOK;
  auto device = XTImageCaptureMSCDevice::withICAObject(object, &failure);
  if (!device) say(why, statusText(failure));
  return device;
}

std::shared_ptr<XTImageCaptureDevice> XTImageCaptureDevice::deviceWithICAObject(ICAObject object) {
  for (const auto& device : deviceList()) {
    auto candidate = std::dynamic_pointer_cast<XTImageCaptureDevice>(device);
    if (candidate && candidate->icaObject() == object) return candidate;
  }
  return nullptr;
}

std::optional<std::string> XTImageCaptureDevice::getICADeviceName(ICAObject object) {
  if (object == 0) {
    TraceLog::trace("getICADeviceName couldn't get an ICA object");
    return std::nullopt;
  }
  ICAPropertyInfo info;
  Status status =
      PictureDeviceRoom::imageCapture().getPropertyByType(object, ica::kPropertyVolumeLabel, info);
  if (status != status::kOK) {
    TraceLog::trace("getPropertyByTypePB.header.err: %i", status);
    return std::nullopt;
  }
  if (info.dataType != ica::kDataTypeText) {
    TraceLog::trace("%s", codeMismatch("getPropertyByTypePB.propertyInfo.dataType", info.dataType,
                                       ica::kDataTypeText)
                              .c_str());
    return std::nullopt;
  }
  std::string label;
  status =
      PictureDeviceRoom::imageCapture().getPropertyData(object, ica::kPropertyVolumeLabel, label);
  if (status != status::kOK) {
    TraceLog::trace("getPropertyDataPB.header.err: %i", status);
    return std::nullopt;
  }
  // The label is C text: it ends at the first zero.
  label.resize(std::min(label.find('\0'), label.size()));
  TraceLog::trace("Volume Label: %s", label.c_str());
  return label;
}

void XTImageCaptureDevice::deviceAdded(ICAObject object) {
  auto& pending = PictureDeviceRoom::required().pendingInspections();
  // A second event while the first one waits would only inspect the device twice.
  // A device in the registry has been inspected; Image Capture announces some twice.
  if (deviceWithICAObject(object) || pending.isWaiting(object)) return;
  pending.schedule(object, kInspectionDelay,
                   [object] { inspectGuarded(object, "primeICADeviceDelayed"); });
}

void XTImageCaptureDevice::deviceRemoved(ICAObject object) {
  // A device that is still held by somebody else is not in the registry, but is waited for.
  // The retries of an object whose handle is never given again would stay in the map.
  PictureDeviceRoom::required().pendingInspections().forget(object);
  for (const auto& device : deviceList()) {
    const auto candidate = std::dynamic_pointer_cast<XTImageCaptureDevice>(device);
    if (!candidate || candidate->icaObject() != object) continue;
    // First, so that no observer of the removal sends the device a message.
    candidate->setDisconnected(true);
    candidate->uncache();
  }
}

void XTImageCaptureDevice::storeAdded(ICAObject object) {
  storesOfObjectChanged(object, kStoreAddedNotification);
}

void XTImageCaptureDevice::storeRemoved(ICAObject object) {
  storesOfObjectChanged(object, kStoreRemovedNotification);
}

namespace {

// Who holds an interface often lets it go soon: a volume monitor that looks at every new camera.
constexpr std::chrono::seconds kRetryInterval{1};
constexpr int kRetryLimit = 10;

/// The exception with the status of the failed transaction, where it has one.
std::string inWords(const std::exception& exception) {
  std::string words = exception.what();
  // Only our own exceptions carry user information.
  const auto* raised = dynamic_cast<const Exception*>(&exception);
  if (!raised) return words;
  const Status status = int32ForKey(raised->userInfo(), "ptpResponseCode").value_or(status::kOK);
  return status == status::kOK ? words : words + ": " + statusText(status);
}

}  // namespace

bool isOfMaker(const PropertyDictionary& properties, const MakerConstants& maker) {
  return int32ForKey(properties, "idVendor") == std::int32_t{maker.usbVendorID};
}

std::shared_ptr<XTImageCaptureDevice> DeviceInspection::run() {
  Status failure = status::kOK;
  std::string why;
  // Everything that is asked of the device shares one session. The interface is free again when
  // this returns, so that who hears of the device can claim it.
  const auto scope = room_.services().imageCapture.openScope(object_, &failure, &why);
  if (!scope) {
    interfaceRefused(failure, why);
    return nullptr;
  }
  // The retries start anew, should the interface be held at another arrival.
  room_.pendingInspections().forget(object_);
  // The scope ends behind it, before anybody is told of the device.
  return build();
}

std::shared_ptr<XTImageCaptureDevice> DeviceInspection::build() {
  try {
    std::string why;
    auto device = XTImageCaptureDevice::deviceFromICAObject(object_, &properties_, &why);
    // Without words it is a device that nobody wants, which is nothing to report.
    if (!device && !why.empty()) report("is not used: " + why);
    auto* transactions = device ? device->ptpTransactions() : nullptr;
    if (transactions && transactions->lastOutcome() == status::kICAOutOfTime)
      report("is used as far as it is known: " + statusText(status::kICAOutOfTime));
    return device;
  } catch (const std::exception& exception) {
    TraceLog::trace("handling uncaught exception in completeDeviceInspection: %s",
                    exception.what());
    report("is not used: " + inWords(exception));
    return nullptr;
  }
}

void DeviceInspection::interfaceRefused(Status failure, const std::string& why) {
  auto& pending = room_.pendingInspections();
  const std::string words = why.empty() ? statusText(failure) : why;
  // Other vendors' cameras get one attempt: whoever holds them is their own business.
  const bool isWorthARetry =
      failure == status::kICADeviceBusy && isOfMaker(properties_, room_.services().maker);
  const int retry = isWorthARetry ? pending.countRetry(object_, kRetryLimit) : 0;
  if (retry != 0) {
    // Said at once, so that a user need not wait for the last attempt to learn whom to end.
    if (retry == 1) report("is waited for: " + words);
    // A timer waits, not the loop: other devices come and go meanwhile.
    pending.schedule(object_, kRetryInterval,
                     [object = object_] { inspectGuarded(object, "completeDeviceInspection"); });
    return;
  }
  pending.forget(object_);
  report("cannot be opened: " + words);
}

void DeviceInspection::report(const std::string& what) const {
  const auto& services = room_.services();
  const auto location = int32ForKey(properties_, "locationID").value_or(0);
  const auto name = textForKey(properties_, "ifil").value_or("");
  logTo(services.log,
        isOfMaker(properties_, services.maker) ? LogLevel::kWarning : LogLevel::kDebug,
        formatted("'%s' at 0x%08x ", name.c_str(), static_cast<unsigned>(location)) + what);
}

void inspectGuarded(ICAObject object, const char* entry) {
  // A timer can fire between the end of the room and that of the loop.
  auto* room = PictureDeviceRoom::current();
  if (!room) return;
  try {
    XTImageCaptureDevice::primeICADevice(object);
  } catch (const std::exception& exception) {
    const auto line = formatted("handling uncaught exception in %s: %s", entry, exception.what());
    TraceLog::trace("%s", line.c_str());
    logTo(room->services().log, LogLevel::kError, line);
  }
}

}  // namespace tarvo
