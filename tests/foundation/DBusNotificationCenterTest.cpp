#include "platform/desktop/DBusNotificationCenter.h"

#include <gtest/gtest.h>

#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

class DBusNotificationCenterTest : public testing::Test {
 protected:
  DBusNotificationCenterTest() {
    bus_.start();
    connection_.start();
  }
  void hear(const void* observer, const std::string& name) {
    center_.addObserver(observer, name, [this, name] { heard_.push_back(name); });
  }
  /// Posts as another process does.
  void postFromElsewhere(const char* name, const char* path = kDistributedNotificationPath,
                         const char* interface = kDistributedNotificationInterface) {
    const auto other = bus_.connect();
    g_dbus_connection_emit_signal(other.get(), nullptr, path, interface, name, nullptr, nullptr);
    g_dbus_connection_flush_sync(other.get(), nullptr, nullptr);
  }
  bool waitForHeard(std::size_t count) {
    return waitUntil([&] { return heard_.size() >= count; });
  }

  using Names = std::vector<std::string>;
  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
  PrivateBus bus_;
  BusConnection connection_{"session bus", bus_.address(), loop_, log_.sink()};
  DBusNotificationCenter center_{connection_, log_.sink()};
  Names heard_;
  int a_ = 0;
  int b_ = 0;
};

TEST_F(DBusNotificationCenterTest, EveryObserverOfANameHearsItFromAnySenderUntilItLeaves) {
  hear(&a_, "kWRLABusyNotification");  // before the bus is there
  ASSERT_TRUE(connection_.waitUntilSettled());
  hear(&b_, "kWRLABusyNotification");
  hear(&b_, "LastNotification");
  postFromElsewhere("OtherNotification");
  postFromElsewhere("kWRLABusyNotification", "/other/path");
  postFromElsewhere("kWRLABusyNotification", kDistributedNotificationPath, "other.interface");
  postFromElsewhere("kWRLABusyNotification");
  EXPECT_TRUE(waitForHeard(2));
  center_.removeObserver(&a_);
  postFromElsewhere("kWRLABusyNotification");
  center_.post("LastNotification");  // of this process itself
  EXPECT_TRUE(waitForHeard(4));
  EXPECT_EQ(heard_, (Names{"kWRLABusyNotification", "kWRLABusyNotification",
                           "kWRLABusyNotification", "LastNotification"}));
}

TEST_F(DBusNotificationCenterTest, ObserversAreHeardAgainAfterTheBusHasComeBack) {
  ASSERT_TRUE(connection_.waitUntilSettled());
  hear(&a_, "Busy");
  bus_.stop();
  EXPECT_TRUE(waitUntil([&] { return connection_.connection() == nullptr; }));
  log_.clear();
  center_.post("Busy");
  EXPECT_EQ(log_.lines(), (Names{"no session bus: notification Busy is dropped"}));
  hear(&b_, "Done");
  bus_.start();
  EXPECT_TRUE(waitUntil([&] { return connection_.connection() != nullptr; }));
  center_.post("Busy");
  center_.post("Done");
  EXPECT_TRUE(waitForHeard(2));
  EXPECT_EQ(heard_, (Names{"Busy", "Done"}));
}

}  // namespace
}  // namespace tarvo::test
