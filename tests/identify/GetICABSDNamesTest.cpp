// The volumes that Image Capture shows as mass-storage cameras.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "identify/GetICAVolumeFromUSBLocation.h"
#include "identify/IdentifyRoom.h"
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
  EXPECT_THAT(GetICABSDNames(),
              Optional(ElementsAre(ICAVolume{"B", "sdc1"}, ICAVolume{"A", "sdb1"})));
}

TEST(ICABSDNames, ComeFromTheMountTableWhereImageCaptureHasNone) {
  Rooms rooms;
  rooms.room.mounts.add("/dev/sdb1", "/media/u/MOUNTED");
  rooms.room.ica.addVolume("MOUNTED", "");
  rooms.room.ica.addVolume("ELSEWHERE", "");
  EXPECT_THAT(GetICABSDNames(), Optional(ElementsAre(ICAVolume{"MOUNTED", "sdb1"})));
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
  const struct {
    Status FakeImageCapture::*failing;
    const char* line;
  } rows[] = {
      {&FakeImageCapture::deviceListStatus, "ICAGetDeviceList error: -50"},
      {&FakeImageCapture::childCountStatus, "ICAGetChildCount error: -50, header err"},
      {&FakeImageCapture::childCountHeaderErr, "ICAGetChildCount error: 0, header err"},
  };
  for (const auto& row : rows) {
    Rooms rooms;
    EXPECT_THAT(GetICABSDNames(), Optional(IsEmpty()));
    rooms.room.ica.*row.failing = -50;
    EXPECT_EQ(GetICABSDNames(), std::nullopt) << row.line;
    EXPECT_THAT(rooms.room.trace.lines(), ElementsAre(row.line));
  }
}

TEST(ICABSDNames, ReportOnlyAFailingDeviceListWithoutTheDebugFlag) {
  Rooms rooms;
  FakeUserDefaults quiet;
  RecordingSystemLog log;
  const LogState state(quiet, log);
  rooms.room.ica.childCountStatus = -50;
  EXPECT_EQ(GetICABSDNames(), std::nullopt);
  EXPECT_THAT(log.lines(), IsEmpty());
  rooms.room.ica.deviceListStatus = -50;
  EXPECT_EQ(GetICABSDNames(), std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre("ICAGetDeviceList error: -50"));
}

}  // namespace
}  // namespace tarvo::test
