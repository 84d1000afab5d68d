#include "msc/TarvoMSCDeviceList.h"

#include <gmock/gmock.h>

#include "tests/agent/RecordingUnit.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(MSCDeviceList, KeepsTheOrderOfArrivalAndRemovesTheFirstWithTheGUID) {
  NotificationCenter center;
  TarvoMSCDeviceList list(center);
  EXPECT_EQ(list.mainDevice(), nullptr);
  const auto first = std::make_shared<RecordingUnit>(1);
  const auto twin = std::make_shared<RecordingUnit>(1);
  const auto other = std::make_shared<RecordingUnit>(2);
  list.addDevice(first).addDevice(twin).addDevice(other);
  EXPECT_EQ(list.mainDevice(), first);
  list.removeDevice({1, 0}).removeDevice({}).removeDevice({3});
  EXPECT_THAT(list.devices(), ElementsAre(first, twin, other));
  list.removeDevice({1});
  EXPECT_THAT(list.devices(), ElementsAre(twin, other));
}

TEST(MSCDeviceList, AnnouncesAnArrivalAndLetsAnObserverRemoveTheUnit) {
  NotificationCenter center;
  EXPECT_EQ(TarvoMSCDeviceList::sharedDeviceList(), nullptr);
  const MSCRoom room({center});
  auto& list = *TarvoMSCDeviceList::sharedDeviceList();
  int announced = 0;
  center.addObserver(&list, "XTMSCDeviceAddedEvent", [&](const Notification& n) {
    ++announced;
    EXPECT_THAT(list.devices(), ElementsAre(n.object));
    list.removeDevice({1});
  });
  list.addDevice(std::make_shared<RecordingUnit>(1));
  EXPECT_THAT(list.devices(), IsEmpty());
  EXPECT_EQ(announced, 1);
}

}  // namespace
}  // namespace tarvo::test
