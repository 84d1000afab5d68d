// Data sets as JSON and back: what the tools show of a device's bytes, and read.
//
//   const RecordType* type = recordType("objectinfo");
//   PropertyDictionary json = type->decode(bytes);
//   std::vector<std::byte> again = type->encode(json);
//
// Keys are the names of the fields. Numbers are numbers, lists arrays, 16-byte values 32
// hexadecimal digits, of a fingerprint of zeros none; a value that is absent is an absent key.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// One kind of data set. Decoding ignores bytes behind a complete record; it raises what the codec
/// raises: NSRangeException for bytes that end early, but for the last fingerprint of an object
/// information, which is zeros where it is cut off; the assertion exception for a property's
/// datatype or form that is none. Encoding gives a field without a key zero or empty, but for the
/// values of a property; it raises NSInvalidArgumentException, with a reason for a user that names
/// the key, for what cannot be written: an unknown or missing key, another type, a number out of
/// range, a text of 255 UTF-16 units and more.
///
/// Encoding is the inverse of decoding, but for a contact, which is written as storeContact() does.
/// A text in the place of a record's GUID that is none is no failure: it is written as an empty
/// array, in a transfer order as zeros.
struct RecordType {
  std::string_view name;         ///< as a user types it
  std::string_view description;  ///< for help texts
  PropertyDictionary (*decode)(std::span<const std::byte> bytes);
  std::vector<std::byte> (*encode)(const PropertyDictionary& json);
};

/// All kinds, in the order of help texts.
std::span<const RecordType> recordTypes();
/// Null for an unknown name.
const RecordType* recordType(std::string_view name);

// The mappings of single records, for lists that hold them.

PropertyDictionary jsonFromObjectInfo(const XTExtendedObjectInfo& info);
PropertyDictionary jsonFromStorageInfo(const PTPStorageInfo& info);
PropertyDictionary jsonFromPropertyDescription(const PTPPropertyDescription& description);
/// Keys are those of the DeviceInfo data set (ISO 15740): "StandardVersion",
/// "OperationsSupported"... Raises NSRangeException for bytes that end early.
PropertyDictionary jsonFromDeviceInfo(std::span<const std::byte> deviceInfo);

}  // namespace tarvo
