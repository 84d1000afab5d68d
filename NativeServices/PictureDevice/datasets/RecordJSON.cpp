#include "NativeServices/PictureDevice/datasets/RecordJSON.h"

#include <algorithm>
#include <array>
#include <string>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/RecordJSONFields.h"

namespace tarvo {
namespace {

using Bytes = std::span<const std::byte>;
using ByteVector = std::vector<std::byte>;
using Form = PTPPropertyDescription::Form;

/// Unlike other records, a description has values without a sensible default: what zero means is up
/// to the property, so a missing value is refused.
PTPPropertyDescription propertyDescriptionFromJSON(const PropertyDictionary& json) {
  PTPPropertyDescription description;
  FieldsFromJSON fields(json);
  // Placeholders, for a form without its values is refused below.
  description.formValues = {nullptr, nullptr, nullptr};
  visitFields(description, fields);
  fields.finish();
  for (const char* name : {"code", "datatype", "factoryDefault", "current"})
    fields.require(name);
  if (description.form == Form::kNone) description.formValues = PropertyDictionary::array();
  if (description.form == Form::kRange) {
    for (const char* name : kRangeNames)
      fields.require(name);
  }
  if (description.form == Form::kEnumeration) fields.require("values");
  return description;
}

// One pair of functions for each type that has more to say than its list of fields.

PropertyDictionary decodeObjectInfo(Bytes bytes) {
  return jsonFromObjectInfo(scanned(
      bytes, [](auto& dataSet) { return XTExtendedObjectInfo::initWithDataSet(dataSet, false); }));
}

ByteVector encodeObjectInfo(const PropertyDictionary& json) {
  return recordFromJSON(json, XTExtendedObjectInfo()).dataSetWithByteOrder(kPTPByteOrder).data();
}

PropertyDictionary decodeExtendedObjectInfo(Bytes bytes) {
  // Not by scanned(): the last fingerprint may be cut off, and is zeros then.
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  return jsonFromObjectInfo(XTExtendedObjectInfo::initWithDataSet(dataSet, true));
}

ByteVector encodeExtendedObjectInfo(const PropertyDictionary& json) {
  return recordFromJSON(json, XTExtendedObjectInfo::initExtended())
      .dataSetWithByteOrder(kPTPByteOrder)
      .data();
}

ByteVector encodeDeviceInfo(const PropertyDictionary& json) {
  return dataSetFromDeviceInfo(recordFromJSON<PTPDeviceInfo>(json)).data();
}

PropertyDictionary decodeStorageInfo(Bytes bytes) {
  return jsonFromStorageInfo(*scanned(bytes, scanStorageInfo));
}

ByteVector encodeStorageInfo(const PropertyDictionary& json) {
  return dataSetFromStorageInfo(recordFromJSON<PTPStorageInfo>(json)).data();
}

ByteVector encodeAddressBookInfo(const PropertyDictionary& json) {
  return dataSetFromAddressBookInfo(recordFromJSON<XT_AddressBookInfo>(json)).data();
}

/// What storeContact() writes, which is less than a contact that was read may have.
ByteVector encodeContact(const PropertyDictionary& json) {
  const auto contact = recordFromJSON<Contact>(json);
  return stored([&](auto& dataSet) { storeContact(dataSet, contact); });
}

/// A record that lists its fields and has nothing else to say.
template <auto kScan>
PropertyDictionary decodeRecord(Bytes bytes) {
  return jsonFromRecord(scanned(bytes, kScan));
}

template <typename Record, auto kStore>
ByteVector encodeRecord(const PropertyDictionary& json) {
  const auto record = recordFromJSON<Record>(json);
  return stored([&](auto& dataSet) { kStore(dataSet, record); });
}

PropertyDictionary decodePropertyDescription(Bytes bytes) {
  return jsonFromPropertyDescription(scanned(bytes, scanPropertyDescription));
}

ByteVector encodePropertyDescription(const PropertyDictionary& json) {
  return dataSetFromPropertyDescription(propertyDescriptionFromJSON(json)).data();
}

/// 16 zero bytes are a GUID of zeros; so is an array of another length, which the reader traces.
PropertyDictionary decodeGUID(Bytes bytes) {
  return scanned(bytes, [](auto& dataSet) { return dataSet.scanGUID().value_or(""); });
}

ByteVector encodeGUID(const PropertyDictionary& json) {
  constexpr std::size_t kEmptyArray = 4;  // a count and no bytes
  const std::string text = textFromJSON(json, kDocument);
  ByteVector bytes = stored([&](auto& dataSet) { dataSet.storeGUID(text); });
  // The writer's answer to a text that it cannot read.
  if (bytes.size() == kEmptyArray)
    refuseValue(kDocument, "must be a GUID, 00112233-4455-6677-8899-AABBCCDDEEFF for example");
  return bytes;
}

/// A data set that is a single value, read and written as the value of a property is.
template <PTPDataCode kDatatype>
PropertyDictionary decodeValue(Bytes bytes) {
  return scanned(bytes, [](auto& dataSet) { return scanPropertyValue(dataSet, kDatatype); });
}

template <PTPDataCode kDatatype>
ByteVector encodeValue(const PropertyDictionary& json) {
  return stored([&](auto& dataSet) { storePropertyValue(dataSet, kDatatype, json, kDocument); });
}

/// The order is the one in which help texts show them: whole data sets first, then single values.
constexpr std::array<RecordType, 15> kTypes = {{
    {"deviceinfo", "what a device says of itself (DeviceInfo)", jsonFromDeviceInfo,
     encodeDeviceInfo},
    {"objectinfo", "an object on a device (ObjectInfo)", decodeObjectInfo, encodeObjectInfo},
    {"extobjectinfo", "an object with what it is shared by (ObjectInfo, extended)",
     decodeExtendedObjectInfo, encodeExtendedObjectInfo},
    {"storageinfo", "a store of a device (StorageInfo)", decodeStorageInfo, encodeStorageInfo},
    {"addressbookinfo", "the limits of a device's address book", decodeRecord<scanAddressBookInfo>,
     encodeAddressBookInfo},
    {"contact", "a person in the address book", decodeRecord<scanContact>, encodeContact},
    {"group", "a group in the address book, with its members' handles",
     decodeRecord<scanContactGroup>, encodeRecord<ContactGroupRecord, storeContactGroupRecord>},
    {"emailorder", "an order to send pictures by e-mail", decodeRecord<scanEmailOrder>,
     encodeRecord<EmailOrderRecord, storeEmailOrder>},
    {"printorder", "an order to print a picture", decodeRecord<scanPrintOrder>,
     encodeRecord<PrintOrderRecord, storePrintOrder>},
    {"transferorder", "an order to transfer pictures", decodeRecord<scanTransferOrder>,
     encodeRecord<TransferOrderRecord, storeTransferOrder>},
    {"propdesc", "a device property (DevicePropDesc)", decodePropertyDescription,
     encodePropertyDescription},
    {"string", "a PTP string", decodeValue<kPTPString>, encodeValue<kPTPString>},
    {"guid", "a GUID as an array of 16 bytes", decodeGUID, encodeGUID},
    {"uint16array", "an array of 16-bit numbers", decodeValue<kPTPArrayOfUInt16>,
     encodeValue<kPTPArrayOfUInt16>},
    {"uint32array", "an array of 32-bit numbers", decodeValue<kPTPArrayOfUInt32>,
     encodeValue<kPTPArrayOfUInt32>},
}};

}  // namespace

std::span<const RecordType> recordTypes() {
  return kTypes;
}

const RecordType* recordType(std::string_view name) {
  const auto* const type = std::ranges::find(kTypes, name, &RecordType::name);
  return type == kTypes.end() ? nullptr : type;
}

PropertyDictionary jsonFromObjectInfo(const XTExtendedObjectInfo& info) {
  return jsonFromRecord(info);
}

PropertyDictionary jsonFromStorageInfo(const PTPStorageInfo& info) {
  return jsonFromRecord(info);
}

PropertyDictionary jsonFromPropertyDescription(const PTPPropertyDescription& description) {
  return jsonFromRecord(description);
}

PropertyDictionary jsonFromDeviceInfo(std::span<const std::byte> deviceInfo) {
  return jsonFromRecord(scanned(deviceInfo, scanDeviceInfo));
}

}  // namespace tarvo
