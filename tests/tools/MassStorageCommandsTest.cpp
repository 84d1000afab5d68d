// msc: units that show themselves as a disk.
#include <gmock/gmock.h>

#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// Fakes of what tarvoctl asks for units and disks.
class UnitBench : public NoPlatform {
 public:
  const MakerConstants& maker() override { return host.maker; }
  SupportedModels& models() override { return host.models; }
  const PictureDeviceServices& services() override { return host.room->services(); }
  TarvoMSCDeviceList& massStorage() override { return room.list(); }

  /// A unit that answers every page.
  std::shared_ptr<FakeSCSIUnit> plug(const std::string& disk = "sr0") {
    const auto location = 0xFA200000U + static_cast<std::uint32_t>(scsi.units.size());
    usb = host.registry.add({{"IOClass", "usb_device"},
                             {"USB Product Name", "Dock"},
                             {"USB Serial Number", "SN-" + disk},
                             {"idVendor", 0xF055},
                             {"locationID", location}});
    return plugFakeUnit(host.registry, scsi, disk,
                        {{0x25, kUSBModePageAnswer},
                         {0x26, "0012 0000 00000000 26 08 4c1b6d6f20373030"},
                         {0x29, "0010 0000 00000000 29 0e"}},
                        usb);
  }
  void plugCard(const std::string& name, const std::string& disk) {
    const auto whole =
        host.registry.add({{"IOClass", "block"}, {"BSD Name", disk.substr(0, 3)}}, usb);
    host.registry.add({{"IOClass", "block"}, {"BSD Name", disk}}, whole);
    if (!name.empty()) host.ica.addVolume(name, disk);
  }

  PictureDeviceTestRoom host;
  FakeSCSIServices scsi;
  FakeDiskArbitration disks;
  IdentifyRoom identify{{host.ica, host.registry, host.mounts}};
  MSCRoom room{{host.center,
                host.registry,
                scsi,
                disks,
                host.mounts,
                host.defaults,
                host.maker,
                {},
                "UTF-8",
                stderr}};
  ServiceHandle usb = 0;
};

TEST(Units, AreListedWithoutBeingAskedAndTellModeAndModel) {
  UnitBench bench;
  EXPECT_EQ(bench.run({"--json", "msc", "list"}).json(), nlohmann::json::array());
  const auto unit = bench.plug();
  bench.plugCard("CARD", "sdb1");
  EXPECT_EQ(bench.run({"--json", "msc", "list"}).json(), nlohmann::json::parse(R"([{
    "name": "Lumo 700", "location": -98566144, "locationHex": "0xfa200000", "serial": "SN-sr0",
    "bsdName": "sr0", "volume": "CARD", "volumeBSDName": "sdb1",
    "kind": "unit", "can": ["switch mode", "eject"]}])"));
  EXPECT_THAT(bench.run({"devices"}).out,
              AllOf(ContainsRegex("\ncard    CARD .*  list, get, remove, eject\n"),
                    ContainsRegex("\nunit    Lumo 700 +SN-sr0 +0xfa200000  switch mode, eject\n")));
  EXPECT_THAT(unit->take(), IsEmpty());
  EXPECT_THAT(bench.run({"msc", "mode", "get"}).out,
              ContainsRegex("Mode: +camera\nCan power-cycle by itself: +yes\n"));
  // What a unit calls itself cannot steer the terminal.
  EXPECT_EQ(bench.run({"msc", "model"}).out, "L\uFFFDmo 700\n");
}

TEST(Units, AreChosenBySerialNumberOrLocationOrBecauseTheyAreAlone) {
  UnitBench bench;
  bench.ends({"msc", "model"}, tools::kNoDevice);
  bench.plug();
  bench.plug("sr1");
  EXPECT_THAT(bench.ends({"msc", "model"}, tools::kBadUsage).err,
              HasSubstr("SN-sr1 (Lumo 700, location 0xfa200001)"));
  for (const char* device : {"SN-sr1", "0xfa200001", "-98566143"})
    EXPECT_EQ(bench.run({"--json", "--device", device, "msc", "model"}).json()["bsdName"], "sr1");
  EXPECT_THAT(bench.ends({"--device", "sn-sr", "msc", "model"}, tools::kBadUsage).err,
              HasSubstr("'sn-sr' may be each of these: SN-sr0 (Lumo 700"));
  EXPECT_THAT(bench.ends({"--device", "SN-x", "msc", "model"}, tools::kNoDevice).err,
              HasSubstr("connected: SN-sr0"));
}

TEST(Units, AreWhatIsSaidInPlaceOfNoCamera) {
  UnitBench bench;
  bench.plug();
  for (const auto& words : std::vector<std::vector<std::string>>{{"ls"}, {"info"}})
    EXPECT_THAT(bench.ends(words, tools::kNoDevice).err,
                AllOf(HasSubstr("SN-sr0 (Lumo 700, location 0xfa200000) shows itself as a disk"),
                      HasSubstr("'tarvoctl msc mode set camera")));
}

TEST(Units, WarnOfACardThatIsMountedWhileTheyAreSwitched) {
  UnitBench bench;
  bench.plug();
  EXPECT_THAT(bench.run({"msc", "mode", "set", "camera"}).err, IsEmpty());
  for (const char* disk : {"sdb1", "sdc1"}) {
    bench.plugCard("", disk);
    bench.host.mounts.add(std::string("/dev/") + disk, std::string("/srv/") + disk);
  }
  EXPECT_THAT(bench.run({"msc", "mode", "set", "camera"}).err,
              AllOf(HasSubstr("/srv/sdb1 (sdb1) is still mounted"),
                    HasSubstr("/srv/sdc1 (sdc1) is still mounted")));
  EXPECT_THAT(bench.disks.take(), IsEmpty());
}

TEST(Units, ThatCannotComeBackAreSentAwayOnlyOnDemand) {
  UnitBench bench;
  const auto unit = bench.plug();
  unit->pages[0x25] = "000f 0000 00000000 25 07 04 00 00000000 06";
  EXPECT_THAT(bench.ends({"msc", "mode", "set", "camera"}, tools::kBadUsage).err,
              HasSubstr("SN-sr0 (Lumo 700, location 0xfa200000) says that it cannot come "
                        "back by itself"));
  EXPECT_THAT(unit->take(), Not(Contains("ExecuteTaskSync 18")));
  bench.done({"msc", "mode", "set", "camera", "--yes"});
  EXPECT_THAT(unit->take(), Contains("ExecuteTaskSync 18"));
}

TEST(Units, LetTheirCardAndTheirOwnDiskGo) {
  UnitBench bench;
  const auto unit = bench.plug();
  const std::vector<std::string> unmounted = {"unmount sr0", "run 20000"};
  EXPECT_EQ(bench.run({"--json", "msc", "unmount"}).json()["unmounted"], true);
  EXPECT_EQ(bench.disks.take(), unmounted);
  EXPECT_THAT(bench.run({"eject"}).out, HasSubstr("can be taken away"));
  EXPECT_EQ(bench.disks.take(), unmounted);
  EXPECT_THAT(unit->take(), ElementsAre("SetTrayState 1"));
  // Whatever the disk service says.
  bench.plugCard("", "sdb1");
  bench.host.mounts.add("/dev/sdb1", "/srv/card");
  EXPECT_THAT(bench.run({"msc", "eject"}).err, HasSubstr("/srv/card (sdb1) is still mounted"));
  bench.disks.answers = false;
  bench.disks.interrupted = true;
  bench.ends({"msc", "eject"}, tools::kInterrupted);
  EXPECT_THAT(unit->take(), IsEmpty());
}

TEST(Units, SayWhoKeepsAVolumeAndLeaveTheTrayShutThen) {
  UnitBench bench;
  const auto unit = bench.plug();
  bench.disks.dissenter = DADissenter{status::kIOReturnBusy, "in use by vi (12)"};
  for (const char* command : {"unmount", "eject"}) {
    EXPECT_EQ(bench.fails({"msc", command}).err,
              std::string("tarvoctl: msc ") + command +
                  " sr0: the disk is in use: in use by vi (12). Close what uses it and try again. "
                  "(0xe00002d5)\n");
  }
  EXPECT_THAT(unit->take(), IsEmpty());
}

TEST(Units, MountTheOneDiskThatCanBeMeant) {
  UnitBench bench;
  bench.plug();
  EXPECT_EQ(bench.run({"--json", "msc", "mount"}).json()["mounted"], "sr0");
  bench.plugCard("", "sdb1");
  bench.host.mounts.add("/dev/sdb1", "/media/u/CARD");
  bench.disks.take();
  EXPECT_EQ(bench.run({"msc", "mount"}).out, "sdb1 is mounted at /media/u/CARD.\n");
  EXPECT_THAT(bench.disks.take(), ElementsAre("mount sdb1 at ''", "run 20000"));
  bench.plugCard("", "sdc1");
  EXPECT_THAT(bench.run({"msc", "mount"}).err, HasSubstr("say which disk: sdb1, sdc1"));
  bench.done({"msc", "mount", "sdc1"});
  bench.fails({"msc", "mount", "sda1"});
}

}  // namespace
}  // namespace tarvo::test
