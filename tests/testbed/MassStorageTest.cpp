// The unmodified agent and the maker's mass-storage units: switched, or unmounted and ejected.
#include <sys/mount.h>

#include "tests/diskarbitration/FakeUDisks2.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using simulator::MassStorageUnit;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kSenseHeader = "5a002500000000000800";
constexpr const char* kSensePage = "5a002500000000001700";
constexpr const char* kSelect = "55000000000000001100";
/// Camera mode, power down, and a delay of 1000 in units of ten.
constexpr const char* kCameraPage =
    "0000000000000000"
    "2507"
    "04"
    "01"
    "00000064"
    "00";
constexpr std::size_t kCommandsOfASwitch = 5;

/// The blocks of the commands that have reached a unit, in hexadecimal.
std::vector<std::string> blocksOf(const MassStorageUnit& unit) {
  std::vector<std::string> list;
  for (const auto& command : unit.commands())
    list.push_back(hexText(command.block));
  return list;
}

class MassStorage : public AgentTestbed {
 protected:
  void TearDown() override { expectNoViolations(*testbed_); }

  /// The unit of a device, which may be looked at after it has gone.
  std::shared_ptr<MassStorageUnit> unitOf(const std::string& id) {
    return testbed_->device(id)->unit;
  }
  bool waitUntilGone(const std::string& id) {
    return waitUntil([&] { return testbed_->device(id) == nullptr; });
  }
  bool waitForCamera(const std::string& id) {
    return waitUntil([&] {
      const auto* device = testbed_->device(id);
      return device != nullptr && device->camera;
    });
  }
  /// One that stays away once it was switched or has vanished.
  static simulator::DeviceDescription dockThatStaysAway() {
    auto dock = description("dock");
    dock.camera.reset();
    return dock;
  }
  /// The Relay starts for a camera at the port.
  void expectRelayFor(std::size_t index, std::int32_t location) {
    EXPECT_EQ(relayArguments(index), commandLine("PTP", location));
  }
};

TEST_F(MassStorage, IsSwitchedAndItsCameraStartsTheRelay) {
  startAgent();
  const auto id = plug("dock");
  const auto unit = unitOf(id);
  ASSERT_TRUE(waitForCamera(id));
  EXPECT_THAT(blocksOf(*unit),
              ElementsAre(kSenseHeader, kSensePage, kSenseHeader, kSensePage, kSelect));
  EXPECT_EQ(hexText(unit->commands().back().data), kCameraPage);
  EXPECT_THAT(unit->violations(), IsEmpty());
  expectRelayFor(0, 0x01100000);
  EXPECT_TRUE(hasLogged("newMSCDeviceAdded - setting device USB mode."));
}

TEST_F(MassStorage, IsSwitchedWhenItWasThereFirst) {
  const auto id = plug("dock");
  startAgent();
  ASSERT_TRUE(waitForCamera(id));
  expectRelayFor(0, 0x01100000);
}

TEST_F(MassStorage, IsUnmountedAndEjectedWhereItCannotSwitch) {
  systemBus_.start();
  FakeUDisks2 disks(systemBus_);
  startAgent();
  const auto mountPoint = (testbed_->volumes() / "TARVO_DOCK").string();
  disks.objects =
      FakeUDisks2::block("sr0", {.drive = "Dock", .mountPoints = "[b'" + mountPoint + "']"});
  disks.script["Unmount"].before = [&] { ::umount2(mountPoint.c_str(), MNT_DETACH); };
  const auto unit = unitOf(plug("dock-fixed"));
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
      ASSERT_TRUE(waitUntilGone(id)) << fault << " " << number;
    }
  }
  const auto id = plug("dock");
  ASSERT_TRUE(waitForCamera(id));
  expectRelayFor(0, 0x01100000);
  EXPECT_TRUE(agent().isRunning());
}

TEST_F(MassStorage, MayBePulledOutWhileTheAgentWaitsForIt) {
  startAgent();
  for (const char* command : {"5a", "55"}) {
    auto dock = dockThatStaysAway();
    ASSERT_EQ(dock.faults.set("silent", std::string("0x") + command), "");
    const auto id = plug(std::move(dock));
    const auto unit = unitOf(id);
    ASSERT_TRUE(waitUntil([&] {
      const auto blocks = blocksOf(*unit);
      return !blocks.empty() && blocks.back().starts_with(command);
    }));
    testbed_->unplug(id);
  }
  const auto id = plug("dock");
  ASSERT_TRUE(waitForCamera(id));
  expectRelayFor(0, 0x01100000);
}

}  // namespace
}  // namespace tarvo::test
