// What a picture device can do, as derived from its DeviceInfo.
#pragma once

#include <cstdint>
#include <vector>

namespace tarvo {

/// PTP codes in the order in which the device lists them.
using CodeList = std::vector<std::uint16_t>;

/// Lists hold a few dozen codes, so they are searched as they stand.
bool containsCode(const CodeList& codes, std::uint16_t code);

/// All false until CapabilityDetection has filled it in; a mass-storage device leaves it so.
struct DeviceCapabilities {
  bool deviceSupportsAddressBooks = false;
  bool deviceSupportsAlbumNames = false;
  bool deviceSupportsBragbooks = false;
  bool deviceRequiresYCC422 = false;  ///< needs JPEG images with 4:2:2 sampling
  bool deviceSupportsCapture = false;
  bool deviceSupportsIntention = false;  ///< reports share intentions
  /// Pictures can be sent to the device, in whichever way.
  bool deviceAcceptsFiles = false;
  bool deviceSupportsCameraBackDisplay = false;
  bool xtSendRequired = false;  ///< objects must be sent with the vendor send operation
  /// Which of the standard and the vendor operations the device lists.
  bool hasDeleteObject = false;
  bool hasDeleteVendorObject = false;
  bool hasSendVendorObject = false;
  bool supportsDirectBragbookImages = false;

  friend bool operator==(const DeviceCapabilities&, const DeviceCapabilities&) = default;
};

}  // namespace tarvo
