#include "agent/AppBlocker.h"

#include <gmock/gmock.h>

#include "NativeServices/Logging.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/LocalDistributedCenter.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;

struct Direction {
  std::unique_ptr<AppBlocker> (*make)(DistributedNotificationCenter&);
  std::string heardBusy, heardDone, postedBusy, postedDone;
};

class AppBlockerDirection : public ::testing::TestWithParam<Direction> {
 protected:
  LocalDistributedCenter center;
  std::unique_ptr<AppBlocker> blocker = GetParam().make(center);
};

TEST_P(AppBlockerDirection, HearsTheOtherSideAloneAndDoesNotCount) {
  for (const auto& name :
       {GetParam().heardBusy, GetParam().heardDone, GetParam().postedBusy, GetParam().postedDone}) {
    blocker->setBusy(false);
    center.postFromElsewhere(name);
    center.postFromElsewhere(name);
    EXPECT_EQ(blocker->isBusy(), name == GetParam().heardBusy) << name;
    blocker->setBusy(true);
    center.postFromElsewhere(name);
    EXPECT_EQ(blocker->isBusy(), name != GetParam().heardDone) << name;
  }
}

TEST_P(AppBlockerDirection, PostsItsOwnSideWithPlainLinesAndDoesNotHearItself) {
  const auto& side = GetParam();
  const FakeUserDefaults defaults({{"LOG_SUBSYS_LISTENER", true}});
  RecordingSystemLog log;
  const LogState logState(defaults, log);
  blocker->SendBusyNotification();
  EXPECT_FALSE(blocker->isBusy());
  center.postFromElsewhere(side.heardBusy);
  blocker->SendDoneNotification();
  EXPECT_TRUE(blocker->isBusy());
  center.postFromElsewhere(side.heardDone);
  EXPECT_THAT(center.posted, ElementsAre(side.postedBusy, side.postedDone));
  EXPECT_THAT(log.lines(),
              ElementsAre("AppBlocker - SendBusyNotification sending " + side.postedBusy,
                          "AppBlocker - handleBusyNotification entered",
                          "AppBlocker - SendDoneNotification sending " + side.postedDone,
                          "AppBlocker - handleDoneNotification entered"));
}

INSTANTIATE_TEST_SUITE_P(
    BothSides, AppBlockerDirection,
    ::testing::Values(Direction{AppBlocker::initForBlockingOnWRLA, "kWRLABusyNotification",
                                "kWRLADoneNotification", "kRLABusyNotification",
                                "kRLADoneNotification"},
                      Direction{AppBlocker::initForBlockingOnRLA, "kRLABusyNotification",
                                "kRLADoneNotification", "kWRLABusyNotification",
                                "kWRLADoneNotification"}));

}  // namespace
}  // namespace tarvo::test
