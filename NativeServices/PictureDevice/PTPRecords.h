// Data sets with fixed fields that a device answers with: storage information, the limits of its
// address book, and the description of a device property.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/XTPTPDataSet.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// The fixed part of the StorageInfo data set (ISO 15740, "StorageInfo dataset"). The two texts
/// that follow it, the description and the volume label, are not part of the record.
struct PTPStorageInfo {
  std::uint16_t storageType = 0;       ///< 1, 2: fixed and removable ROM; 3, 4: the same in RAM
  std::uint16_t fileSysType = 0;       ///< 1 flat, 2 hierarchical, 3 DCF
  std::uint16_t accessCapability = 0;  ///< 0 read-write, 1 read-only, 2 read-only with deletion
  std::uint64_t maxCapacity = 0;       ///< bytes
  std::uint64_t freeSpaceInBytes = 0;
  std::uint32_t freeSpaceInImages = 0;  ///< 0xFFFFFFFF where the device does not tell

  friend bool operator==(const PTPStorageInfo&, const PTPStorageInfo&) = default;
};

/// Reads a StorageInfo from the current position; each field is traced. Raises NSRangeException
/// when the data set ends early.
std::shared_ptr<const PTPStorageInfo> scanStorageInfo(XTPTPDataSet& dataSet);
/// What scanStorageInfo() reads; the two texts behind it are empty.
XTMutablePTPDataSet dataSetFromStorageInfo(const PTPStorageInfo& info);

/// The limits of the address book of a device, its answer to XTO_GET_ADDRESS_BOOK_INFO (28 bytes).
/// Limits "in bytes" count UTF-16 units.
struct XT_AddressBookInfo {
  std::uint16_t version = 0;  ///< 0: not read
  std::uint16_t characterTypeLimitation = 0;
  std::uint32_t maxAddresses = 0;
  std::uint32_t maxGroups = 0;
  std::uint32_t maxAddressesPerGroup = 0;
  std::uint32_t maxAddressLengthInBytes = 0;
  std::uint32_t maxNicknameLengthInBytes = 0;
  std::uint32_t maxGroupNameLengthInBytes = 0;

  friend bool operator==(const XT_AddressBookInfo&, const XT_AddressBookInfo&) = default;
};

/// Reads and traces the fields. Raises NSRangeException when the data set ends early.
XT_AddressBookInfo scanAddressBookInfo(XTPTPDataSet& dataSet);
XTMutablePTPDataSet dataSetFromAddressBookInfo(const XT_AddressBookInfo& info);

/// A device property's description (ISO 15740, "DevicePropDesc dataset"). Values are numbers,
/// texts, arrays of numbers, or 32 hexadecimal digits for 128 bits, by the datatype.
struct PTPPropertyDescription {
  enum class Form : std::uint8_t { kNone = 0, kRange = 1, kEnumeration = 2 };

  std::uint16_t code = 0;
  std::uint16_t datatype = 0;  ///< a PTPDataCode
  bool isWritable = false;
  PropertyDictionary factoryDefault;
  PropertyDictionary current;
  Form form = Form::kNone;
  /// Minimum, maximum and step of a range; the values of an enumeration.
  PropertyDictionary formValues = PropertyDictionary::array();

  friend bool operator==(const PTPPropertyDescription&, const PTPPropertyDescription&) = default;
};

/// Reads a description. Raises NSRangeException when the data set ends early, and the assertion
/// exception for a datatype or a form that ISO 15740 does not have.
PTPPropertyDescription scanPropertyDescription(XTPTPDataSet& dataSet);
XTMutablePTPDataSet dataSetFromPropertyDescription(const PTPPropertyDescription& description);

/// One value of a datatype: read, and written (as SetDevicePropValue sends it, without padding).
/// Raises as above; writing also raises the assertion exception, with a reason in words, for a
/// value that does not fit the datatype.
PropertyDictionary scanPropertyValue(XTPTPDataSet& dataSet, std::uint16_t datatype);
void storePropertyValue(XTMutablePTPDataSet& dataSet, std::uint16_t datatype,
                        const PropertyDictionary& value);

}  // namespace tarvo
