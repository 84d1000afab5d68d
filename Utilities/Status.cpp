#include "Utilities/Status.h"

#include <algorithm>
#include <array>

#include "Utilities/Format.h"

namespace tarvo {
namespace {

/// A line of the table. The words stand between a person's own words in the log and in messages, so
/// they begin in lower case and end without a full stop.
struct StatusWords {
  Status value;
  const char* words;
};

/// Searched from the front: statuses are put in words when something failed, which is seldom. No
/// two rows have the same words, so that a reported message leads back to its status.
constexpr auto kStatusWords = std::to_array<StatusWords>({
    {status::kOK, "no error"},
    {status::kNotRecognised, "device not recognised"},
    {status::kDeviceNotFound, "device not found"},
    {status::kIOError, "input/output error"},
    {status::kFileNotFound, "file not found"},
    {status::kDuplicateFile, "a file of that name exists already"},
    {status::kBadParameter, "bad parameter"},
    {status::kWriteNotPermitted, "write not permitted"},
    {status::kOutOfMemory, "out of memory"},
    {status::kFileTypeNotFound, "file type not found"},
    {status::kCancelled, "cancelled"},
    {status::kNoUSBDevice, "no USB device stands behind the volume"},
    {status::kNotAFile, "not a file"},
    {status::kUnsupported, "operation not supported for this device"},
    {status::kICADeviceBusy, "device in use by another program"},
    {status::kICAAccessDenied, "no permission to use the device"},
    {status::kICADeviceGone, "device no longer connected"},
    {status::kICATimeout, "device did not answer in time"},
    {status::kICAProtocolError, "device broke the protocol"},
    {status::kICAInvalidObject, "no such object, or not one of that kind"},
    {status::kICAPropertyNotFound, "property not found"},
    {status::kICATransactionRunning, "the device is busy with another operation of this program"},
    {status::kICAOutOfTime, "the device is so slow that it has used up all of its time"},
    {status::kObjectTooLarge, "larger than what is read into memory (a text file: 8 MiB)"},
    {status::kIOReturnError, "the unit did not carry the command out"},
    {status::kIOReturnNoDevice, "the unit has gone"},
    {status::kIOReturnNotPrivileged, "permission denied"},
    {status::kIOReturnBadArgument, "bad argument"},
    {status::kIOReturnExclusiveAccess, "in use by another program"},
    {status::kIOReturnUnsupported, "not supported here"},
    {status::kIOReturnNotOpen, "exclusive access was not obtained"},
    {status::kIOReturnBusy, "the disk is in use"},
    {status::kIOReturnTimeout, "no answer in time"},
    {status::kIOReturnAborted, "interrupted"},
    {status::kDAReturnError, "the disk service refused"},
    {status::kDAReturnExclusiveAccess, "the disk is not this device's alone"},
    {status::kDAReturnNotFound, "there is no such disk"},
    {status::kDAReturnNotPermitted, "the disk service does not let this user do that"},
    {status::kDAReturnNotReady, "the disk service cannot be asked"},
    {status::kDAReturnUnsupported, "the disk cannot do that"},
    {status::kPTPOK, "device reports success"},
    {status::kPTPGeneralError, "general device error, or no response"},
    {status::kPTPSessionNotOpen, "session not open, or no such device object"},
    {status::kPTPInvalidTransactionID, "invalid transaction id"},
    {status::kPTPOperationNotSupported, "operation not supported by the device"},
    {status::kPTPParameterNotSupported, "parameter not supported by the device"},
    {status::kPTPIncompleteTransfer, "incomplete transfer"},
    {status::kPTPInvalidStorageID, "invalid storage id"},
    {status::kPTPInvalidObjectHandle, "invalid object handle"},
    {status::kPTPDevicePropNotSupported, "device property not supported"},
    {status::kPTPInvalidObjectFormatCode, "invalid object format"},
    {status::kPTPStoreFull, "storage full"},
    {status::kPTPObjectWriteProtected, "object is write-protected"},
    {status::kPTPStoreReadOnly, "storage is read-only"},
    {status::kPTPAccessDenied, "access denied by the device"},
    {status::kPTPNoThumbnailPresent, "no thumbnail present"},
    {status::kPTPDeviceBusy, "device busy"},
    {status::kPTPInvalidParentObject, "invalid parent object"},
    {status::kPTPInvalidParameter, "invalid parameter"},
    {status::kPTPSessionAlreadyOpen, "session already open"},
    {status::kPTPTransactionCancelled, "transaction cancelled"},
    // Nothing compares with these; a device may answer with them all the same.
    {0x2011, "self-test failed"},
    {0x2012, "only some of the objects were deleted"},
    {0x2013, "storage not available"},
    {0x2014, "device cannot choose objects by format"},
    {0x2015, "object was not announced"},
    {0x2016, "invalid code format"},
    {0x2017, "unknown vendor code"},
    {0x2018, "capture already terminated"},
    {0x201B, "invalid format of a device property"},
    {0x201C, "invalid value of a device property"},
    {0x2020, "device chooses the place of an object itself"},
    {status::kAddressBookTooManyContacts, "too many contacts for the device"},
    {status::kAddressBookTooManyGroups, "too many groups for the device"},
    {status::kAddressBookTooManyMembers, "too many members in a group"},
    {status::kAddressBookAddressTooLong, "e-mail address too long"},
    {status::kAddressBookNicknameTooLong, "nickname too long"},
    {status::kAddressBookGroupNameTooLong, "group name too long"},
    {status::kAddressBookNicknameCharacters,
     "nickname missing, or with characters the device cannot show"},
    {status::kAddressBookAddressCharacters, "e-mail address missing, or with invalid characters"},
    {status::kAddressBookNoAtSign, "e-mail address without '@'"},
    {status::kAddressBookNoDot, "e-mail address without '.' behind '@'"},
    {status::kAddressBookAtSignDot, "e-mail address with '@.'"},
    {status::kAddressBookTwoAtSigns, "e-mail address with more than one '@'"},
    {status::kAddressBookDotAtSign, "e-mail address with '.@'"},
    {status::kAddressBookOuterDot, "e-mail address begins or ends with '.' or '@'"},
});

/// The system field of an IOKit status: whatever begins so is one, listed or not.
constexpr bool isIOKitStatus(Status value) {
  return (static_cast<std::uint32_t>(value) & 0xFC000000U) == 0xE0000000U;
}

/// PTP response codes, those of the address book and IOKit statuses are known by their hexadecimal
/// value, the others by their decimal one.
constexpr bool isKnownInHex(Status value) {
  return value >= 0x2000 || isIOKitStatus(value);
}

}  // namespace

const char* statusWords(Status value) {
  const auto* row = std::ranges::find(kStatusWords, value, &StatusWords::value);
  return row == kStatusWords.end() ? nullptr : row->words;
}

std::string statusText(Status value) {
  const char* words = statusWords(value);
  if (!words) {
    if (isIOKitStatus(value)) return formatted("status 0x%x", static_cast<unsigned>(value));
    // Platform statuses are written as negative decimals everywhere, so those get no other form.
    return value > 0 ? formatted("status %d (0x%x)", value, static_cast<unsigned>(value))
                     : formatted("status %d", value);
  }
  return formatted(isKnownInHex(value) ? "%s (0x%x)" : "%s (%d)", words, value);
}

}  // namespace tarvo
