#include "identify/DeviceInfoSupport.h"

#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "NativeServices/models/SupportedModels.h"

namespace tarvo {
namespace {

constexpr std::string_view kTypePTP = "PTP";
constexpr std::string_view kTypeMassStorage = "MSC";
constexpr std::string_view kTypeCard = "card";
constexpr std::string_view kTypeUnsupported;

/// Out-arguments may be null.
template <typename Target, typename Value>
void write(Target* target, const Value& value) {
  if (target) *target = value;
}

void infoForPTPDevice(const XTPictureDevice& device, std::string* type, std::int32_t* locID,
                      std::string* path) {
  // A PTP device need not be one of Image Capture.
  const auto* imageCaptureDevice = dynamic_cast<const XTImageCaptureDevice*>(&device);
  if (!imageCaptureDevice || !imageCaptureDevice->icaDictionary()) {
    systemLogLine("getInfoForDevice:returnType:locID:path - icaDict is nil!");
    return;
  }
  const PropertyDictionary& dictionary = *imageCaptureDevice->icaDictionary();
  const auto number = [&](std::string_view key) {
    return int32ForKey(dictionary, key).value_or(0);
  };
  // An unsupported model is told by its empty type alone; location and path are left as they are.
  if (!DeviceInfoSupport::isValidDscVid(number("idVendor"), number("idProduct"))) {
    write(type, kTypeUnsupported);
    return;
  }
  write(locID, number("locationID"));
  write(type, kTypePTP);
  write(path, "");
}

}  // namespace

void DeviceInfoSupport::getInfoForDevice(const std::shared_ptr<XTPictureDevice>& device,
                                         std::string* type, std::int32_t* locID,
                                         std::string* path) {
  if (device && device->isPTPDevice()) {
    infoForPTPDevice(*device, type, locID, path);
    return;
  }
  const auto mscDevice = std::dynamic_pointer_cast<XTImageCaptureMSCDevice>(device);
  if (!mscDevice) {
    systemLogLine("getInfoForDevice:returnType:locID:path - mscDevice cast failed!");
    return;
  }
  // Without a type the rest is of no use to anybody, so it is not filled in.
  if (!type) return;
  *type = mscDevice->isMSCamera() ? kTypeMassStorage
          : mscDevice->isMSCard() ? kTypeCard
                                  : kTypeUnsupported;
  write(path, mscDevice->logicalMountPath());
  write(locID, mscDevice->usbLocID());
}

std::optional<PropertyDictionary> DeviceInfoSupport::getRootUSBDictionaryForService(
    ServiceHandle service) {
  auto* room = IdentifyRoom::current();
  if (!room) return std::nullopt;
  const auto trace = [](const char* what) {
    TraceLog::trace("getRootUSBDictionaryForService %s", what);
  };
  // The service itself counts: it may be the USB device. It may have gone since its handle was got.
  auto found = nearestAncestor(room->services().registry, service,
                               {.key = "USB Product Name", .isItselfMeant = true}, trace);
  if (found.status == status::kIOError) trace("failed to find the device in IOKit Registry");
  return found.handle == 0 ? std::nullopt : std::optional(std::move(found.properties));
}

bool DeviceInfoSupport::isValidDscVid(std::int32_t vid, std::int32_t pid) {
  auto* models = SupportedModels::current();
  return models && models->isValidDscVid(vid, pid);
}

bool DeviceInfoSupport::isValidPVC(const XTImageCaptureMSCDevice& device) {
  auto* models = SupportedModels::current();
  return models && models->isValidPVC(device.vid(), device.pid());
}

bool DeviceInfoSupport::isValidCard(const XTImageCaptureMSCDevice* device) {
  if (!device) return false;
  return SupportedModels::isValidCard(device->logicalMountPath());
}

namespace {

// Set by the room itself for its life.
IdentifyRoom* currentRoom = nullptr;

}  // namespace

IdentifyRoom::IdentifyRoom(IdentifyServices services) : services_(services) {
  currentRoom = this;
}

IdentifyRoom::~IdentifyRoom() {
  if (currentRoom == this) currentRoom = nullptr;
}

IdentifyRoom* IdentifyRoom::current() {
  return currentRoom;
}

}  // namespace tarvo
