#include "agent/AgentProcess.h"

#include <gmock/gmock.h>

#include "tests/support/ManualRunLoop.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;

class AgentStatusTest : public ::testing::Test {
 protected:
  AgentStatusTest() {
    bus.start();
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

  void change() {
    status.update();
    loop.runPending();
  }

  PrivateBus bus;
  GObjectPtr<GDBusConnection> client;
  std::vector<std::string> announced;
  ManualRunLoop loop;
  AgentStatus::Values now;
  AgentStatus status{loop, [this] { return now; }, LogSink()};
};

TEST_F(AgentStatusTest, AnnouncesWhatDiffersWhileItIsShownAlsoTextThatIsNoUTF8) {
  const auto former = bus.connect();
  const auto server = bus.connect();
  ASSERT_TRUE(status.attach(former.get()));
  ASSERT_TRUE(status.attach(server.get()));
  change();  // nothing differs
  now.relayRunning = true;
  now.devices = {{"PTP", -98566144, "", "SN1"}, {"card", 7, "/m/\xE4", "S"}};
  change();
  now.recoveryArmed = true;
  now.wirelessBusySince = 1795683600000000;
  change();
  ASSERT_TRUE(waitUntil([&] { return announced.size() >= 2; }));
  EXPECT_THAT(announced,
              ElementsAre("('com.tarvo.Agent1', {'RelayRunning': <true>, 'Devices': <[('PTP', "
                          "-98566144, '', 'SN1'), ('card', 7, '/m/\xEF\xBF\xBD', 'S')]>}, [])",
                          "('com.tarvo.Agent1', {'WirelessBusySince': <uint64 1795683600000000>, "
                          "'RecoveryArmed': <true>}, [])"));
}

}  // namespace
}  // namespace tarvo::test
