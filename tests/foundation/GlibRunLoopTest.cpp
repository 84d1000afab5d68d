#include "platform/foundation/GlibRunLoop.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Utilities/Exception.h"
#include "platform/foundation/MainLoopGuard.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kSoon{1};
constexpr std::chrono::hours kNever{1};

class GlibRunLoopTest : public testing::Test {
 protected:
  /// Gives every source that is due a chance: a call of lowest priority comes after them.
  void passIdle() {
    bool idle = false;
    g_idle_add_full(
        G_PRIORITY_LOW,
        +[](gpointer flag) -> gboolean {
          *static_cast<bool*>(flag) = true;
          return G_SOURCE_REMOVE;
        },
        &idle, nullptr);
    ASSERT_TRUE(waitUntil([&] { return idle; }));
  }

  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
};

TEST_F(GlibRunLoopTest, AOneShotTimerFiresOnceAndIsInvalidThen) {
  int fired = 0;
  std::weak_ptr<Timer> weak = loop_.scheduleTimer(kSoon, false, [&] { ++fired; });
  EXPECT_TRUE(weak.lock()->isValid()) << "the loop keeps a valid timer";
  EXPECT_TRUE(waitUntil([&] { return fired > 0; }));
  passIdle();
  EXPECT_EQ(fired, 1);
  EXPECT_TRUE(weak.expired()) << "and lets go of one that has fired";
}

TEST_F(GlibRunLoopTest, ARepeatingTimerFiresUntilItInvalidatesItself) {
  int fired = 0;
  std::shared_ptr<Timer> timer;
  timer = loop_.scheduleTimer(kSoon, true, [&] {
    if (++fired == 3) timer->invalidate();
  });
  EXPECT_TRUE(waitUntil([&] { return !timer->isValid(); }));
  passIdle();
  EXPECT_EQ(fired, 3);
  timer->setFireDelay(milliseconds(0));
  passIdle();
  EXPECT_EQ(fired, 3) << "an invalid timer cannot be moved";
}

TEST_F(GlibRunLoopTest, TheNextFiringCanBeMoved) {
  std::vector<std::string> fired;
  const auto later = loop_.scheduleTimer(kNever, false, [&] { fired.push_back("moved nearer"); });
  const auto sooner = loop_.scheduleTimer(kSoon, false, [&] { fired.push_back("moved away"); });
  sooner->setFireDelay(kNever);
  later->setFireDelay(kSoon);
  EXPECT_TRUE(waitUntil([&] { return !fired.empty(); }));
  EXPECT_EQ(fired, (std::vector<std::string>{"moved nearer"}));
  EXPECT_TRUE(sooner->isValid());
  sooner->invalidate();
}

TEST_F(GlibRunLoopTest, ATimerLetsGoOfItsCaptures) {
  auto captured = std::make_shared<int>(0);
  const auto invalidated = loop_.scheduleTimer(kNever, true, [captured] {});
  const auto fired = loop_.scheduleTimer(kSoon, false, [captured] { ++*captured; });
  invalidated->invalidate();
  EXPECT_TRUE(waitUntil([&] { return *captured == 1; }));
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(GlibRunLoopTest, DeferredCallsOfAnyThreadRunInOrderAndBeforeIdleOnes) {
  std::vector<int> order;
  loop_.performWhenIdle([&] { order.push_back(4); });
  loop_.performOnMainThread([&] {
    order.push_back(1);
    loop_.performOnMainThread([&] { order.push_back(3); });
  });
  std::thread([&] { loop_.performOnMainThread([&] { order.push_back(2); }); }).join();
  EXPECT_TRUE(order.empty()) << "nothing runs inside the request";
  EXPECT_TRUE(waitUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
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

TEST_F(GlibRunLoopTest, AGuardedEntryGivesItsResultOrADefault) {
  EXPECT_EQ(guardedEntry(log_.sink(), "entry", [] { return 7; }), 7);
  EXPECT_EQ(guardedEntry(log_.sink(), "entry", []() -> int { throw std::bad_alloc(); }), 0);
  const LogSink failing = [](LogLevel, std::string_view) { throw std::runtime_error("log"); };
  EXPECT_EQ(guardedEntry(failing, "entry", []() -> int { throw std::bad_alloc(); }), 0);
  EXPECT_EQ(log_.entries().size(), 1U);
}

TEST_F(GlibRunLoopTest, WhatIsStillScheduledGoesWithTheLoop) {
  auto captured = std::make_shared<int>(0);
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

TEST_F(GlibRunLoopTest, ATerminationSignalEndsTheRun) {
  loop_.quitOnTerminationSignals();
  for (const int number : {SIGTERM, SIGINT}) {
    bool late = false;
    const auto guard = loop_.scheduleTimer(std::chrono::seconds(20), false, [&] {
      late = true;
      loop_.quit();
    });
    loop_.performWhenIdle([number] { ::raise(number); });
    loop_.run();
    EXPECT_FALSE(late) << "signal " << number;
    guard->invalidate();
  }
}

}  // namespace
}  // namespace tarvo::test
