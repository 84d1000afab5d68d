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

TEST(ObjectChanges, DeleteByTheOperationThatTheObjectsStoreNeeds) {
  const std::tuple<bool, bool, std::uint32_t, std::string> rows[] = {
      {true, false, 0x00030001, "Delete 7 0000 100B"},
      {true, true, 0x00010001, "Delete 7 0000 100B"},
      {true, true, 0x00030001, "Delete 7 0000 9209"},
      {false, true, 0x00030001, "Delete 7 0000 9209"},
      {false, true, 0x00030002, "Delete 7 0000 100B"}};
  ScriptedPTPTransactions device;
  EXPECT_EQ(ObjectChanges(device).deleteObject(7), 0x2005);
  EXPECT_THAT(device.calls, testing::IsEmpty());
  for (const auto& [hasStandard, hasVendor, store, last] : rows) {
    device.capabilities.hasDeleteObject = hasStandard;
    device.capabilities.hasDeleteVendorObject = hasVendor;
    device.add(7, "a", "").setStorageID(store);
    EXPECT_EQ(ObjectChanges(device).deleteObject(7), 0);
    EXPECT_EQ(device.calls.back(), last);
  }
  device.calls.clear();
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
  const std::string longest(254, 'x');
  EXPECT_TRUE(isObjectName(longest) && isObjectName("a b.JPG") && isObjectName("..."));
  for (const std::string& name : {std::string(), longest + "x", std::string("a/b"),
                                  std::string("a\\b"), std::string("a\tb"), std::string("..")})
    EXPECT_EQ(ObjectChanges(device).rename(7, name), -50) << name;
}

TEST(DeviceProperties, AreReadByTheirKindAndWrittenWhereTheDeviceListsThem) {
  ScriptedPTPTransactions device;
  DeviceProperties properties(device);
  EXPECT_EQ(properties.UInt32Property(0xD201), 0U);
  EXPECT_FALSE(properties.GUIDProperty(0xD201) || properties.stringProperty(0xD201));
  EXPECT_EQ(properties.setProperty(0xD201, "x"), 0x200A);
  EXPECT_EQ(properties.setPropertyGuid(0xD201, "x"), 0x200A);
  EXPECT_THAT(device.calls, testing::IsEmpty());

  device.properties = {0xD201, 0xD202};
  device.values[0xD201] = PTPBytes().u32(0x04030201).u32(7);
  EXPECT_EQ(properties.UInt32Property(0xD201), 0x04030201U);
  EXPECT_EQ(properties.UInt8Property(0xD201), 0x01);
  device.values[0xD201] = PTPBytes().u32(16).u32(0).u32(0).u32(0).u32(0xFF000000);
  EXPECT_EQ(properties.GUIDProperty(0xD201), "00000000-0000-0000-0000-0000000000FF");
  device.values[0xD201] = PTPBytes().u8(1);
  EXPECT_EQ(raised([&] { properties.UInt32Property(0xD201); }).substr(0, 16), "NSRangeException");

  device.descriptions[0xD202] =
      PTPBytes().u16(0xD202).u16(0xFFFF).u8(1).text("default").text("current").u8(0);
  EXPECT_EQ(properties.stringProperty(0xD202), "current");
  device.descriptions[0xD202] = PTPBytes().u16(0xD202).u16(0xFFFE).u8(1).text("").text("x");
  EXPECT_EQ(raised([&] { properties.stringProperty(0xD202); }),
            "NSInternalInconsistencyException: stringProperty reading wrong data type:fffe");

  EXPECT_EQ(properties.setProperty(0xD202, "ab"), 0);
  EXPECT_EQ(hexText(device.setValue), "03610062000000");
  EXPECT_EQ(properties.setPropertyGuid(0xD202, "00000000-0000-0000-0000-0000000000ff"), 0);
  EXPECT_EQ(hexText(device.setValue), "10000000000000000000000000000000000000ff");
  EXPECT_EQ(properties.setPropertyGuid(0xD202, ""), 0);
  EXPECT_EQ(hexText(device.setValue), "00000000");
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
    EXPECT_EQ(pictures.handles(0x10001), atOnce ? ObjectHandles({2, 3}) : ObjectHandles({3, 2}));
    device.operations = {0x9203};
    // Not asked for, one for each, and not one for each.
    EXPECT_EQ(pictures.fileSizes().at("3"), 7);
    device.pictureSizes = {90, 70};
    EXPECT_EQ(pictures.fileSizes().at("2"), atOnce ? 90 : 70);
    device.pictureSizes = {90};
    EXPECT_EQ(pictures.fileSizes(), PropertyDictionary({{"2", 9}, {"3", 7}}));
    device.failing["GetNumObjects"] = device.failing["GetObjectHandles"] = 0x2002;
    EXPECT_EQ(pictures.count(), 0);
    EXPECT_FALSE(pictures.handles(0x10001));
  }
}

TEST(DeviceEvents, DropWhatTheyMakeStaleAndNothingElse) {
  MakerConstants maker;
  maker.uiLanguageProperty = 0xD207;
  using Handles = std::vector<std::uint32_t>;
  // objects: dropped
  const std::tuple<std::uint16_t, Handles, Handles, bool, bool, bool> rows[] = {
      {0x4002, {9}, {9}, true, false, false},      {0x4003, {1}, {1}, true, false, false},
      {0x4004, {0x10001}, {1}, true, true, false}, {0x4005, {}, {1, 2}, true, true, false},
      {0x4006, {0xD207}, {}, false, false, true},  {0x4007, {2}, {2}, false, false, false},
      {0x400B, {}, {1, 2}, true, true, true},      {0x400C, {0x10001}, {}, true, true, false},
      {0x400E, {}, {1, 2}, true, true, true},      {0xC001, {1}, {}, false, false, false},
  };
  for (const auto& [code, parameters, objects, dropsCounts, dropsStores, dropsLanguage] : rows) {
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
    dropWhatEventMakesStale(fields, &device, maker, code, parameters);
    EXPECT_EQ(device.invalidated, objects) << code;
    for (const std::uint32_t handle : objects)
      EXPECT_FALSE(fields.objectInfoCache.contains(handle)) << code;
    EXPECT_EQ(fields.cachedAlbumCountForDatasetSizeEstimate == -1, dropsCounts) << code;
    EXPECT_EQ(!fields.storageIDCache, dropsStores) << code;
    EXPECT_EQ(!fields.cachedUILanguage, dropsLanguage) << code;
  }
}

TEST(DeviceLanguages, AreKnownByCodeLocaleAndName) {
  EXPECT_EQ(XTPictureDevice::languageCodeAsLanguageName("de"), "German");
  EXPECT_EQ(XTPictureDevice::languageCodeAsLanguageName("tlh"), "tlh");
  EXPECT_EQ(languageCode("French"), "fr");
  EXPECT_FALSE(languageCode(""));
  using Language = std::optional<std::string>;
  for (const auto& [language, expected] : {std::pair<Language, const char*>{"German", "de_AT"},
                                           {"fr", "fr"},
                                           {"Klingon", "de_AT"},
                                           {std::nullopt, "de_AT"}})
    EXPECT_EQ(localizationForLanguage("de_AT", language), expected);

  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"", "sv:de", "sv"}, {"", "", "de_DE"}, {"C", "", "en"}};
  const ScopedEnvironment messages("LC_MESSAGES", "de_DE.UTF-8");
  for (const auto& [all, language, expected] : rows) {
    const ScopedEnvironment allSet("LC_ALL", all);
    const ScopedEnvironment languageSet("LANGUAGE", language);
    EXPECT_EQ(hostLocalization(), expected);
  }
}

TEST(PTPDates, AreReadWithTheirZoneAndRefusedWhereTheCalendarHasNone) {
  const ScopedEnvironment zone("TZ", "UTC-2");
  ::tzset();
  const std::pair<const char*, std::time_t> dates[] = {{"20070615T120000Z", 1181908800},
                                                       {"20070615T120000", 1181901600},
                                                       {"20070615T120000+0530", 1181889000},
                                                       {"20070615T120000.0-0100", 1181912400},
                                                       {"20080229T000000Z", 1204243200}};
  for (const auto& [text, time] : dates)
    EXPECT_EQ(timeOfPTPDate(text), time) << text;
  for (const char* text : {"20070229T000000Z", "20071301T000000", "20070615T240000",
                           "2007061T120000", "", "1970-01-01 00:00:00 +0000"})
    EXPECT_EQ(timeOfPTPDate(text), std::nullopt) << text;
  EXPECT_EQ(ptpDateOfTime(1181908800), "20070615T140000+0200");
  EXPECT_FALSE(ptpDateOfTime(std::numeric_limits<std::time_t>::max()));
  EXPECT_FALSE(ptpDateOfTime(253402300800)) << "the year 10000";
}

}  // namespace
}  // namespace tarvo::test
