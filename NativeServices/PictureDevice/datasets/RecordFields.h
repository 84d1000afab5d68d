// The fields of each record, listed once, in the order of the wire. Readers, writers and the JSON
// mapping walk these lists, so that none of them can miss a field or change the order.
//
//   visitFields(info, FieldReader(dataSet));
//   visitFields(info, [](const char* name, const auto& field) { ... });
//
// A visitor is called with the field's name and the field itself, whose type says how it travels;
// where the type alone does not say it, the field comes in a wrapper (GUIDField and its like).
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"

namespace tarvo {

/// What the three values of a range are called.
inline constexpr std::array<const char*, 3> kRangeNames = {"minimum", "maximum", "step"};

/// `Record` itself or const.
template <typename Candidate, typename Record>
concept ConstOrNot = std::same_as<std::remove_const_t<Candidate>, Record>;

/// A text that travels as the 16 bytes of a GUID. `Text` is a string or an optional one.
template <typename Text>
struct GUIDField {
  explicit GUIDField(Text& text) : value(text) {}
  Text& value;
};

/// A text of lines, separated by one carriage return, that travels as two strings.
template <typename Text>
struct TwoLinesField {
  explicit TwoLinesField(Text& text) : value(text) {}
  Text& value;
};

/// The handle of an object that stands for a list of objects elsewhere.
template <typename Handle>
struct OneHandleField {
  explicit OneHandleField(Handle& handle) : value(handle) {}
  Handle& value;
};

/// What travels of the lines of a text: the first two. Further ones are dropped.
inline std::array<std::string_view, 2> firstTwoLines(std::string_view text) {
  const std::size_t end = text.find('\r');
  if (end == std::string_view::npos) return {text, {}};
  const std::string_view rest = text.substr(end + 1);
  return {text.substr(0, end), rest.substr(0, rest.find('\r'))};
}

/// Both lines, or the one that is not empty.
inline std::string joinedLines(std::string first, const std::string& second) {
  if (first.empty()) return second;
  return second.empty() ? first : std::move(first) + '\r' + second;
}

/// The names are those of the traces, a misspelt one included (docs/oddities.md).
template <ConstOrNot<PTPStorageInfo> Info, typename Visitor>
void visitFields(Info& info, Visitor&& visit) {
  visit("storageType", info.storageType);
  visit("fileSymType", info.fileSymType);
  visit("accessCapability", info.accessCapability);
  visit("maxCapacity", info.maxCapacity);
  visit("freeSpaceInBytes", info.freeSpaceInBytes);
  visit("freeSpaceInImages", info.freeSpaceInImages);
}

/// 28 bytes, nothing of variable length among them.
template <ConstOrNot<XT_AddressBookInfo> Info, typename Visitor>
void visitFields(Info& info, Visitor&& visit) {
  visit("version", info.version);
  visit("characterTypeLimitation", info.characterTypeLimitation);
  visit("maxAddresses", info.maxAddresses);
  visit("maxGroups", info.maxGroups);
  visit("maxAddressesPerGroup", info.maxAddressesPerGroup);
  visit("maxAddressLengthInBytes", info.maxAddressLengthInBytes);
  visit("maxNicknameLengthInBytes", info.maxNicknameLengthInBytes);
  visit("maxGroupNameLengthInBytes", info.maxGroupNameLengthInBytes);
}

/// The names are those of ISO 15740, where the five lists stand between the texts.
template <ConstOrNot<PTPDeviceInfo> Info, typename Visitor>
void visitFields(Info& info, Visitor&& visit) {
  visit("StandardVersion", info.standardVersion);
  visit("VendorExtensionID", info.vendorExtensionID);
  visit("VendorExtensionVersion", info.vendorExtensionVersion);
  visit("VendorExtensionDesc", info.vendorExtensionDesc);
  visit("FunctionalMode", info.functionalMode);
  visit("OperationsSupported", info.operationsSupported);
  visit("EventsSupported", info.eventsSupported);
  visit("DevicePropertiesSupported", info.devicePropertiesSupported);
  visit("CaptureFormats", info.captureFormats);
  visit("ImageFormats", info.imageFormats);
  visit("Manufacturer", info.manufacturer);
  visit("Model", info.model);
  visit("DeviceVersion", info.deviceVersion);
  visit("SerialNumber", info.serialNumber);
}

/// The fields of an object information, which are its own, hence this friend. Three lists, because
/// the reader has something to do between them.
struct XTExtendedObjectInfoFields {
  /// What every camera sends: the whole of the ObjectInfo data set, its dates still as received.
  template <typename Info, typename Visitor>
  static void visitStandard(Info& info, Visitor&& visit) {
    visit("storageID", info.storageID_);
    visit("objFmtCode", info.objFmtCode_);
    visit("protectionStatus", info.protectionStatus_);
    visit("compressedSize", info.compressedSize_);
    visit("thumbFmtCode", info.thumbFmtCode_);
    visit("thumbCompressedSize", info.thumbCompressedSize_);
    visit("thumbPixWidth", info.thumbPixWidth_);
    visit("thumbPixHeight", info.thumbPixHeight_);
    visit("imagePixWidth", info.imagePixWidth_);
    visit("imagePixHeight", info.imagePixHeight_);
    visit("imageBitDepth", info.imageBitDepth_);
    visit("parentObject", info.parentObject_);
    visit("assocType", info.assocType_);
    visit("assocDesc", info.assocDesc_);
    visit("seqNum", info.seqNum_);
    visit("fileName", info.fileName_);
    visit("captureDateStr", info.captureDateStr_);
    visit("modDataStr", info.modDataStr_);
    visit("keywordsStr", info.keywordsStr_);
  }

  /// The beginning of the extension, after which the quick fingerprint is judged.
  template <typename Info, typename Visitor>
  static void visitFingerprints(Info& info, Visitor&& visit) {
    visit("fileCreationDateStr", info.fileCreationDateStr_);
    visit("quickFingerprint", info.quickFingerprint_);
    visit("fullFingerprint", info.fullFingerprint_);
  }

  /// The rest of it: favourites, annotations, albums, orders, and the source of a favourite.
  template <typename Info, typename Visitor>
  static void visitSharing(Info& info, Visitor&& visit) {
    visit("favoriteStatus", info.favoriteStatus_);
    visit("retentionFlag", info.retentionFlag_);
    visit("textAnnotation", info.textAnnotation_);
    visit("audioAnnotationList", info.audioAnnotationList_);
    visit("albumList", info.albumList_);
    visit("emailOrderList", info.emailOrderList_);
    visit("printOrderList", info.printOrderList_);
    visit("transferOrderList", info.transferOrderList_);
    visit("bbSourceFileSize", info.bbSourceFileSize_);
    visit("bbSourceQFP", info.bbSourceQFP_);
    visit("bbSourceFFP", info.bbSourceFFP_);
  }
};

/// What dataSetWithByteOrder() writes: the standard fields and, where the information is extended,
/// those of the extension.
template <ConstOrNot<XTExtendedObjectInfo> Info, typename Visitor>
void visitFields(Info& info, Visitor&& visit) {
  XTExtendedObjectInfoFields::visitStandard(info, visit);
  if (!info.isExtended()) return;
  XTExtendedObjectInfoFields::visitFingerprints(info, visit);
  XTExtendedObjectInfoFields::visitSharing(info, visit);
}

/// The names are the keys of the platform's address book and of the device library, here and in the
/// records that follow.
template <ConstOrNot<Contact> Person, typename Visitor>
void visitFields(Person& person, Visitor&& visit) {
  visit("kABUIDProperty", GUIDField(person.uid));
  visit("kABEmailProperty", person.email);
  visit("kABNicknameProperty", person.nickname);
  visit("kABFirstNameProperty", person.firstName);
  visit("kABLastNameProperty", person.lastName);
  visit("kABAddressStreetKey", TwoLinesField(person.street));
  visit("kABAddressCityKey", person.city);
  visit("kABAddressStateKey", person.state);
  visit("kABAddressCountryKey", person.country);
  visit("kABAddressZIPKey", person.zip);
  visit("kABPhoneProperty", person.phone);
  visit("XTContactImageKey", person.image);
  visit("XTContactAssociatedGroupsKey", person.associatedGroups);
  visit("XTContactSharingPrefKey", person.sharingPref);
  visit("XTContactDefaultNumPrintsKey", person.defaultNumPrints);
}

template <ConstOrNot<ContactGroupRecord> Group, typename Visitor>
void visitFields(Group& group, Visitor&& visit) {
  visit("kABGroupNameProperty", group.name);
  visit("XTContactGroupImageKey", group.image);
  visit("contactGroupMembersKey", group.members);
}

template <ConstOrNot<EmailOrderRecord> Order, typename Visitor>
void visitFields(Order& order, Visitor&& visit) {
  visit("XTOrderIDKey", GUIDField(order.orderID));
  visit("XTEmailOrderServiceTypeKey", order.serviceType);
  visit("XTEmailOrderSenderAddressKey", order.senderAddress);
  visit("XTEmailOrderDestAddressListKey", order.destContacts);
  visit("XTEmailOrderSubjectKey", order.subject);
  visit("XTEmailOrderBodyKey", order.body);
  visit("XTOrderAssetHandlesListKey", order.assetHandles);
}

template <ConstOrNot<PrintOrderRecord> Order, typename Visitor>
void visitFields(Order& order, Visitor&& visit) {
  visit("XTOrderIDKey", GUIDField(order.orderID));
  visit("XTPrintOrderAccessCodeKey", order.accessCode);
  visit("XTPrintOrderServiceTypeKey", order.serviceType);
  visit("XTPrintOrderTypeKey", order.type);
  visit("XTPrintOrderMultiUpKey", order.multiUp);
  visit("XTPrintOrderPaperSizeKey", order.paperSize);
  visit("XTPrintAssetsRemainingKey", order.assetsRemaining);
  visit("XTPrintOrderQuantityKey", order.quantity);
  visit("XTPrintOrderEnhanceKey", order.enhance);
  visit("XTPrintOrderAnnotationKey", order.annotation);
  visit("XTPrintOrderDateKey", order.date);
  visit("XTPrintAssetCompressedSizeKey", order.assetCompressedSize);
  visit("XTOrderAssetHandlesListKey", OneHandleField(order.asset));
}

/// The list of its pictures is called differently from that of other orders (docs/oddities.md).
template <ConstOrNot<TransferOrderRecord> Order, typename Visitor>
void visitFields(Order& order, Visitor&& visit) {
  visit("XTOrderIDKey", GUIDField(order.orderID));
  visit("XTTransferOrderTypeKey", order.type);
  visit("XTTransferOrderSenderKey", order.sender);
  visit("XTOrderAssetListKey", order.assetHandles);
}

/// The keys of a description in JSON. Those of the form depend on the form, which stands before
/// them.
template <ConstOrNot<PTPPropertyDescription> Description, typename Visitor>
void visitFields(Description& description, Visitor&& visit) {
  using Form = PTPPropertyDescription::Form;
  visit("code", description.code);
  visit("datatype", description.datatype);
  visit("writable", description.isWritable);
  visit("factoryDefault", description.factoryDefault);
  visit("current", description.current);
  visit("form", description.form);
  if (description.form == Form::kEnumeration) visit("values", description.formValues);
  if (description.form != Form::kRange || description.formValues.size() != kRangeNames.size())
    return;
  for (std::size_t i = 0; i < kRangeNames.size(); ++i)
    visit(kRangeNames[i], description.formValues[i]);
}

/// Fills fields from a data set, which must outlive it, and leaves the position behind them. Raises
/// NSRangeException at the end of the data set, but for a 64-bit number and for the bytes of a
/// 128-bit value: those read as zero, and the field behind them raises.
class FieldReader {
 public:
  explicit FieldReader(XTPTPDataSet& dataSet) : dataSet_(dataSet) {}

  void operator()(const char*, std::uint16_t& field) const { field = dataSet_.scanUInt16(); }
  void operator()(const char*, std::uint32_t& field) const { field = dataSet_.scanUInt32(); }
  void operator()(const char*, std::uint64_t& field) const { field = dataSet_.scanUInt64(); }
  void operator()(const char*, std::string& field) const { field = dataSet_.scanString(); }
  void operator()(const char*, XTUInt128& field) const {
    dataSet_.scanUInt128FromUInt8Array(field);
  }
  void operator()(const char*, std::vector<std::uint16_t>& field) const {
    field = dataSet_.scanUInt16Array();
  }
  void operator()(const char*, std::vector<std::uint32_t>& field) const {
    field = dataSet_.scanUInt32Array();
  }
  void operator()(const char*, std::optional<std::string>& field) const {
    field = dataSet_.scanString();
  }
  template <typename Text>
  void operator()(const char*, GUIDField<Text> field) const {
    field.value = dataSet_.scanGUID().value_or("");
  }
  void operator()(const char*, TwoLinesField<std::string> field) const {
    std::string first = dataSet_.scanString();
    field.value = joinedLines(std::move(first), dataSet_.scanString());
  }
  void operator()(const char*, OneHandleField<std::uint32_t> field) const {
    field.value = dataSet_.scanUInt32();
  }

 private:
  XTPTPDataSet& dataSet_;
};

/// Appends fields to a data set, which must outlive it: the exact inverse of FieldReader, but for
/// texts of 255 units and more, whose count wraps, for a third line, and for a text that should be
/// a GUID and is none, which is an array of no bytes. What is absent is written as an empty text.
/// Raises NSMallocException, and the assertion exception for an absent GUID.
class FieldWriter {
 public:
  explicit FieldWriter(XTMutablePTPDataSet& dataSet) : dataSet_(dataSet) {}

  void operator()(const char*, std::uint16_t field) const { dataSet_.storeUInt16(field); }
  void operator()(const char*, std::uint32_t field) const { dataSet_.storeUInt32(field); }
  void operator()(const char*, std::uint64_t field) const { dataSet_.storeUInt64(field); }
  void operator()(const char*, const std::string& field) const { dataSet_.storeString(field); }
  void operator()(const char*, const XTUInt128& field) const {
    dataSet_.storeUInt128ToUInt8Array(field);
  }
  void operator()(const char*, const std::vector<std::uint16_t>& field) const {
    dataSet_.storeUInt16Array(field);
  }
  void operator()(const char*, const std::vector<std::uint32_t>& field) const {
    dataSet_.storeUInt32Array(field);
  }
  void operator()(const char*, const std::optional<std::string>& field) const {
    dataSet_.storeString(field.value_or(""));
  }
  template <typename Text>
  void operator()(const char*, GUIDField<Text> field) const {
    dataSet_.storeGUID(field.value);
  }
  void operator()(const char*, TwoLinesField<const std::string> field) const {
    for (const std::string_view line : firstTwoLines(field.value))
      dataSet_.storeString(line);
  }
  void operator()(const char*, OneHandleField<const std::uint32_t> field) const {
    dataSet_.storeUInt32(field.value);
  }

 private:
  XTMutablePTPDataSet& dataSet_;
};

}  // namespace tarvo
