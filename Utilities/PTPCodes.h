// PTP operation, event and format codes in use (ISO 15740), with the maker's vendor extension, and
// the container layout of PTP over USB (USB still-image class, PIMA 15740-2000 annex D).
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvo::ptp {

/// Operation codes (ISO 15740, clause "Operations"). 0x1xxx are the standard's, 0x9xxx a vendor's:
/// their meaning holds only where DeviceInfo names the vendor extension. What a device supports
/// stands in DeviceInfo's list of operations; an operation that is not listed is answered with
/// OperationNotSupported (0x2005), and by some devices not at all.
enum Operation : std::uint16_t {
  kGetDeviceInfo = 0x1001,
  kOpenSession = 0x1002,
  kCloseSession = 0x1003,
  kGetStorageIDs = 0x1004,
  kGetStorageInfo = 0x1005,
  kGetNumObjects = 0x1006,
  kGetObjectHandles = 0x1007,
  kGetObjectInfo = 0x1008,
  kGetObject = 0x1009,
  kGetThumb = 0x100A,
  kDeleteObject = 0x100B,
  kSendObjectInfo = 0x100C,
  kSendObject = 0x100D,
  kInitiateCapture = 0x100E,
  kFormatStore = 0x100F,
  kResetDevice = 0x1010,
  kSelfTest = 0x1011,
  kSetObjectProtection = 0x1012,
  kPowerDown = 0x1013,
  kGetDevicePropDesc = 0x1014,
  kGetDevicePropValue = 0x1015,
  kSetDevicePropValue = 0x1016,
  kResetDevicePropValue = 0x1017,
  kTerminateOpenCapture = 0x1018,
  kMoveObject = 0x1019,
  kCopyObject = 0x101A,
  kGetPartialObject = 0x101B,
  kInitiateOpenCapture = 0x101C,

  // The maker's vendor extension. Parameters and answers are those of the operation's caller in
  // NativeServices/PictureDevice; XT_GET_DISPLAY_REQUEST_VERSION has lost the O of the others, and
  // keeps its name so.
  XTO_SEND_VENDOR_OBJECT = 0x9002,
  XTO_SEND_OBJECT = 0x9006,
  XTO_GET_ADDRESS_BOOK_INFO = 0x9007,
  XTO_DISPLAY_REQUEST = 0x9008,
  XT_GET_DISPLAY_REQUEST_VERSION = 0x9009,
  XTO_GET_LCB_INFO = 0x900C,
  XTO_GET_BRAGBOOK_VERSION = 0x9011,
  XTO_SEND_OBJECT_PART = 0x9019,
  XTO_GET_DB_ROWS = 0x901A,
  XTO_GET_PICTURE_FILE_SIZES = 0x9203,
  XTO_GET_DATASET = 0x9204,
  XTO_CREATE_DATASET = 0x9205,
  XTO_UPDATE_EXT_OBJECT_INFO = 0x9206,
  XTO_UPDATE_DATASET = 0x9207,
  XTO_MODIFY_ASSET_LIST = 0x9208,
  XTO_DELETE_VENDOR_OBJECT = 0x9209,
  XTO_GET_SUPPORTED_DATASETS = 0x920A,
};

/// Object formats of the maker (ISO 15740 leaves 0xBxxx to vendors). 0xB0xx and 0xB8xx are files
/// and pictures, 0xB2xx the data sets that XTO_GET_SUPPORTED_DATASETS lists.
enum DataSetFormat : std::uint16_t {
  XTD_ADDRESS_BOOK_FILE = 0xB003,
  XTD_ALBUM_NAMES_FILE = 0xB005,
  XTD_HOST_OBJECT_WRAPPER = 0xB008,
  XTD_QUERY = 0xB00E,
  XTD_ALBUM = 0xB201,
  XTD_GROUP = 0xB202,
  XTD_CONTACT = 0xB203,
  XTD_EMAIL_ORDER = 0xB204,
  XTD_PRINT_ORDER = 0xB205,
  XTD_TRANSFER_ORDER = 0xB206,
  XTD_SQUIRT_EMAIL_ORDER = 0xB207,
  XTD_SQUIRT_PRINT_ORDER = 0xB208,
  XTD_SQUIRT_TRANSFER_ORDER = 0xB209,
  XTD_WIRELESS_CONFIG = 0xB20A,
  XTD_BRAGBOOK = 0xB802,
  XTD_BRAGBOOK2 = 0xB803,
  XTD_SHOEBOX_IMAGE = 0xB805,
};

/// Object formats of the standard (ISO 15740, "Object Formats").
inline constexpr std::uint16_t kUndefinedFormat = 0x3000;
inline constexpr std::uint16_t kAssociationFormat = 0x3001;  ///< a folder
inline constexpr std::uint16_t kJPEGFormat = 0x3801;         ///< EXIF/JPEG
/// The maker's format of new software for a device.
inline constexpr std::uint16_t kFirmwareFormat = 0xB001;
/// An object's size where ObjectInfo cannot hold it: ISO 15740 has 32 bits for it.
inline constexpr std::uint32_t kUnknownObjectSize = 0xFFFFFFFF;

/// In place of a storage id: every storage of the device (ISO 15740, GetNumObjects and
/// GetObjectHandles).
inline constexpr std::uint32_t kAllStores = 0xFFFFFFFF;
/// False for a slot without a card: the logical store is the lower half of an id (ISO 15740,
/// "StorageID").
constexpr bool hasLogicalStore(std::uint32_t store) {
  return (store & 0xFFFF) != 0;
}
/// In place of an object format: every picture of the device. It travels as 0xFFFFFFFF (ISO 15740,
/// GetNumObjects and GetObjectHandles), which no format of 16 bits can be.
inline constexpr std::uint16_t kAllImageFormats = 0xFFFF;

/// Device properties that the product reads: 0x5xxx of ISO 15740 (clause "Device Properties"),
/// 0xDxxx of the maker's extension.
enum DeviceProperty : std::uint16_t {
  kBatteryLevel = 0x5001,  // UInt8, per cent
  kDateTime = 0x5011,      // string "YYYYMMDDThhmmss", with an optional fraction and zone
  kCaptureCapability = 0xD00B,
  kDeviceGUID = 0xD201,
  kIntention = 0xD206,
};

/// Event codes (ISO 15740, clause "Events") after which something that was read is no longer true.
enum EventCode : std::uint16_t {
  kObjectAdded = 0x4002,
  kObjectRemoved = 0x4003,
  kStoreAdded = 0x4004,
  kStoreRemoved = 0x4005,
  kDevicePropChanged = 0x4006,
  kObjectInfoChanged = 0x4007,
  kDeviceReset = 0x400B,
  kStorageInfoChanged = 0x400C,
  /// The device has lost events, so anything may be stale.
  kUnreportedStatus = 0x400E,
};

/// Container types of PTP over USB (PIMA 15740, annex D, "Container structure"). Every container
/// opens with a header of 12 bytes, little-endian: length (u32, header included), type (u16), code
/// (u16), transaction id (u32).
enum ContainerType : std::uint16_t {
  // A command and its response have up to five parameters of 32 bits behind the header, an event up
  // to three; a data block has its payload there, and a packet shorter than the endpoint's ends it.
  kCommandBlock = 1,
  kDataBlock = 2,
  kResponseBlock = 3,
  kEventBlock = 4,
};
/// Bytes. A length field below this is a broken protocol, never an empty container.
inline constexpr std::size_t kContainerHeaderSize = 12;

/// Class requests of the USB still-image class (bRequest; the class definition, clause 5.2). They
/// go to the default control pipe, so they reach a device whose bulk pipes are stalled.
enum ClassRequest : std::uint8_t {
  // After a cancel request the status is asked for until the device no longer answers DeviceBusy;
  // a stalled bulk pipe shows there too, and is cleared before the next container.
  kCancelRequest = 0x64,
  kGetExtendedEventData = 0x65,
  kDeviceResetRequest = 0x66,
  kGetDeviceStatus = 0x67,
};
/// The code that opens the six bytes of a cancel request; the transaction id follows.
inline constexpr std::uint16_t kCancellationCode = 0x4001;

/// Interface class triple of a PTP device: bInterfaceClass, -SubClass and -Protocol (USB.org,
/// "Defined class codes", base class 06h).
inline constexpr std::uint8_t kStillImageClass = 6;
inline constexpr std::uint8_t kStillImageSubclass = 1;
inline constexpr std::uint8_t kPTPProtocol = 1;

}  // namespace tarvo::ptp
