// Data sets with fixed fields: what a device says of itself and of a store, the limits of its
// address book, the description of a device property, its contacts, groups and orders.
//
//   const auto info = scanStorageInfo(dataSet);
//   if (info->accessCapability == 0) use(info->freeSpaceInBytes);
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// The DeviceInfo data set (ISO 15740, "DeviceInfo dataset"). Versions are in hundredths; lists
/// hold the codes of operations, events, properties and object formats.
struct PTPDeviceInfo {
  std::uint16_t standardVersion = 0;
  std::uint32_t vendorExtensionID = 0;
  std::uint16_t vendorExtensionVersion = 0;
  std::string vendorExtensionDesc;
  std::uint16_t functionalMode = 0;
  std::vector<std::uint16_t> operationsSupported;
  std::vector<std::uint16_t> eventsSupported;
  std::vector<std::uint16_t> devicePropertiesSupported;
  std::vector<std::uint16_t> captureFormats;
  std::vector<std::uint16_t> imageFormats;
  std::string manufacturer;
  std::string model;
  std::string deviceVersion;
  std::string serialNumber;

  friend bool operator==(const PTPDeviceInfo&, const PTPDeviceInfo&) = default;
};

/// Reads a DeviceInfo from the current position. Raises NSRangeException when the data set ends
/// early.
PTPDeviceInfo scanDeviceInfo(XTPTPDataSet& dataSet);
/// What scanDeviceInfo() reads, without padding.
XTMutablePTPDataSet dataSetFromDeviceInfo(const PTPDeviceInfo& info);

/// The fixed part of the StorageInfo data set (ISO 15740, "StorageInfo dataset"). Of the two texts
/// that follow it, the description and the volume label, only one is kept, which JSON does not
/// have.
struct PTPStorageInfo {
  std::uint16_t storageType = 0;       ///< 1, 2: fixed and removable ROM; 3, 4: the same in RAM
  std::uint16_t fileSymType = 0;       ///< 1 flat, 2 hierarchical, 3 DCF
  std::uint16_t accessCapability = 0;  ///< 0 read-write, 1 read-only, 2 read-only with deletion
  std::uint64_t maxCapacity = 0;       ///< bytes
  std::uint64_t freeSpaceInBytes = 0;
  std::uint32_t freeSpaceInImages = 0;  ///< 0xFFFFFFFF where the device does not tell
  std::string label{};  ///< of the volume, or else the description; read alone, and may be empty

  friend bool operator==(const PTPStorageInfo&, const PTPStorageInfo&) = default;
};

/// Reads a StorageInfo from the current position; each field is traced. Raises NSRangeException
/// when the data set ends early.
std::shared_ptr<const PTPStorageInfo> scanStorageInfo(XTPTPDataSet& dataSet);
/// What scanStorageInfo() reads; the two texts behind it are empty.
XTMutablePTPDataSet dataSetFromStorageInfo(const PTPStorageInfo& info);

/// Reads and traces the fields. Raises NSRangeException when the data set ends early.
XT_AddressBookInfo scanAddressBookInfo(XTPTPDataSet& dataSet);
XTMutablePTPDataSet dataSetFromAddressBookInfo(const XT_AddressBookInfo& info);

/// A device property's description (ISO 15740, "DevicePropDesc dataset"). By the datatype a value
/// is a number, a text, or an array; 128 bits are 32 hexadecimal digits in the order of their
/// bytes, and the elements of an INT8 array are unsigned, as XTPTPDataSet::scan() has them.
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
/// exception for a datatype ("Unexpected datatype %d") or a form ("Unexpected form %d") that
/// ISO 15740 does not have.
PTPPropertyDescription scanPropertyDescription(XTPTPDataSet& dataSet);
/// What scanPropertyDescription() reads. Raises NSInvalidArgumentException, with a reason that
/// names the value ("current", "minimum"...), for one that does not fit the datatype.
XTMutablePTPDataSet dataSetFromPropertyDescription(const PTPPropertyDescription& description);

/// One value of a datatype from the current position. Raises as scanPropertyDescription() does.
PropertyDictionary scanPropertyValue(XTPTPDataSet& dataSet, std::uint16_t datatype);
/// Appends one value of a datatype (as SetDevicePropValue sends it, without padding). Raises the
/// assertion exception for an unknown datatype and NSInvalidArgumentException for a value that does
/// not fit, with a reason for a user that begins with `name`.
void storePropertyValue(XTMutablePTPDataSet& dataSet, std::uint16_t datatype,
                        const PropertyDictionary& value, std::string_view name = "the value");

// The vendor data sets of the address book: a contact (format 0xB203) and a group (0xB202).

/// A random GUID as canonical text. Any thread.
std::string newGUID();
/// Whether a uid tells one contact from all others: a GUID does, but for that of zeros.
bool identifies(const std::optional<std::string>& uid);

/// Reads a contact from the current position; handle and action are left as they are made. Raises
/// NSRangeException when the data set ends early.
Contact scanContact(XTPTPDataSet& dataSet);

/// Appends a contact. Its picture and its groups are written as none, and of its street the first
/// two lines. A contact without a uid gets a new GUID on the wire, each time anew.
void storeContact(XTMutablePTPDataSet& dataSet, const Contact& contact);

/// A group as it travels, its members still being handles. Raises NSRangeException when the data
/// set ends early.
ContactGroupRecord scanContactGroup(XTPTPDataSet& dataSet);
void storeContactGroupRecord(XTMutablePTPDataSet& dataSet, const ContactGroupRecord& group);

/// Reads a group whose members are those of `contacts`, in the order of the wire. A member that is
/// not among them is a failed assertion, "Could not find contacts for all members of group %@".
/// Raises NSRangeException when the data set ends early.
ContactGroup scanGroupAndAssignContacts(XTPTPDataSet& dataSet, const ContactsByHandle& contacts);

/// Appends a group with the handles of its members; those of `group` itself do not count.
void storeContactGroup(XTMutablePTPDataSet& dataSet, const ContactGroup& group,
                       std::span<const std::uint32_t> members);

// The vendor data sets of orders, read from a device and, as exact inverses, written.

// Each reads from the current position. Raises NSRangeException when the data set ends early.

EmailOrderRecord scanEmailOrder(XTPTPDataSet& dataSet);
PrintOrderRecord scanPrintOrder(XTPTPDataSet& dataSet);
/// The order id takes 20 bytes here, whatever they are: those that are no GUID read as zeros.
TransferOrderRecord scanTransferOrder(XTPTPDataSet& dataSet);

// An order id that is no GUID text is written as a UInt32 0, as storeGUID() does; that of a
// transfer order, whose reader could not take it, as 16 zero bytes.

void storeEmailOrder(XTMutablePTPDataSet& dataSet, const EmailOrderRecord& order);
void storePrintOrder(XTMutablePTPDataSet& dataSet, const PrintOrderRecord& order);
void storeTransferOrder(XTMutablePTPDataSet& dataSet, const TransferOrderRecord& order);

}  // namespace tarvo
