// What a virtual device is: identity, PTP device information, content and faults, as its JSON
// description gives it. docs/simulator.md has the schema.
//
//   auto device = DeviceDescription::fromFile("simulator/devices/tarvo-camera.json");
//   device.usb.serial = "another one";
//
// Plain values: a test changes a copy before it plugs it in. Each default is what a description
// that leaves the key out gets.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/description/ContentDescription.h"
#include "simulator/description/DatasetDescription.h"
#include "simulator/description/Faults.h"

namespace tarvo::simulator {

class JsonNode;

/// Peripheral device types (SPC-4, table 143).
inline constexpr unsigned kDiskType = 0;
inline constexpr unsigned kOpticalType = 5;

/// What the unit answers to INQUIRY (SPC-4, 6.6): vendor 8, model 16, revision 4 characters.
struct ScsiDescription {
  unsigned type = kDiskType;  ///< peripheral device type
  std::string vendor = "TARVO";
  std::string model = "Camera Disk";
  std::string revision = "1.00";
};

/// How an answer to MODE SENSE is spoilt; none of them: not at all.
struct ModePageLies {
  std::optional<std::size_t> size;              ///< of the answer with its header, in bytes
  std::optional<std::uint16_t> modeDataLength;  ///< what the header claims
  std::optional<std::uint8_t> pageLength;       ///< what the page claims
};

/// The maker's page 0x25.
struct UsbModeDescription {
  bool autoPowerCycle = false;      ///< comes back by itself after a switch with power-down
  bool variableAutoWakeup = false;  ///< takes a delay for that
  bool composite = false;
  std::uint8_t flags = 0x02;  ///< mode that it is in: 1 start-up, 2 memory, 4 camera
  std::uint32_t delay = 0;    ///< bytes 12 to 15 as they are read, big-endian
  ModePageLies lies;
};

/// The maker's page 0x26.
struct ModelPageDescription {
  Bytes text;  ///< as it stands in the page; at most 255 bytes
  ModePageLies lies;
};

/// The maker's mode pages; what is absent is not supported.
struct ModePagesDescription {
  std::optional<UsbModeDescription> usbMode;
  std::optional<ModelPageDescription> model;
  bool hasClock = false;  ///< page 0x29
};

/// A file system on a unit.
struct VolumeDescription {
  std::string label;  ///< also the last component of its mount point
  std::vector<ContentNode> content;
};

struct DeviceDescription;

/// Reads all but `usb` and `kind`, which must have been read; raises DescriptionError.
void readUnitDescription(const JsonNode& root, DeviceDescription& device);

/// Which interface the device has: still image (class 6) or mass storage (class 8).
enum class DeviceKind { kPTP, kMassStorage };
/// Full speed (12 Mbit/s) has bulk packets of 64 bytes, high speed (480 Mbit/s) of 512 (USB 2.0,
/// 5.8.3).
enum class UsbSpeed { kFull, kHigh };

/// What the device descriptor says (USB 2.0, 9.6.1).
struct UsbIdentity {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0x0100;  ///< bcdDevice, binary-coded decimal
  std::string manufacturer;        ///< the string descriptors; empty: the device has none
  std::string name;
  std::string serial;
  UsbSpeed speed = UsbSpeed::kHigh;
};

/// The DeviceInfo dataset (ISO 15740, 5.5.1). Its list of properties is made from
/// DeviceDescription::properties.
struct DeviceInfo {
  std::uint32_t vendorExtensionID = 0;
  std::uint16_t vendorExtensionVersion = 100;
  std::string vendorExtensionDescription;
  std::uint16_t functionalMode = 0;
  /// Absent: those of the standard, and of the maker's those that VendorDescription tells.
  std::optional<std::vector<std::uint16_t>> operations;
  std::vector<std::uint16_t> events = {0x4002, 0x4003, 0x4004, 0x4005, 0x4006, 0x400A, 0x400D};
  std::vector<std::uint16_t> captureFormats;                   ///< formats that the device can make
  std::vector<std::uint16_t> imageFormats = {0x3801, 0x3001};  ///< formats that it can hold
  std::string manufacturer;
  std::string model;
  std::string version = "1.0";
  std::string serial;
  std::uint16_t bytesBehind = 0;  ///< how many more follow the serial number
};

/// One device property (ISO 15740). Values are numbers, texts or lists of numbers, by the datatype.
struct PropertyDescription {  // NOLINT(bugprone-exception-escape): the JSON library's move
  std::uint16_t code = 0;
  std::uint16_t datatype =
      0;  ///< datatype code of ISO 15740: 0x0002 UINT8, 0x4002 AUINT8, 0xFFFF text
  bool writable = false;
  nlohmann::json defaultValue;
  nlohmann::json value;
  std::vector<nlohmann::json> range;    ///< minimum, maximum, step; empty: none
  std::vector<nlohmann::json> choices;  ///< the enumeration form; a range goes before it
};

/// Limits of the address book that the device tells; version 0 is none.
struct AddressBookLimits {
  std::uint16_t version = 1;
  std::uint16_t characterTypeLimitation = 0;
  std::uint32_t maxAddresses = 0;
  std::uint32_t maxGroups = 0;
  std::uint32_t maxAddressesPerGroup = 0;
  std::uint32_t maxAddressLengthInBytes = 0;
  std::uint32_t maxNicknameLengthInBytes = 0;
  std::uint32_t maxGroupNameLengthInBytes = 0;
};

/// Answers of the maker's vendor operations; what is absent is not supported.
struct VendorDescription {
  /// Operations that need no more description, for example 0x9202 or 0x9209.
  std::vector<std::uint16_t> operations;
  std::optional<std::vector<std::uint16_t>> supportedDatasets;
  std::optional<std::uint32_t> displayRequestVersion;
  std::optional<std::uint32_t> bragbookVersion;
  std::optional<std::vector<std::uint8_t>> lcbInfo;
  std::optional<AddressBookLimits> addressBook;
  std::optional<std::vector<std::string>> queryRows;  ///< what every database query finds
};

/// What a host may do in a store: the access capability of StorageInfo (ISO 15740).
enum class StoreAccess : std::uint16_t { kReadWrite = 0, kReadOnly = 1, kReadAndDelete = 2 };

/// A StorageInfo dataset (ISO 15740, 5.5.3) and what lies in the store.
struct StoreDescription {
  std::uint32_t id = 0x00010001;  ///< physical store in the upper half, logical in the lower
  std::string description = "Memory card";
  std::string label;
  std::uint64_t capacity = 4'000'000'000;  ///< bytes
  std::uint64_t free = 0;                  ///< bytes, before a host changes anything
  bool removable = true;
  StoreAccess access = StoreAccess::kReadWrite;
  bool isEmptySlot = false;   ///< its id is listed, and no more than that
  bool vendorDelete = false;  ///< only the vendor's delete operation takes objects from it
  std::vector<ContentNode> content;
};

/// What a device does otherwise than most, each of it seen on real ones.
struct Habits {
  bool sessionBeforeDeviceInfo = false;  ///< GetDeviceInfo outside a session: SessionNotOpen
  bool checksTransactionIDs = false;     ///< an id out of turn: InvalidTransactionID
  bool noClassRequests = false;          ///< stalls those of the still-image class
  /// What a list over all stores gets; 0: no answer at all.
  std::optional<std::uint16_t> allStoresResponse;
  std::optional<std::uint16_t> formatResponse;  ///< what a list of one format gets
  bool ignoresFormat = false;                   ///< a list of one format has all
  bool needsAllParameters = false;              ///< a list with fewer than three is refused
  bool choosesNoStore = false;                  ///< what is sent to none in particular is refused
  /// A list names the top, or what lies in one folder; an object is known once it was listed.
  bool listsFolderByFolder = false;
  std::uint32_t rootParent = 0;  ///< what ObjectInfo says is above the top
};

/// What a capture makes: a picture of this size in the store that is told, named as generated
/// files are.
struct CaptureDescription {
  std::uint32_t size = 2'000'000;
  std::string prefix = "CAPT";
};

/// One device. What does not belong to its kind keeps its defaults.
struct DeviceDescription {
  DeviceKind kind = DeviceKind::kPTP;
  UsbIdentity usb;
  DeviceInfo info;                              ///< of a PTP device
  Habits habits;                                ///< of a PTP device
  std::vector<PropertyDescription> properties;  ///< of a PTP device
  VendorDescription vendor;                     ///< of a PTP device
  std::optional<DatasetsDescription> datasets;  ///< of a PTP device; none: it keeps none
  CaptureDescription capture;                   ///< of a PTP device
  std::vector<StoreDescription> stores;         ///< of a PTP device
  ScsiDescription scsi;                         ///< of a mass-storage device
  ModePagesDescription modePages;               ///< of a mass-storage device
  std::optional<VolumeDescription> volume;      ///< of a mass-storage device
  std::string image;  ///< of a mass-storage device: a file whose bytes are the medium's; or empty
  /// What a mass-storage device comes back as after it was switched to camera mode; null: it stays
  /// away.
  std::shared_ptr<const DeviceDescription> camera;
  /// How long it is still attached after it was told to power down: the hub notices that it has
  /// gone when it next looks (up to a quarter of a second at high speed; USB 2.0, 11.12.4).
  std::chrono::milliseconds leaveAfter{100};
  std::chrono::milliseconds wakeAfter{50};  ///< how long it is away then
  Faults faults;

  /// Raises DescriptionError, which begins with the key path, for a key that is missing or unknown
  /// and for a value of the wrong form: a misspelt key is never passed over.
  static DeviceDescription fromJson(const nlohmann::json& json);
  /// Reads a file; a file that cannot be read or parsed raises DescriptionError too.
  static DeviceDescription fromFile(const std::filesystem::path& path);
  /// The JSON of a file, complete: where it names a "camera" that another file in its folder
  /// describes, that description stands in its place, without its serial numbers.
  static nlohmann::json jsonFromFile(const std::filesystem::path& path);
};

/// Sets the faults of a description; raises DescriptionError.
void readFaults(const JsonNode& node, Faults& faults);

// The PTP part of a device's JSON description.

/// Reads all but `usb` and `kind`, which must have been read; raises DescriptionError.
void readPTPDescription(const JsonNode& root, DeviceDescription& device);

}  // namespace tarvo::simulator
