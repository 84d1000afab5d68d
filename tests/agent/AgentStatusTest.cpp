#include "agent/AgentStatus.h"

#include <gmock/gmock.h>

#include "tests/support/ManualRunLoop.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AgentStatusTest : public ::testing::Test {
 protected:
  AgentStatusTest() {
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
  std::string readAll() { return call("GetAll", g_variant_new("(s)", kAgentInterface)); }
  std::string call(const char* method, GVariant* arguments) {
    std::string result;
    g_dbus_connection_call(
        client.get(), g_dbus_connection_get_unique_name(server.get()), kAgentObjectPath,
        "org.freedesktop.DBus.Properties", method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr,
        [](GObject* source, GAsyncResult* answer, gpointer out) {
          GErrorHolder error;
          const GVariantPtr reply(
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), answer, error.out()));
          *static_cast<std::string*>(out) =
              reply ? takeText(g_variant_print(reply.get(), FALSE)) : error.message();
        },
        &result);
    EXPECT_TRUE(waitUntil([&] { return !result.empty(); }));
    return result;
  }

  void change() {
    status.update();
    loop.runPending();
  }

  RunningBus bus;
  GObjectPtr<GDBusConnection> server = bus.connect();
  GObjectPtr<GDBusConnection> client = bus.connect();
  std::vector<std::string> announced;
  RecordingSystemLog log;
  ManualRunLoop loop;
  AgentStatus::Values now;
  int readings = 0;
  AgentStatus status{loop,
                     [this] {
                       ++readings;
                       return now;
                     },
                     log.sink()};
};

TEST_F(AgentStatusTest, ShowsWhatTheAgentSees) {
  ASSERT_TRUE(status.attach(server.get()));
  EXPECT_EQ(readAll(),
            "({'Active': <true>, 'RelayRunning': <false>, 'WirelessBusy': <false>, "
            "'RecoveryArmed': <false>, 'Devices': <@a(siss) []>},)");
  now = {false, true, true, true, {{"PTP", -98566144, "", "SN1"}, {"", 0, "/media/u/C", ""}}};
  change();
  const std::string shown = readAll();
  for (const char* part :
       {"'Active': <false>", "'RelayRunning': <true>", "'WirelessBusy': <true>",
        "'RecoveryArmed': <true>",
        "'Devices': <[('PTP', -98566144, '', 'SN1'), ('', 0, '/media/u/C', '')]>"})
    EXPECT_THAT(shown, HasSubstr(part));
}

TEST_F(AgentStatusTest, AnnouncesWhatDiffersAndNothingElse) {
  ASSERT_TRUE(status.attach(server.get()));
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

TEST_F(AgentStatusTest, ReadsOnceHoweverOftenItIsAskedTo) {
  for (int i = 0; i < 5; ++i)
    status.update();
  EXPECT_EQ(readings, 0) << "an arrival must not wait for it";
  loop.runPending();
  EXPECT_EQ(readings, 1);
  change();
  EXPECT_EQ(readings, 2);
}

TEST_F(AgentStatusTest, CarriesTextThatIsNoUTF8) {
  ASSERT_TRUE(status.attach(server.get()));
  now.devices = {{"card", 0, "/media/u/\xE4", std::string("a\0b", 3)}};
  change();
  EXPECT_THAT(readAll(), HasSubstr("('card', 0, '/media/u/\xEF\xBF\xBD', 'a\xEF\xBF\xBD"
                                   "b')"));
}

TEST_F(AgentStatusTest, RefusesToBeWritten) {
  ASSERT_TRUE(status.attach(server.get()));
  EXPECT_THAT(
      call("Set", g_variant_new("(ssv)", kAgentInterface, "Active", g_variant_new_boolean(FALSE))),
      HasSubstr("not writable"));
  EXPECT_THAT(call("Get", g_variant_new("(ss)", kAgentInterface, "Nonsense")),
              HasSubstr("Nonsense"));
}

TEST_F(AgentStatusTest, MovesToAnotherConnectionAndLeaves) {
  ASSERT_TRUE(status.attach(client.get()));
  ASSERT_TRUE(status.attach(server.get()));
  EXPECT_THAT(readAll(), HasSubstr("Active"));
  status.detach();
  EXPECT_THAT(readAll(), HasSubstr("does not exist"));
  now.active = false;
  change();
  ASSERT_TRUE(status.attach(server.get()));
  EXPECT_THAT(readAll(), HasSubstr("'Active': <false>"));
}

TEST_F(AgentStatusTest, SaysWhenItsPathIsTaken) {
  AgentStatus other(loop, [] { return AgentStatus::Values(); }, {});
  ASSERT_TRUE(other.attach(server.get()));
  EXPECT_FALSE(status.attach(server.get()));
  EXPECT_TRUE(log.contains("The status object cannot be shown on the bus"));
}

TEST_F(AgentStatusTest, IsNotReadAfterItHasGone) {
  {
    AgentStatus shortLived(loop,
                           [this] {
                             ++readings;
                             return now;
                           },
                           {});
    shortLived.update();
  }
  loop.runPending();
  EXPECT_EQ(readings, 0);
}

}  // namespace
}  // namespace tarvo::test
