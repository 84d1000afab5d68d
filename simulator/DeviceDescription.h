// What a virtual device is: identity, PTP device information, content and faults, as its JSON
// description gives it. docs/simulator.md has the schema.
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

enum class DeviceKind { kPTP, kMassStorage };
enum class UsbSpeed { kFull, kHigh };

struct UsbIdentity {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0x0100;
  std::string manufacturer;  ///< the string descriptors; empty: the device has none
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
  std::string nameOf(std::uint32_t index) const;
};

/// A folder, a file, or generated files in the folder that holds them.
struct ContentNode {
  enum class Kind { kFolder, kFile, kGenerated };
  Kind kind = Kind::kFile;
  std::string name;
  std::uint64_t size = 0;           ///< of a file
  std::optional<std::string> text;  ///< bytes of a file; absent: a pattern
  std::uint16_t format = 0;         ///< PTP object format; 0: by the extension
  std::vector<ContentNode> children;
  GeneratedFiles generated;
};

struct DeviceInfo {
  std::uint32_t vendorExtensionID = 0;
  std::uint16_t vendorExtensionVersion = 0;
  std::string vendorExtensionDescription;
  std::uint16_t functionalMode = 0;
  std::optional<std::vector<std::uint16_t>> operations;  ///< absent: all that the model knows
  std::vector<std::uint16_t> events;
  std::vector<std::uint16_t> captureFormats;
  std::vector<std::uint16_t> imageFormats;
  std::string manufacturer;
  std::string model;
  std::string version;
  std::string serial;
};

/// One device property (ISO 15740). Values are numbers, texts or lists of numbers, by the datatype.
struct PropertyDescription {  // NOLINT(bugprone-exception-escape): the JSON library's move
  std::uint16_t code = 0;
  std::uint16_t datatype = 0;
  bool writable = false;
  nlohmann::json defaultValue;
  nlohmann::json value;
  std::vector<nlohmann::json> range;  ///< minimum, maximum, step; empty: none
  std::vector<nlohmann::json> choices;
};

/// Answers of the maker's vendor operations; what is absent is not supported.
struct VendorDescription {
  std::optional<std::vector<std::uint16_t>> supportedDatasets;
  std::optional<std::uint32_t> displayRequestVersion;
  std::optional<std::uint32_t> bragbookVersion;
  std::optional<std::vector<std::uint8_t>> lcbInfo;
};

struct StoreDescription {
  std::uint32_t id = 0x00010001;
  std::string description;
  std::string label;
  std::uint64_t capacity = 0;
  std::uint64_t free = 0;
  bool removable = true;
  std::vector<ContentNode> content;
};

struct ScsiDescription {
  unsigned type = 0;  ///< peripheral device type: 0 disk, 5 CD/DVD
  std::string vendor;
  std::string model;
  std::string revision = "1.00";
};

struct VolumeDescription {
  std::string label;
  std::vector<ContentNode> content;
};

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

  /// Raises DescriptionError with the key path.
  static DeviceDescription fromJson(const nlohmann::json& json);
  /// Reads a file; a file that cannot be read or parsed raises DescriptionError too.
  static DeviceDescription fromFile(const std::filesystem::path& path);
};

}  // namespace tarvo::simulator
