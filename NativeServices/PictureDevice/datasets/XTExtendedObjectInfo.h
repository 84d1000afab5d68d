// What a device tells of an object: the PTP ObjectInfo data set (ISO 15740, "ObjectInfo dataset"),
// which the maker's extension may follow with what a picture is shared by.
//
//   auto info = XTExtendedObjectInfo::initWithDataSet(reader, false);
//   if (info.objFmtCode() == 0x3801) use(info.fileName(), info.compressedSize());
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"

namespace tarvo {

/// A value: copied whole, owning its texts and lists. Accessors stand in the order of the wire;
/// numbers are as the data set has them, sizes in bytes, pictures in pixels, objects as handles.
class XTExtendedObjectInfo {
 public:
  using Handles = std::vector<std::uint32_t>;

  /// Everything zero or empty and not extended.
  XTExtendedObjectInfo() = default;
  /// The same, extended.
  static XTExtendedObjectInfo initExtended();
  /// Reads from the current position of `dataSet`, with the extension where `extended` says that it
  /// is there; leaves the position behind what was read. Capture and modification dates before
  /// 1970-01-01 00:00:00 and after 2038-01-01 00:00:00 are replaced by the bound, in a form of its
  /// own. Raises NSRangeException when the data set ends early.
  static XTExtendedObjectInfo initWithDataSet(XTPTPDataSet& dataSet, bool extended);
  /// The data set that initWithDataSet() reads, without padding. Texts of 255 units and more wrap
  /// their count, as in XTMutablePTPDataSet::storeString().
  XTMutablePTPDataSet dataSetWithByteOrder(std::int32_t byteOrder) const;

  /// Whether the fields from fileCreationDateStr() on are there.
  bool isExtended() const { return isExtended_; }
  void setIsExtended(bool value) { isExtended_ = value; }

  // The standard fields.

  /// The store that holds the object; 0 where the sender leaves the choice to the device.
  std::uint32_t storageID() const { return storageID_; }
  void setStorageID(std::uint32_t value) { storageID_ = value; }
  /// What the object is (ISO 15740, "Object formats"): 0x3801 a JPEG picture, 0x3001 a folder; from
  /// 0xB000 on the maker's own.
  std::uint16_t objFmtCode() const { return objFmtCode_; }
  void setObjFmtCode(std::uint16_t value) { objFmtCode_ = value; }
  /// 0: may be changed and deleted; 1: read-only.
  std::uint16_t protectionStatus() const { return protectionStatus_; }
  void setProtectionStatus(std::uint16_t value) { protectionStatus_ = value; }
  /// 0xFFFFFFFF stands for 4 GiB - 1 and for everything above.
  std::uint32_t compressedSize() const { return compressedSize_; }
  void setCompressedSize(std::uint32_t value) { compressedSize_ = value; }
  /// The format of the thumbnail, 0 where there is none.
  std::uint16_t thumbFmtCode() const { return thumbFmtCode_; }
  void setThumbFmtCode(std::uint16_t value) { thumbFmtCode_ = value; }
  /// Bytes that the device sends for GetThumb.
  std::uint32_t thumbCompressedSize() const { return thumbCompressedSize_; }
  void setThumbCompressedSize(std::uint32_t value) { thumbCompressedSize_ = value; }
  std::uint32_t thumbPixWidth() const { return thumbPixWidth_; }
  void setThumbPixWidth(std::uint32_t value) { thumbPixWidth_ = value; }
  std::uint32_t thumbPixHeight() const { return thumbPixHeight_; }
  void setThumbPixHeight(std::uint32_t value) { thumbPixHeight_ = value; }
  /// 0 for what is no picture.
  std::uint32_t imagePixWidth() const { return imagePixWidth_; }
  void setImagePixWidth(std::uint32_t value) { imagePixWidth_ = value; }
  std::uint32_t imagePixHeight() const { return imagePixHeight_; }
  void setImagePixHeight(std::uint32_t value) { imagePixHeight_ = value; }
  /// Bits of a whole pixel.
  std::uint32_t imageBitDepth() const { return imageBitDepth_; }
  void setImageBitDepth(std::uint32_t value) { imageBitDepth_ = value; }
  /// The folder in which the object lies, 0 in the root of the store.
  std::uint32_t parentObject() const { return parentObject_; }
  void setParentObject(std::uint32_t value) { parentObject_ = value; }
  /// What kind of association the object is; 1 is a folder, 0 none at all.
  std::uint16_t assocType() const { return assocType_; }
  void setAssocType(std::uint16_t value) { assocType_ = value; }
  /// What the device says further of the association; its meaning depends on the type.
  std::uint32_t assocDesc() const { return assocDesc_; }
  void setAssocDesc(std::uint32_t value) { assocDesc_ = value; }
  /// The place in a sequence of pictures, 0 outside of one.
  std::uint32_t seqNum() const { return seqNum_; }
  void setSeqNum(std::uint32_t value) { seqNum_ = value; }
  /// As the device gives it: no path, until it has been reduced to its last component.
  const std::string& fileName() const { return fileName_; }
  void setFileName(std::string value) { fileName_ = std::move(value); }
  /// "YYYYMMDDThhmmss" with an optional fraction and zone (ISO 15740, "DateTime strings"), or the
  /// bound that replaced it.
  const std::string& captureDateStr() const { return captureDateStr_; }
  void setCaptureDateStr(std::string value) { captureDateStr_ = std::move(value); }
  /// As the capture date, bounds included.
  const std::string& modDataStr() const { return modDataStr_; }
  void setModDataStr(std::string value) { modDataStr_ = std::move(value); }
  /// Words divided by blanks.
  const std::string& keywordsStr() const { return keywordsStr_; }
  void setKeywordsStr(std::string value) { keywordsStr_ = std::move(value); }

  // The maker's extension.

  /// A date as the device sent it, without bounds.
  const std::string& fileCreationDateStr() const { return fileCreationDateStr_; }
  void setFileCreationDateStr(std::string value) { fileCreationDateStr_ = std::move(value); }
  /// Fingerprints as text: empty for 16 zero bytes, else 32 lower-case hexadecimal digits.
  std::string quickFingerprint() const { return XTUInt128AsHexString(quickFingerprint_); }
  void setQuickFingerPrint(const XTUInt128& value) { quickFingerprint_ = value; }
  /// A text that is not 32 hexadecimal digits changes nothing beyond what was written already.
  void setQuickFingerPrintString(std::string_view text);
  std::string fullFingerprint() const { return XTUInt128AsHexString(fullFingerprint_); }
  void setFullFingerPrint(const XTUInt128& value) { fullFingerprint_ = value; }
  /// 0 for what is no favourite; the other codes are the device's own.
  std::uint16_t favoriteStatus() const { return favoriteStatus_; }
  void setFavoriteStatus(std::uint16_t value) { favoriteStatus_ = value; }
  /// A code of the device's own, passed through.
  std::uint16_t retentionFlag() const { return retentionFlag_; }
  void setRetentionFlag(std::uint16_t value) { retentionFlag_ = value; }
  /// What the user wrote beneath the picture.
  const std::string& textAnnotation() const { return textAnnotation_; }
  void setTextAnnotation(std::string value) { textAnnotation_ = std::move(value); }
  /// Recordings that belong to the picture.
  const Handles& audioAnnotationList() const { return audioAnnotationList_; }
  void setAudioAnnotationList(Handles value) { audioAnnotationList_ = std::move(value); }
  /// Albums that the picture is in.
  const Handles& albumList() const { return albumList_; }
  void setAlbumList(Handles value) { albumList_ = std::move(value); }
  /// Orders that name the picture, one list for each kind of order.
  const Handles& emailOrderList() const { return emailOrderList_; }
  void setEmailOrderList(Handles value) { emailOrderList_ = std::move(value); }
  const Handles& printOrderList() const { return printOrderList_; }
  void setPrintOrderList(Handles value) { printOrderList_ = std::move(value); }
  const Handles& transferOrderList() const { return transferOrderList_; }
  void setTransferOrderList(Handles value) { transferOrderList_ = std::move(value); }
  /// Size and fingerprints of the picture that a favourite was made from.
  std::uint32_t bbSourceFileSize() const { return bbSourceFileSize_; }
  void setBBSourceFileSize(std::uint32_t value) { bbSourceFileSize_ = value; }
  std::string bbSourceQFP() const { return XTUInt128AsHexString(bbSourceQFP_); }
  void setBBSourceQFP(const XTUInt128& value) { bbSourceQFP_ = value; }
  void setBBSourceQFPString(std::string_view text);
  std::string bbSourceFFP() const { return XTUInt128AsHexString(bbSourceFFP_); }
  void setBBSourceFFP(const XTUInt128& value) { bbSourceFFP_ = value; }

  /// True for the information of a favourite that names its source picture: extended, of one of the
  /// two formats of favourites, "FAV..." by name, and with a source fingerprint.
  bool isDirectFavoriteInfo() const;
  /// One line for traces.
  std::string description() const;

  friend bool operator==(const XTExtendedObjectInfo&, const XTExtendedObjectInfo&) = default;

 private:
  friend struct XTExtendedObjectInfoFields;

  void readExtension(XTPTPDataSet& dataSet);

  std::uint32_t storageID_ = 0;
  std::uint16_t objFmtCode_ = 0;
  std::uint16_t protectionStatus_ = 0;
  std::uint32_t compressedSize_ = 0;
  std::uint16_t thumbFmtCode_ = 0;
  std::uint32_t thumbCompressedSize_ = 0;
  std::uint32_t thumbPixWidth_ = 0;
  std::uint32_t thumbPixHeight_ = 0;
  std::uint32_t imagePixWidth_ = 0;
  std::uint32_t imagePixHeight_ = 0;
  std::uint32_t imageBitDepth_ = 0;
  std::uint32_t parentObject_ = 0;
  std::uint16_t assocType_ = 0;
  std::uint32_t assocDesc_ = 0;
  std::uint32_t seqNum_ = 0;
  std::string fileName_;
  std::string captureDateStr_;
  std::string modDataStr_;
  std::string keywordsStr_;
  std::string fileCreationDateStr_;
  XTUInt128 quickFingerprint_{};
  XTUInt128 fullFingerprint_{};
  std::uint16_t favoriteStatus_ = 0;
  std::uint16_t retentionFlag_ = 0;
  std::string textAnnotation_;
  Handles audioAnnotationList_;
  Handles albumList_;
  Handles emailOrderList_;
  Handles printOrderList_;
  Handles transferOrderList_;
  std::uint32_t bbSourceFileSize_ = 0;
  XTUInt128 bbSourceQFP_{};
  XTUInt128 bbSourceFFP_{};
  bool isExtended_ = false;
};

// Dates as PTP writes them (ISO 15740, "DateTime strings"): "YYYYMMDDThhmmss", with an optional
// fraction ".s" and zone "Z" or "+hhmm" behind it.

/// Seconds since 1970; the fraction is dropped. A date without a zone is in local time, as cameras
/// keep theirs. None for a text that is no date, or one that the calendar does not have. Any
/// thread.
std::optional<std::time_t> timeOfPTPDate(std::string_view text);

/// Whether a text is such a date from its first character to its last. Any thread.
bool isPTPDate(std::string_view text);

/// "20070615T120000+0200": in local time, with its zone. None for a year beyond four digits. Any
/// thread.
std::optional<std::string> ptpDateOfTime(std::time_t time);

/// When an object was changed last, or else when it was taken; none where its information tells
/// neither.
std::optional<std::time_t> dateOfObject(const XTExtendedObjectInfo& info);

}  // namespace tarvo
