// The unmodified tarvoctl at the maker's mass-storage units.
#include <sys/mount.h>

#include "tests/diskarbitration/FakeUDisks2.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ViolationCheck.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

using simulator::MassStorageUnit;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class UnitTool : public ToolTestbed {
 protected:
  void TearDown() override { expectNoViolations(*testbed_); }

  std::shared_ptr<MassStorageUnit> plugUnit(const std::string& name) {
    return testbed_->device(plug(camera(name)))->unit;
  }
};

TEST_F(UnitTool, SendsAUnitToAnotherMode) {
  struct Row {
    const char* words;
    const char* page;
  };
  // Flags, power down, delay in units of ten.
  const Row rows[] = {{"startup", "01 00 00000000"},
                      {"memory --permanent", "82 00 00000000"},
                      {"camera", "04 00 00000000"},
                      {"camera --power-down --wake-after 1234", "04 01 0000007b"}};
  const auto unit = plugUnit("dock");
  for (const auto& row : rows) {
    const auto run = tool(std::string("msc mode set ") + row.words);
    EXPECT_EQ(run.exitCode, 0) << row.words << "\n" << run.err;
    // The capabilities go back as they were read.
    const auto page = hexBytes(std::string("0000000000000000 2507") + row.page + "03");
    EXPECT_EQ(unit->commands().back().data, page) << row.words;
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
  struct Row {
    const char* unit;
    const char* fault;
    const char* value;
    const char* words;
    const char* expected;
  };
  const Row rows[] = {
      {"dock-faulty", "", "", "mode get", "USB mode page is too short"},
      {"dock-faulty", "", "", "clock set", "SCSI status 0x02, sense 5/"},
      {"dock", "sense", "0x052600,0x55", "mode set camera", "5/26/00"},
      {"dock", "status", "0x18,0x55", "clock set", "0x18"},
      {"dock", "truncate", "0,0x5A", "model", "model page is too short"},
      {"dock", "vanish-command", "@1", "mode get", "mode page 0x25"},
      {"dock", "vanish-status", "@3", "mode set camera", "the unit has gone"},
      {"dock", "phase-error", "0x55", "mode set camera", "the unit gave no answer"},
  };
  for (const auto& row : rows) {
    auto described = camera(row.unit);
    if (*row.fault != '\0') described.faults.set(row.fault, row.value);
    const auto id = plug(std::move(described));
    const auto run = tool(std::string("msc ") + row.words);
    EXPECT_EQ(run.exitCode, 1) << row.words << " with " << row.fault << ": " << run.out;
    EXPECT_THAT(run.out, IsEmpty()) << row.words << " with " << row.fault;
    EXPECT_THAT(run.err, HasSubstr(row.expected)) << row.words << " with " << row.fault;
    if (testbed_->device(id) != nullptr) testbed_->unplug(id);
  }
  EXPECT_EQ(tool("msc model").exitCode, 3);
}

}  // namespace
}  // namespace tarvo::test
