#include "platform/foundation/DBusNotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

class DBusNotificationCenterTest : public testing::Test {
 protected:
  void join() {
    bus_.start();
    connection_.start();
    ASSERT_TRUE(connection_.waitUntilSettled());
  }
  void hear(const void* observer, const std::string& name) {
    center_.addObserver(observer, name, [this, name] { heard_.push_back(name); });
  }
  /// Posts as another process does.
  void postFromElsewhere(const char* name, const char* path = kDistributedNotificationPath,
                         const char* interface = kDistributedNotificationInterface,
                         GVariant* arguments = nullptr) {
    const auto other = bus_.connect();
    ASSERT_TRUE(other);
    g_dbus_connection_emit_signal(other.get(), nullptr, path, interface, name, arguments, nullptr);
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

TEST_F(DBusNotificationCenterTest, EveryObserverOfANameHearsItFromAnySender) {
  hear(&a_, "kWRLABusyNotification");
  join();
  hear(&b_, "kWRLABusyNotification");
  hear(&b_, "LastNotification");
  postFromElsewhere("OtherNotification");
  postFromElsewhere("kWRLABusyNotification", "/other/path");
  postFromElsewhere("kWRLABusyNotification", kDistributedNotificationPath, "other.interface");
  postFromElsewhere("kWRLABusyNotification");
  EXPECT_TRUE(waitForHeard(2));
  center_.post("LastNotification");  // of this process itself
  EXPECT_TRUE(waitForHeard(3));
  EXPECT_EQ(heard_, (Names{"kWRLABusyNotification", "kWRLABusyNotification", "LastNotification"}));
}

TEST_F(DBusNotificationCenterTest, APostIsASignalWithoutArguments) {
  join();
  const auto other = bus_.connect();
  std::string seen;
  const guint subscription = g_dbus_connection_signal_subscribe(
      other.get(), nullptr, nullptr, nullptr, kDistributedNotificationPath, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection*, const char*, const char* path, const char* interface, const char* name,
          GVariant* arguments, gpointer text) {
        *static_cast<std::string*>(text) = std::string(path) + " " + interface + " " + name + " " +
                                           takeText(g_variant_print(arguments, FALSE));
      },
      &seen, nullptr);
  g_dbus_connection_flush_sync(other.get(), nullptr, nullptr);
  // The match rule is in force once the bus has answered the same connection.
  const GVariantPtr answer(g_dbus_connection_call_sync(
      other.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
      nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  ASSERT_TRUE(answer);
  center_.post("kRLABusyNotification");
  EXPECT_TRUE(waitUntil([&] { return !seen.empty(); }));
  EXPECT_EQ(seen,
            "/com/tarvo/DistributedNotification com.tarvo.DistributedNotification "
            "kRLABusyNotification ()");
  g_dbus_connection_signal_unsubscribe(other.get(), subscription);
}

TEST_F(DBusNotificationCenterTest, WhoLeavesHearsNoMore) {
  join();
  hear(&a_, "Both");
  hear(&b_, "Both");
  hear(&a_, "OnlyA");
  hear(&b_, "Last");
  center_.removeObserver(&a_);
  for (const char* name : {"Both", "OnlyA", "Last"})
    postFromElsewhere(name);
  EXPECT_TRUE(waitForHeard(2));
  EXPECT_EQ(heard_, (Names{"Both", "Last"}));
}

TEST_F(DBusNotificationCenterTest, ObserversAreHeardAgainAfterTheBusHasComeBack) {
  join();
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

TEST_F(DBusNotificationCenterTest, ANameThatIsNoSignalsIsRefusedInWords) {
  join();
  hear(&a_, "with blank");
  center_.post("with-hyphen");
  EXPECT_EQ(log_.lines(), (Names{"no distributed notification can be named 'with blank'",
                                 "no distributed notification can be named 'with-hyphen'"}));
}

}  // namespace
}  // namespace tarvo::test
