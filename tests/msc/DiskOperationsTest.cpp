// Which entries of the registry are the maker's units, and the unit's disk and card: which they
// are, and letting them go.
#include "msc/TarvoMSCDevice.h"
#include "tests/msc/MSCFixture.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(MSCTest, TellsTheNearestUSBDeviceAboveADisk) {
  const ServiceHandle hub = registry.add({{"idVendor", 0x1D6B}, {"locationID", 1}});
  const ServiceHandle device = registry.add({{"idVendor", 2}, {"locationID", 3}}, hub);
  const ServiceHandle going = registry.add({{"idVendor", 4}}, device);
  registry.makeUnreadable(going);
  // The disk itself does not count.
  registry.add({{"BSD Name", "sdb1"}, {"idVendor", 5}}, going);
  registry.add({{"BSD Name", "nvme0n1"}});
  const PropertyDictionary found = {{"idVendor", 2}, {"locationID", 3}};
  for (const auto& [name, line] : {std::pair("sdb1", "IORegistryEntryCreateCFProperties failed"),
                                   {"nvme0n1", "failed to find the device in IOKit Registry"},
                                   {"sdz", "failed to get service for sdz"},
                                   {"", "failed to get dictionary for bsdName "}}) {
    EXPECT_EQ(GetUSBDataFromBSDName(name),
              name == std::string("sdb1") ? found : PropertyDictionary::object());
    EXPECT_EQ(traces.take(), Lines{std::string("Error: GetUSBDataFromBSDName ") + line});
  }
}

TEST_F(MSCTest, FindsItsDiskAtItselfOrAboveAndKeepsIt) {
  const auto device = unit();
  EXPECT_EQ(device->bsdName(), "sr0");
  registry.unplug(usb);
  EXPECT_EQ(device->bsdName(), "sr0");
  const ServiceHandle parent = registry.add({{"BSD Name", "sr7"}});
  EXPECT_EQ(TarvoMSCDevice::initWithMMCDevice(answers, registry.add({}, parent), "",
                                              std::vector<std::uint8_t>{1})
                ->bsdName(),
            "sr7");
}

TEST_F(MSCTest, WaitsTwentySecondsForEveryDiskOperationAndTellsHowItEnded) {
  const DADissenter busy{status::kIOReturnBusy, "in use by vi (12)"};
  const TarvoMSCDevice::Failure timeout{status::kIOReturnTimeout,
                                        "the service did not answer within 20 seconds"};
  const std::tuple<std::optional<DADissenter>, bool, Status, TarvoMSCDevice::Failure> outcomes[] = {
      {std::nullopt, true, 0, {0, ""}},
      {busy, true, -1, {status::kIOReturnBusy, "in use by vi (12)"}},
      {std::nullopt, false, -1, timeout}};
  const auto device = unit();
  addVolume("CARD", "sdb1", usb);
  device->dcfVolumeBSDName();
  const std::pair<Status (TarvoMSCDevice::*)(const std::string&), std::string> operations[] = {
      {&TarvoMSCDevice::unmountAllPartitions, "unmount sdb1"},
      {&TarvoMSCDevice::ejectMediaWithBSDName, "eject sdb1"},
      {&TarvoMSCDevice::remountMediaWithBSDName, "mount sdb1 at 'CARD'"}};
  for (const auto& [operation, call] : operations) {
    for (const auto& [dissenter, doesAnswer, result, failure] : outcomes) {
      disks.dissenter = dissenter;
      disks.answers = doesAnswer;
      traces.take();
      EXPECT_EQ((*device.*operation)("sdb1"), result) << call;
      EXPECT_THAT(disks.take(), ElementsAre(call, "run 20000"));
      EXPECT_EQ(disks.openSessions, 0);
      EXPECT_EQ(disks.usbDevice, usb);
      EXPECT_EQ(device->lastFailure().status, failure.status) << call;
      EXPECT_EQ(device->lastFailure().why, failure.why);
      const Lines lines = traces.take();
      EXPECT_THAT(lines[0], HasSubstr("scheduled session with RunLoop for bsdName = sdb1, "));
      EXPECT_EQ(lines[1], "bsdNameCStr = sdb1");
      EXPECT_EQ(lines[2], "confirming sdb1 == sdb1??");
      EXPECT_EQ(lines.back(), "returning result = " + std::to_string(result));
    }
  }
}

TEST_F(MSCTest, UnmountsOnceBeforeTheTrayOpensAndOpensItWhateverCameOfThat) {
  const auto device = unit();
  disks.dissenter = DADissenter{status::kIOReturnBusy, ""};
  EXPECT_TRUE(device->ejectTray());
  EXPECT_THAT(traces.take(), testing::Contains("Could not unnount sr0."));
  disks.dissenter.reset();
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(device->ejectTray());
  EXPECT_THAT(disks.take(), ElementsAre("unmount sr0", "run 20000", "unmount sr0", "run 20000"));
  EXPECT_EQ(answers->take(), Lines(3, "SetTrayState 1"));
  traces.take();
  answers->failsAt = "SetTrayState";
  EXPECT_FALSE(device->ejectTray());
  EXPECT_THAT(traces.take(), ElementsAre("Ejecting...", "Error: SetTrayState failed e00002c0",
                                         "Error: Ejecting failed"));
}

TEST_F(MSCTest, UnmountsASecondTimeInWhatTheFirstHasLeftAndKeepsTheLockOfWhatIsMounted) {
  const auto device = unit();
  registry.add({{"IOClass", "block"}, {"BSD Name", "sdb1"}}, usb);
  mounts.add("/dev/sdb1", "/srv/anywhere");
  mounts.add("/dev/sda1", "/");
  mounts.add("/dev/dm-0", "/srv/mapped");
  mounts.add("/dev/dm-1", "/srv/volume");
  mounts.add("/dev/dm-2", "/home");
  registry.below = {{"dm-0", {"sdb1"}}, {"dm-1", {"sda1", "dm-0"}}, {"dm-2", {"sda1"}}};
  EXPECT_EQ(device->mounts(), (std::vector<Mount>{{"/dev/sdb1", "/srv/anywhere"},
                                                  {"/dev/dm-0", "/srv/mapped"},
                                                  {"/dev/dm-1", "/srv/volume"}}));
  disks.dissenter = DADissenter{status::kIOReturnBusy, ""};
  disks.takes = std::chrono::seconds(5);
  answers->failsAt = "SetTrayState";
  answers->failure = status::kIOReturnError;
  EXPECT_EQ(device->unmountMedia(), -1);
  EXPECT_FALSE(device->ejectTray());
  EXPECT_EQ(device->lastFailure().why, "the unit did not open its tray, sense 5/26/00");
  EXPECT_THAT(disks.take(), ElementsAre("unmount sr0", "run 20000", "unmount sr0", "run 15000"));
  EXPECT_THAT(answers->take(), ElementsAre("SetTrayState 1, locked"));
}

TEST_F(MSCTest, OpensNoTrayOnceTheProcessWasToldToEnd) {
  const auto device = unit();
  disks.answers = false;
  disks.onRun = [&] { disks.interrupted = true; };
  EXPECT_EQ(device->unmountMedia(), -1);
  EXPECT_FALSE(device->ejectTray());
  EXPECT_EQ(device->lastFailure().status, status::kCancelled);
  EXPECT_THAT(answers->take(), IsEmpty());
}

TEST_F(MSCTest, CountsAUnitWithoutADiskAsUnmounted) {
  const auto device = TarvoMSCDevice::initWithMMCDevice(std::make_shared<FakeSCSIUnit>(Pages{}),
                                                        0x1A, "", std::vector<std::uint8_t>{1});
  EXPECT_EQ(device->unmountMedia(), status::kOK);
  EXPECT_TRUE(device->ejectTray());
  EXPECT_THAT(disks.take(), IsEmpty());
  EXPECT_EQ(traces.take().front(), "No bsd name for service       1a.");
}

TEST_F(MSCTest, SeesSharingOrdersOnTheCardOfItsOwnUSBDeviceAlone) {
  const auto device = unit();
  const ServiceHandle elsewhere = registry.add({{"idVendor", 1}, {"locationID", 0x01100000}});
  folder.write("media/OTHER/MISC/IREVIEW.DB", "");
  addVolume("OTHER", "sdc1", elsewhere);
  EXPECT_FALSE(device->sharingOrderExists());
  EXPECT_EQ(device->dcfVolumeBSDName(), std::nullopt);
  addVolume("CARD", "sdb1", usb);
  EXPECT_EQ(device->dcfVolumeBSDName(), "sdb1");
  for (const char* file :
       {"NOTES.TXT", "SSECUPLD.XML", "SSICUPLD.XML", "EREVIEW.DB", "IREVIEW.DB"}) {
    const auto path = folder.write(std::string("media/CARD/MISC/") + file, "");
    EXPECT_EQ(device->sharingOrderExists(), file != std::string("NOTES.TXT")) << file;
    std::filesystem::remove(path);
  }
}

TEST_F(MSCTest, LooksForSharingOrdersNowhereElse) {
  folder.write("MISC/IREVIEW.DB", "");
  const auto device = unit();
  addVolume("../", "sdb1", usb);
  EXPECT_FALSE(device->sharingOrderExists());
}

TEST_F(MSCTest, SaysWhatKeepsItFromLookingForSharingOrders) {
  const auto device = unit();
  folder.write("media/NOTES.TXT", "");
  addVolume(std::string(300, 'x'), "sdb1", usb);  // no file has such a name
  EXPECT_FALSE(device->sharingOrderExists());
  EXPECT_THAT(traces.take(), ::testing::Contains(::testing::StartsWith(
                                 "Error: sharingOrderExists returning NO because ")));
}

constexpr const char* kDetected = "Detected device vendor ='Tarvo' model='Lumo 700'";

struct Row {
  const char* name;
  PropertyDictionary changes;  ///< merged into what a unit has; null takes away
  bool isFound;
  Lines traced = {kDetected};
};

PropertyDictionary vendor(const char* name) {
  return {{"idVendor", nullptr}, {"Device Characteristics", {{"Vendor Name", name}}}};
}
Lines detected(const std::string& vendorName) {
  return {"Detected device vendor ='" + vendorName + "' model='Lumo 700'"};
}

const Lines kNoGUID = {"Service does not have a guid for the SCSI task user client"};
const Lines kNoModel = {"Detected device vendor ='Tarvo' model='(null)'"};
const PropertyDictionary kNoProduct = {{"Device Characteristics", {{"Product Name", nullptr}}}};

const Row kRows[] = {
    {"the vendor id", PropertyDictionary::object(), true},
    {"another vendor id, whatever the name", {{"idVendor", 0xF056}}, false},
    {"a vendor id that is text", {{"idVendor", "F055"}}, false},
    {"the name in any case", vendor("tARVO"), true, detected("tARVO")},
    {"no letter of the name", vendor(""), true, detected("")},
    {"more than the name", vendor("Tarvos"), false, detected("Tarvos")},
    {"no product name", kNoProduct, false, kNoModel},
    {"no characteristics", {{"Device Characteristics", nullptr}}, false, {}},
    {"a drive of the machine", {{"Protocol Characteristics", nullptr}}, false, {}},
    {"a GUID that is text", {{"SCSITaskUserClient GUID", "sr0"}}, false, kNoGUID},
    {"another type of unit", {{"device-type", nullptr}}, false, {}},
};

// Every row is plugged in between two units that are good, one of them there at the start.
TEST_F(MSCTest, FindsTheMakersUnitsAndIsNotStoppedByOthers) {
  for (const Row& row : kRows) {
    PropertyDictionary properties = unitProperties("sr1");
    properties.merge_patch(row.changes);
    for (const ServiceHandle service :
         {registry.add(unitProperties("sr0")), registry.add(properties)})
      scsi.units[service] = std::make_shared<FakeSCSIUnit>(Pages{});
    TarvoMSCDeviceList list;
    traces.take();
    EXPECT_EQ(list.registerDeviceCallbackHandler(), status::kOK);
    plugFakeUnit(registry, scsi, "sr2", {}, 0);
    Lines expected = row.traced;
    expected.insert(expected.begin(), kDetected);
    expected.emplace_back(kDetected);
    EXPECT_EQ(traces.take(), expected) << row.name;
    EXPECT_THAT(list.devices(), testing::SizeIs(row.isFound ? 3 : 2)) << row.name;
    for (const auto service : registry.servicesMatching({{"IOClass", "scsi_unit"}}))
      registry.unplug(service);
    EXPECT_THAT(list.devices(), IsEmpty()) << row.name;
  }
  EXPECT_THAT(log.lines(),
              ElementsAre(HasSubstr("VID is not the expected number type"),
                          HasSubstr("Invalid parameter not satisfying: modelString != nil")));
}

TEST_F(MSCTest, SkipsAUnitThatCannotBeReachedOrIsJustGoing) {
  TarvoMSCDeviceList list;
  list.init();
  const ServiceHandle unreachable = registry.plug(unitProperties("sr0"));
  EXPECT_EQ(traces.take().back(), formatted("Error creating kIOMMCDeviceUserClientTypeID E00002C0, "
                                            "iodev = %X",
                                            unreachable));
  const ServiceHandle going = registry.add(unitProperties("sr1"));
  registry.makeUnreadable(going);
  registry.announce(going);
  registry.unplug(going);
  EXPECT_THAT(list.devices(), IsEmpty());
  EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MSCTest, KeepsTheOrderOfArrivalAndRemovesTheFirstWithTheGUID) {
  TarvoMSCDeviceList list;
  std::vector<std::shared_ptr<TarvoMSCDevice>> devices;
  for (const std::uint8_t guid : {1, 1, 2}) {
    devices.push_back(TarvoMSCDevice::initWithMMCDevice(std::make_shared<FakeSCSIUnit>(Pages{}), 1,
                                                        "", std::vector{guid}));
    list.addDevice(devices.back());
    EXPECT_EQ(list.mainDevice(), devices[0]);
  }
  list.removeDevice({1, 0}).removeDevice({}).removeDevice({3}).removeDevice({1});
  EXPECT_THAT(list.devices(), ElementsAre(devices[1], devices[2]));
}

TEST_F(MSCTest, AnnouncesAnArrivalToAnObserverThatMayChangeTheListOrRaise) {
  plugFakeUnit(registry, scsi, "sr0", {}, 0);
  int announced = 0;
  center.addObserver(this, "XTMSCDeviceAddedEvent", [&](const Notification& n) {
    // The list can be asked for while it is being made.
    auto& list = *TarvoMSCDeviceList::sharedDeviceList();
    EXPECT_EQ(list.mainDevice(), n.object);
    list.removeDevice(list.mainDevice()->guid());
    ++announced;
    raiseAssertion("of the observer");
  });
  auto& list = *TarvoMSCDeviceList::sharedDeviceList();
  plugFakeUnit(registry, scsi, "sr1", {}, 0);
  EXPECT_EQ(announced, 2);
  EXPECT_THAT(list.devices(), IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("of the observer"), HasSubstr("of the observer")));
}

}  // namespace
}  // namespace tarvo::test
