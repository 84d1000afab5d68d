#include "platform/foundation/GlibRunLoop.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "Utilities/Exception.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kSoon{1};
constexpr std::chrono::hours kNever{1};

class GlibRunLoopTest : public testing::Test {
 protected:
  /// Gives every source that is due a chance: idle calls come after them.
  void passIdle() {
    bool idle = false;
    loop_.performWhenIdle([&] { idle = true; });
    ASSERT_TRUE(waitUntil([&] { return idle; }));
  }

  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
};

TEST_F(GlibRunLoopTest, ATimerLivesInTheLoopUntilItHasFiredOrIsInvalidated) {
  int once = 0;
  int repeated = 0;
  const std::weak_ptr<Timer> single = loop_.scheduleTimer(kSoon, false, [&] { ++once; });
  EXPECT_TRUE(single.lock()->isValid());
  std::shared_ptr<Timer> timer;
  timer = loop_.scheduleTimer(kSoon, true, [&] {
    if (++repeated == 3) timer->invalidate();
  });
  int moved = 0;
  const auto later = loop_.scheduleTimer(kNever, false, [&] { ++moved; });
  later->setFireDelay(kSoon);
  EXPECT_TRUE(waitUntil([&] { return once > 0 && moved > 0 && !timer->isValid(); }));
  timer->setFireDelay(milliseconds(0));
  passIdle();
  EXPECT_EQ(once, 1);
  EXPECT_TRUE(single.expired());
  EXPECT_EQ(repeated, 3) << "an invalid timer cannot be moved";
}

TEST_F(GlibRunLoopTest, DeferredCallsOfAnyThreadRunInOrderAndBeforeIdleOnes) {
  std::string order;
  loop_.performWhenIdle([&] { order += '4'; });
  loop_.performOnMainThread([&] {
    order += '1';
    loop_.performOnMainThread([&] { order += '3'; });
  });
  std::thread([&] { loop_.performOnMainThread([&] { order += '2'; }); }).join();
  EXPECT_EQ(order, "") << "nothing runs inside the request";
  EXPECT_TRUE(waitUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order, "1234");
}

TEST_F(GlibRunLoopTest, WhatACallbackRaisesIsLoggedAndTheLoopGoesOn) {
  int fired = 0;
  const auto timer = loop_.scheduleTimer(kSoon, true, [&] {
    if (++fired == 1) throw Exception("XTPTPException", "device answered 0x2005");
  });
  loop_.performOnMainThread([] { throw std::runtime_error("deferred"); });
  loop_.performWhenIdle([] { throw 42; });
  EXPECT_TRUE(waitUntil([&] { return fired == 2 && log_.entries().size() == 3; }));
  timer->invalidate();
  EXPECT_TRUE(log_.contains("handling uncaught exception in timer: device answered 0x2005"));
  EXPECT_TRUE(log_.contains("handling uncaught exception in performOnMainThread: deferred"));
  EXPECT_TRUE(log_.contains("handling uncaught exception in performWhenIdle: unknown exception"));
}

TEST_F(GlibRunLoopTest, WhatIsStillScheduledGoesWithTheLoop) {
  const auto captured = std::make_shared<int>(0);
  std::shared_ptr<Timer> timer;
  {
    GlibRunLoop loop(log_.sink());
    timer = loop.scheduleTimer(kSoon, true, [captured] { ++*captured; });
    loop.performOnMainThread([captured] { ++*captured; });
    loop.performWhenIdle([captured] { ++*captured; });
  }
  EXPECT_FALSE(timer->isValid());
  EXPECT_EQ(captured.use_count(), 1);
  passIdle();
  EXPECT_EQ(*captured, 0);
}

}  // namespace
}  // namespace tarvo::test
