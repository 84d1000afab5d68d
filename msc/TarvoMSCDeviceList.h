// The maker's mass-storage units that are present, in the order of their arrival, and how they are
// found: units of peripheral type 5 ("DVD") on USB whose vendor is the maker.
//
//   MSCRoom room({...});                                // the owner of the process, once
//   TarvoMSCDeviceList::sharedDeviceList()->devices();  // anybody, while the room lives
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "msc/TarvoMSCDevice.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

inline constexpr std::string_view kMSCDeviceAddedEvent = "XTMSCDeviceAddedEvent";

/// Main thread only, apart from the lock that every change holds.
class TarvoMSCDeviceList {
 public:
  /// An empty list, which finds nothing before init().
  TarvoMSCDeviceList() = default;
  TarvoMSCDeviceList(const TarvoMSCDeviceList&) = delete;
  TarvoMSCDeviceList& operator=(const TarvoMSCDeviceList&) = delete;

  /// The list of the current MSCRoom, made on the first call; null while no room lives.
  static TarvoMSCDeviceList* sharedDeviceList();

  /// Registers; the status of that does not matter to anybody.
  void init() { (void)registerDeviceCallbackHandler(); }
  /// Adds the units that are there, which announces them, and takes note of those that come and go.
  /// 0, or 0xE00002BC where the registry does not notify.
  [[nodiscard]] Status registerDeviceCallbackHandler();

  /// Valid until the next change; the list keeps its devices alive.
  const std::vector<std::shared_ptr<TarvoMSCDevice>>& devices() const { return _devices; }
  /// The first device; null when there is none.
  std::shared_ptr<TarvoMSCDevice> mainDevice() const;

  /// Appends `device` and posts kMSCDeviceAddedEvent with it as object while the lock is held, so
  /// that an observer may change the list again. What an observer raises reaches the caller; the
  /// device stays in the list.
  TarvoMSCDeviceList& addDevice(std::shared_ptr<TarvoMSCDevice> device);
  /// Removes the first device with this GUID; without one nothing happens. Nothing is posted.
  TarvoMSCDeviceList& removeDevice(const std::vector<std::uint8_t>& guid);

 private:
  std::vector<std::shared_ptr<TarvoMSCDevice>> _devices;
  std::recursive_mutex lock_;  ///< recursive: observers of an arrival run inside it
  std::unique_ptr<RegistrySubscription> _deviceAppearedIterator;
  std::unique_ptr<RegistrySubscription> _deviceDisappearedIterator;
};

/// Adds those of `iterator` that are the maker's units to `list`. One that fails is skipped, with a
/// trace that says why, or, where something was raised, a line of the log.
void CDROMAppearedNotificationHandler(TarvoMSCDeviceList* list,
                                      std::span<const ServiceHandle> iterator);
/// Removes those of `iterator` from `list`, by their GUID.
void CDROMDisappearedNotificationHandler(TarvoMSCDeviceList* list,
                                         std::span<const ServiceHandle> iterator);

// Whether a registry entry is one of the maker's units, by its properties alone.

/// The bytes under "SCSITaskUserClient GUID"; none where there are none.
std::optional<std::vector<std::uint8_t>> guidOfUnit(const PropertyDictionary& properties);

/// Whether "Protocol Characteristics" says that the "Physical Interconnect" is "USB", in that case
/// of letters.
bool isConnectedByUSB(const PropertyDictionary& properties);

/// Whether the vendor is the maker: by the USB vendor id where there is one, else by the name.
/// Traces what it has found. Raises an assertion for a vendor id that is no 16-bit number.
bool isMakersUnit(const PropertyDictionary& properties, std::uint16_t usbVendorID);

/// "Product Name" of the "Device Characteristics".
std::optional<std::string> productNameOfUnit(const PropertyDictionary& properties);

}  // namespace tarvo
