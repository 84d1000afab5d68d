#include "NativeServices/PictureDevice/operations/CapabilityDetection.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

// Of the value of the capture-capability property, 0xD00B.
constexpr std::uint32_t kCaptureBit = 1U << 0;
constexpr std::uint32_t kDirectBragbookImagesBit = 1U << 6;

// Read by hand and not by the reader of descriptions: only the value matters here, and a form that
// is malformed must not cost a device its capabilities.
std::uint32_t scanCurrentValue(XTPTPDataSet& description) {
  constexpr std::uint32_t kPropertyCodeSize = 2;
  constexpr std::uint32_t kGetSetSize = 1;
  // DevicePropDesc: code, datatype, get/set, factory default, current value (ISO 15740).
  description.skip(kPropertyCodeSize);
  const std::uint16_t dataType = description.scanUInt16();
  description.skip(kGetSetSize);
  // The factory default, which has the size of the value, is passed over.
  switch (dataType) {
    case kPTPInt8:
    case kPTPUInt8:
      description.skip(1);
      return description.scanByte();
    case kPTPInt16:
    case kPTPUInt16:
      description.skip(2);
      return description.scanUInt16();
    case kPTPInt32:
    case kPTPUInt32:
      description.skip(4);
      return description.scanUInt32();
    // 64 bits, arrays and texts are no sets of bits. Without a value a device can capture nothing.
    default:
      return 0;
  }
}

}  // namespace

bool containsCode(const CodeList& codes, std::uint16_t code) {
  return std::ranges::find(codes, code) != codes.end();
}

DeviceCapabilities CapabilityDetection::detect(const DeviceFacts& facts) {
  const auto offers = [&](std::uint16_t code) { return containsCode(facts.opcodes, code); };
  const bool isMakers = facts.manufacturer == maker_.manufacturer;
  const bool isLegacy =
      std::ranges::find(maker_.legacyModels, facts.model) != maker_.legacyModels.end();
  // Without the maker's name 0x9006 is somebody else's operation.
  const bool takesVendorSend = isMakers && offers(ptp::XTO_SEND_OBJECT);

  DeviceCapabilities capabilities;
  if (isMakers) detectMakersCapabilities(facts, capabilities);
  capabilities.hasDeleteObject = offers(ptp::kDeleteObject);
  capabilities.xtSendRequired = !offers(ptp::kSendObject) && takesVendorSend;
  capabilities.deviceAcceptsFiles = offers(ptp::kSendObject) || takesVendorSend || isLegacy;
  return capabilities;
}

void CapabilityDetection::detectMakersCapabilities(const DeviceFacts& facts,
                                                   DeviceCapabilities& capabilities) {
  const auto offers = [&](std::uint16_t code) { return containsCode(facts.opcodes, code); };
  const auto knows = [&](std::uint16_t format) { return containsCode(facts.datasets, format); };

  // A device may tell it by an operation or by a data set alone.
  capabilities.deviceSupportsAddressBooks =
      offers(ptp::XTO_GET_ADDRESS_BOOK_INFO) || knows(ptp::XTD_CONTACT);
  capabilities.deviceSupportsAlbumNames =
      // Listed is not enough: the device may refuse it all the same.
      (offers(ptp::XTO_GET_LCB_INFO) && device_.doesLCBInfoWork()) || knows(ptp::XTD_ALBUM);
  capabilities.deviceSupportsBragbooks = offers(ptp::XTO_GET_BRAGBOOK_VERSION);
  capabilities.deviceRequiresYCC422 = containsCode(facts.imageFormats, ptp::XTD_BRAGBOOK2);
  capabilities.deviceSupportsIntention = containsCode(facts.properties, ptp::kIntention);
  capabilities.deviceSupportsCameraBackDisplay = offers(ptp::XT_GET_DISPLAY_REQUEST_VERSION);
  capabilities.hasDeleteVendorObject = offers(ptp::XTO_DELETE_VENDOR_OBJECT);
  capabilities.hasSendVendorObject = offers(ptp::XTO_SEND_VENDOR_OBJECT);

  // Without the property a device of the maker can capture.
  capabilities.deviceSupportsCapture = true;
  // The only transaction of the detection besides doesLCBInfoWork(): both are asked while the
  // device is inspected, so each counts in what an arrival costs.
  if (containsCode(facts.properties, ptp::kCaptureCapability)) {
    const std::uint32_t value = captureCapability();
    capabilities.deviceSupportsCapture = value & kCaptureBit;
    capabilities.supportsDirectBragbookImages = value & kDirectBragbookImagesBit;
  }
}

std::uint32_t CapabilityDetection::captureCapability() {
  auto description = device_.propertyDataSet(ptp::kCaptureCapability);
  return description ? scanCurrentValue(*description) : 0;
}

bool isOperationSupported(std::uint16_t operation, const CodeList* listed,
                          bool hasMakersExtension) {
  // These come before the list is known, or end a session whatever is known.
  if (operation >= ptp::kGetDeviceInfo && operation <= ptp::kCloseSession) return true;
  if (!listed || !containsCode(*listed, operation)) return false;
  // A vendor code of another vendor's device means something else there.
  const bool isStandard =
      operation >= ptp::kGetDeviceInfo && operation <= ptp::kInitiateOpenCapture;
  return isStandard || hasMakersExtension;
}

}  // namespace tarvo
