// The fields of each record, listed once, in the order of the wire. Readers, writers and the JSON
// mapping walk these lists, so that none of them can miss a field or change the order.
//
//   visitFields(info, FieldReader(dataSet));
//   visitFields(info, [](const char* name, const auto& field) { ... });
//
// A visitor is called with the field's name and the field itself, whose type says how it travels.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"

namespace tarvo {

/// What the three values of a range are called.
inline constexpr std::array<const char*, 3> kRangeNames = {"minimum", "maximum", "step"};

/// `Record` itself or const.
template <typename Candidate, typename Record>
concept ConstOrNot = std::same_as<std::remove_const_t<Candidate>, Record>;

/// The names are those of the traces, a misspelt one included; this is intended.
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

 private:
  XTPTPDataSet& dataSet_;
};

/// Appends fields to a data set, which must outlive it: the exact inverse of FieldReader, but for
/// texts of 255 units and more, whose count wraps. Raises NSMallocException.
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

 private:
  XTMutablePTPDataSet& dataSet_;
};

}  // namespace tarvo
