#include "msc/TarvoMSCDeviceList.h"

#include <gmock/gmock.h>

#include "tests/agent/RecordingUnit.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::shared_ptr<RecordingUnit> unit(std::uint8_t guid) {
  return std::make_shared<RecordingUnit>(std::vector<std::uint8_t>{guid});
}

class MSCDeviceList : public ::testing::Test {
 protected:
  NotificationCenter center;
  MSCRoom room{{center}};
  TarvoMSCDeviceList& list = *TarvoMSCDeviceList::sharedDeviceList();
};

TEST_F(MSCDeviceList, IsOneForTheRoomAndNoneWithoutIt) {
  EXPECT_EQ(TarvoMSCDeviceList::sharedDeviceList(), &list);
  {
    NotificationCenter otherCenter;
    const MSCRoom other({otherCenter});
    EXPECT_NE(TarvoMSCDeviceList::sharedDeviceList(), &list);
  }
  EXPECT_EQ(TarvoMSCDeviceList::sharedDeviceList(), nullptr);
}

TEST_F(MSCDeviceList, KeepsUnitsInTheOrderOfTheirArrival) {
  EXPECT_EQ(list.mainDevice(), nullptr);
  const auto first = unit(1), second = unit(2);
  list.addDevice(first).addDevice(second);
  EXPECT_THAT(list.devices(), ElementsAre(first, second));
  EXPECT_EQ(list.mainDevice(), first);
}

TEST_F(MSCDeviceList, RemovesTheFirstUnitWithTheGUIDAndNoOther) {
  const auto first = unit(1), twin = unit(1), other = unit(2);
  list.addDevice(first).addDevice(twin).addDevice(other);
  list.removeDevice({1, 0}).removeDevice({}).removeDevice({3});
  EXPECT_THAT(list.devices(), ElementsAre(first, twin, other));
  list.removeDevice({1});
  EXPECT_THAT(list.devices(), ElementsAre(twin, other));
}

TEST_F(MSCDeviceList, AnnouncesAnArrivalAndNoRemoval) {
  std::vector<std::shared_ptr<Object>> announced;
  center.addObserver(this, "XTMSCDeviceAddedEvent",
                     [&](const Notification& n) { announced.push_back(n.object); });
  const auto first = unit(1);
  list.addDevice(first);
  list.removeDevice({1});
  EXPECT_THAT(announced, ElementsAre(first));
}

TEST_F(MSCDeviceList, LetsAnObserverOfAnArrivalRemoveTheUnit) {
  center.addObserver(this, "XTMSCDeviceAddedEvent", [&](const Notification& n) {
    EXPECT_THAT(list.devices(), ElementsAre(n.object));
    list.removeDevice({1});
  });
  list.addDevice(unit(1));
  EXPECT_THAT(list.devices(), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
