// What a device answers where its class does not provide an operation.
#include <gtest/gtest.h>

#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

constexpr const char* kNotOverridden = "Subclass responsibility not overridden";

TEST(AbstractInterface, AnswersTheDefaultOfEachOperationAndSaysSo) {
  PictureDeviceTestRoom room;
  PlainDevice device("Lumo");
  const ObjectReference object;
  const std::string path;
  std::shared_ptr<XTExtendedObjectInfo> info;

  const struct {
    const char* selector;
    std::int64_t answered;
    std::int64_t expected;
  } numbers[] = {
      {"batteryLevel", device.batteryLevel(), 255},
      {"imageCount", device.imageCount(), 0},
      {"squirtTransferCount", device.squirtTransferCount(), 0},
      {"squirtPrintCount", device.squirtPrintCount(), 0},
      {"squirtEmailCount", device.squirtEmailCount(), 0},
      {"numberOfObjectsOnStore:ofType:", device.numberOfObjectsOnStore(1, 2), -1},
      {"numberOfObjectsOnStore:ofType:withAssociation:", device.numberOfObjectsOnStore(1, 2, 3), 0},
      {"setAddressBookDict:", device.setAddressBookDict({}), -1400},
      {"setDateTime", device.setDateTime(), -1400},
      {"setAddressBook:", device.setAddressBook(path), -1400},
      {"thumbSize:", device.thumbSize(object), 0},
      {"objectSize:", device.objectSize(object), 0},
      {"objectInfo:forHandle:", device.objectInfo(info, 1), -4},
      {"downloadImage:destination:", device.downloadImage(object, path), -1400},
      {"downloadFile:destination:", device.downloadFile(object, path), -1400},
      {"sendObjectData:", device.sendObjectData({}), -50},
      {"loadDeviceInfoUncached", device.loadDeviceInfoUncached(), -50},
      {"formatStore:", device.formatStore(1), -50},
      {"deleteFilesOfType:", device.deleteFilesOfType(1), -1400},
      {"deleteOrderFiles", device.deleteOrderFiles(), -1400},
      {"deleteBragbookFiles", device.deleteBragbookFiles(), 0x200B},
      {"deleteHostObjectWrapperFiles", device.deleteHostObjectWrapperFiles(), 0x200B},
  };
  const struct {
    const char* selector;
    bool answered;
  } absences[] = {
      {"opCodeList", device.opCodeList() != nullptr},
      {"eventCodeList", device.eventCodeList() != nullptr},
      {"propertyList", device.propertyList() != nullptr},
      {"captureFormatList", device.captureFormatList() != nullptr},
      {"imageFormatList", device.imageFormatList() != nullptr},
      {"pictureFiles", device.pictureFiles().has_value()},
      {"orderFiles", device.orderFiles().has_value()},
      {"emailOrderList", device.emailOrderList().has_value()},
      {"printOrderList", device.printOrderList().has_value()},
      {"transferOrderList", device.transferOrderList().has_value()},
      {"addressBookDictUncached", device.addressBookDictUncached().has_value()},
      {"storageIDs", device.storageIDs().has_value()},
      {"storageInfo:", device.storageInfo(1) != nullptr},
      {"hostObjectWrapperFile", device.hostObjectWrapperFile().has_value()},
      {"objectFilename:", device.objectFilename(object).has_value()},
      {"objectInfoForHandle:", device.objectInfoForHandle(object) != nullptr},
      {"downloadThumb:", device.downloadThumb(object).has_value()},
      {"downloadObject:", device.downloadObject(object).has_value()},
      {"deviceInfoDataset", device.deviceInfoDataset() != nullptr},
  };
  for (const auto& row : numbers) {
    EXPECT_EQ(row.answered, row.expected) << row.selector;
    EXPECT_EQ(room.trace.count(std::string("[PlainDevice ") + row.selector + "] (self"), 1U)
        << row.selector;
  }
  for (const auto& row : absences) {
    EXPECT_FALSE(row.answered) << row.selector;
    EXPECT_EQ(room.trace.count(std::string("[PlainDevice ") + row.selector + "] (self"), 1U)
        << row.selector;
  }
  EXPECT_EQ(room.trace.count(kNotOverridden), std::size(numbers) + std::size(absences));
  EXPECT_TRUE(room.trace.contains("-[PlainDevice formatStore:]: unrecognized selector"));
}

TEST(AbstractInterface, HasFixedAnswersThatAreNoFailure) {
  PictureDeviceTestRoom room;
  PlainDevice device("Lumo");
  EXPECT_FALSE(device.isDocked() || device.isWireless() || device.isProtected({}) ||
               device.doesLCBInfoWork() || device.isPTPDevice() || device.isMSCamera() ||
               device.isMSCard());
  EXPECT_TRUE(device.systemCanSleep());
  EXPECT_EQ(device.indicateBusy(), 0);
  EXPECT_EQ(device.displayRequestVersion(), 0);
  EXPECT_EQ(device.displayOnDevice("", "", "", "", "", ""), -1400);
  EXPECT_EQ(device.indicateFulfillment(1, 2), -1400);
  EXPECT_FALSE(room.trace.contains(kNotOverridden));
}

TEST(PictureDevice, LoadsItsInformationUntilThatSucceedsOnce) {
  struct Loading : PlainDevice {
    using PlainDevice::PlainDevice;
    Status loadDeviceInfoUncached() override {
      ++loads;
      return next;
    }
    int loads = 0;
    Status next = -36;
  };
  PictureDeviceTestRoom room;
  Loading device("Lumo");
  EXPECT_EQ(device.loadDeviceInfo(), -36);
  EXPECT_TRUE(room.trace.contains(
      "XTPictureDevice: loadDeviceInfo: bad status from loadDeviceInfoUncached"));
  device.next = 0;
  EXPECT_EQ(device.loadDeviceInfo(), 0);
  device.next = -36;
  EXPECT_EQ(device.loadDeviceInfo(), 0);
  EXPECT_EQ(device.loads, 2);
}

TEST(PictureDevice, CanBeWirelessWhenItHoldsWirelessSettings) {
  struct Holding : PlainDevice {
    using PlainDevice::PlainDevice;
    std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type) override {
      return store == 0xFFFFFFFF && type == 0xB20A ? count : 99;
    }
    using XTPictureDevice::numberOfObjectsOnStore;
    std::int32_t count = 0;
  };
  PictureDeviceTestRoom room;
  Holding device("Lumo");
  for (const std::int32_t count : {-1, 0, 1}) {
    device.count = count;
    EXPECT_EQ(device.canBeWireless(), count > 0);
  }
}

}  // namespace
}  // namespace tarvo::test
