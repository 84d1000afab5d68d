#include "agent/AppBlocker.h"

#include <gmock/gmock.h>

#include "NativeServices/Logging.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/LocalDistributedCenter.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;

TEST(AppBlocker, HearsTheOtherSideAloneWithPlainLinesAndDoesNotCount) {
  const struct {
    std::unique_ptr<AppBlocker> (*make)(DistributedNotificationCenter&);
    std::string heardBusy, heardDone, postedBusy, postedDone;
  } rows[] = {{AppBlocker::initForBlockingOnWRLA, "kWRLABusyNotification", "kWRLADoneNotification",
               "kRLABusyNotification", "kRLADoneNotification"},
              {AppBlocker::initForBlockingOnRLA, "kRLABusyNotification", "kRLADoneNotification",
               "kWRLABusyNotification", "kWRLADoneNotification"}};
  const FakeUserDefaults defaults({{"LOG_SUBSYS_LISTENER", true}});
  for (const auto& row : rows) {
    RecordingSystemLog log;
    const LogState logState(defaults, log);
    LocalDistributedCenter center;
    const auto blocker = row.make(center);
    for (const auto& name : {row.heardBusy, row.heardDone, row.postedBusy, row.postedDone}) {
      blocker->setBusy(false);
      center.postFromElsewhere(name);
      center.postFromElsewhere(name);
      EXPECT_EQ(blocker->isBusy(), name == row.heardBusy) << name;
      blocker->setBusy(true);
      center.postFromElsewhere(name);
      EXPECT_EQ(blocker->isBusy(), name != row.heardDone) << name;
    }
    EXPECT_THAT(log.lines(), Contains("AppBlocker - handleBusyNotification entered").Times(3));
    EXPECT_THAT(log.lines(), Contains("AppBlocker - handleDoneNotification entered").Times(3));
    blocker->SendBusyNotification();
    blocker->SendDoneNotification();
    EXPECT_EQ(center.posted, (std::vector{row.postedBusy, row.postedDone}));
  }
}

}  // namespace
}  // namespace tarvo::test
