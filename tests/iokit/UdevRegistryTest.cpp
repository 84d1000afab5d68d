#include "platform/iokit/UdevRegistry.h"

#include <gmock/gmock.h>

#include "tests/support/ManualRunLoop.h"
#include "tests/support/UdevTestbed.h"

namespace tarvo {
namespace {

using test::eventually;
using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kHub = "/sys/devices/usb1";
constexpr const char* kCamera = "/sys/devices/usb1/1-4/1-4.2";
constexpr const char* kInterface = "/sys/devices/usb1/1-4/1-4.2/1-4.2:1.0";
constexpr const char* kUnit = "/sys/devices/usb1/1-4/1-4.2/1-4.2:1.0/host6/target6:0:0/6:0:0:0";

const PropertyDictionary kPTPInterfaces = {{"IOClass", "usb_interface"}, {"bInterfaceClass", 6}};
const PropertyDictionary kDVDUnits = {{"IOPropertyMatch", {{"device-type", "DVD"}}}};

class UdevRegistryTest : public testing::Test {
 protected:
  void addCamera() {
    bed.addUSBDevice(kCamera, {1, "4.2", 7},
                     {{"idVendor", "f055"},
                      {"idProduct", "0a01"},
                      {"product", "  Tarvo N10 "},
                      {"manufacturer", "Tarvo Imaging"},
                      {"serial", "T-1"}});
  }
  void addHubs() {
    bed.addUSBDevice(kHub, {1, "0", 1}, {{"product", "xHCI Host Controller"}});
    bed.addUSBDevice("/sys/devices/usb1/1-4", {1, "4", 2});
  }
  void addUnit(const char* type = "5") {
    bed.add("/sys/devices/usb1/1-4/1-4.2/1-4.2:1.0/host6",
            {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_host"}}, {});
    bed.add("/sys/devices/usb1/1-4/1-4.2/1-4.2:1.0/host6/target6:0:0",
            {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_target"}}, {});
    bed.add(kUnit, {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}},
            {{"type", type}, {"vendor", "Tarvo   "}, {"model", "Lumo 100        "}});
  }
  void addGeneric() {
    bed.add(std::string(kUnit) + "/scsi_generic/sg1", {{"SUBSYSTEM", "scsi_generic"}}, {});
  }
  void addBlock() {
    bed.add(std::string(kUnit) + "/block/sr0", {{"SUBSYSTEM", "block"}, {"DEVTYPE", "disk"}}, {});
  }

  std::unique_ptr<RegistrySubscription> subscribe(const PropertyDictionary& match) {
    return registry().addMatchingNotification(
        match, [this](ServiceHandle service) { appeared.push_back(service); },
        [this](ServiceHandle service) {
          terminated.push_back(service);
          lastWords = registry().properties(service);
        });
  }

  /// Waits until every event sent so far has been delivered: they arrive in order.
  void settle() {
    const std::string name = "mark" + std::to_string(++marks_);
    bool seen = false;
    const auto mark = registry().addMatchingNotification(
        {{"BSD Name", name}}, [&](ServiceHandle) { seen = true; }, nullptr);
    bed.add("/sys/devices/virtual/block/" + name, {{"SUBSYSTEM", "block"}, {"DEVTYPE", "disk"}},
            {});
    ASSERT_TRUE(eventually([&] { return seen; }));
  }

  UdevRegistry& registry() {
    if (!registry_) {
      registry_ = std::make_unique<UdevRegistry>(
          loop, [this](LogLevel, std::string_view line) { log.emplace_back(line); });
    }
    return *registry_;
  }

  test::UdevTestbed bed;
  test::ManualRunLoop loop;
  std::vector<std::string> log;
  std::vector<ServiceHandle> appeared;
  std::vector<ServiceHandle> terminated;
  std::optional<PropertyDictionary> lastWords;

 private:
  std::unique_ptr<UdevRegistry> registry_;
  int marks_ = 0;
};

TEST_F(UdevRegistryTest, ShowsAUSBDeviceWithItsIdentity) {
  addHubs();
  addCamera();
  const auto found = registry().servicesMatching({{"idVendor", 0xF055}});
  ASSERT_THAT(found, SizeIs(1));
  const PropertyDictionary expected = {{"IOClass", "usb_device"},
                                       {"USB Product Name", "Tarvo N10"},
                                       {"USB Vendor Name", "Tarvo Imaging"},
                                       {"USB Serial Number", "T-1"},
                                       {"idVendor", 0xF055},
                                       {"idProduct", 0x0A01},
                                       {"locationID", 0x01420000},
                                       {"USB Device Node", "/dev/bus/usb/001/007"}};
  EXPECT_EQ(registry().properties(found[0]), expected);
}

TEST_F(UdevRegistryTest, NamesEveryUSBDeviceEvenWhereItHasNoName) {
  bed.addUSBDevice("/sys/devices/usb250/250-2", {250, "2", 3});
  const auto found = registry().servicesMatching({{"USB Product Name", ""}});
  ASSERT_THAT(found, SizeIs(1));
  const auto properties = registry().properties(found[0]);
  EXPECT_EQ(int32ForKey(*properties, "locationID"), -98566144);
  EXPECT_FALSE(properties->contains("USB Vendor Name"));
  EXPECT_FALSE(properties->contains("idVendor"));
}

TEST_F(UdevRegistryTest, ListsAncestorsNearestFirstUnderStableHandles) {
  addHubs();
  addCamera();
  bed.addUSBInterface(kInterface, "06 01 01");
  const auto interfaces = registry().servicesMatching(kPTPInterfaces);
  ASSERT_THAT(interfaces, SizeIs(1));
  const auto above = registry().ancestors(interfaces[0]);
  ASSERT_THAT(*above, SizeIs(3));
  EXPECT_EQ(registry().properties((*above)[0])->at("USB Product Name"), "Tarvo N10");
  EXPECT_EQ(registry().properties((*above)[2])->at("locationID"), 0x01000000);
  EXPECT_EQ(registry().ancestors(interfaces[0]), above);
  EXPECT_EQ(registry().servicesMatching(kPTPInterfaces), interfaces);
}

TEST_F(UdevRegistryTest, KnowsNothingOfAHandleItNeverGave) {
  EXPECT_EQ(registry().properties(4711), std::nullopt);
  EXPECT_EQ(registry().ancestors(0), std::nullopt);
}

TEST_F(UdevRegistryTest, FindsByBSDNameTheDiskAndItsUnit) {
  addHubs();
  addCamera();
  addUnit();
  addBlock();
  const auto found = registry().servicesMatchingBSDName("sr0");
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_EQ(registry().properties(found[0])->at("IOClass"), "block");
  EXPECT_EQ(registry().properties(found[1])->at("IOClass"), "scsi_unit");
  for (const char* name : {"", "sr1", "../block/sr0", "/dev/sr0"})
    EXPECT_THAT(registry().servicesMatchingBSDName(name), IsEmpty()) << name;
}

TEST_F(UdevRegistryTest, AnnouncesADeviceOnceHoweverOftenItsEventComes) {
  addHubs();
  addCamera();
  const auto subscription = subscribe(kPTPInterfaces);
  bed.addUSBInterface(kInterface, "06 01 01");
  for (const char* action : {"bind", "change", "add"})
    bed.uevent(kInterface, action);
  settle();
  EXPECT_THAT(appeared, SizeIs(1));
}

TEST_F(UdevRegistryTest, AnnouncesNothingThatWasThereBefore) {
  addHubs();
  addCamera();
  bed.addUSBInterface(kInterface, "06 01 01");
  const auto subscription = subscribe(kPTPInterfaces);
  bed.uevent(kInterface, "add");
  bed.uevent(kCamera, "add");
  settle();
  EXPECT_THAT(appeared, IsEmpty());
  EXPECT_THAT(registry().servicesMatching(kPTPInterfaces), SizeIs(1));
}

TEST_F(UdevRegistryTest, TellsOfTheEndWhilePropertiesCanStillBeRead) {
  addHubs();
  addCamera();
  bed.addUSBInterface(kInterface, "06 01 01");
  const auto subscription = subscribe(kPTPInterfaces);
  const auto present = registry().servicesMatching(kPTPInterfaces);
  bed.uevent(kInterface, "unbind");
  bed.remove(kInterface);
  settle();
  EXPECT_EQ(terminated, present);
  ASSERT_TRUE(lastWords);
  EXPECT_EQ(lastWords->at("bInterfaceProtocol"), 1);
  EXPECT_EQ(registry().properties(present[0]), std::nullopt);
}

TEST_F(UdevRegistryTest, NeverUsesAHandleTwice) {
  addHubs();
  addCamera();
  const auto subscription = subscribe(kPTPInterfaces);
  for (int plug = 0; plug < 3; ++plug) {
    bed.addUSBInterface(kInterface, "06 01 01");
    settle();
    bed.remove(kInterface);
    settle();
  }
  ASSERT_THAT(appeared, SizeIs(3));
  EXPECT_EQ(terminated, appeared);
  EXPECT_LT(appeared[0], appeared[1]);
  EXPECT_LT(appeared[1], appeared[2]);
}

TEST_F(UdevRegistryTest, TellsNobodyWhoDoesNotAskOrAsksNoMore) {
  addHubs();
  addCamera();
  const auto others = subscribe({{"IOClass", "usb_interface"}, {"bInterfaceClass", 8}});
  auto ended = subscribe(kPTPInterfaces);
  ended.reset();
  bed.addUSBInterface(kInterface, "06 01 01");
  bed.remove(kInterface);
  settle();
  EXPECT_THAT(appeared, IsEmpty());
  EXPECT_THAT(terminated, IsEmpty());
}

TEST_F(UdevRegistryTest, KeepsOneSubscribersExceptionFromTheOthers) {
  const auto failing = registry().addMatchingNotification(
      kPTPInterfaces, [](ServiceHandle) { throw std::runtime_error("no memory"); }, nullptr);
  const auto subscription = subscribe(kPTPInterfaces);
  bed.addUSBInterface("/sys/devices/usb9", "06 01 01");
  settle();
  EXPECT_THAT(appeared, SizeIs(1));
  EXPECT_THAT(log, Contains("handling uncaught exception in appeared: no memory"));
}

TEST_F(UdevRegistryTest, LetsASubscriberEndASubscriptionDuringAnAnnouncement) {
  std::unique_ptr<RegistrySubscription> second;
  const auto first = registry().addMatchingNotification(
      kPTPInterfaces, [&](ServiceHandle) { second.reset(); }, nullptr);
  second = subscribe(kPTPInterfaces);
  bed.addUSBInterface("/sys/devices/usb9", "06 01 01");
  settle();
  EXPECT_THAT(appeared, IsEmpty());
}

TEST_F(UdevRegistryTest, AnnouncesASCSIUnitOnceItsNodesAreThere) {
  addHubs();
  addCamera();
  const auto subscription = subscribe(kDVDUnits);
  addUnit();
  addGeneric();
  settle();
  EXPECT_THAT(appeared, IsEmpty());
  EXPECT_THAT(registry().servicesMatching(kDVDUnits), IsEmpty()) << "it is not whole yet";
  addBlock();
  bed.uevent(kUnit, "bind");
  settle();
  ASSERT_THAT(appeared, SizeIs(1));

  const auto unit = registry().properties(appeared[0]).value();
  EXPECT_EQ(unit["BSD Name"], "sr0");
  EXPECT_EQ(unit["device-type"], "DVD");
  EXPECT_EQ(unit["Device Characteristics"],
            (PropertyDictionary{{"Vendor Name", "Tarvo"}, {"Product Name", "Lumo 100"}}));
  EXPECT_EQ(unit["Protocol Characteristics"],
            (PropertyDictionary{{"Physical Interconnect", "USB"}}));
  EXPECT_EQ(unit["idVendor"], 0xF055);
  EXPECT_EQ(unit["locationID"], 0x01420000);
  EXPECT_FALSE(unit.contains("USB Product Name"));
  EXPECT_EQ(
      registry().servicesMatching(
          {{"IOPropertyMatch", {{"SCSITaskUserClient GUID", unit["SCSITaskUserClient GUID"]}}}}),
      appeared);
}

TEST_F(UdevRegistryTest, AnnouncesASCSIUnitWithoutItsNodesAfterASecond) {
  addHubs();
  addCamera();
  const auto subscription = subscribe(kDVDUnits);
  addUnit();
  settle();
  loop.advance(std::chrono::milliseconds(999));
  EXPECT_THAT(appeared, IsEmpty());
  loop.advance(std::chrono::milliseconds(1));
  ASSERT_THAT(appeared, SizeIs(1));
  EXPECT_FALSE(registry().properties(appeared[0])->contains("BSD Name"));
  addBlock();
  settle();
  EXPECT_EQ(loop.validTimerCount(), 0U);
  EXPECT_THAT(appeared, SizeIs(1));
}

TEST_F(UdevRegistryTest, GivesAUnitTheSameGUIDAtEveryPlugAndAnotherInAnotherPlace) {
  addHubs();
  addCamera();
  addUnit();
  const auto guidOf = [&](const char* path) {
    for (const ServiceHandle unit : registry().servicesMatching({{"IOClass", "scsi_unit"}})) {
      const auto properties = registry().properties(unit).value();
      if (properties["Device Characteristics"]["Product Name"] == path)
        return properties["SCSITaskUserClient GUID"];
    }
    return PropertyDictionary();
  };
  const auto first = guidOf("Lumo 100");
  EXPECT_EQ(first.get_binary().size(), 16U);
  const std::string base = "/sys/devices/usb1/1-4/1-4.2/1-4.2:1.0/";
  bed.add(base + "host9/target9:0:0/9:0:0:0", {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}},
          {{"type", "0"}, {"vendor", "Tarvo"}, {"model", "again"}});
  bed.add(base + "host9/target9:0:0/9:0:0:1", {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}},
          {{"type", "0"}, {"vendor", "Tarvo"}, {"model", "second unit"}});
  bed.add("/sys/devices/pci/ata1/1:0:0:0", {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}},
          {{"type", "0"}, {"vendor", "ATA"}, {"model", "disk"}});
  EXPECT_EQ(guidOf("again"), first);
  EXPECT_NE(guidOf("second unit"), first);
  EXPECT_NE(guidOf("disk"), first);
}

TEST_F(UdevRegistryTest, ShowsAnotherTypeOfUnitWithoutADeviceType) {
  bed.add("/sys/devices/pci/ata1/1:0:0:0", {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}},
          {{"type", "0"}, {"vendor", "ATA"}, {"model", "disk"}});
  const auto found = registry().servicesMatching({{"IOClass", "scsi_unit"}});
  ASSERT_THAT(found, SizeIs(1));
  const auto unit = registry().properties(found[0]).value();
  for (const char* key : {"device-type", "Protocol Characteristics", "idVendor", "locationID"})
    EXPECT_FALSE(unit.contains(key)) << key;
  EXPECT_THAT(registry().servicesMatching(kDVDUnits), IsEmpty());
}

TEST_F(UdevRegistryTest, IsEmptyWhereThereIsNothingToRead) {
  const auto subscription = subscribe(kPTPInterfaces);
  EXPECT_THAT(registry().servicesMatching(PropertyDictionary::object()), IsEmpty());
  EXPECT_THAT(registry().servicesMatchingBSDName("sda"), IsEmpty());
  EXPECT_THAT(loop.validIntervals(), IsEmpty());
}

}  // namespace
}  // namespace tarvo
