#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using test::raised;
using ::testing::StartsWith;

using Bytes = std::vector<std::byte>;

Bytes encoded(const char* type, const PropertyDictionary& json) {
  return recordType(type)->encode(json);
}

PropertyDictionary decoded(const char* type, const Bytes& bytes) {
  return recordType(type)->decode(bytes);
}

/// A record as bytes and as JSON.
struct Row {
  const char* type;
  std::string bytes;
  std::string json;
  std::size_t ignored = 0;  ///< bytes at the end that are written, and not needed for reading
};

const std::vector<Row>& rows() {
  static const std::string kObject =
      "01000100 0138 0200 03000000 0838 04000000 05000000 06000000 07000000 08000000 09000000"
      "0a000000 0100 0b000000 0c000000 03 6100 6200 0000 00 02 3300 0000 02 6b00 0000";
  static const std::string kObjectJSON =
      R"({"storageID": 65537, "objFmtCode": 14337, "protectionStatus": 2, "compressedSize": 3,
           "thumbFmtCode": 14344, "thumbCompressedSize": 4, "thumbPixWidth": 5,
           "thumbPixHeight": 6, "imagePixWidth": 7, "imagePixHeight": 8, "imageBitDepth": 9,
           "parentObject": 10, "assocType": 1, "assocDesc": 11, "seqNum": 12, "fileName": "ab",
           "captureDateStr": "", "modDataStr": "3", "keywordsStr": "k")";
  static const std::vector<Row> all = {
      {"deviceinfo",
       "6400 52540000 6500 02 7800 0000 0100 02000000 0110 0210 00000000 01000000 0150 00000000"
       "01000000 0138 02 4d00 0000 02 ac20 0000 00 03 3000 3100 0000",
       R"({"StandardVersion": 100, "VendorExtensionID": 21586, "VendorExtensionVersion": 101,
           "VendorExtensionDesc": "x", "FunctionalMode": 1, "OperationsSupported": [4097, 4098],
           "EventsSupported": [], "DevicePropertiesSupported": [20481], "CaptureFormats": [],
           "ImageFormats": [14337], "Manufacturer": "M", "Model": "€", "DeviceVersion": "",
           "SerialNumber": "01"})"},
      {"objectinfo", kObject, kObjectJSON + "}"},
      {"extobjectinfo",
       kObject + "02 6300 0000 10000000 000102030405060708090a0b0c0d0e0f 10000000" +
           std::string(32, '0') +
           "0d00 0e00 02 7400 0000 02000000 01000000 02000000 01000000 03000000 00000000 00000000"
           "01000000 05000000 0f000000 10000000" +
           std::string(32, '0') + "10000000 ffffffffffffffffffffffffffffffff",
       kObjectJSON +
           R"(, "fileCreationDateStr": "c", "quickFingerprint": "000102030405060708090a0b0c0d0e0f",
           "fullFingerprint": "", "favoriteStatus": 13,
           "retentionFlag": 14, "textAnnotation": "t", "audioAnnotationList": [1, 2],
           "albumList": [3], "emailOrderList": [], "printOrderList": [],
           "transferOrderList": [5], "bbSourceFileSize": 15,
           "bbSourceQFP": "", "bbSourceFFP": "ffffffffffffffffffffffffffffffff"})",
       16},  // cut off, the last fingerprint is zeros
      {"storageinfo", "0300 0200 0100 ffffffffffffffff 0000000001000000 ffffffff 00 00",
       R"({"storageType": 3, "fileSymType": 2, "accessCapability": 1,
           "maxCapacity": 18446744073709551615, "freeSpaceInBytes": 4294967296,
           "freeSpaceInImages": 4294967295})",
       2},
      {"addressbookinfo", "0100 0200 03000000 04000000 05000000 06000000 07000000 ffffffff",
       R"({"version": 1, "characterTypeLimitation": 2, "maxAddresses": 3, "maxGroups": 4,
           "maxAddressesPerGroup": 5, "maxAddressLengthInBytes": 6,
           "maxNicknameLengthInBytes": 7, "maxGroupNameLengthInBytes": 4294967295})"},
      {"contact",
       "10000000 00112233445566778899aabbccddeeff 02 6500 0000 02 6e00 0000 02 6600 0000 00"
       "02 3100 0000 02 3200 0000 02 6300 0000 00 00 02 7a00 0000 02 7000 0000 00000000 00000000"
       "0100 ffff",
       R"({"kABUIDProperty": "00112233-4455-6677-8899-AABBCCDDEEFF", "kABEmailProperty": "e",
           "kABNicknameProperty": "n", "kABFirstNameProperty": "f", "kABLastNameProperty": "",
           "kABAddressStreetKey": "1\r2", "kABAddressCityKey": "c", "kABAddressStateKey": "",
           "kABAddressCountryKey": "", "kABAddressZIPKey": "z", "kABPhoneProperty": "p",
           "XTContactImageKey": 0, "XTContactAssociatedGroupsKey": [],
           "XTContactSharingPrefKey": 1, "XTContactDefaultNumPrintsKey": 65535})"},
      {"group", "02 6700 0000 01000000 02000000 05000000 ffffffff",
       R"({"kABGroupNameProperty": "g", "XTContactGroupImageKey": 1,
           "contactGroupMembersKey": [5, 4294967295]})"},
      {"emailorder",
       "10000000 00112233445566778899aabbccddeeff 0100 02 7300 0000 01000000 02000000"
       "02 7400 0000 02 6200 0000 02000000 04000000 03000000",
       R"({"XTOrderIDKey": "00112233-4455-6677-8899-AABBCCDDEEFF",
           "XTEmailOrderServiceTypeKey": 1, "XTEmailOrderSenderAddressKey": "s",
           "XTEmailOrderDestAddressListKey": [2], "XTEmailOrderSubjectKey": "t",
           "XTEmailOrderBodyKey": "b", "XTOrderAssetHandlesListKey": [4, 3]})"},
      {"printorder",
       "10000000 00000000000000000000000000000000 02 6100 0000 0100 0200 0300 04000000 0500 0600"
       "ffff 00 08000000 ffffffff 0a000000",
       R"({"XTOrderIDKey": "00000000-0000-0000-0000-000000000000",
           "XTPrintOrderAccessCodeKey": "a", "XTPrintOrderServiceTypeKey": 1,
           "XTPrintOrderTypeKey": 2, "XTPrintOrderMultiUpKey": 3, "XTPrintOrderPaperSizeKey": 4,
           "XTPrintAssetsRemainingKey": 5, "XTPrintOrderQuantityKey": 6,
           "XTPrintOrderEnhanceKey": 65535, "XTPrintOrderAnnotationKey": "",
           "XTPrintOrderDateKey": 8, "XTPrintAssetCompressedSizeKey": 4294967295,
           "XTOrderAssetHandlesListKey": [10]})"},
      {"transferorder",
       "10000000 00112233445566778899aabbccddeeff 0100 02 7300 0000 01000000 03000000",
       R"({"XTOrderIDKey": "00112233-4455-6677-8899-AABBCCDDEEFF", "XTTransferOrderTypeKey": 1,
           "XTTransferOrderSenderKey": "s", "XTOrderAssetListKey": [3]})"},
      {"propdesc", "0150 0200 00 50 32 01 00 64 0a",
       R"({"code": 20481, "datatype": 2, "writable": false, "factoryDefault": 80, "current": 50,
           "form": "range", "minimum": 0, "maximum": 100, "step": 10})"},
      {"string", "03 3dd8 00de 0000", R"("😀")"},
      {"guid", "10000000 00112233445566778899aabbccddeeff",
       R"("00112233-4455-6677-8899-AABBCCDDEEFF")"},
      {"uint16array", "02000000 0100 ffff", "[1, 65535]"},
      {"uint32array", "02000000 01000000 ffffffff", "[1, 4294967295]"},
  };
  return all;
}

TEST(RecordJSON, DecodesAndEncodesEveryTypeAsExactInverses) {
  std::vector<std::string_view> types;
  for (const auto& row : rows()) {
    types.push_back(row.type);
    Bytes bytes = hexBytes(row.bytes);
    const auto json = PropertyDictionary::parse(row.json);
    EXPECT_EQ(decoded(row.type, bytes), json) << row.type;
    EXPECT_EQ(hexText(encoded(row.type, json)), hexText(bytes)) << row.type;
    bytes.resize(bytes.size() + 3, std::byte{0xFF});
    EXPECT_EQ(decoded(row.type, bytes), json) << row.type << " with bytes behind it";
  }
  std::vector<std::string_view> known;
  for (const RecordType& type : recordTypes()) {
    known.push_back(type.name);
    EXPECT_FALSE(type.description.empty());
  }
  EXPECT_EQ(known, types);
  EXPECT_EQ(recordType("ObjectInfo"), nullptr);
  EXPECT_EQ(recordType(""), nullptr);
}

TEST(RecordJSON, RaisesForBytesThatEndAnywhereBeforeTheEnd) {
  for (const auto& row : rows()) {
    const Bytes bytes = hexBytes(row.bytes);
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
      const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
      const std::string exception = raised([&] { decoded(row.type, cut); });
      EXPECT_EQ(exception.starts_with("NSRangeException: out of bounds error: "),
                length < bytes.size() - row.ignored)
          << row.type << ' ' << length << ' ' << exception;
    }
  }
}

TEST(RecordJSON, RefusesWhatCannotBeWrittenAndNamesTheKey) {
  const std::string tooLong(255, 'x');
  const std::string isTooLong = " is too long: at most 254 UTF-16 units can be written";
  const std::tuple<const char*, PropertyDictionary, std::string> refused[] = {
      {"objectinfo", {{"filename", "a"}}, "\"filename\" is no key of this record"},
      {"objectinfo", {{"objFmtCode", 65536}}, "objFmtCode must be a whole number from 0 to 65535"},
      {"objectinfo", {{"fileName", 1}}, "fileName must be a text"},
      {"objectinfo", {{"fileName", tooLong}}, "fileName" + isTooLong},
      {"extobjectinfo",
       {{"bbSourceQFP", "00"}},
       "bbSourceQFP must be a text of 32 hexadecimal digits"},
      {"extobjectinfo",
       {{"albumList", {4294967296}}},
       "albumList must be a whole number from 0 to 4294967295"},
      {"storageinfo",
       {{"maxCapacity", -1}},
       "maxCapacity must be a whole number from 0 to 18446744073709551615"},
      {"contact", {{"kABAddressStreetKey", "a\r" + tooLong}}, "kABAddressStreetKey" + isTooLong},
      {"printorder",
       {{"XTOrderAssetHandlesListKey", {1, 2}}},
       "XTOrderAssetHandlesListKey must hold one handle"},
      {"propdesc", {{"writable", 1}}, "writable must be true or false"},
      {"guid", "0011",
       "the document must be a GUID, 00112233-4455-6677-8899-AABBCCDDEEFF for example"},
  };
  for (const auto& row : refused) {
    EXPECT_EQ(raised([&] { encoded(std::get<0>(row), std::get<1>(row)); }),
              "NSInvalidArgumentException: " + std::get<2>(row));
  }
  EXPECT_EQ(encoded("string", std::string(254, 'x')).size(), 1U + 2 * 255);
  const std::string line(254, 'x');  // each counts for itself, and the third is not written
  EXPECT_GE(
      encoded("contact", {{"kABAddressStreetKey", line + '\r' + line + '\r' + tooLong}}).size(),
      4U * 255);
}

TEST(RecordJSON, BelievesNoCountBeforeTheBytesAreThere) {
  EXPECT_THAT(raised([] { decoded("uint32array", hexBytes("ffffffff 0100")); }),
              StartsWith("NSRangeException: out of bounds error: location=4, length=17179869180 "));
  // 65535 values, of which two are there.
  EXPECT_THAT(raised([] { decoded("propdesc", hexBytes("0150 0200 00 50 32 02 ffff 01 02")); }),
              StartsWith("NSRangeException: out of bounds error: "));
}

/// A value of a datatype, two others of the same datatype, and what does not fit.
struct ValueRow {
  std::uint16_t datatype;
  const char* bytes;
  PropertyDictionary value;
  std::vector<PropertyDictionary> unfit;
};

const std::vector<ValueRow>& valueRows() {
  static const std::string digits = "000102030405060708090a0b0c0d0e0f";
  static const std::vector<ValueRow> all = {
      {0x0001, "80", -128, {-129, 128, "1", 1.5}},
      {0x0002, "ff", 255, {-1, 256, true}},
      {0x0003, "0080", -32768, {-32769, 32768}},
      {0x0006, "ffffffff", 4294967295, {-1, 4294967296}},
      {0x0007, "0000000000000080", INT64_MIN, {9223372036854775808U, 1e300}},
      {0x0008, "ffffffffffffffff", UINT64_MAX, {-1}},
      {0x000A, "000102030405060708090a0b0c0d0e0f", digits, {digits + "0", "00", 1}},
      {0x4001, "02000000 ff01", {255, 1}, {{-1}, 1}},  // unsigned, intended
      {0x4003, "01000000 ffff", {-1}, {{32768}}},
      {0x4008, "01000000 ffffffffffffffff", {UINT64_MAX}, {{-1}}},
      {0x4009, "01000000 000102030405060708090a0b0c0d0e0f", {digits}, {{"0"}, digits}},
      {0xFFFF, "03 6100 0a00 0000", "a\n", {1, std::string(255, 'x')}},
  };
  return all;
}

std::string wordHex(std::uint16_t value) {
  return hexText(std::as_bytes(std::span(&value, 1)));
}

TEST(PropertyDescription, HoldsValuesOfEveryDatatypeInEveryForm) {
  for (const auto& row : valueRows()) {
    const std::string value = row.bytes;
    const std::string beginning = "0150" + wordHex(row.datatype) + "01" + value + value;
    PropertyDictionary none = {{"code", 0x5001}, {"datatype", row.datatype}, {"writable", true}};
    none["current"] = none["factoryDefault"] = row.value;
    auto range = none;
    auto enumeration = none;
    none["form"] = "none";
    range["form"] = "range";
    range["minimum"] = range["maximum"] = range["step"] = row.value;
    enumeration["form"] = "enumeration";
    enumeration["values"] = {row.value, row.value};
    for (const auto& [json, form] : {std::pair(none, std::string("00")),
                                     {enumeration, "02 0200" + value + value},
                                     {range, "01" + value + value + value}}) {
      const Bytes bytes = hexBytes(beginning + form);
      EXPECT_EQ(hexText(encoded("propdesc", json)), hexText(bytes)) << json;
      EXPECT_EQ(decoded("propdesc", bytes), json);
    }
    for (const auto& unfit : row.unfit) {
      range["step"] = unfit;
      EXPECT_THAT(raised([&] { encoded("propdesc", range); }),
                  StartsWith("NSInvalidArgumentException: step "))
          << range;
    }
  }
}

TEST(PropertyDescription, RefusesDatatypesAndFormsThatDoNotExist) {
  const std::string assertion = "NSInternalInconsistencyException: Unexpected ";
  const PropertyDictionary json = {
      {"code", 1}, {"datatype", 0x400B}, {"factoryDefault", 1}, {"current", 1}};
  EXPECT_EQ(raised([&] { encoded("propdesc", json); }), assertion + "datatype 16395");
  EXPECT_EQ(raised([] { decoded("propdesc", hexBytes("0150 0b40 00 50 32 03")); }),
            assertion + "datatype 16395");
  EXPECT_EQ(raised([] { decoded("propdesc", hexBytes("0150 0200 00 50 32 03")); }),
            assertion + "form 3");
}

TEST(PropertyDescription, IsWrittenOnlyWithTheValuesOfItsForm) {
  const auto refusal = [](const PropertyDictionary& json) {
    const std::string exception = raised([&] { encoded("propdesc", json); });
    return exception.substr(std::min(exception.size(), exception.find(": ") + 2));
  };
  auto json = PropertyDictionary::parse(
      R"({"code": 1, "datatype": 2, "factoryDefault": 0, "current": 0, "form": "range",
          "minimum": 0, "maximum": 9, "step": 1})");
  EXPECT_EQ(refusal(json), "");
  for (const char* key : {"code", "datatype", "factoryDefault", "current", "step"}) {
    auto lacking = json;
    lacking.erase(key);
    EXPECT_EQ(refusal(lacking), std::string(key) + " is missing");
  }
  json.erase("form");  // none, which has no values
  EXPECT_EQ(refusal(json), "\"maximum\" is no key of this record");
  for (const char* key : {"minimum", "maximum", "step"})
    json.erase(key);
  EXPECT_EQ(hexText(encoded("propdesc", json)), "0100020000000000");
  json["form"] = "list";
  EXPECT_EQ(refusal(json), "form must be \"none\", \"range\" or \"enumeration\"");
  json["form"] = "enumeration";
  EXPECT_EQ(refusal(json), "values is missing");
  json["values"] = std::vector<int>(65536);
  EXPECT_EQ(refusal(json), "values must not have more than 65535 elements");
}

TEST(Records, TraceTheirFieldsOneByOneUntilTheBytesEnd) {
  test::TraceRecorder traces;
  Bytes bytes = hexBytes("0300 0200 0100 ffffffffffffffff 0000000001000000");
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  EXPECT_FALSE(raised([&] { scanStorageInfo(dataSet); }).empty());
  auto lines = traces.take();
  lines.resize(5);
  EXPECT_THAT(lines,
              testing::ElementsAre("StorageInfo.storageType: 3", "StorageInfo.fileSymType: 2",
                                   "StorageInfo.accessCapability: 1",
                                   "StorageInfo.maxCapacity: 18446744073709551615",
                                   "StorageInfo.freeSpaceInBytes: 4294967296"));
  bytes = hexBytes("0100 0200 03000000 04000000 05000000 06000000 07000000 ffffffff");
  dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  scanAddressBookInfo(dataSet);
  EXPECT_EQ(traces.take().back(), "AddressBookInfo.maxGroupNameLengthInBytes: -1");
}

}  // namespace
}  // namespace tarvo
