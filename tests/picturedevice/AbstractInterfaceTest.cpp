// What a device answers where its class does not provide an operation.
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

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
      {"numberOfObjectsOnStore:ofType:", device.numberOfObjectsOnStore(1, 2), -1},
      {"numberOfObjectsOnStore:ofType:withAssociation:", device.numberOfObjectsOnStore(1, 2, 3), 0},
      {"thumbSize:", device.thumbSize(object), 0},
      {"objectInfo:forHandle:", device.objectInfo(info, 1), -4},
      {"downloadImage:destination:", device.downloadImage(object, path), -1400},
      {"sendObjectData:", device.sendObjectData({}), -50},
      {"formatStore:", device.formatStore(1), -50},
      {"deleteBragbookFiles", device.deleteBragbookFiles(), 0x200B},
      {"deleteHostObjectWrapperFiles", device.deleteHostObjectWrapperFiles(), 0x200B},
  };
  EXPECT_FALSE(device.opCodeList() || device.eventCodeList() || device.propertyList() ||
               device.captureFormatList() || device.imageFormatList() || device.pictureFiles() ||
               device.orderFiles() || device.emailOrderList() || device.printOrderList() ||
               device.transferOrderList() || device.addressBookDictUncached() ||
               device.storageIDs() || device.storageInfo(1) || device.hostObjectWrapperFile() ||
               device.objectFilename(object) || device.objectInfoForHandle(object) ||
               device.downloadThumb(object) || device.downloadObject(object) ||
               device.deviceInfoDataset());
  for (const auto& row : numbers) {
    EXPECT_EQ(row.answered, row.expected) << row.selector;
    EXPECT_EQ(room.trace.count(std::string("[PlainDevice ") + row.selector + "] (self"), 1U)
        << row.selector;
  }
  EXPECT_EQ(room.trace.count("Subclass responsibility not overridden"), std::size(numbers) + 19);
  EXPECT_TRUE(room.trace.contains("-[PlainDevice formatStore:]: unrecognized selector"));
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

}  // namespace
}  // namespace tarvo::test
