// What the base of the picture devices makes of the operations of a concrete class.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/ScriptedDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;

class PictureDeviceAnswers : public ::testing::Test {
 protected:
  PictureDeviceTestRoom room_;
  std::shared_ptr<ScriptedDevice> device_ = std::make_shared<ScriptedDevice>();
};

TEST_F(PictureDeviceAnswers, SumUpTheStoresByTheirKind) {
  EXPECT_FALSE(device_->storageInfoDict());
  device_->stores = {0x10001, 0x20000, 0x20001, 0x30001, 0x40001};
  device_->infos[0x20000] = {.storageType = 4, .maxCapacity = 9};  // a slot without a card
  EXPECT_FALSE(device_->storageInfoDict());
  device_->infos[0x10001] = {.storageType = 3, .maxCapacity = 0x100000007, .freeSpaceInBytes = 2};
  device_->infos[0x20001] = {.storageType = 4, .maxCapacity = 11, .freeSpaceInBytes = 10};
  device_->infos[0x30001] = {.storageType = 2, .maxCapacity = 21, .freeSpaceInBytes = 20};
  device_->transactions.add(1, "a.jpg", "");
  device_->transactions.calls.clear();
  EXPECT_EQ(device_->storageInfoDict(),
            PropertyDictionary({{"XTPictureDeviceInternalMemoryKey", 7},
                                {"XTPictureDeviceInternalFreeKey", 2},
                                {"XTPictureDeviceInternalImagesKey", 1},
                                {"XTPictureDeviceRemovableMemoryKey", 21},
                                {"XTPictureDeviceRemovableFreeKey", 20},
                                {"XTPictureDeviceRemovableImagesKey", 1}}));
  EXPECT_THAT(device_->transactions.calls,
              ElementsAre("GetNumObjects 10001 FFFF", "GetNumObjects 20001 FFFF",
                          "GetNumObjects 30001 FFFF"));
}

TEST_F(PictureDeviceAnswers, SendDataWhereTheDeviceTakesObjects) {
  auto& transactions = device_->transactions;
  std::uint32_t handle = 0;
  const auto send = [&](const CodeList& operations) {
    XTExtendedObjectInfo info;
    transactions.operations = operations;
    return device_->sendData(std::as_bytes(std::span(std::string_view("abc"))), info, 1, 2,
                             &handle);
  };
  EXPECT_EQ(send({0x100D, 0x9006}), -1400);
  EXPECT_EQ(send({0x9005}), 0);
  EXPECT_EQ(handle, ScriptedPTPTransactions::kNewHandle);
  device_->fields().capabilities.hasSendVendorObject = true;
  handle = 0;
  transactions.failing["SendObject"] = 0x200C;
  EXPECT_EQ(send({}), 0x200C);
  EXPECT_EQ(handle, 0U);
  EXPECT_EQ(transactions.sentData, "abc");
}

TEST_F(PictureDeviceAnswers, ReadOnePropertyForTheHostAndWriteAnother) {
  auto& transactions = device_->transactions;
  transactions.properties = {0xD201, 0xD202, 0xD203};
  transactions.values[0xD201] = PTPBytes().u32(16).u32(1).u32(0).u32(0).u32(0);
  EXPECT_EQ(device_->deviceID(), "01000000-0000-0000-0000-000000000000");
  EXPECT_EQ(device_->defaultHostID(), device_->deviceID());
  EXPECT_EQ(device_->setDefaultHostID("01000000-0000-0000-0000-000000000000"), 0);
  EXPECT_EQ(transactions.calls.back(), "SetDevicePropValue D203");
  EXPECT_EQ(device_->setDeviceUserName("Ann"), 0);
  EXPECT_EQ(transactions.calls.back(), "SetDevicePropValue D202");
}

TEST_F(PictureDeviceAnswers, TellIntentionsOfAWirelessDeviceAlone) {
  device_->transactions.properties = {0xD206};
  device_->transactions.values[0xD206] = PTPBytes().u32(2 | 8);
  for (const auto& [supports, wireless, docked] : {std::tuple(true, true, false),
                                                   {false, true, false},
                                                   {true, false, false},
                                                   {true, true, true}}) {
    device_->fields().capabilities.deviceSupportsIntention = supports;
    device_->wireless = wireless;
    device_->docked = docked;
    EXPECT_EQ(device_->hasSquirtEmailIntention(), supports && wireless);
    EXPECT_EQ(device_->hasSquirtTransferIntention(), supports && wireless && !docked);
    EXPECT_FALSE(device_->hasSyncIntention() || device_->hasSquirtPrintIntention());
  }
}

TEST_F(PictureDeviceAnswers, KeepTheLanguagesOfDeviceAndHost) {
  const ScopedEnvironment all("LC_ALL", "sv_SE.UTF-8");
  const ScopedEnvironment language("LANGUAGE", "");
  EXPECT_EQ(device_->deviceLocalizationPTP(), "sv_SE");
  const ScopedEnvironment changed("LC_ALL", "fr_FR.UTF-8");
  EXPECT_EQ(device_->deviceLocalization(), "sv_SE");

  room_.maker.uiLanguageProperty = 0xD207;
  room_.maker.dockedProperty = 0xD208;
  device_->transactions.properties = {0xD207, 0xD208};
  device_->transactions.descriptions[0xD207] =
      PTPBytes().u16(0xD207).u16(0xFFFF).u8(1).text("en").text("German");
  EXPECT_EQ(device_->deviceUILanguageSetting(), "German");
  EXPECT_EQ(device_->deviceLocalizationPTP(), "de");
  EXPECT_THAT(device_->transactions.calls, ElementsAre("GetDevicePropDesc D207"));
  EXPECT_FALSE(device_->isDockedPTP());
  device_->transactions.values[0xD208] = PTPBytes().u8(1);
  EXPECT_TRUE(device_->isDockedPTP());
}

TEST_F(PictureDeviceAnswers, DropWhatAnEventMakesStaleAndPostIt) {
  std::vector<Notification> heard;
  room_.center.addObserver(this, "DeviceEvent",
                           [&](const Notification& event) { heard.push_back(event); });
  auto info = std::make_shared<XTExtendedObjectInfo>();
  info->setObjFmtCode(0x3801);
  device_->cacheObject(7, info);
  device_->cacheObject(8, info);
  device_->handlePTPEvent(0x4007, 1, 0xFFFFFFFF, std::vector<std::uint32_t>{7});
  ASSERT_EQ(heard.size(), 1U);
  EXPECT_EQ(heard.front().object, device_);
  EXPECT_EQ(heard.front().userInfo,
            PropertyDictionary(
                {{"code", 0x4007}, {"session", 1}, {"transaction", 0xFFFFFFFF}, {"params", {7}}}));
  EXPECT_FALSE(device_->cachedInfoForObject(7));
  device_->invalidateObjectInfoCacheForType(0x3802);
  EXPECT_EQ(device_->cachedInfoForObject(8), info);
  device_->invalidateObjectInfoCacheForType(0x3801);
  EXPECT_FALSE(device_->cachedInfoForObject(8));
  room_.center.removeObserver(this);
}

TEST_F(PictureDeviceAnswers, DownloadAndDeleteByHandle) {
  TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path());
  auto& transactions = device_->transactions;
  transactions.add(7, "../a.txt", "abc");
  EXPECT_FALSE(device_->downloadObjectData(7) || device_->downloadObjectPTP(7));
  transactions.operations = {0x101B};
  EXPECT_EQ(device_->downloadObjectData(7)->size(), 3U);
  EXPECT_FALSE(device_->downloadObjectData("7"));
  EXPECT_TRUE(device_->downloadObjectPTP(7).value_or("").ends_with("/a.txt"));
  EXPECT_TRUE(room_.trace.contains("ObjectInfo: fileName: ../a.txt"));

  device_->fields().cachedImageCountForDatasetSizeEstimate = 4;
  transactions.capabilities.hasDeleteObject = true;
  EXPECT_EQ(device_->deleteObject(7), 0);
  EXPECT_EQ(device_->fields().cachedImageCountForDatasetSizeEstimate, -1);
  device_->pictures = {7, "/a.jpg"};
  EXPECT_EQ(device_->getPictureFileSizesDict(), PropertyDictionary({{"7", 6}, {"/a.jpg", 5}}));
}

}  // namespace
}  // namespace tarvo::test
