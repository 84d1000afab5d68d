// The volumes that Image Capture shows as mass-storage cameras.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "identify/DeviceInfoSupport.h"
#include "identify/GetICAVolumeFromUSBLocation.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

struct Rooms {
  PictureDeviceTestRoom room;
  IdentifyRoom identify{{room.ica, room.registry, room.mounts}};
};

TEST(ICABSDNames, AreThoseOfTheMassStorageModulesInOrder) {
  Rooms rooms;
  auto& ica = rooms.room.ica;
  ica.addVolume("B", "sdc1", "MassStorage.app");
  ica.addPTPCamera();
  ica.addVolume("A", "sdb1", "MassStorageCamera.app");
  ica.addVolume("X", "sdd1", "MassStorage.app.bak");
  ica.addVolume("MOUNTED", "");
  ica.addVolume("ELSEWHERE", "");
  rooms.room.mounts.add("/dev/sde1", "/media/u/MOUNTED");
  EXPECT_THAT(GetICABSDNames(), Optional(ElementsAre(ICAVolume{"B", "sdc1"}, ICAVolume{"A", "sdb1"},
                                                     ICAVolume{"MOUNTED", "sde1"})));
}

TEST(ICABSDNames, LeaveOutWhatIsNoReadableCameraAndSayWhy) {
  const struct {
    std::function<void(FakeImageCapture&, FakeImageCapture::Device&)> spoil;
    const char* line;
  } rows[] = {
      {[](auto& ica, auto&) { ica.nthChildStatus[0] = -50; },
       "ICAGetNthChild 0 error: -50, header err"},
      {[](auto&, auto& device) { device.info.objectType = fourCharCode("abcd"); },
       "child 0 getNthChildPB.childInfo.objectType: 'dcba'"},
      {[](auto&, auto& device) { device.info.objectSubtype = fourCharCode("scan"); },
       "child 0 getNthChildPB.childInfo.objectSubtype: 'nacs'"},
      {[](auto&, auto& device) { device.dictionaryStatus = -50; },
       "ICACopyObjectPropertyDictionary copyObjectPropertyDictionaryPB.header.err: -50"},
      {[](auto&, auto& device) { device.properties.erase("volume"); },
       "No volume property for index 0"},
  };
  for (const auto& row : rows) {
    Rooms rooms;
    row.spoil(rooms.room.ica, rooms.room.ica.addVolume("BAD", "sdb1"));
    rooms.room.ica.addVolume("GOOD", "sdc1");
    EXPECT_THAT(GetICABSDNames(), Optional(ElementsAre(ICAVolume{"GOOD", "sdc1"}))) << row.line;
    EXPECT_THAT(rooms.room.trace.lines(), ElementsAre(row.line));
  }
}

TEST(ICABSDNames, AreNoneNotEmptyWhenImageCaptureFails) {
  for (const auto failing :
       {&FakeImageCapture::deviceListStatus, &FakeImageCapture::childCountStatus,
        &FakeImageCapture::childCountHeaderErr}) {
    Rooms rooms;
    EXPECT_THAT(GetICABSDNames(), Optional(IsEmpty()));
    rooms.room.ica.*failing = -50;
    EXPECT_EQ(GetICABSDNames(), std::nullopt);
  }
}

}  // namespace
}  // namespace tarvo::test
