// What a virtual device is: identity, PTP device information, content and faults, as its JSON
// description gives it. docs/simulator.md has the schema.
//
//   auto device = DeviceDescription::fromFile("simulator/devices/tarvo-camera.json");
//   device.usb.serial = "another one";
//
// Plain values: a test changes a copy before it plugs it in. Each default is what a description
// that leaves the key out gets.
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/Faults.h"
#include "simulator/JsonNode.h"

namespace tarvo::simulator {

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

/// Objects that are made when they are asked for: `count` files of `size` bytes.
struct GeneratedFiles {
  std::uint32_t count = 0;
  std::uint32_t size = 0;
  std::string prefix;  ///< a name is prefix, number from 1 in six digits, ".", extension
  std::string extension;
  /// Name of the file at `index`, counted from 0.
  std::string nameOf(std::uint32_t index) const;
};

/// A folder, a file, or generated files in the folder that holds them.
struct ContentNode {
  enum class Kind { kFolder, kFile, kGenerated };
  Kind kind = Kind::kFile;
  std::string name;
  std::uint64_t size = 0;             ///< of a file
  std::optional<std::string> text;    ///< bytes of a file; absent: a pattern
  std::uint16_t format = 0;           ///< PTP object format; 0: by the extension
  std::vector<ContentNode> children;  ///< of a folder
  GeneratedFiles generated;           ///< of kGenerated, which has no name of its own
};

/// The DeviceInfo dataset (ISO 15740, 5.5.1). Its list of properties is made from
/// DeviceDescription::properties.
struct DeviceInfo {
  std::uint32_t vendorExtensionID = 0;
  std::uint16_t vendorExtensionVersion = 0;
  std::string vendorExtensionDescription;
  std::uint16_t functionalMode = 0;
  std::optional<std::vector<std::uint16_t>> operations;  ///< absent: all that the model knows
  std::vector<std::uint16_t> events;
  std::vector<std::uint16_t> captureFormats;  ///< formats that the device can make
  std::vector<std::uint16_t> imageFormats;    ///< formats that it can hold
  std::string manufacturer;
  std::string model;
  std::string version;
  std::string serial;
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

/// Answers of the maker's vendor operations; what is absent is not supported.
struct VendorDescription {
  std::optional<std::vector<std::uint16_t>> supportedDatasets;
  std::optional<std::uint32_t> displayRequestVersion;
  std::optional<std::uint32_t> bragbookVersion;
  std::optional<std::vector<std::uint8_t>> lcbInfo;
};

/// A StorageInfo dataset (ISO 15740, 5.5.3) and what lies in the store.
struct StoreDescription {
  std::uint32_t id = 0x00010001;  ///< physical store in the upper half, logical in the lower
  std::string description;
  std::string label;
  std::uint64_t capacity = 0;  ///< bytes
  std::uint64_t free = 0;      ///< bytes
  bool removable = true;
  std::vector<ContentNode> content;
};

/// What the unit answers to INQUIRY (SPC): vendor 8, model 16, revision 4 characters.
struct ScsiDescription {
  unsigned type = 0;  ///< peripheral device type: 0 disk, 5 CD/DVD
  std::string vendor;
  std::string model;
  std::string revision = "1.00";
};

/// A file system on a unit, mounted while the device is plugged in.
struct VolumeDescription {
  std::string label;  ///< also the last component of its mount point
  std::vector<ContentNode> content;
};

/// One device. What does not belong to its kind keeps its defaults.
struct DeviceDescription {
  DeviceKind kind = DeviceKind::kPTP;
  UsbIdentity usb;
  DeviceInfo info;                              ///< of a PTP device
  std::vector<PropertyDescription> properties;  ///< of a PTP device
  VendorDescription vendor;                     ///< of a PTP device
  std::vector<StoreDescription> stores;         ///< of a PTP device
  ScsiDescription scsi;                         ///< of a mass-storage device
  std::optional<VolumeDescription> volume;      ///< of a mass-storage device
  Faults faults;

  /// Raises DescriptionError, which begins with the key path, for a key that is missing or unknown
  /// and for a value of the wrong form: a misspelt key is never passed over.
  static DeviceDescription fromJson(const nlohmann::json& json);
  /// Reads a file; a file that cannot be read or parsed raises DescriptionError too.
  static DeviceDescription fromFile(const std::filesystem::path& path);
};

}  // namespace tarvo::simulator
