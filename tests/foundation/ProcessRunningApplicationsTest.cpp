#include "platform/desktop/ProcessRunningApplications.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>

#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/FakeBusService.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using Identifiers = std::vector<std::string>;

TEST(ApplicationOfUnitTest, AnApplicationsScopeOrServiceCarriesItsId) {
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"app-gnome-com.tarvo.Relay-4711.scope", "com.tarvo.Relay"},
      {"app-com.tarvo.Relay@5a1f.service", "com.tarvo.Relay"},
      {"app-gnome-tarvo\\x2drelay-1.scope", "tarvo-relay"},
      {"app-com.tarvo.Relay.scope", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [unit, expected] : rows)
    EXPECT_EQ(applicationOfUnit(unit), expected) << unit;
}

TEST(ApplicationScopesTest, AChildIsMovedIntoAScopeThatTellsItsIdAndOnlyARefusalIsToldOf) {
  const std::pair<const char*, const char*> rows[] = {
      {"com.tarvo.Relay", "app-tarvo-com.tarvo.Relay-77.scope"},
      {"tarvo-relay", "app-tarvo-tarvo\\x2drelay-77.scope"},
      {"TARVO \xC3\x84", "app-tarvo-TARVO\\x20\\xc3\\x84-77.scope"},
  };
  const RunningBus bus;
  GlibRunLoop loop{{}};
  RecordingSystemLog log;
  BusConnection connection("session bus", bus.address(), loop, log.sink());
  ApplicationScopes scopes(connection, log.sink());
  scopes.add(77, "before.the.bus");
  connection.start();
  ASSERT_TRUE(connection.waitUntilSettled());
  scopes.add(77, "without.a.manager");
  // The bus answers one connection in order.
  g_dbus_connection_call_sync(connection.connection(), "org.freedesktop.DBus", "/", nullptr,
                              "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                              nullptr);
  Identifiers asked;
  FakeBusService manager(bus, "org.freedesktop.systemd1", [&](GObjectPtr<GDBusMessage> call) {
    const char* scope = nullptr;
    GVariant* properties = nullptr;
    g_variant_get(g_dbus_message_get_body(call.get()), "(&ss@a(sv)a(sa(sv)))", &scope, nullptr,
                  &properties, nullptr);
    asked.push_back(scope + takeText(g_variant_print(GVariantPtr(properties).get(), FALSE)));
    if (asked.size() < std::size(rows))
      manager.answer(call.get(), g_variant_new("(o)", "/job"));
    else
      manager.refuse(call.get(), "org.freedesktop.systemd1.UnitExists", "there is one");
  });
  Identifiers expected;
  for (const auto& [identifier, scope] : rows) {
    EXPECT_EQ(applicationOfUnit(scope), identifier);
    scopes.add(77, identifier);
    expected.push_back(scope + std::string("[('PIDs', <[uint32 77]>), "
                                           "('CollectMode', <'inactive-or-failed'>)]"));
  }
  ASSERT_TRUE(waitUntil([&] { return !log.lines().empty(); }));
  EXPECT_EQ(asked, expected);
  EXPECT_EQ(log.lines(), (Identifiers{std::string(rows[2].second) +
                                      " cannot be made, so what was started counts with the agent: "
                                      "there is one"}));
}

TEST(ProgramOfExecTest, TheProgramIsUnquotedAndItsArgumentsDropped) {
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"relay %U", "relay"},
      {"  /usr/bin/relay\t--new", "/usr/bin/relay"},
      {"\"/opt/Tarvo Relay.app/Tarvo Relay\" %f", "/opt/Tarvo Relay.app/Tarvo Relay"},
      {R"("/opt/a\"b\\c\$d" x)", R"(/opt/a"b\c$d)"},
      {"\"/opt/open", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [exec, expected] : rows)
    EXPECT_EQ(programOfExec(exec), expected) << exec;
}

class DesktopEntriesTest : public testing::Test {
 protected:
  std::string entry(const std::string& exec, const std::string& more = "") {
    return "[Desktop Entry]\nType=Application\nName=x\n" + more + "Exec=" + exec + "\n";
  }
  Identifiers of(const std::string& program) {
    return entries_.identifiersOfExecutable(std::filesystem::canonical(program));
  }

  TemporaryFolder folder_;
  DesktopEntries entries_{{folder_.path("user"), folder_.path("system")}};
};

TEST_F(DesktopEntriesTest, AnEntryIsFoundByTheExecutableThatItsExecResolvesTo) {
  const auto relay = folder_.writeScript("Tarvo Relay.app/Tarvo Relay", "");
  const auto other = folder_.writeScript("other", "");
  std::filesystem::create_directories(folder_.path("bin"));
  std::filesystem::create_symlink(relay, folder_.path("bin/tarvo-relay"));
  const ScopedEnvironment path("PATH", folder_.path("bin"));
  folder_.write("user/com.tarvo.Relay.desktop", entry("\"" + relay + "\" %F"));
  folder_.write("user/kde/by.Name.desktop", entry("tarvo-relay"));
  folder_.write("system/by.TryExec.desktop", entry("sh -c x", "TryExec=tarvo-relay\n"));
  folder_.write("system/action.desktop", entry(other) + "[Desktop Action New]\nExec=tarvo-relay\n");
  folder_.write("system/hidden.desktop", entry(relay, "Hidden=true\n"));
  folder_.write("system/com.tarvo.Relay.desktop", entry(other));  // the user's stands over it
  folder_.write("system/com.tarvo.Relay.txt", entry(other));
  auto found = of(relay);
  std::ranges::sort(found);
  EXPECT_EQ(found, (Identifiers{"by.TryExec", "com.tarvo.Relay", "kde-by.Name"}));
  EXPECT_EQ(of(other), (Identifiers{"action"}));
  EXPECT_EQ(entries_.identifiersOfExecutable("/no/such/program"), Identifiers{});
}

TEST_F(DesktopEntriesTest, ChangesOfTheFoldersAndLaterProgramsAreSeen) {
  const auto program = folder_.path("program");
  EXPECT_EQ(entries_.identifiersOfExecutable(program), Identifiers{});
  folder_.write("user/first.desktop", entry(program));
  // An old time: the folder counts as read for good.
  const utimbuf old{1000, 1000};
  ::utime(folder_.path("user").c_str(), &old);
  EXPECT_EQ(entries_.identifiersOfExecutable(program), Identifiers{});
  folder_.writeScript("program", "");
  EXPECT_EQ(of(program), (Identifiers{"first"})) << "installed after its entry";
  folder_.write("user/second.desktop", entry(program));
  auto both = of(program);
  std::ranges::sort(both);
  EXPECT_EQ(both, (Identifiers{"first", "second"}));
  std::filesystem::remove(folder_.path("user/first.desktop"));
  EXPECT_EQ(of(program), (Identifiers{"second"}));
}

class ProcessRunningApplicationsTest : public DesktopEntriesTest {
 protected:
  /// A process in a made-up process table.
  void makeProcess(const std::string& pid, const std::string& state, const std::string& cgroup,
                   const std::string& executable = "") {
    folder_.write("proc/" + pid + "/stat", pid + " (a) Z b) " + state + " 1 1");
    folder_.write("proc/" + pid + "/cgroup", cgroup);
    if (!executable.empty()) {
      std::filesystem::create_symlink(executable, folder_.path("proc/" + pid + "/exe"));
    }
  }
};

TEST_F(ProcessRunningApplicationsTest, ProcessesComeInOrderWithWhatScopeAndExecutableTell) {
  const auto relay = folder_.writeScript("relay", "");
  folder_.write("user/com.tarvo.Relay.desktop", entry(relay));
  makeProcess("100", "S",
              "0::/user.slice/user@1000.service/app.slice/app-gnome-org.Terminal-9.scope/vte-1\n");
  makeProcess("20", "R", "0::/user.slice/app-gnome-org.Terminal-9.scope\n", relay + " (deleted)");
  makeProcess("30", "S", "1:name=systemd:/app-com.tarvo.Relay-3.scope\n0::/\n", relay);
  makeProcess("40", "Z", "0::/app-com.tarvo.Relay-4.scope\n");
  makeProcess("50", "S", "0::/session-2.scope\n", "/usr/bin/unknown");
  makeProcess("self", "S", "0::/app-com.tarvo.Relay-5.scope\n");
  std::filesystem::create_directories(folder_.path("proc/60"));
  ProcessRunningApplications applications(entries_, folder_.path("proc"));
  Identifiers found;
  for (const auto& application : applications.launchedApplications())
    found.push_back(std::to_string(application.pid) + " " + application.bundleIdentifier);
  EXPECT_EQ(found, (Identifiers{"20 org.Terminal", "20 com.tarvo.Relay", "30 com.tarvo.Relay",
                                "100 org.Terminal"}));
}

TEST_F(ProcessRunningApplicationsTest, TheLauncherIsTheParentProcess) {
  const auto helper = folder_.writeScript("helper", "");
  folder_.write("user/com.tarvo.Helper.desktop", entry(helper));
  ProcessRunningApplications applications(entries_, folder_.path("proc"));
  EXPECT_EQ(applications.launcherIdentifier(), std::nullopt);
  makeProcess(std::to_string(::getppid()), "S", "0::/session-2.scope\n", helper);
  EXPECT_EQ(applications.launcherIdentifier(), "com.tarvo.Helper");
}

}  // namespace
}  // namespace tarvo::test
