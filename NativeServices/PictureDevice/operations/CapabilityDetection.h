// Which capabilities a PTP device has, from its DeviceInfo and a few questions to it.
#pragma once

#include <cstdint>
#include <string>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// What capability detection takes from a DeviceInfo; lent.
struct DeviceFacts {
  const std::string& manufacturer;
  const std::string& model;
  /// OperationsSupported, DevicePropertiesSupported and ImageFormats of the DeviceInfo (ISO 15740),
  /// and the vendor data sets, which are asked for apart.
  const CodeList& opcodes;
  const CodeList& properties;
  const CodeList& imageFormats;
  const CodeList& datasets;
};

/// Main thread only.
///
///   CapabilityDetection detection(device, maker);
///   const auto capabilities = detection.detect(facts);
///
/// Most capabilities follow from the lists alone. Only a device with the maker's manufacturer text
/// is asked anything, and only about what it lists.
class CapabilityDetection {
 public:
  /// Both are lent.
  CapabilityDetection(PTPTransactions& device, const MakerConstants& maker)
      : device_(device), maker_(maker) {}

  /// Asks the device for its capture capability and whether its LCB information works, where it
  /// lists them. Raises NSRangeException on a property description that is cut off.
  DeviceCapabilities detect(const DeviceFacts& facts);

 private:
  /// Sets the flags that no other vendor's device gets, the vendor codes of which mean something
  /// else.
  void detectMakersCapabilities(const DeviceFacts& facts, DeviceCapabilities& capabilities);
  /// Current value of the capture-capability property; 0 when it cannot be told.
  std::uint32_t captureCapability();

  PTPTransactions& device_;
  const MakerConstants& maker_;
};

/// Whether an operation may be sent to a device that lists `listed` (null: nothing): the three
/// session operations always; others only when listed and, beyond the standard ones, only to a
/// device with the maker's vendor extension.
bool isOperationSupported(std::uint16_t operation, const CodeList* listed, bool hasMakersExtension);

}  // namespace tarvo
