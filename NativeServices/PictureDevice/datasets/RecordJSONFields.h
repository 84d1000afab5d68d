// The fields of records between C++ and JSON: the mapping that every kind of record shares. A new
// kind lists its fields (RecordFields.h) and is served by the functions here.
//
//   PropertyDictionary json = jsonFromRecord(scanned(bytes, scanAddressBookInfo));
//   auto info = recordFromJSON<XT_AddressBookInfo>(json);
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/JSONValues.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// As users write them, by the number of the form on the wire.
inline constexpr std::array<std::string_view, 3> kPropertyFormNames = {"none", "range",
                                                                       "enumeration"};

/// What a user reads where a document as a whole is meant, and no key of it.
inline constexpr std::string_view kDocument = "the document";

/// Puts fields into an object, which must outlive it, under their names. A field that is not on the
/// wire is not visited, so its key is absent.
class FieldsToJSON {
 public:
  explicit FieldsToJSON(PropertyDictionary& json) : json_(json) {}

  template <typename Field>
  void operator()(const char* name, const Field& field) const {
    json_[name] = field;
  }
  void operator()(const char* name, const XTUInt128& field) const {
    json_[name] = XTUInt128AsHexString(field);
  }
  void operator()(const char* name, const std::optional<std::string>& field) const {
    if (field) json_[name] = *field;
  }
  template <typename Text>
  void operator()(const char* name, GUIDField<Text> field) const {
    (*this)(name, field.value);
  }
  void operator()(const char* name, TwoLinesField<const std::string> field) const {
    json_[name] = field.value;
  }
  void operator()(const char* name, OneHandleField<const std::uint32_t> field) const {
    json_[name] = std::array{field.value};
  }
  void operator()(const char* name, const PTPPropertyDescription::Form& form) const {
    json_[name] = kPropertyFormNames.at(static_cast<std::size_t>(form));
  }

 private:
  PropertyDictionary& json_;
};

/// Fills fields from an object, which must outlive it. A field without a key keeps its value.
/// Raises NSInvalidArgumentException, with the key's name, for a value that the field cannot hold.
class FieldsFromJSON {
 public:
  /// Texts may have `mostUnits` UTF-16 units. Raises for a document that is no object.
  explicit FieldsFromJSON(const PropertyDictionary& json, std::size_t mostUnits = kMostStringUnits)
      : json_(json), mostUnits_(mostUnits) {
    if (!json.is_object()) refuseValue(kDocument, "must be an object");
  }

  /// `name` is kept, not copied: it is a literal.
  template <typename Field>
  void operator()(const char* name, Field&& field) {
    names_.emplace_back(name);
    const auto found = json_.find(name);
    if (found != json_.end()) read(*found, name, field);
  }
  /// For a key that is read elsewhere.
  void pass(const char* name) { names_.emplace_back(name); }
  /// Raises where a key was asked for by no field: a misspelt key would otherwise be a value that
  /// silently turns zero. To be called when all fields have been visited.
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
  // One for each type that a field can have; the type says what the value must be.

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
  void read(const PropertyDictionary& value, const char* name, std::string& field) const {
    field = textFromJSON(value, name, mostUnits_);
  }
  void read(const PropertyDictionary& value, const char* name,
            std::optional<std::string>& field) const {
    field = textFromJSON(value, name, mostUnits_);
  }
  /// Any text: what no GUID can be made from is the writer's to judge.
  template <typename Text>
  void read(const PropertyDictionary& value, const char* name, GUIDField<Text> field) const {
    read(value, name, field.value);
  }
  void read(const PropertyDictionary& value, const char* name,
            TwoLinesField<std::string> field) const {
    field.value = linesFromJSON(value, name, mostUnits_);
  }
  static void read(const PropertyDictionary& value, const char* name,
                   OneHandleField<std::uint32_t> field) {
    const auto handles = numbersFromJSON<std::uint32_t>(value, name);
    if (handles.size() != 1) refuseValue(name, "must hold one handle");
    field.value = handles.front();
  }
  /// Zeros are the empty text.
  static void read(const PropertyDictionary& value, const char* name, XTUInt128& field) {
    field = value == "" ? XTUInt128{} : bytesFromJSON(value, name);
  }
  static void read(const PropertyDictionary& value, const char* name,
                   PTPPropertyDescription::Form& field) {
    const auto* const form = std::ranges::find(kPropertyFormNames, textFromJSON(value, name));
    if (form == kPropertyFormNames.end())
      refuseValue(name, R"(must be "none", "range" or "enumeration")");
    field = static_cast<PTPPropertyDescription::Form>(form - kPropertyFormNames.begin());
  }
  /// A value of a property, which is judged when it is written, by its datatype.
  static void read(const PropertyDictionary& value, const char*, PropertyDictionary& field) {
    field = value;
  }

  const PropertyDictionary& json_;
  std::size_t mostUnits_;
  std::vector<std::string_view> names_;
};

/// The object of a record's fields. Never raises: texts in records are well-formed UTF-8.
template <typename Record>
PropertyDictionary jsonFromRecord(const Record& record) {
  PropertyDictionary json = PropertyDictionary::object();
  visitFields(record, FieldsToJSON(json));
  return json;
}

/// `record` with the fields that have a key. Raises as FieldsFromJSON does.
template <typename Record>
Record recordFromJSON(const PropertyDictionary& json, Record record = {}) {
  FieldsFromJSON fields(json);
  visitFields(record, fields);
  fields.finish();
  return record;
}

/// What `scan` makes of the bytes, which are borrowed for the call; bytes behind what it reads do
/// not matter. Raises NSRangeException also where they end within the last field and its reader has
/// no bounds test of its own.
template <typename Scan>
auto scanned(std::span<const std::byte> bytes, Scan scan) {
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  auto value = scan(dataSet);
  dataSet.requireBytes(0);
  return value;
}

/// The bytes that `store` writes. Raises what it raises.
template <typename Store>
std::vector<std::byte> stored(Store store) {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  store(dataSet);
  return dataSet.data();
}

}  // namespace tarvo
