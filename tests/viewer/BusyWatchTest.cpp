#include "viewer/BusyWatch.h"

#include <gtest/gtest.h>

#include <optional>

#include "platform/desktop/DBusNotificationCenter.h"
#include "platform/desktop/FamilyNames.h"
#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::viewer {
namespace {

using test::RunningBus;
using test::waitUntil;

constexpr const char* kDescription =
    "<node><interface name='com.tarvo.Agent1'><property name='WirelessBusy' type='b' "
    "access='read'/></interface></node>";

/// An agent that tells whether the wireless utility is busy.
class TellingAgent {
 public:
  TellingAgent(const RunningBus& bus, bool isBusy) : connection_(bus.connect()), isBusy_(isBusy) {
    description_ = g_dbus_node_info_new_for_xml(kDescription, nullptr);
    static const GDBusInterfaceVTable kTable = {
        nullptr,
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GError**,
           gpointer self) {
          auto* agent = static_cast<TellingAgent*>(self);
          agent->wasAsked = true;
          return g_variant_new_boolean(agent->isBusy_);
        },
        nullptr,
        {}};
    g_dbus_connection_register_object(connection_.get(), kAgentObjectPath,
                                      description_->interfaces[0], &kTable, this, nullptr, nullptr);
    g_bus_own_name_on_connection(connection_.get(), kAgentBusName, G_BUS_NAME_OWNER_FLAGS_NONE,
                                 nullptr, nullptr, nullptr, nullptr);
  }
  TellingAgent(const TellingAgent&) = delete;
  TellingAgent& operator=(const TellingAgent&) = delete;
  ~TellingAgent() {
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
    g_dbus_node_info_unref(description_);
  }

  void becomeFree() {
    isBusy_ = false;
    GVariantBuilder changed;
    g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&changed, "{sv}", "WirelessBusy", g_variant_new_boolean(FALSE));
    g_dbus_connection_emit_signal(connection_.get(), nullptr, kAgentObjectPath,
                                  "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                  g_variant_new("(sa{sv}as)", kAgentInterface, &changed, nullptr),
                                  nullptr);
  }

  bool wasAsked = false;

 private:
  GObjectPtr<GDBusConnection> connection_;
  GDBusNodeInfo* description_;
  bool isBusy_;
};

class BusyWatchTest : public testing::Test {
 protected:
  BusyWatchTest() {
    connection_.start();
    connection_.waitUntilSettled();
  }
  void post(std::string_view name) {
    const auto other = bus_.connect();
    g_dbus_connection_emit_signal(other.get(), nullptr, kDistributedNotificationPath,
                                  kDistributedNotificationInterface, std::string(name).c_str(),
                                  nullptr, nullptr);
    g_dbus_connection_flush_sync(other.get(), nullptr, nullptr);
  }
  bool waitForDone() {
    return waitUntil([&] { return done_ > 0; });
  }

  RunningBus bus_;
  test::RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
  BusConnection connection_{"session bus", bus_.address(), loop_, log_.sink()};
  DBusNotificationCenter center_{connection_, log_.sink()};
  int done_ = 0;
  std::optional<BusyWatch> watch_{std::in_place, connection_, center_, [this] { ++done_; }};
};

TEST_F(BusyWatchTest, EndsOnceByTheUtilitysOwnWord) {
  post(kWRLABusyNotification);
  post(kRLADoneNotification);
  int markers = 0;
  center_.addObserver(this, "Marker", [&] { ++markers; });
  post("Marker");
  ASSERT_TRUE(waitUntil([&] { return markers == 1; }));
  EXPECT_EQ(done_, 0);
  post(kWRLADoneNotification);
  post(kWRLADoneNotification);
  post("Marker");
  ASSERT_TRUE(waitUntil([&] { return markers == 2; }));
  EXPECT_EQ(done_, 1);
}

TEST_F(BusyWatchTest, EndsByWhatTheAgentKnows) {
  TellingAgent busy(bus_, true);
  ASSERT_TRUE(waitUntil([&] { return busy.wasAsked; }));
  EXPECT_EQ(done_, 0);
  busy.becomeFree();
  EXPECT_TRUE(waitForDone());
}

TEST_F(BusyWatchTest, EndsWhereAnAgentComesThatKnowsOfNoTransfer) {
  { TellingAgent busy(bus_, true); }
  TellingAgent other(bus_, false);
  EXPECT_TRUE(waitForDone());
}

TEST_F(BusyWatchTest, MayGoBeforeItHasTheAgentsAnswer) {
  TellingAgent other(bus_, false);
  watch_.emplace(connection_, center_, [this] { ++done_; });
  watch_.reset();
  ASSERT_TRUE(waitUntil([&] { return !g_main_context_pending(nullptr); }));
  EXPECT_EQ(done_, 0);
}

}  // namespace
}  // namespace tarvo::viewer
