// Status codes: one signed 32-bit number for every way an operation can end.
//
// 0 is success. A positive value is a PTP response code as the device sent it (ISO 15740, annex on
// response codes) or an address-book validation code; a negative one is a platform status, or an
// IOKit status of a mass-storage unit. Use statusText() wherever a person reads it.
#pragma once

#include <cstdint>
#include <string>

namespace tarvo {

/// Not an enumeration, because a device may answer with a code that nobody has listed. It is handed
/// on as it is and shown by its number.
using Status = std::int32_t;

namespace status {
inline constexpr Status kOK = 0;

// Platform statuses. Those without a comment keep a number for callers that compare with it.

/// A device of a class that does not know the operation was asked for an object's information.
inline constexpr Status kNotRecognised = -4;
inline constexpr Status kDeviceNotFound = -19;
/// No Image Capture object stands behind the device any more, or opening its node failed with an
/// error that has no status of its own.
inline constexpr Status kIOError = -36;
inline constexpr Status kFileNotFound = -43;
inline constexpr Status kDuplicateFile = -48;
/// A mistake of the caller: a record that is not well-formed, an argument that is missing.
inline constexpr Status kBadParameter = -50;
inline constexpr Status kWriteNotPermitted = -61;
inline constexpr Status kOutOfMemory = -108;
inline constexpr Status kFileTypeNotFound = -127;
/// The side that takes or gives the data (a full disk, a caller that leaves) ended the transfer.
inline constexpr Status kCancelled = -490;
/// The one positive number among them: above a volume's device the registry has no USB device, as
/// for a card in a built-in reader.
inline constexpr Status kNoUSBDevice = 998;
inline constexpr Status kNotAFile = -1302;
/// The device's class does not know the operation; the device itself was not asked.
inline constexpr Status kUnsupported = -1400;

// What the Image Capture service and the transport under it add. Busy may pass by itself and is
// worth another try; after gone the object handle is never valid again.
inline constexpr Status kICADeviceBusy = -9901;     ///< interface held by another process
inline constexpr Status kICAAccessDenied = -9902;   ///< no permission on the device node
inline constexpr Status kICADeviceGone = -9903;     ///< unplugged
inline constexpr Status kICATimeout = -9904;        ///< the device did not answer in time
inline constexpr Status kICAProtocolError = -9905;  ///< the device broke the protocol
inline constexpr Status kICAInvalidObject = -9906;  ///< no such object, or none of that kind
inline constexpr Status kICAPropertyNotFound = -9907;
/// Begun within another transaction with the same device; worth another try once that has ended.
inline constexpr Status kICATransactionRunning = -9908;
inline constexpr Status kObjectTooLarge = -9909;  ///< larger than what is read into memory
inline constexpr Status kICAOutOfTime = -9910;    ///< a slow device has used up all of its time

// IOKit statuses, of SCSI commands and of disks. They are known by their 32 bits in hexadecimal and
// are negative as a Status.
constexpr Status ioKitStatus(std::uint32_t bits) {
  return static_cast<Status>(bits);
}
/// No command came through, for a reason without a status of its own, or the unit answered with a
/// bad task status.
inline constexpr Status kIOReturnError = ioKitStatus(0xE00002BC);
inline constexpr Status kIOReturnNoDevice = ioKitStatus(0xE00002C0);       ///< it has gone
inline constexpr Status kIOReturnNotPrivileged = ioKitStatus(0xE00002C1);  ///< EACCES, EPERM
inline constexpr Status kIOReturnBadArgument = ioKitStatus(0xE00002C2);
/// Another program has the unit for itself.
inline constexpr Status kIOReturnExclusiveAccess = ioKitStatus(0xE00002C5);
inline constexpr Status kIOReturnUnsupported = ioKitStatus(0xE00002C7);
/// A task was to be done without exclusive access.
inline constexpr Status kIOReturnNotOpen = ioKitStatus(0xE00002CD);
inline constexpr Status kIOReturnBusy = ioKitStatus(0xE00002D5);
inline constexpr Status kIOReturnTimeout = ioKitStatus(0xE00002D6);
inline constexpr Status kIOReturnAborted = ioKitStatus(0xE00002EB);  ///< it was interrupted

// PTP response codes (ISO 15740, clause "Responses"), as the device sent them. Only codes that the
// product compares with or puts in words are listed.
inline constexpr Status kPTPOK = 0x2001;
inline constexpr Status kPTPGeneralError = 0x2002;
inline constexpr Status kPTPSessionNotOpen = 0x2003;  ///< also: no Image Capture object
inline constexpr Status kPTPInvalidTransactionID = 0x2004;
inline constexpr Status kPTPOperationNotSupported = 0x2005;
inline constexpr Status kPTPParameterNotSupported = 0x2006;
inline constexpr Status kPTPIncompleteTransfer = 0x2007;
inline constexpr Status kPTPInvalidStorageID = 0x2008;
inline constexpr Status kPTPInvalidObjectHandle = 0x2009;
inline constexpr Status kPTPDevicePropNotSupported = 0x200A;
inline constexpr Status kPTPInvalidObjectFormatCode = 0x200B;
inline constexpr Status kPTPStoreFull = 0x200C;
inline constexpr Status kPTPObjectWriteProtected = 0x200D;
inline constexpr Status kPTPStoreReadOnly = 0x200E;
inline constexpr Status kPTPAccessDenied = 0x200F;
inline constexpr Status kPTPNoThumbnailPresent = 0x2010;
inline constexpr Status kPTPStoreNotAvailable = 0x2013;
inline constexpr Status kPTPSpecificationByFormatUnsupported = 0x2014;
inline constexpr Status kPTPDeviceBusy = 0x2019;
inline constexpr Status kPTPInvalidParentObject = 0x201A;
inline constexpr Status kPTPInvalidParameter = 0x201D;
inline constexpr Status kPTPSessionAlreadyOpen = 0x201E;
inline constexpr Status kPTPTransactionCancelled = 0x201F;

// What the validation of an address book finds. The limits are those that the device tells. The
// numbers lie above every 16-bit response code, so that one Status holds either; those that are
// missing are not in use.
inline constexpr Status kAddressBookTooManyContacts = 0x10000001;
inline constexpr Status kAddressBookTooManyGroups = 0x10000002;
inline constexpr Status kAddressBookTooManyMembers = 0x10000003;
inline constexpr Status kAddressBookAddressTooLong = 0x10000005;
inline constexpr Status kAddressBookNicknameTooLong = 0x10000006;
inline constexpr Status kAddressBookGroupNameTooLong = 0x10000007;
inline constexpr Status kAddressBookNicknameCharacters = 0x10000010;
inline constexpr Status kAddressBookAddressCharacters = 0x10000011;
inline constexpr Status kAddressBookNoAtSign = 0x10000012;
inline constexpr Status kAddressBookNoDot = 0x10000013;
inline constexpr Status kAddressBookAtSignDot = 0x10000014;
inline constexpr Status kAddressBookTwoAtSigns = 0x10000015;
inline constexpr Status kAddressBookDotAtSign = 0x10000016;
inline constexpr Status kAddressBookOuterDot = 0x10000017;
}  // namespace status

/// A status in words alone, for example "file not found"; null where nobody knows it. Any thread.
const char* statusWords(Status value);

/// The same with its number, for example "operation not supported by the device (0x2005)" or
/// "file not found (-43)". Unknown values give "status N", positive ones with the hexadecimal
/// number as well. Any thread.
std::string statusText(Status value);

}  // namespace tarvo

namespace tarvo::status {

inline constexpr Status kDAReturnError = ioKitStatus(0xF8DA0001);
/// It is another device's, or also another's.
inline constexpr Status kDAReturnExclusiveAccess = ioKitStatus(0xF8DA0004);
inline constexpr Status kDAReturnNotFound = ioKitStatus(0xF8DA0006);
inline constexpr Status kDAReturnNotPermitted = ioKitStatus(0xF8DA0008);
inline constexpr Status kDAReturnNotReady = ioKitStatus(0xF8DA000A);  ///< nobody can be asked
inline constexpr Status kDAReturnUnsupported = ioKitStatus(0xF8DA000C);

}  // namespace tarvo::status
