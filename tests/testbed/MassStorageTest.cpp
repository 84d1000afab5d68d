// The unmodified agent and the maker's mass-storage units: switched, or unmounted and ejected.
#include <sys/mount.h>

#include "tests/diskarbitration/FakeUDisks2.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"
#include "tests/testbed/UnitCommands.h"

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

// The vendor id decides, whatever the unit calls itself.
TEST_F(MassStorage, IsTheMakersByItsVendorId) {
  startAgent();
  auto foreign = description("dock");
  foreign.usb.vendor = 0x1234;
  const auto other = unitOf(plug(std::move(foreign)));
  auto renamed = description("dock");
  renamed.scsi.vendor = "ACME";
  const auto id = plug(std::move(renamed));
  ASSERT_TRUE(waitForCamera(id));
  expectRelayFor(0, 0x01200000);
  EXPECT_THAT(other->commands(), IsEmpty());
}

// Without a vendor id that can be read the name decides: the beginning of it is enough.
TEST_F(MassStorage, IsTheMakersByItsNameWhereItHasNoVendorId) {
  configure("Preferences", "LOG_SUBSYS_CAMERA_VERBOSE", "true");
  std::vector<std::string> ids;
  std::vector<std::shared_ptr<MassStorageUnit>> units;
  for (const char* name : {"TAR", "TARVOS"}) {
    auto dock = description("dock");
    dock.scsi.vendor = name;
    ids.push_back(plug(std::move(dock)));
    units.push_back(unitOf(ids.back()));
    umockdev_testbed_set_attribute(
        testbed_->umockdev(), ("/sys/devices/pci0000:00/0000:00:14.0/usb1/" + ids.back()).c_str(),
        "idVendor", "none");
  }
  startAgent();
  ASSERT_TRUE(waitForCamera(ids.front()));
  expectRelayFor(0, 0x01100000);
  EXPECT_TRUE(hasLogged("Detected device vendor ='TAR' model='Picture Dock'"));
  EXPECT_TRUE(hasLogged("Detected device vendor ='TARVOS' model='Picture Dock'"));
  EXPECT_THAT(units.back()->commands(), IsEmpty());
}

// An optical drive that calls itself the maker's, on another bus.
constexpr const char* kDriveOnAnotherBus =
    "P: /devices/pci0000:00/0000:00:1f.2/ata1/host9/target9:0:0/9:0:0:0\n"
    "E: SUBSYSTEM=scsi\nE: DEVTYPE=scsi_device\n"
    "A: type=5\\n\nA: vendor=TARVO   \\n\nA: model=Fixed Drive     \\n\nA: rev=1.00\\n\n\n"
    "P: /devices/pci0000:00/0000:00:1f.2/ata1/host9/target9:0:0/9:0:0:0/scsi_generic/sg9\n"
    "N: sg9=00\nE: SUBSYSTEM=scsi_generic\nE: DEVNAME=/dev/sg9\nA: dev=21:9\\n\n\n"
    "P: /devices/pci0000:00/0000:00:1f.2/ata1/host9/target9:0:0/9:0:0:0/block/sr9\n"
    "N: sr9=00\nE: SUBSYSTEM=block\nE: DEVTYPE=disk\nE: DEVNAME=/dev/sr9\n"
    "E: MAJOR=11\nE: MINOR=9\nA: dev=11:9\\n\nA: removable=1\\n\n\n";

TEST_F(MassStorage, IsOnUsbOrNotTheMakers) {
  configure("Preferences", "LOG_SUBSYS_CAMERA_VERBOSE", "true");
  simulator::GErrorSlot error;
  ASSERT_TRUE(
      umockdev_testbed_add_from_string(testbed_->umockdev(), kDriveOnAnotherBus, error.address()))
      << error.message();
  startAgent();
  const auto id = plug("dock");
  ASSERT_TRUE(waitForCamera(id));
  expectRelayFor(0, 0x01100000);
  EXPECT_TRUE(hasLogged("Detected device vendor ='TARVO' model='Picture Dock'"));
  EXPECT_FALSE(hasLogged("model='Fixed Drive'"));
  EXPECT_EQ(timesLogged("newMSCDeviceAdded - entered"), 1U);
}

TEST_F(MassStorage, IsLeftAloneWhereItsPagesAreShortOrMissing) {
  startAgent();
  for (const char* name : {"dock-faulty", "dock"}) {
    auto dock = description(name);
    if (dock.usb.product == 0x0502) dock.modePages.usbMode.reset();
    const auto unit = unitOf(plug(std::move(dock)));
    // It counts as one that cannot switch.
    EXPECT_TRUE(waitUntil([&] { return unit->state().isTrayOpen; })) << name;
    EXPECT_FALSE(unit->state().mode.isSelected) << name;
  }
}

TEST_F(MassStorage, IsFoundAgainByTheRecovery) {
  configure("Platform", "SystemVersion", "0x1062");
  startAgent();
  const auto id = plug("dock");
  ASSERT_TRUE(waitForCamera(id));
  expectRelayFor(0, 0x01100000);
  EXPECT_TRUE(hasLogged("starting Lost Device Timer"));
  EXPECT_FALSE(hasLogged("failed to find serial number"));
  EXPECT_FALSE(hasLogged("serial number mismatch"));
  EXPECT_TRUE(waitForLog("killTimersHandler - entered"));
  EXPECT_EQ(launches(kRelay).size(), 1U);
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

TEST_F(MassStorage, FailsInWordsWhereItRefuses) {
  struct Row {
    const char* fault;
    const char* value;
    const char* expected;
  };
  const Row rows[] = {{"sense", "0x052600,0x55", "could not be switched to camera mode"},
                      {"status", "8,0x55", "could not be switched to camera mode"},
                      {"phase-error", "0x55", "could not be switched to camera mode"},
                      {"stall-out", "0x55", "could not be switched to camera mode"},
                      {"silent", "0x55", "could not be switched to camera mode"},
                      {"sense", "0x055302,0x1B", "could not be ejected"}};
  startAgent();
  std::size_t times = 0;
  for (const auto& row : rows) {
    auto dock = dockThatStaysAway();
    ASSERT_EQ(dock.faults.set(row.fault, row.value), "");
    if (std::string_view(row.expected).ends_with("ejected")) {
      dock.modePages.usbMode->autoPowerCycle = false;
      times = 0;
    }
    const auto id = plug(std::move(dock));
    EXPECT_TRUE(waitForLog(row.expected, ++times)) << row.fault << "=" << row.value;
    testbed_->unplug(id);
  }
}

}  // namespace
}  // namespace tarvo::test
