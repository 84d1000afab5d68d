// The mass-storage part of a device's JSON description: its SCSI unit, the maker's mode pages, and
// what its medium holds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/description/ContentDescription.h"

namespace tarvo::simulator {

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

}  // namespace tarvo::simulator
