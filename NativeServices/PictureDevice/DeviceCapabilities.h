// What a picture device can do, as derived from its DeviceInfo.
#pragma once

#include <cstdint>
#include <vector>

namespace tarvo {

/// PTP codes in the order in which the device lists them.
using CodeList = std::vector<std::uint16_t>;

bool containsCode(const CodeList& codes, std::uint16_t code);

struct DeviceCapabilities {
  bool deviceSupportsAddressBooks = false;
  bool deviceSupportsAlbumNames = false;
  bool deviceSupportsBragbooks = false;
  bool deviceRequiresYCC422 = false;  ///< needs JPEG images with 4:2:2 sampling
  bool deviceSupportsCapture = false;
  bool deviceSupportsIntention = false;  ///< reports share intentions
  bool deviceAcceptsFiles = false;
  bool deviceSupportsCameraBackDisplay = false;
  bool xtSendRequired = false;  ///< objects must be sent with the vendor send operation
  bool hasDeleteObject = false;
  bool hasDeleteVendorObject = false;
  bool hasSendVendorObject = false;
  bool supportsDirectBragbookImages = false;

  friend bool operator==(const DeviceCapabilities&, const DeviceCapabilities&) = default;
};

}  // namespace tarvo
