// doctor, and what a shell is offered: commands that look at this computer, or at a device in
// passing.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/TemporaryFolder.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// What doctor says of one thing.
nlohmann::json foundBy(CameraBench& bench, const char* check) {
  for (const auto& each : bench.run({"--json", "doctor"}).json())
    if (each["check"] == check) return each;
  return nullptr;
}

TEST(Doctor, SaysWhatIsMissingAndHowToMendIt) {
  CameraBench bench;
  const auto bundle = bench.folder.path("Library/Agent.app");
  const ScopedEnvironment environment[] = {
      {"TARVO_AGENT_BUNDLE", bundle},
      {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + bench.folder.path("bus")},
      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + bench.folder.path("bus")}};
  for (const char* check : {"sessionBus", "unit", "agent", "relay", "disks"}) {
    const auto found = foundBy(bench, check);
    EXPECT_EQ(found.value("ok", true), false) << check;
    EXPECT_FALSE(found.value("mend", "").empty()) << check;
  }
  EXPECT_THAT(bench.fails({"doctor"}).out, HasSubstr("missing  Relay application: "));
  const auto relay = bench.folder.write("Library/Tarvo Relay", "");
  fs::permissions(relay, fs::perms::owner_all);
  EXPECT_EQ(foundBy(bench, "relay")["ok"], true);
  EXPECT_EQ(foundBy(bench, "access")["ok"], true) << "none is connected";
  const auto config = bench.folder.write("agent.conf", "nonsense");
  EXPECT_THAT(bench.fails({"--config", config, "doctor"}).out, HasSubstr(config + " cannot be"));
}

TEST(Complete, OffersWhatTheDeviceKnowsAndIsSilentWhereItFails) {
  CameraBench bench;
  const std::tuple<const char*, const char*, std::vector<std::string>> rows[] = {
      {"property", "Exp", {"ExposureBiasCompensation\t"}},
      {"store", "", {"CARD\t0x00010001"}},
      {"object", "TARV0003", {"TARV0003.MOV\tQuickTime movie"}},
      {"object", "MISC/", {"MISC/NOTES.TXT\ttext"}},
      {"object", "none", {}}};
  for (const auto& [kind, begun, offered] : rows)
    EXPECT_EQ(bench.done({"complete", kind, begun}).lines(), offered) << kind << begun;
  bench.sim.camera->setFault("silent", "0x1008");
  const auto run = bench.run({"complete", "object"});
  EXPECT_THAT(run.out + run.err, IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
