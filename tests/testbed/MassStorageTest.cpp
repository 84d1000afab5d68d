// The unmodified agent and tarvoctl at the maker's mass-storage units: switched, or unmounted and
// ejected.
#include <sys/mount.h>

#include <array>

#include "tests/diskarbitration/FakeUDisks2.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ViolationCheck.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kSenseHeader = "5a002500000000000800";
constexpr const char* kSensePage = "5a002500000000001700";
constexpr const char* kSelect = "55000000000000001100";
/// Camera mode, power down, and a delay of 1000 in units of ten.
constexpr const char* kCameraPage = "0000000000000000250704010000006400";
constexpr std::size_t kCommandsOfASwitch = 5;

/// The blocks of the commands that have reached a unit, in hexadecimal.
std::vector<std::string> blocksOf(const simulator::MassStorageUnit& unit) {
  std::vector<std::string> list;
  for (const auto& command : unit.commands())
    list.push_back(hexText(command.block));
  return list;
}

class MassStorage : public AgentTestbed {
 protected:
  void TearDown() override { expectNoViolations(*testbed_); }

  /// One that stays away once it was switched or has vanished.
  static simulator::DeviceDescription dockThatStaysAway() {
    auto dock = description("dock");
    dock.camera.reset();
    return dock;
  }
  /// The dock at the first port has become a camera, for which the Relay starts.
  void expectRelayForTheDock(const std::string& id) {
    ASSERT_TRUE(waitUntil([&] {
      const auto* device = testbed_->device(id);
      return device != nullptr && device->camera;
    }));
    EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
  }
};

TEST_F(MassStorage, IsSwitchedAndItsCameraStartsTheRelay) {
  startAgent();
  const auto id = plug("dock");
  const auto unit = testbed_->device(id)->unit;
  expectRelayForTheDock(id);
  EXPECT_THAT(blocksOf(*unit),
              ElementsAre(kSenseHeader, kSensePage, kSenseHeader, kSensePage, kSelect));
  EXPECT_EQ(hexText(unit->commands().back().data), kCameraPage);
  EXPECT_THAT(unit->violations(), IsEmpty());
  EXPECT_TRUE(hasLogged("newMSCDeviceAdded - setting device USB mode."));
}

TEST_F(MassStorage, IsUnmountedAndEjectedWhereItCannotSwitch) {
  systemBus_.start();
  FakeUDisks2 disks(systemBus_);
  startAgent();
  const auto mountPoint = (testbed_->volumes() / "TARVO_DOCK").string();
  disks.objects =
      FakeUDisks2::block("sr0", {.drive = "Dock", .mountPoints = "[b'" + mountPoint + "']"});
  disks.script["Unmount"].before = [&] { ::umount2(mountPoint.c_str(), MNT_DETACH); };
  const auto unit = testbed_->device(plug("dock-fixed"))->unit;
  ASSERT_TRUE(waitUntil([&] { return unit->state().isTrayOpen; }));
  EXPECT_THAT(disks.calls(), ElementsAre(StartsWith("Unmount " + FakeUDisks2::blockPath("sr0"))));
  // The lock goes before the tray opens: real systems lock the medium.
  EXPECT_THAT(blocksOf(*unit),
              ElementsAre(kSenseHeader, kSensePage, "1e0000000000", "1b0000000200"));
  EXPECT_TRUE(hasLogged("does not support canAutoPowerCycle - ignoring it"));
  EXPECT_THAT(launches(kRelay), IsEmpty());
}

TEST_F(MassStorage, MayVanishAtEveryCommand) {
  startAgent();
  for (const char* fault : {"vanish-command", "vanish", "vanish-status"}) {
    for (std::size_t number = 1; number <= kCommandsOfASwitch; ++number) {
      auto dock = dockThatStaysAway();
      ASSERT_EQ(dock.faults.set(fault, "@" + std::to_string(number)), "");
      const auto id = plug(std::move(dock));
      ASSERT_TRUE(waitUntil([&] { return testbed_->device(id) == nullptr; }))
          << fault << " " << number;
    }
  }
  expectRelayForTheDock(plug("dock"));
  EXPECT_TRUE(agent().isRunning());
}

TEST_F(MassStorage, MayBePulledOutWhileTheAgentWaitsForIt) {
  startAgent();
  for (const char* command : {"5a", "55"}) {
    auto dock = dockThatStaysAway();
    ASSERT_EQ(dock.faults.set("silent", std::string("0x") + command), "");
    const auto id = plug(std::move(dock));
    const auto unit = testbed_->device(id)->unit;
    ASSERT_TRUE(waitUntil([&] {
      const auto blocks = blocksOf(*unit);
      return !blocks.empty() && blocks.back().starts_with(command);
    }));
    testbed_->unplug(id);
  }
  expectRelayForTheDock(plug("dock"));
}

class UnitTool : public ToolTestbed {
 protected:
  void TearDown() override { expectNoViolations(*testbed_); }

  std::shared_ptr<simulator::MassStorageUnit> plugUnit(const std::string& name) {
    return testbed_->device(plug(camera(name)))->unit;
  }
};

TEST_F(UnitTool, SendsAUnitToAnotherMode) {
  // Flags, power down, delay in units of ten.
  const std::pair<const char*, const char*> rows[] = {
      {"startup", "01 00 00000000"},
      {"memory --permanent", "82 00 00000000"},
      {"camera", "04 00 00000000"},
      {"camera --power-down --wake-after 1234", "04 01 0000007b"}};
  const auto unit = plugUnit("dock");
  for (const auto& [words, flags] : rows) {
    EXPECT_EQ(tool(std::string("msc mode set ") + words).exitCode, 0) << words << err();
    // The capabilities go back as they were read.
    const auto page = hexBytes(std::string("0000000000000000 2507") + flags + "03");
    EXPECT_EQ(unit->commands().back().data, page) << words;
  }
  EXPECT_TRUE(waitUntil([&] {
    const auto* device = testbed_->device("1-1");
    return device != nullptr && device->camera;
  }));
}

TEST_F(UnitTool, SeesOrdersUnmountsMountsAndEjects) {
  systemBus_.start();
  FakeUDisks2 disks(systemBus_);
  const auto unit = plugUnit("dock-fixed");
  disks.objects = FakeUDisks2::block("sr0", {.drive = "Dock", .mountPoints = "[b'/mnt']"});
  disks.script["Unmount"].before = [volume = (testbed_->volumes() / "TARVO_DOCK").string()] {
    ::umount2(volume.c_str(), MNT_DETACH);
  };
  const auto run = [&](const std::string& words) { return tool("--json msc " + words); };
  EXPECT_EQ(run("orders").json()["sharingOrderExists"], false);
  folder_.write("volumes/TARVO_DOCK/MISC/IREVIEW.DB", "orders");
  EXPECT_EQ(run("orders").json()["sharingOrderExists"], true);
  EXPECT_EQ(run("unmount").json()["unmounted"], true);
  const auto mounted = run("mount");
  EXPECT_EQ(mounted.json()["mounted"], "sr0") << mounted.out << mounted.err;
  EXPECT_FALSE(unit->state().isTrayOpen);
  EXPECT_EQ(run("eject").json()["ejected"], true);
  EXPECT_TRUE(unit->state().isTrayOpen);
  const std::string object = FakeUDisks2::blockPath("sr0");
  EXPECT_THAT(disks.calls(),
              ElementsAre(StartsWith("Unmount " + object), StartsWith("Mount " + object),
                          StartsWith("Unmount " + object)));
}

TEST_F(UnitTool, FailsInWords) {
  const std::array<const char*, 5> rows[] = {
      // unit, fault, value, words, what is said
      {"dock-faulty", "", "", "mode get", "USB mode page is too short"},
      {"dock-faulty", "", "", "clock set", "SCSI status 0x02, sense 5/"},
      {"dock", "sense", "0x052600,0x55", "mode set camera", "5/26/00"},
      {"dock", "status", "0x18,0x55", "clock set", "0x18"},
      {"dock", "truncate", "0,0x5A", "model", "model page is too short"},
      {"dock", "vanish-command", "@1", "mode get", "mode page 0x25"},
      {"dock", "vanish-status", "@3", "mode set camera", "the unit has gone"},
      {"dock", "phase-error", "0x55", "mode set camera", "the unit gave no answer"},
  };
  for (const auto& [unit, fault, value, words, expected] : rows) {
    auto described = camera(unit);
    if (*fault != '\0') described.faults.set(fault, value);
    const auto id = plug(std::move(described));
    const auto run = tool(std::string("msc ") + words);
    EXPECT_EQ(run.exitCode, 1) << words << " with " << fault << ": " << run.out;
    EXPECT_THAT(run.out, IsEmpty()) << words << " with " << fault;
    EXPECT_THAT(run.err, HasSubstr(expected)) << words << " with " << fault;
    if (testbed_->device(id) != nullptr) testbed_->unplug(id);
  }
  EXPECT_EQ(tool("msc model").exitCode, 3);
}

}  // namespace
}  // namespace tarvo::test
