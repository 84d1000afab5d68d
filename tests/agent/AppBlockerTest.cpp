#include "agent/AppBlocker.h"

#include <gmock/gmock.h>

#include "NativeServices/Logging.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/LocalDistributedCenter.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::string_view kAllNames[] = {kRLABusyNotification, kRLADoneNotification,
                                          kWRLABusyNotification, kWRLADoneNotification};

struct Direction {
  std::unique_ptr<AppBlocker> (*make)(DistributedNotificationCenter&);
  std::string_view heardBusy, heardDone, postedBusy, postedDone;
};

class AppBlockerDirection : public ::testing::TestWithParam<Direction> {
 protected:
  LocalDistributedCenter center;
  std::unique_ptr<AppBlocker> blocker = GetParam().make(center);
};

TEST_P(AppBlockerDirection, HearsTheOtherSideAlone) {
  for (const std::string_view name : kAllNames) {
    blocker->setBusy(false);
    center.postFromElsewhere(name);
    EXPECT_EQ(blocker->isBusy(), name == GetParam().heardBusy) << name;
    blocker->setBusy(true);
    center.postFromElsewhere(name);
    EXPECT_EQ(blocker->isBusy(), name != GetParam().heardDone) << name;
  }
}

TEST_P(AppBlockerDirection, PostsItsOwnSideAndDoesNotHearItself) {
  blocker->SendBusyNotification();
  EXPECT_FALSE(blocker->isBusy());
  blocker->setBusy(true);
  blocker->SendDoneNotification();
  EXPECT_TRUE(blocker->isBusy());
  EXPECT_THAT(center.posted, ElementsAre(GetParam().postedBusy, GetParam().postedDone));
}

INSTANTIATE_TEST_SUITE_P(
    BothSides, AppBlockerDirection,
    ::testing::Values(Direction{AppBlocker::initForBlockingOnWRLA, "kWRLABusyNotification",
                                "kWRLADoneNotification", "kRLABusyNotification",
                                "kRLADoneNotification"},
                      Direction{AppBlocker::initForBlockingOnRLA, "kRLABusyNotification",
                                "kRLADoneNotification", "kWRLABusyNotification",
                                "kWRLADoneNotification"}));

TEST(AppBlocker, DoesNotCountAnnouncements) {
  LocalDistributedCenter center;
  const auto blocker = AppBlocker::initForBlockingOnWRLA(center);
  center.postFromElsewhere(kWRLADoneNotification);
  EXPECT_FALSE(blocker->isBusy());
  center.postFromElsewhere(kWRLABusyNotification);
  center.postFromElsewhere(kWRLABusyNotification);
  EXPECT_TRUE(blocker->isBusy());
  center.postFromElsewhere(kWRLADoneNotification);
  EXPECT_FALSE(blocker->isBusy());
}

TEST(AppBlocker, HearsNothingOnceItIsGone) {
  LocalDistributedCenter center;
  AppBlocker::initForBlockingOnWRLA(center).reset();
  EXPECT_EQ(center.observerCount(kWRLABusyNotification), 0u);
  EXPECT_EQ(center.observerCount(kWRLADoneNotification), 0u);
}

std::vector<std::string> linesOfOneExchange(bool logging) {
  const FakeUserDefaults defaults({{"LOG_SUBSYS_LISTENER", logging}});
  RecordingSystemLog log;
  const LogState logState(defaults, log);
  LocalDistributedCenter center;
  const auto blocker = AppBlocker::initForBlockingOnWRLA(center);
  blocker->SendBusyNotification();
  blocker->SendDoneNotification();
  center.postFromElsewhere(kWRLABusyNotification);
  center.postFromElsewhere(kWRLADoneNotification);
  return log.lines();
}

TEST(AppBlocker, WritesPlainLinesWhenTheListenersSubsystemIsOn) {
  EXPECT_THAT(linesOfOneExchange(false), IsEmpty());
  EXPECT_THAT(linesOfOneExchange(true),
              ElementsAre("AppBlocker - SendBusyNotification sending kRLABusyNotification",
                          "AppBlocker - SendDoneNotification sending kRLADoneNotification",
                          "AppBlocker - handleBusyNotification entered",
                          "AppBlocker - handleDoneNotification entered"));
}

}  // namespace
}  // namespace tarvo::test
