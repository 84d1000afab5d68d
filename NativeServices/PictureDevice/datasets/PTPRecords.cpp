#include "NativeServices/PictureDevice/datasets/PTPRecords.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/JSONValues.h"
#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo {
namespace {

/// Records are short and written once, so nothing is reserved.
template <typename Record>
XTMutablePTPDataSet dataSetFromRecord(const Record& record) {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  visitFields(record, FieldWriter(dataSet));
  return dataSet;
}

}  // namespace

PTPDeviceInfo scanDeviceInfo(XTPTPDataSet& dataSet) {
  PTPDeviceInfo info;
  visitFields(info, FieldReader(dataSet));
  return info;
}

XTMutablePTPDataSet dataSetFromDeviceInfo(const PTPDeviceInfo& info) {
  return dataSetFromRecord(info);
}

std::shared_ptr<const PTPStorageInfo> scanStorageInfo(XTPTPDataSet& dataSet) {
  auto info = std::make_shared<PTPStorageInfo>();
  const FieldReader read(dataSet);
  // Each field before the next is read: a trace shows how far a cut record came.
  visitFields(*info, [&](const char* name, auto& field) {
    read(name, field);
    TraceLog::trace("StorageInfo.%s: %llu", name, static_cast<unsigned long long>(field));
  });
  // A store without its name is one all the same.
  try {
    const std::string description = dataSet.scanString();
    info->label = dataSet.scanString();
    if (info->label.empty()) info->label = description;
  } catch (const Exception&) {
    info->label.clear();
  }
  return info;
}

XTMutablePTPDataSet dataSetFromStorageInfo(const PTPStorageInfo& info) {
  auto dataSet = dataSetFromRecord(info);
  // Two texts end the data set (ISO 15740, "StorageInfo dataset"); nothing here has a use for them.
  dataSet.storeString("");  // StorageDescription
  dataSet.storeString("");  // VolumeLabel
  return dataSet;
}

XT_AddressBookInfo scanAddressBookInfo(XTPTPDataSet& dataSet) {
  XT_AddressBookInfo info;
  const FieldReader read(dataSet);
  visitFields(info, [&](const char* name, auto& field) {
    read(name, field);
    TraceLog::trace("AddressBookInfo.%s: %i", name, static_cast<int>(field));
  });
  return info;
}

XTMutablePTPDataSet dataSetFromAddressBookInfo(const XT_AddressBookInfo& info) {
  return dataSetFromRecord(info);
}

std::string newGUID() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  std::array<char, UUID_STR_LEN> text;
  uuid_unparse_upper(bytes, text.data());
  return text.data();
}

bool identifies(const std::optional<std::string>& uid) {
  uuid_t bytes;
  return uid && uuid_parse(uid->c_str(), bytes) == 0 && uuid_is_null(bytes) == 0;
}

Contact scanContact(XTPTPDataSet& dataSet) {
  Contact contact;
  visitFields(contact, FieldReader(dataSet));
  return contact;
}

void storeContact(XTMutablePTPDataSet& dataSet, const Contact& contact) {
  Contact written = contact;
  // A device identifies a contact by it, so none may be without.
  if (!written.uid) written.uid = newGUID();
  // Never written back: membership travels in the records of the groups.
  written.image = 0;
  written.associatedGroups.clear();
  visitFields(std::as_const(written), FieldWriter(dataSet));
}

ContactGroupRecord scanContactGroup(XTPTPDataSet& dataSet) {
  ContactGroupRecord record;
  visitFields(record, FieldReader(dataSet));
  return record;
}

void storeContactGroupRecord(XTMutablePTPDataSet& dataSet, const ContactGroupRecord& group) {
  visitFields(group, FieldWriter(dataSet));
}

ContactGroup scanGroupAndAssignContacts(XTPTPDataSet& dataSet, const ContactsByHandle& contacts) {
  ContactGroupRecord record = scanContactGroup(dataSet);
  ContactGroup group;
  group.name = std::move(record.name);
  group.image = record.image;
  for (const std::uint32_t handle : record.members) {
    const auto found = contacts.find(handle);
    if (found != contacts.end() && found->second) group.members.push_back(found->second);
  }
  if (group.members.size() != record.members.size())
    // A group that lost a member would be written back without it.
    raiseAssertion("Could not find contacts for all members of group " + group.name);
  return group;
}

void storeContactGroup(XTMutablePTPDataSet& dataSet, const ContactGroup& group,
                       std::span<const std::uint32_t> members) {
  storeContactGroupRecord(
      dataSet,
      {.name = group.name, .image = group.image, .members = {members.begin(), members.end()}});
}

namespace {

/// A count and the 16 bytes of a GUID.
constexpr std::uint32_t kGUIDLength = 20;

/// Passes over the 20 bytes of the id, whatever they are.
class TransferOrderReader : public FieldReader {
 public:
  explicit TransferOrderReader(XTPTPDataSet& dataSet) : FieldReader(dataSet), dataSet_(dataSet) {}

  using FieldReader::operator();
  void operator()(const char*, GUIDField<std::string> field) const {
    const std::uint32_t position = dataSet_.position();
    field.value = dataSet_.scanGUID().value_or("");
    dataSet_.setPosition(position);
    dataSet_.skip(kGUIDLength);  // no bounds test: the field behind it raises
  }

 private:
  XTPTPDataSet& dataSet_;
};

/// Writes the 20 bytes that this reader needs, whatever the id is.
class TransferOrderWriter : public FieldWriter {
 public:
  explicit TransferOrderWriter(XTMutablePTPDataSet& dataSet)
      : FieldWriter(dataSet), dataSet_(dataSet) {}

  using FieldWriter::operator();
  void operator()(const char*, GUIDField<const std::string> field) const {
    const std::uint32_t position = dataSet_.position();
    dataSet_.storeGUID(field.value);
    // The text may be no GUID, whose array is then empty and 16 bytes too short.
    if (dataSet_.position() - position == kGUIDLength) return;
    dataSet_.setPosition(position);
    dataSet_.storeUInt128ToUInt8Array({});
  }

 private:
  XTMutablePTPDataSet& dataSet_;
};

}  // namespace

EmailOrderRecord scanEmailOrder(XTPTPDataSet& dataSet) {
  EmailOrderRecord order;
  visitFields(order, FieldReader(dataSet));
  return order;
}

PrintOrderRecord scanPrintOrder(XTPTPDataSet& dataSet) {
  PrintOrderRecord order;
  visitFields(order, FieldReader(dataSet));
  return order;
}

TransferOrderRecord scanTransferOrder(XTPTPDataSet& dataSet) {
  TransferOrderRecord order;
  visitFields(order, TransferOrderReader(dataSet));
  return order;
}

void storeEmailOrder(XTMutablePTPDataSet& dataSet, const EmailOrderRecord& order) {
  visitFields(order, FieldWriter(dataSet));
}

void storePrintOrder(XTMutablePTPDataSet& dataSet, const PrintOrderRecord& order) {
  visitFields(order, FieldWriter(dataSet));
}

void storeTransferOrder(XTMutablePTPDataSet& dataSet, const TransferOrderRecord& order) {
  visitFields(order, TransferOrderWriter(dataSet));
}

namespace {

/// The bit that makes an array of a scalar's datatype (ISO 15740, "Datatype codes").
constexpr std::uint16_t kArray = 0x4000;
/// What they take on the wire; sizeForDataCode() says 8: intended, see docs/oddities.md.
constexpr std::uint16_t kSize128 = 16;

using Form = PTPPropertyDescription::Form;

/// False for a text, whose code has the bit of arrays as well.
bool isArray(std::uint16_t datatype) {
  return datatype >= kPTPArrayOfInt8 && datatype <= kPTPArrayOfUInt128;
}

/// The datatype of an array's elements. Those of INT8 are unsigned, as the codec reads them.
std::uint16_t elementOf(std::uint16_t datatype) {
  if (datatype == kPTPArrayOfInt8) return kPTPUInt8;
  return static_cast<std::uint16_t>(datatype - kArray);
}

/// The reason that the generic reader gives, so that reading and writing complain alike.
[[noreturn]] void raiseUnexpectedDatatype(std::uint16_t datatype) {
  raiseAssertion(formatted("Unexpected datatype %d", datatype));
}

/// JSON has no number of 128 bits.
std::string scanDigits(XTPTPDataSet& dataSet) {
  XTUInt128 value{};
  dataSet.scanUInt128(value);
  return jsonFromBytes(value);
}

/// A number or a text. Whatever the datatype, it is read with a test of the bounds: a value may be
/// the last one of a description, behind which no other reader would notice that bytes are missing.
PropertyDictionary scanScalar(XTPTPDataSet& dataSet, std::uint16_t datatype) {
  switch (datatype) {
    case kPTPInt64:
      return dataSet.scanSInt64();
    case kPTPUInt64:
      // By way of the signed reader, which tests the bounds.
      return static_cast<std::uint64_t>(dataSet.scanSInt64());
    case kPTPInt128:
    case kPTPUInt128:
      return scanDigits(dataSet);
    default:
      return dataSet.scan(datatype);  // raises for the unknown ones
  }
}

PropertyDictionary scanElements(XTPTPDataSet& dataSet, std::uint16_t element) {
  const bool is128 = element == kPTPInt128 || element == kPTPUInt128;
  const std::uint64_t size = is128 ? kSize128 : XTPTPDataSet::sizeForDataCode(element);
  const std::uint32_t count = dataSet.scanUInt32();
  // Before the first element: a count of 0xFFFFFFFF costs nothing but the exception.
  dataSet.requireBytes(count * size);
  PropertyDictionary values = PropertyDictionary::array();
  for (std::uint32_t i = 0; i < count; ++i)
    values.push_back(scanScalar(dataSet, element));
  return values;
}

/// The inverse of scanScalar(). What JSON holds comes from a user, so that every number is checked
/// against what its datatype can hold, instead of being cut.
void storeScalar(XTMutablePTPDataSet& dataSet, std::uint16_t datatype,
                 const PropertyDictionary& value, std::string_view name) {
  switch (datatype) {
    case kPTPInt8:
      return dataSet.storeByte(static_cast<std::uint8_t>(numberFromJSON<std::int8_t>(value, name)));
    case kPTPUInt8:
      return dataSet.storeByte(numberFromJSON<std::uint8_t>(value, name));
    case kPTPInt16:
      return dataSet.storeSInt16(numberFromJSON<std::int16_t>(value, name));
    case kPTPUInt16:
      return dataSet.storeUInt16(numberFromJSON<std::uint16_t>(value, name));
    case kPTPInt32:
      return dataSet.storeSInt32(numberFromJSON<std::int32_t>(value, name));
    case kPTPUInt32:
      return dataSet.storeUInt32(numberFromJSON<std::uint32_t>(value, name));
    case kPTPInt64:
      return dataSet.storeSInt64(numberFromJSON<std::int64_t>(value, name));
    case kPTPUInt64:
      return dataSet.storeUInt64(numberFromJSON<std::uint64_t>(value, name));
    case kPTPInt128:
    case kPTPUInt128: {
      // The codec's 128-bit writer is no inverse of its reader; bytes are.
      XTUInt128 bytes = bytesFromJSON(value, name);
      if (dataSet.byteOrder() != kPTPByteOrder) std::reverse(bytes.begin(), bytes.end());
      return dataSet.appendBytes(bytes.data(), kSize128);
    }
    case kPTPString:
      return dataSet.storeString(textFromJSON(value, name));
    default:
      raiseUnexpectedDatatype(datatype);
  }
}

/// The flag of the form and its values (ISO 15740, "Property describing dataset").
void scanForm(XTPTPDataSet& dataSet, PTPPropertyDescription& description) {
  const std::uint8_t form = dataSet.scanByte();
  if (form > static_cast<std::uint8_t>(Form::kEnumeration))
    // Forms of later versions of the standard (a date, a long text) have values of another kind, so
    // nothing behind it could be read.
    raiseAssertion(formatted("Unexpected form %d", form));
  description.form = static_cast<Form>(form);
  if (description.form == Form::kNone) return;
  // No memory is made for the count of an enumeration: the values themselves have to be there.
  const std::size_t count =
      description.form == Form::kRange ? kRangeNames.size() : dataSet.scanUInt16();
  for (std::size_t i = 0; i < count; ++i)
    description.formValues.push_back(scanPropertyValue(dataSet, description.datatype));
}

/// The values may come from a caller that filled the description itself, so their number is tested.
void storeRange(XTMutablePTPDataSet& dataSet, const PTPPropertyDescription& description) {
  if (description.formValues.size() != kRangeNames.size())
    refuseValue("a range", "must have a minimum, a maximum and a step");
  for (std::size_t i = 0; i < kRangeNames.size(); ++i) {
    storePropertyValue(dataSet, description.datatype, description.formValues[i], kRangeNames[i]);
  }
}

/// A count of 16 bits, unlike the one of an array.
void storeEnumeration(XTMutablePTPDataSet& dataSet, const PTPPropertyDescription& description) {
  const PropertyDictionary& values = arrayFromJSON(description.formValues, "values");
  constexpr std::size_t kMost = std::numeric_limits<std::uint16_t>::max();
  if (values.size() > kMost) refuseValue("values", "must not have more than 65535 elements");
  dataSet.storeUInt16(static_cast<std::uint16_t>(values.size()));
  for (const PropertyDictionary& value : values)
    storePropertyValue(dataSet, description.datatype, value, "values");
}

}  // namespace

PropertyDictionary scanPropertyValue(XTPTPDataSet& dataSet, std::uint16_t datatype) {
  if (isArray(datatype)) return scanElements(dataSet, elementOf(datatype));
  return scanScalar(dataSet, datatype);
}

void storePropertyValue(XTMutablePTPDataSet& dataSet, std::uint16_t datatype,
                        const PropertyDictionary& value, std::string_view name) {
  if (!isArray(datatype)) return storeScalar(dataSet, datatype, value, name);
  const PropertyDictionary& elements = arrayFromJSON(value, name);
  dataSet.storeUInt32(static_cast<std::uint32_t>(elements.size()));
  for (const PropertyDictionary& element : elements)
    storeScalar(dataSet, elementOf(datatype), element, name);
}

PTPPropertyDescription scanPropertyDescription(XTPTPDataSet& dataSet) {
  PTPPropertyDescription description;
  description.code = dataSet.scanUInt16();
  description.datatype = dataSet.scanUInt16();
  description.isWritable = dataSet.scanByte() != 0;  // 0 get, 1 get and set
  description.factoryDefault = scanPropertyValue(dataSet, description.datatype);
  description.current = scanPropertyValue(dataSet, description.datatype);
  scanForm(dataSet, description);
  return description;
}

XTMutablePTPDataSet dataSetFromPropertyDescription(const PTPPropertyDescription& description) {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  dataSet.storeUInt16(description.code);
  dataSet.storeUInt16(description.datatype);
  dataSet.storeByte(description.isWritable ? 1 : 0);
  storePropertyValue(dataSet, description.datatype, description.factoryDefault, "factoryDefault");
  storePropertyValue(dataSet, description.datatype, description.current, "current");
  dataSet.storeByte(static_cast<std::uint8_t>(description.form));
  if (description.form == Form::kRange) storeRange(dataSet, description);
  if (description.form == Form::kEnumeration) storeEnumeration(dataSet, description);
  return dataSet;
}

}  // namespace tarvo
