#include "platform/desktop/LogindSessionMonitor.h"

#include <gtest/gtest.h>

#include "platform/foundation/GlibRunLoop.h"
#include "tests/foundation/FakeLogind.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

class LogindSessionMonitorTest : public testing::Test {
 protected:
  LogindSessionMonitorTest() {
    for (const auto name : {kSessionDidBecomeActive, kSessionDidResignActive}) {
      workspace_.addObserver(this, std::string(name), [this](const Notification& notification) {
        posted_.push_back(notification.name == kSessionDidBecomeActive ? "active" : "resigned");
      });
    }
    bus_.start();
  }
  void startService(bool active = true) {
    logind_ = std::make_unique<FakeLogind>(bus_);
    logind_->setActive("s1", active);
  }
  void startMonitor() {
    connection_.start();
    monitor_->start(workspace_);
  }
  bool waitForPosts(std::size_t count) {
    return waitUntil([&] { return posted_.size() >= count; });
  }
  /// Waits until the service has been asked `count` times in all and its last answer has arrived.
  bool waitForCalls(int count) {
    if (!waitUntil([&] { return logind_->calls >= count; })) return false;
    const GVariantPtr answer(g_dbus_connection_call_sync(
        connection_.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        nullptr));
    drainMainContext();
    return answer != nullptr;
  }

  using Posts = std::vector<std::string>;
  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
  PrivateBus bus_;
  NotificationCenter workspace_;
  Posts posted_;
  std::unique_ptr<FakeLogind> logind_;
  BusConnection connection_{"system bus", bus_.address(), loop_, log_.sink()};
  std::unique_ptr<LogindSessionMonitor> monitor_ =
      std::make_unique<LogindSessionMonitor>(connection_, log_.sink());
};

TEST_F(LogindSessionMonitorTest, AnActiveSessionIsNotAnnouncedAtStartAndItsChangesAreOnce) {
  startService();
  startMonitor();
  EXPECT_TRUE(waitForCalls(3));
  EXPECT_EQ(posted_, Posts{});
  logind_->setActive("s1", false);
  EXPECT_TRUE(waitForPosts(1));
  logind_->setActive("s1", true);
  EXPECT_TRUE(waitForPosts(2));
  logind_->setActive("s2", false);  // somebody else's
  logind_->setActive("s1", true);
  EXPECT_TRUE(waitForCalls(6));
  logind_->setActive("s1", false);
  monitor_.reset();  // while its question is unanswered
  EXPECT_TRUE(waitForCalls(6));
  EXPECT_EQ(posted_, (Posts{"resigned", "active"}));
  EXPECT_EQ(log_.lines(), Posts{});
}

TEST_F(LogindSessionMonitorTest, TheSessionThatTheUserDisplaysIsFollowed) {
  startService(false);
  startMonitor();
  EXPECT_TRUE(waitForPosts(1)) << "an inactive session resigns at the start";
  logind_->setDisplay("s2");
  EXPECT_TRUE(waitForPosts(2));
  logind_->setActive("s2", false);
  EXPECT_TRUE(waitForPosts(3));
  logind_->setActive("s2", true);
  EXPECT_TRUE(waitForPosts(4));
  logind_->setDisplay("");
  EXPECT_TRUE(waitForPosts(5));
  EXPECT_EQ(posted_, (Posts{"resigned", "active", "resigned", "active", "resigned"}));
  EXPECT_EQ(log_.lines(), (Posts{"this user has no login session, which counts as inactive"}));
}

TEST_F(LogindSessionMonitorTest, WithoutAnAnswerTheLastStateStaysUntilOneComes) {
  startService(false);
  logind_->knowsUser = false;
  startMonitor();
  EXPECT_TRUE(waitUntil(
      [&] { return log_.contains("the session counts as active: user is not logged in"); }));
  EXPECT_EQ(posted_, Posts{});
  startService(false);
  EXPECT_TRUE(waitForPosts(1));
  EXPECT_EQ(log_.lines().size(), 1U);
  logind_.reset();
  EXPECT_TRUE(waitUntil([&] { return log_.contains("the session counts as inactive: "); }));
  EXPECT_EQ(posted_, (Posts{"resigned"}));
  startService();
  EXPECT_TRUE(waitForPosts(2));
  EXPECT_EQ(posted_, (Posts{"resigned", "active"}));
}

}  // namespace
}  // namespace tarvo::test
