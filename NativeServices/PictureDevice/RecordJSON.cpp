#include "NativeServices/PictureDevice/RecordJSON.h"

#include <algorithm>
#include <array>
#include <string>

#include "NativeServices/PictureDevice/JSONValues.h"
#include "NativeServices/PictureDevice/RecordFields.h"
#include "Utilities/Exception.h"

namespace tarvo {

namespace {

using Bytes = std::span<const std::byte>;
using ByteVector = std::vector<std::byte>;
using Form = PTPPropertyDescription::Form;

/// As users write them, by the number of the form on the wire.
constexpr std::array<std::string_view, 3> kFormNames = {"none", "range", "enumeration"};

/// What a user reads where a document as a whole is meant, and no key of it.
constexpr std::string_view kDocument = "the document";

/// Puts fields into an object, which must outlive it.
class FieldsToJSON {
 public:
  explicit FieldsToJSON(PropertyDictionary& json) : json_(json) {}

  template <typename Field>
  void operator()(const char* name, const Field& field) const {
    json_[name] = field;
  }
  void operator()(const char* name, const XTUInt128& field) const {
    json_[name] = jsonFromBytes(field);
  }
  void operator()(const char* name, const Form& form) const {
    json_[name] = kFormNames.at(static_cast<std::size_t>(form));
  }

 private:
  PropertyDictionary& json_;
};

/// Fills fields from an object, which must outlive it. A field without a key keeps its value.
/// Raises NSInvalidArgumentException, with the key's name, for a value that the field cannot hold.
class FieldsFromJSON {
 public:
  explicit FieldsFromJSON(const PropertyDictionary& json) : json_(json) {
    if (!json.is_object()) refuseValue(kDocument, "must be an object");
  }

  template <typename Field>
  void operator()(const char* name, Field& field) {
    names_.emplace_back(name);
    const auto found = json_.find(name);
    if (found != json_.end()) read(*found, name, field);
  }
  /// Raises where a key was asked for by no field.
  void finish() const {
    for (const auto& [key, value] : json_.items()) {
      if (std::ranges::find(names_, key) == names_.end())
        refuseValue('"' + key + '"', "is no key of this record");
    }
  }
  /// Raises where a key that has no sensible default is missing.
  void require(const char* name) const {
    if (!json_.contains(name)) refuseValue(name, "is missing");
  }

 private:
  template <std::integral T>
  static void read(const PropertyDictionary& value, const char* name, T& field) {
    field = numberFromJSON<T>(value, name);
  }
  template <std::integral T>
  static void read(const PropertyDictionary& value, const char* name, std::vector<T>& field) {
    field = numbersFromJSON<T>(value, name);
  }
  static void read(const PropertyDictionary& value, const char* name, bool& field) {
    field = boolFromJSON(value, name);
  }
  static void read(const PropertyDictionary& value, const char* name, std::string& field) {
    field = textFromJSON(value, name);
  }
  static void read(const PropertyDictionary& value, const char* name, XTUInt128& field) {
    field = bytesFromJSON(value, name);
  }
  static void read(const PropertyDictionary& value, const char* name, Form& field) {
    const auto* const form = std::ranges::find(kFormNames, textFromJSON(value, name));
    if (form == kFormNames.end()) refuseValue(name, R"(must be "none", "range" or "enumeration")");
    field = static_cast<Form>(form - kFormNames.begin());
  }
  /// A value of a property, which is judged when it is written, by its datatype.
  static void read(const PropertyDictionary& value, const char*, PropertyDictionary& field) {
    field = value;
  }

  const PropertyDictionary& json_;
  std::vector<std::string_view> names_;
};

/// The keys of a description. Those of the form depend on the form, which stands before them.
template <ConstOrNot<PTPPropertyDescription> Description, typename Visitor>
void visitFields(Description& description, Visitor&& visit) {
  visit("code", description.code);
  visit("datatype", description.datatype);
  visit("writable", description.isWritable);
  visit("factoryDefault", description.factoryDefault);
  visit("current", description.current);
  visit("form", description.form);
  if (description.form == Form::kRange) {
    visit("minimum", description.formValues[0]);
    visit("maximum", description.formValues[1]);
    visit("step", description.formValues[2]);
  } else if (description.form == Form::kEnumeration) {
    visit("values", description.formValues);
  }
}

template <typename Record>
PropertyDictionary jsonFromRecord(const Record& record) {
  PropertyDictionary json = PropertyDictionary::object();
  visitFields(record, FieldsToJSON(json));
  return json;
}

template <typename Record>
Record recordFromJSON(const PropertyDictionary& json, Record record = {}) {
  FieldsFromJSON fields(json);
  visitFields(record, fields);
  fields.finish();
  return record;
}

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
    for (const char* name : {"minimum", "maximum", "step"})
      fields.require(name);
  }
  if (description.form == Form::kEnumeration) fields.require("values");
  return description;
}

/// What `scan` makes of the bytes. Raises NSRangeException also where they end within the last
/// field and its reader has no bounds test of its own.
template <typename Scan>
auto scanned(Bytes bytes, Scan scan) {
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  auto value = scan(dataSet);
  dataSet.requireBytes(0);
  return value;
}

/// What `store` writes.
template <typename Store>
ByteVector stored(Store store) {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  store(dataSet);
  return dataSet.data();
}

PropertyDictionary decodeObjectInfo(Bytes bytes) {
  return jsonFromObjectInfo(scanned(
      bytes, [](auto& dataSet) { return XTExtendedObjectInfo::initWithDataSet(dataSet, false); }));
}

ByteVector encodeObjectInfo(const PropertyDictionary& json) {
  return recordFromJSON(json, XTExtendedObjectInfo()).dataSetWithByteOrder(kPTPByteOrder).data();
}

PropertyDictionary decodeExtendedObjectInfo(Bytes bytes) {
  return jsonFromObjectInfo(scanned(
      bytes, [](auto& dataSet) { return XTExtendedObjectInfo::initWithDataSet(dataSet, true); }));
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

PropertyDictionary decodeAddressBookInfo(Bytes bytes) {
  return jsonFromRecord(scanned(bytes, scanAddressBookInfo));
}

ByteVector encodeAddressBookInfo(const PropertyDictionary& json) {
  return dataSetFromAddressBookInfo(recordFromJSON<XT_AddressBookInfo>(json)).data();
}

PropertyDictionary decodePropertyDescription(Bytes bytes) {
  return jsonFromPropertyDescription(scanned(bytes, scanPropertyDescription));
}

ByteVector encodePropertyDescription(const PropertyDictionary& json) {
  return dataSetFromPropertyDescription(propertyDescriptionFromJSON(json)).data();
}

PropertyDictionary decodeGUID(Bytes bytes) {
  return scanned(bytes, [](auto& dataSet) { return dataSet.scanGUID().value_or(""); });
}

ByteVector encodeGUID(const PropertyDictionary& json) {
  constexpr std::size_t kEmptyArray = 4;
  const std::string text = textFromJSON(json, kDocument);
  ByteVector bytes = stored([&](auto& dataSet) { dataSet.storeGUID(text); });
  // The writer's answer to a text that it cannot read.
  if (bytes.size() == kEmptyArray)
    refuseValue(kDocument, "must be a GUID, 00112233-4455-6677-8899-AABBCCDDEEFF for example");
  return bytes;
}

template <PTPDataCode kDatatype>
PropertyDictionary decodeValue(Bytes bytes) {
  return scanned(bytes, [](auto& dataSet) { return scanPropertyValue(dataSet, kDatatype); });
}

template <PTPDataCode kDatatype>
ByteVector encodeValue(const PropertyDictionary& json) {
  return stored([&](auto& dataSet) { storePropertyValue(dataSet, kDatatype, json, kDocument); });
}

constexpr std::array<RecordType, 10> kTypes = {{
    {"deviceinfo", "what a device says of itself (DeviceInfo)", jsonFromDeviceInfo,
     encodeDeviceInfo},
    {"objectinfo", "an object on a device (ObjectInfo)", decodeObjectInfo, encodeObjectInfo},
    {"extobjectinfo", "an object with what it is shared by (ObjectInfo, extended)",
     decodeExtendedObjectInfo, encodeExtendedObjectInfo},
    {"storageinfo", "a store of a device (StorageInfo)", decodeStorageInfo, encodeStorageInfo},
    {"addressbookinfo", "the limits of a device's address book", decodeAddressBookInfo,
     encodeAddressBookInfo},
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
