// What a picture device does on top of its transactions, beside sending and downloading.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/DeviceEvents.h"
#include "NativeServices/PictureDevice/operations/DeviceProperties.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "tests/support/HexBytes.h"
#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPTransactions.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ObjectChanges, DeleteByTheOperationThatTheObjectsStoreNeeds) {
  const struct {
    bool hasStandard;
    bool hasVendor;
    std::uint32_t store;
    std::vector<std::string> calls;
    Status status;
  } rows[] = {
      {false, false, 0x00030001, {}, 0x2005},
      {true, false, 0x00030001, {"Delete 7 0000 100B"}, 0},
      {true, true, 0x00010001, {"GetObjectInfo 7", "Delete 7 0000 100B"}, 0},
      {true, true, 0x00030001, {"GetObjectInfo 7", "Delete 7 0000 9209"}, 0},
      {false, true, 0x00030001, {"GetObjectInfo 7", "Delete 7 0000 9209"}, 0},
      {false, true, 0x00030002, {"GetObjectInfo 7", "Delete 7 0000 100B"}, 0},
  };
  for (const auto& row : rows) {
    ScriptedPTPTransactions device;
    device.capabilities.hasDeleteObject = row.hasStandard;
    device.capabilities.hasDeleteVendorObject = row.hasVendor;
    device.add(7, "a", "").setStorageID(row.store);
    EXPECT_EQ(ObjectChanges(device).deleteObject(7), row.status);
    EXPECT_EQ(device.calls, row.calls);
  }
  ScriptedPTPTransactions device;
  device.capabilities.hasDeleteVendorObject = true;
  device.failing = {{"GetObjectInfo", 0x2009}, {"Delete", 0x200D}};
  EXPECT_EQ(ObjectChanges(device).deleteObject(8), 0x200D);
  EXPECT_EQ(ObjectChanges(device).deleteVendorObject(8), 0x200D);
  EXPECT_THAT(device.calls,
              ElementsAre("GetObjectInfo 8", "Delete 8 0000 100B", "Delete 8 0000 9209"));
}

TEST(ObjectChanges, RenameByUpdatingTheStandardInformation) {
  ScriptedPTPTransactions device;
  auto& info = device.add(7, "old.jpg", "content");
  info.setIsExtended(true);
  EXPECT_EQ(ObjectChanges(device).rename(7, "new.jpg"), 0x2005);
  device.operations = {0x9206};
  EXPECT_EQ(ObjectChanges(device).rename(7, "new.jpg"), 0);
  EXPECT_THAT(device.calls, ElementsAre("GetObjectInfo 7", "UpdateExtObjectInfo 7"));
  XTExtendedObjectInfo expected = info;
  expected.setIsExtended(false);
  expected.setFileName("new.jpg");
  EXPECT_EQ(device.sentInfo, expected);
  EXPECT_EQ(info.fileName(), "old.jpg");  // the cache's, which is dropped
  EXPECT_THAT(device.invalidated, ElementsAre(7U));

  std::string longest;  // 127 characters of two UTF-16 units each
  for (int i = 0; i < 127; ++i)
    longest += "\xF0\x9F\x98\x80";
  EXPECT_TRUE(isObjectName(longest) && isObjectName("a b.JPG") && isObjectName("..."));
  for (const std::string& name :
       {std::string(), longest + "x", std::string("a/b"), std::string("a\\b"), std::string("a\tb"),
        std::string(".."), std::string(".")})
    EXPECT_EQ(ObjectChanges(device).rename(7, name), -50) << name;
}

TEST(DeviceProperties, AreReadByTheirKindWhereTheDeviceListsThem) {
  ScriptedPTPTransactions device;
  device.values[0xD201] = PTPBytes().u32(0x04030201).u32(7);
  DeviceProperties properties(device);
  EXPECT_EQ(properties.UInt32Property(0xD201), 0U);
  EXPECT_FALSE(properties.GUIDProperty(0xD201) || properties.stringProperty(0xD201));
  EXPECT_EQ(properties.setProperty(0xD201, "x"), 0x200A);
  EXPECT_EQ(properties.setPropertyGuid(0xD201, "x"), 0x200A);
  EXPECT_THAT(device.calls, IsEmpty());

  device.properties = {0xD201, 0xD202};
  EXPECT_EQ(properties.UInt32Property(0xD201), 0x04030201U);
  EXPECT_EQ(properties.UInt16Property(0xD201), 0x0201);
  EXPECT_EQ(properties.UInt8Property(0xD201), 0x01);
  device.values[0xD201] = PTPBytes().u32(16).u32(0).u32(0).u32(0).u32(0xFF000000);
  EXPECT_EQ(properties.GUIDProperty(0xD201), "00000000-0000-0000-0000-0000000000FF");
  device.values[0xD201] = PTPBytes().u8(1);
  EXPECT_EQ(raised([&] { properties.UInt32Property(0xD201); }).substr(0, 16), "NSRangeException");
  device.failing["GetDevicePropValue"] = 0x2002;
  EXPECT_EQ(properties.UInt32Property(0xD201), 0U);

  device.descriptions[0xD202] =
      PTPBytes().u16(0xD202).u16(0xFFFF).u8(1).text("default").text("current").u8(0);
  EXPECT_EQ(properties.stringProperty(0xD202), "current");
  device.descriptions[0xD202] = PTPBytes().u16(0xD202).u16(0xFFFE).u8(1).text("").text("x");
  EXPECT_EQ(raised([&] { properties.stringProperty(0xD202); }),
            "NSInternalInconsistencyException: stringProperty reading wrong data type:fffe");
}

TEST(DeviceProperties, AreWrittenAsTextsAndGUIDs) {
  ScriptedPTPTransactions device;
  device.properties = {0xD202, 0xD203};
  DeviceProperties properties(device);
  EXPECT_EQ(properties.setProperty(0xD202, "ab"), 0);
  EXPECT_EQ(hexText(device.setValue), "03610062000000");
  EXPECT_EQ(properties.setPropertyGuid(0xD203, "00000000-0000-0000-0000-0000000000ff"), 0);
  EXPECT_EQ(hexText(device.setValue), "10000000000000000000000000000000000000ff");
  EXPECT_EQ(properties.setPropertyGuid(0xD203, ""), 0);
  EXPECT_EQ(hexText(device.setValue), "00000000");
  device.failing["SetDevicePropValue"] = 0x200F;
  EXPECT_EQ(properties.setProperty(0xD202, "ab"), 0x200F);
}

TEST(DevicePictures, AreAskedForAtOnceOrFormatByFormat) {
  for (const bool atOnce : {true, false}) {
    ScriptedPTPTransactions device;
    device.knowsAllImageFormats = atOnce;
    device.imageFormats = {0x3801, 0x3808, 0x300D, 0xB802};
    device.add(1, "a.mov", "film", 0x300D);
    device.add(2, "FAV.jpg", "favourite", 0xB802);
    device.add(3, "b.jpg", "picture", 0x3801);
    DevicePictures pictures(device);
    EXPECT_EQ(pictures.count(), 2);
    EXPECT_EQ(device.calls.size(), atOnce ? 1U : 4U);
    device.calls.clear();
    EXPECT_EQ(pictures.handles(0x10001), atOnce ? ObjectHandles({2, 3}) : ObjectHandles({3, 2}));
    EXPECT_EQ(device.calls.front(), "GetObjectHandles 10001 FFFF");
    EXPECT_EQ(pictures.fileSizes(), PropertyDictionary({{"2", 9}, {"3", 7}}));

    device.operations = {0x9203};
    device.pictureSizes = {90, 70};
    device.calls.clear();
    const PropertyDictionary listed = pictures.fileSizes();
    EXPECT_EQ(device.calls.back(), "PictureFileSizes FFFFFFFF FFFF");
    EXPECT_EQ(listed.at("2"), atOnce ? 90 : 70);
    device.pictureSizes = {90};  // not one for each
    EXPECT_EQ(pictures.fileSizes().at("2"), 9);
    device.failing["GetNumObjects"] = device.failing["GetObjectHandles"] = 0x2002;
    EXPECT_EQ(pictures.count(), 0);
    EXPECT_FALSE(pictures.handles(0x10001));
  }
}

TEST(DeviceEvents, DropWhatTheyMakeStaleAndNothingElse) {
  MakerConstants maker;
  maker.uiLanguageProperty = 0xD207;
  const struct {
    const char* what;
    std::uint16_t code;
    std::vector<std::uint32_t> parameters;
    std::vector<std::uint32_t> objects;  ///< dropped
    bool dropsCounts;
    bool dropsStores;
    bool dropsLanguage;
  } rows[] = {
      {"added", 0x4002, {9}, {9}, true, false, false},
      {"removed", 0x4003, {1}, {1}, true, false, false},
      {"store added", 0x4004, {0x10001}, {1}, true, true, false},
      {"a store without a name", 0x4005, {}, {1, 2}, true, true, false},
      {"language", 0x4006, {0xD207}, {}, false, false, true},
      {"information", 0x4007, {2}, {2}, false, false, false},
      {"reset", 0x400B, {}, {1, 2}, true, true, true},
      {"storage", 0x400C, {0x10001}, {}, true, true, false},
      {"lost events", 0x400E, {}, {1, 2}, true, true, true},
      {"a vendor's", 0xC001, {1}, {}, false, false, false},
  };
  for (const auto& row : rows) {
    PictureDeviceFields fields;
    for (const std::uint32_t handle : {1U, 2U}) {
      auto info = std::make_shared<XTExtendedObjectInfo>();
      info->setStorageID(handle << 16U | 1);
      fields.objectInfoCache[handle] = info;
    }
    fields.storageIDCache.emplace();
    fields.cachedUILanguage = "de";
    fields.cachedAlbumCountForDatasetSizeEstimate = 5;
    ScriptedPTPTransactions device;
    dropWhatEventMakesStale(fields, &device, maker, row.code, row.parameters);
    EXPECT_EQ(device.invalidated, row.objects) << row.what;
    for (const std::uint32_t handle : row.objects)
      EXPECT_FALSE(fields.objectInfoCache.contains(handle)) << row.what;
    EXPECT_EQ(fields.cachedAlbumCountForDatasetSizeEstimate == -1, row.dropsCounts) << row.what;
    EXPECT_EQ(!fields.storageIDCache, row.dropsStores) << row.what;
    EXPECT_EQ(!fields.cachedUILanguage, row.dropsLanguage) << row.what;
  }
}

TEST(DeviceLanguages, AreKnownByCodeLocaleAndName) {
  EXPECT_EQ(XTPictureDevice::languageCodeAsLanguageName("de"), "German");
  EXPECT_EQ(XTPictureDevice::languageCodeAsLanguageName("tlh"), "tlh");
  EXPECT_EQ(languageCode("French"), "fr");
  EXPECT_FALSE(languageCode(""));
  EXPECT_EQ(localizationForLanguage("de_AT", "German"), "de_AT");
  EXPECT_EQ(localizationForLanguage("de_AT", "fr"), "fr");
  EXPECT_EQ(localizationForLanguage("de_AT", "Klingon"), "de_AT");
  EXPECT_EQ(localizationForLanguage("de_AT", std::nullopt), "de_AT");

  const ScopedEnvironment all("LC_ALL", "");
  const ScopedEnvironment messages("LC_MESSAGES", "de_DE.UTF-8");
  {
    const ScopedEnvironment language("LANGUAGE", "sv:de");
    EXPECT_EQ(hostLocalization(), "sv");
  }
  const ScopedEnvironment language("LANGUAGE", "");
  EXPECT_EQ(hostLocalization(), "de_DE");
  const ScopedEnvironment none("LC_ALL", "C");
  EXPECT_EQ(hostLocalization(), "en");
}

TEST(PTPDates, AreReadWithTheirZoneAndRefusedWhereTheCalendarHasNone) {
  const ScopedEnvironment zone("TZ", "UTC-2");
  ::tzset();
  const struct {
    const char* text;
    std::optional<std::time_t> time;
  } rows[] = {
      {"20070615T120000Z", 1181908800},
      {"20070615T120000", 1181901600},
      {"20070615T120000+0530", 1181889000},
      {"20070615T120000.0-0100", 1181912400},
      {"20080229T000000Z", 1204243200},
      {"20070229T000000Z", std::nullopt},
      {"20071301T000000", std::nullopt},
      {"20070615T240000", std::nullopt},
      {"2007061T120000", std::nullopt},
      {"", std::nullopt},
      {"1970-01-01 00:00:00 +0000", std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(timeOfPTPDate(row.text), row.time) << row.text;
  EXPECT_EQ(ptpDateOfTime(1181908800), "20070615T140000+0200");
  EXPECT_FALSE(ptpDateOfTime(std::numeric_limits<std::time_t>::max()));
  EXPECT_FALSE(ptpDateOfTime(253402300800)) << "the year 10000";
}

}  // namespace
}  // namespace tarvo::test
