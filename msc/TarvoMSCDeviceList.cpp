#include "msc/TarvoMSCDeviceList.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"
#include "msc/MSCRoom.h"
#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

const PropertyDictionary& matchingDictionary() {
  // The maker's units show themselves as optical drives.
  static const PropertyDictionary kMatch = {{"IOPropertyMatch", {{"device-type", "DVD"}}}};
  return kMatch;
}

/// The service that SCSI tasks go to; 0, traced, where there is none.
ServiceHandle taskServiceOf(Registry& registry, const std::vector<std::uint8_t>& guid) {
  const auto services = registry.servicesMatching(
      {{"IOPropertyMatch", {{"SCSITaskUserClient GUID", PropertyDictionary::binary(guid)}}}});
  if (!services.empty()) return services.front();
  TraceLog::trace("Could not get a service for scsi task");
  return 0;
}

/// The unit behind a registry entry; null where it is none of the maker's or cannot be reached.
std::shared_ptr<TarvoMSCDevice> unitOf(ServiceHandle entry) {
  const auto& services = MSCRoom::required().services();
  const auto properties = services.registry.properties(entry);
  if (!properties) return nullptr;
  auto guid = guidOfUnit(*properties);
  if (!guid) {
    TraceLog::trace("Service does not have a guid for the SCSI task user client");
    return nullptr;
  }
  // A drive in the machine may bear a name that the maker's begins with.
  if (!isConnectedByUSB(*properties)) return nullptr;
  if (!isMakersUnit(*properties, services.maker.usbVendorID)) return nullptr;
  const ServiceHandle service = taskServiceOf(services.registry, *guid);
  if (service == 0) return nullptr;
  Status failure = status::kOK;
  auto mmcDevice = services.scsi.createMMCDevice(service, failure);
  if (!mmcDevice) {
    TraceLog::trace("Error creating kIOMMCDeviceUserClientTypeID %X, iodev = %X",
                    static_cast<unsigned>(failure), service);
    return nullptr;
  }
  return TarvoMSCDevice::initWithMMCDevice(std::move(mmcDevice), service,
                                           productNameOfUnit(*properties), std::move(guid));
}

}  // namespace

TarvoMSCDeviceList* TarvoMSCDeviceList::sharedDeviceList() {
  MSCRoom* room = MSCRoom::current();
  return room ? &room->list() : nullptr;
}

Status TarvoMSCDeviceList::registerDeviceCallbackHandler() {
  auto& registry = MSCRoom::required().services().registry;
  _deviceAppearedIterator = registry.addMatchingNotification(matchingDictionary(),
                                                             [this](ServiceHandle service) {
                                                               CDROMAppearedNotificationHandler(
                                                                   this, std::array{service});
                                                             },
                                                             {});
  if (!_deviceAppearedIterator) {
    TraceLog::trace("IOServiceAddMatchingNotification kIOFirstMatchNotification returned %X",
                    static_cast<unsigned>(status::kIOReturnError));
    return status::kIOReturnError;
  }
  // What was there before.
  // Before the ends are asked for, so that no end comes without its beginning.
  CDROMAppearedNotificationHandler(this, _deviceAppearedIterator->present());
  _deviceDisappearedIterator =
      registry.addMatchingNotification(matchingDictionary(), {}, [this](ServiceHandle service) {
        CDROMDisappearedNotificationHandler(this, std::array{service});
      });
  if (!_deviceDisappearedIterator) {
    TraceLog::trace("IOServiceAddMatchingNotification kIOTerminatedNotification returned %X",
                    static_cast<unsigned>(status::kIOReturnError));
    return status::kIOReturnError;
  }
  return status::kOK;
}

std::shared_ptr<TarvoMSCDevice> TarvoMSCDeviceList::mainDevice() const {
  return _devices.empty() ? nullptr : _devices.front();
}

TarvoMSCDeviceList& TarvoMSCDeviceList::addDevice(std::shared_ptr<TarvoMSCDevice> device) {
  // Recursive: an observer of the arrival asks the list, and may take the unit off.
  const std::lock_guard lock(lock_);
  // Before the post, so that an observer finds the device in the list.
  _devices.push_back(device);
  MSCRoom::required().services().center.post(
      {std::string(kMSCDeviceAddedEvent), std::move(device)});
  return *this;
}

TarvoMSCDeviceList& TarvoMSCDeviceList::removeDevice(const std::vector<std::uint8_t>& guid) {
  const std::lock_guard lock(lock_);
  const auto found = std::find_if(_devices.begin(), _devices.end(),
                                  [&](const auto& device) { return device->guid() == guid; });
  if (found != _devices.end()) _devices.erase(found);
  return *this;
}

void CDROMAppearedNotificationHandler(TarvoMSCDeviceList* list,
                                      std::span<const ServiceHandle> iterator) {
  for (const ServiceHandle entry : iterator) {
    // To a process that is to end nothing more is done.
    // A unit may take 20 seconds to be let go of.
    if (MSCRoom::required().services().diskArbitration.isInterrupted()) return;
    // One that is broken must not hide those behind it.
    guardedEntry(MSCRoom::required().services().log, "CDROMAppearedNotificationHandler", [&] {
      if (auto unit = unitOf(entry)) list->addDevice(std::move(unit));
    });
  }
}

void CDROMDisappearedNotificationHandler(TarvoMSCDeviceList* list,
                                         std::span<const ServiceHandle> iterator) {
  auto& registry = MSCRoom::required().services().registry;
  for (const ServiceHandle entry : iterator) {
    // What was read of the unit is kept until its end has been told.
    const auto properties = registry.properties(entry);
    if (!properties) continue;
    if (const auto guid = guidOfUnit(*properties)) list->removeDevice(*guid);
  }
}

namespace {

constexpr std::string_view kMakerName = "Tarvo";
constexpr std::int64_t kLargestVendorID = 0xFFFF;

const PropertyDictionary* valueUnder(const PropertyDictionary& dictionary, const char* key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &*found;
}

std::optional<std::string> characteristic(const PropertyDictionary& properties,
                                          std::string_view name) {
  const auto* characteristics = valueUnder(properties, "Device Characteristics");
  return characteristics ? textForKey(*characteristics, name) : std::nullopt;
}

char inLowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// A name that the maker's begins with is the maker's, the empty one too; a longer one never is.
/// Units cut their vendor name (docs/oddities.md).
bool isPrefixOfMakerName(std::string_view vendor) {
  return vendor.size() <= kMakerName.size() &&
         std::ranges::equal(vendor, kMakerName.substr(0, vendor.size()), {}, inLowerCase,
                            inLowerCase);
}

}  // namespace

std::optional<std::vector<std::uint8_t>> guidOfUnit(const PropertyDictionary& properties) {
  const auto* guid = valueUnder(properties, "SCSITaskUserClient GUID");
  if (!guid || !guid->is_binary()) return std::nullopt;
  return guid->get_binary();
}

bool isConnectedByUSB(const PropertyDictionary& properties) {
  const auto* protocol = valueUnder(properties, "Protocol Characteristics");
  return protocol && textForKey(*protocol, "Physical Interconnect") == "USB";
}

std::optional<std::string> productNameOfUnit(const PropertyDictionary& properties) {
  return characteristic(properties, "Product Name");
}

bool isMakersUnit(const PropertyDictionary& properties, std::uint16_t usbVendorID) {
  if (!properties.contains("Device Characteristics")) return false;
  const auto vendor = characteristic(properties, "Vendor Name");
  TraceLog::trace("Detected device vendor ='%s' model='%s'", vendor.value_or("(null)").c_str(),
                  productNameOfUnit(properties).value_or("(null)").c_str());
  const auto* vendorID = valueUnder(properties, "idVendor");
  // Only where the unit stands behind no USB device that tells its vendor: the id is the surer of
  // the two.
  if (!vendorID) return isPrefixOfMakerName(vendor.value_or(""));
  const bool isNumber =
      vendorID->is_number_integer() && *vendorID >= 0 && *vendorID <= kLargestVendorID;
  if (!isNumber) raiseAssertion("VID is not the expected number type");
  return *vendorID == usbVendorID;
}

}  // namespace tarvo
