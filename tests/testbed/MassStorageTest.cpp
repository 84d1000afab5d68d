// The unmodified agent and the maker's mass-storage units: switched, or unmounted and ejected.
#include <sys/mount.h>

#include "tests/diskarbitration/FakeUDisks2.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
  EXPECT_THAT(disks.calls(),
              ElementsAre(testing::StartsWith("Unmount " + FakeUDisks2::blockPath("sr0"))));
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

}  // namespace
}  // namespace tarvo::test
