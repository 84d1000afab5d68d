#include "agent/AgentStatus.h"

#include <gmock/gmock.h>

#include <optional>

#include "tests/support/ManualRunLoop.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class AgentStatusTest : public ::testing::Test {
 protected:
  AgentStatusTest() {
    bus.start();
    server = bus.connect();
    client = bus.connect();
    g_dbus_connection_signal_subscribe(client.get(), nullptr, "org.freedesktop.DBus.Properties",
                                       "PropertiesChanged", kAgentObjectPath, nullptr,
                                       G_DBUS_SIGNAL_FLAGS_NONE, signalCame, this, nullptr);
  }

  static void signalCame(GDBusConnection*, const char*, const char*, const char*, const char*,
                         GVariant* arguments, gpointer self) {
    static_cast<AgentStatusTest*>(self)->announced.push_back(
        takeText(g_variant_print(arguments, FALSE)));
  }

  /// What a client reads: all properties as text, or the error.
  std::string readAll() {
    std::string result;
    const auto answered = +[](GObject* source, GAsyncResult* answer, gpointer out) {
      GErrorHolder error;
      const GVariantPtr reply(
          g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), answer, error.out()));
      *static_cast<std::string*>(out) =
          reply ? takeText(g_variant_print(reply.get(), FALSE)) : error.message();
    };
    g_dbus_connection_call(client.get(), g_dbus_connection_get_unique_name(server.get()),
                           kAgentObjectPath, "org.freedesktop.DBus.Properties", "GetAll",
                           g_variant_new("(s)", kAgentInterface), nullptr, G_DBUS_CALL_FLAGS_NONE,
                           -1, nullptr, answered, &result);
    EXPECT_TRUE(waitUntil([&] { return !result.empty(); }));
    return result;
  }

  void change() {
    status->update();
    loop.runPending();
  }

  PrivateBus bus;
  GObjectPtr<GDBusConnection> server;
  GObjectPtr<GDBusConnection> client;
  std::vector<std::string> announced;
  ManualRunLoop loop;
  AgentStatus::Values now;
  int readings = 0;
  std::optional<AgentStatus> status{std::in_place, loop,
                                    [this] {
                                      ++readings;
                                      return now;
                                    },
                                    LogSink()};
};

TEST_F(AgentStatusTest, ShowsWhatTheAgentSeesAlsoTextThatIsNoUTF8) {
  ASSERT_TRUE(status->attach(server.get()));
  EXPECT_EQ(readAll(),
            "({'Active': <true>, 'RelayRunning': <false>, 'WirelessBusy': <false>, "
            "'RecoveryArmed': <false>, 'Devices': <@a(siss) []>},)");
  now = {false, true, true, true, {{"PTP", -98566144, "", "SN1"}, {"card", 0, "/m/\xE4", "S2"}}};
  change();
  EXPECT_EQ(readAll(),
            "({'Active': <false>, 'RelayRunning': <true>, 'WirelessBusy': <true>, "
            "'RecoveryArmed': <true>, 'Devices': <[('PTP', -98566144, '', 'SN1'), "
            "('card', 0, '/m/\xEF\xBF\xBD', 'S2')]>},)");
}

TEST_F(AgentStatusTest, AnnouncesWhatDiffersAndNothingElse) {
  ASSERT_TRUE(status->attach(server.get()));
  change();  // nothing differs
  now.relayRunning = true;
  now.devices = {{"card", 7, "/media/u/C", "S"}};
  change();
  now.relayRunning = false;
  change();
  ASSERT_TRUE(waitUntil([&] { return announced.size() >= 2; }));
  EXPECT_THAT(announced,
              ElementsAre("('com.tarvo.Agent1', {'RelayRunning': <true>, 'Devices': <[('card', 7, "
                          "'/media/u/C', 'S')]>}, [])",
                          "('com.tarvo.Agent1', {'RelayRunning': <false>}, [])"));
}

TEST_F(AgentStatusTest, ReadsOnceHoweverOftenItIsAskedToAndNotAfterItHasGone) {
  for (int i = 0; i < 5; ++i)
    status->update();
  EXPECT_EQ(readings, 0) << "an arrival must not wait for it";
  loop.runPending();
  EXPECT_EQ(readings, 1);
  status->update();
  status.reset();
  loop.runPending();
  EXPECT_EQ(readings, 1);
}

TEST_F(AgentStatusTest, ShowsTheLatestValuesAfterABusCameBack) {
  ASSERT_TRUE(status->attach(client.get()));
  ASSERT_TRUE(status->attach(server.get()));
  status->detach();
  EXPECT_THAT(readAll(), HasSubstr("does not exist"));
  now.active = false;
  change();
  ASSERT_TRUE(status->attach(server.get()));
  EXPECT_THAT(readAll(), HasSubstr("'Active': <false>"));
}

}  // namespace
}  // namespace tarvo::test
