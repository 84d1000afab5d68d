#include "platform/iokit/UdevRegistry.h"

#include <gmock/gmock.h>

#include "tests/support/ManualRunLoop.h"
#include "tests/support/UdevTestbed.h"

namespace tarvo {
namespace {

using test::UdevTestbed;
using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kCamera = "/sys/devices/usb1/1-4/1-4.2";
const std::string kInterface = std::string(kCamera) + "/1-4.2:1.0";
const std::string kUnit = kInterface + "/host6/target6:0:0/6:0:0:0";

const PropertyDictionary kPTPInterfaces = {{"IOClass", "usb_interface"}, {"bInterfaceClass", 6}};
const PropertyDictionary kDVDUnits = {{"IOPropertyMatch", {{"device-type", "DVD"}}}};
const PropertyDictionary kUnits = {{"IOClass", "scsi_unit"}};

class UdevRegistryTest : public testing::Test {
 protected:
  void addCamera() {
    bed.addUSBDevice("/sys/devices/usb1", {1, "0", 1}, {{"product", "xHCI Host Controller"}});
    bed.addUSBDevice("/sys/devices/usb1/1-4", {1, "4", 2});
    bed.addUSBDevice(kCamera, {1, "4.2", 7},
                     {{"idVendor", "f055"},
                      {"idProduct", "0a01"},
                      {"product", "  Tarvo N10 "},
                      {"manufacturer", "Tarvo Imaging"},
                      {"serial", "T-1"}});
  }
  void addInterface() { bed.addUSBInterface(kInterface, "06 01 01"); }
  void addUnit(const std::string& path, const char* type, const char* vendor, const char* model) {
    bed.add(path, {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}},
            {{"type", type}, {"vendor", vendor}, {"model", model}});
  }
  void addOptical() { addUnit(kUnit, "5", "Tarvo   ", "Lumo 100        "); }
  void addGeneric() { bed.add(kUnit + "/scsi_generic/sg1", {{"SUBSYSTEM", "scsi_generic"}}, {}); }
  void addBlock(const std::string& path) {
    bed.add(path, {{"SUBSYSTEM", "block"}, {"DEVTYPE", "disk"}}, {});
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
    addBlock("/sys/devices/virtual/block/" + name);
    ASSERT_TRUE(test::waitUntil([&] { return seen; }));
  }

  UdevRegistry& registry() {
    if (!registry_) {
      registry_ = std::make_unique<UdevRegistry>(
          loop, [this](LogLevel, std::string_view line) { log.emplace_back(line); });
    }
    return *registry_;
  }

  UdevTestbed bed;
  test::ManualRunLoop loop;
  std::vector<std::string> log;
  std::vector<ServiceHandle> appeared;
  std::vector<ServiceHandle> terminated;
  std::optional<PropertyDictionary> lastWords;

 private:
  std::unique_ptr<UdevRegistry> registry_;
  int marks_ = 0;
};

TEST_F(UdevRegistryTest, ShowsAUSBDeviceWithItsIdentityAndANameEvenWhereItHasNone) {
  addCamera();
  bed.addUSBDevice("/sys/devices/usb250/250-2", {250, "2", 3});
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
  const auto nameless = registry().servicesMatching({{"locationID", 0xFA200000U}});
  ASSERT_THAT(nameless, SizeIs(1));
  EXPECT_EQ(registry().properties(nameless[0])->at("USB Product Name"), "");
  EXPECT_EQ(registry().properties(4711), std::nullopt);
  EXPECT_EQ(registry().ancestors(0), std::nullopt);
}

TEST_F(UdevRegistryTest, FindsByBSDNameTheDiskAndItsUnit) {
  addCamera();
  addOptical();
  addBlock(kUnit + "/block/sr0");
  const auto found = registry().servicesMatchingBSDName("sr0");
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_EQ(registry().properties(found[0])->at("IOClass"), "block");
  EXPECT_EQ(registry().properties(found[1])->at("IOClass"), "scsi_unit");
  for (const char* name : {"", "sr1", "../block/sr0", "/dev/sr0"})
    EXPECT_THAT(registry().servicesMatchingBSDName(name), IsEmpty()) << name;
}

TEST_F(UdevRegistryTest, KnowsWhatADiskHasOfAUSBDeviceAlsoBelowAMappedOne) {
  addCamera();
  bed.addUSBDevice("/sys/devices/usb1/1-4/1-4.3", {1, "4.3", 8}, {{"serial", "T-1"}});
  addBlock(kUnit + "/block/sda");
  addBlock(kUnit + "/block/sda/sda1");
  addBlock("/sys/devices/usb1/1-4/1-4.3/1-4.3:1.0/host7/target7:0:0/7:0:0:0/block/sdb");
  const std::string mapped = "/sys/devices/virtual/block/";
  for (const char* name : {"dm-0", "dm-1", "loop0", "loop0/loop0p1", "loop1"})
    addBlock(mapped + name);
  // In "slaves" there are links, of which the names count.
  const std::tuple<const char*, const char*, const char*> attributes[] = {
      {"dm-0", "slaves/sda1", ""},
      {"dm-1", "slaves/dm-0", ""},
      {"dm-1", "slaves/sdb", ""},
      {"loop0", "loop/backing_file", "/dev/dm-0\n"},
      {"loop1", "loop/backing_file", "/home/sda1\n"}};
  for (const auto& [device, name, text] : attributes)
    umockdev_testbed_set_attribute(bed.handle(), (mapped + device).c_str(), name, text);
  const auto camera = registry().servicesMatching({{"USB Product Name", "Tarvo N10"}});
  ASSERT_THAT(camera, SizeIs(1));
  const std::pair<const char*, DiskShare> rows[] = {
      {"sda", DiskShare::kAll},       {"sda1", DiskShare::kAll},    {"sdb", DiskShare::kNothing},
      {"dm-0", DiskShare::kAll},      {"dm-1", DiskShare::kPart},   {"loop0p1", DiskShare::kAll},
      {"loop1", DiskShare::kNothing}, {"sdz", DiskShare::kNothing}, {"../x", DiskShare::kNothing}};
  for (const auto& [name, share] : rows) {
    EXPECT_EQ(shareOfDisk(registry(), name, camera[0]), share) << name;
    EXPECT_EQ(shareOfDisk(registry(), name, 0), DiskShare::kNothing) << name;
  }
}

TEST_F(UdevRegistryTest, AnnouncesADeviceAtEachPlugOnceHoweverOftenItsEventComes) {
  addCamera();
  addInterface();
  const auto present = registry().servicesMatching(kPTPInterfaces);
  const auto subscription = subscribe(kPTPInterfaces);
  const auto others = subscribe({{"IOClass", "usb_interface"}, {"bInterfaceClass", 8}});
  auto ended = subscribe(kPTPInterfaces);
  ended.reset();
  const auto repeat = [&] {
    for (const char* action : {"bind", "change", "add"})
      bed.uevent(kInterface, action);
    settle();
  };
  repeat();
  EXPECT_THAT(appeared, IsEmpty()) << "it was there before";
  for (std::size_t plug = 1; plug < 3; ++plug) {
    bed.uevent(kInterface, "unbind");
    bed.remove(kInterface);
    settle();
    EXPECT_THAT(terminated, SizeIs(plug));
    EXPECT_EQ(lastWords.value()["bInterfaceProtocol"], 1) << "readable in the callback";
    EXPECT_EQ(registry().properties(terminated.back()), std::nullopt) << "and not after it";
    addInterface();
    repeat();
    ASSERT_THAT(appeared, SizeIs(plug));
    EXPECT_GT(appeared.back(), terminated.back()) << "a handle is never used twice";
  }
  EXPECT_EQ(terminated, (std::vector{present[0], appeared[0]}));
}

TEST_F(UdevRegistryTest, KeepsOneSubscribersExceptionAndLeavingFromTheOthers) {
  std::unique_ptr<RegistrySubscription> leaving;
  const auto failing = registry().addMatchingNotification(
      kPTPInterfaces,
      [&](ServiceHandle) {
        leaving.reset();
        throw std::runtime_error("no memory");
      },
      nullptr);
  leaving = registry().addMatchingNotification(
      kPTPInterfaces, [](ServiceHandle) { FAIL() << "it has left"; }, nullptr);
  const auto subscription = subscribe(kPTPInterfaces);
  bed.addUSBInterface("/sys/devices/usb9", "06 01 01");
  settle();
  EXPECT_THAT(appeared, SizeIs(1));
  EXPECT_THAT(log, Contains("handling uncaught exception in appeared: no memory"));
}

TEST_F(UdevRegistryTest, AnnouncesASCSIUnitOnceItsNodesAreThere) {
  addCamera();
  const auto subscription = subscribe(kDVDUnits);
  addOptical();
  addGeneric();
  settle();
  EXPECT_THAT(appeared, IsEmpty());
  EXPECT_THAT(registry().servicesMatching(kDVDUnits), IsEmpty()) << "it is not whole yet";
  addBlock(kUnit + "/block/sr0");
  bed.uevent(kUnit, "bind");
  settle();
  ASSERT_THAT(appeared, SizeIs(1));

  auto unit = registry().properties(appeared[0]).value();
  const auto guid = unit["SCSITaskUserClient GUID"];
  const PropertyDictionary expected = {
      {"IOClass", "scsi_unit"},
      {"BSD Name", "sr0"},
      {"device-type", "DVD"},
      {"Device Characteristics", {{"Vendor Name", "Tarvo"}, {"Product Name", "Lumo 100"}}},
      {"Protocol Characteristics", {{"Physical Interconnect", "USB"}}},
      {"SCSITaskUserClient GUID", guid},
      {"SCSI Generic Node", "/dev/sg1"},
      {"idVendor", 0xF055},
      {"idProduct", 0x0A01},
      {"locationID", 0x01420000}};
  EXPECT_EQ(unit, expected);
  EXPECT_EQ(guid.get_binary().size(), 16U);
  EXPECT_EQ(registry().servicesMatching({{"SCSITaskUserClient GUID", guid}}), appeared);

  bed.remove(kUnit + "/scsi_generic/sg1");
  bed.remove(kUnit + "/block/sr0");
  bed.remove(kUnit);
  settle();
  ASSERT_THAT(terminated, SizeIs(1));
  EXPECT_EQ(lastWords.value()["BSD Name"], "sr0");
  EXPECT_FALSE(lastWords->contains("SCSI Generic Node")) << "it may be another unit's by now";
}

// A unit may leave while its arrival is still being dealt with.
TEST_F(UdevRegistryTest, KnowsWhoseAUnitWasUntilTheEndOfItsUSBDeviceIsHeardOf) {
  addCamera();
  std::vector<std::string> serials;
  ServiceHandle usbDevice = 0;
  const auto note = [&] {
    const auto properties = registry().properties(usbDevice);
    serials.push_back(properties ? properties->value("USB Serial Number", "") : "none");
  };
  const auto subscription = registry().addMatchingNotification(
      kDVDUnits,
      [&](ServiceHandle unit) {
        usbDevice = registry().ancestors(unit)->at(0);
        note();
        // It goes from sysfs bit by bit.
        umockdev_testbed_set_attribute(bed.handle(), kCamera, "serial", "");
        note();
        bed.remove(kUnit + "/block/sr0");
        bed.remove(kUnit);
        bed.remove(kCamera);
        EXPECT_EQ(registry().ancestors(unit)->at(0), usbDevice);
        note();
      },
      nullptr);
  addOptical();
  addGeneric();
  addBlock(kUnit + "/block/sr0");
  settle();
  settle();  // behind what went meanwhile
  note();
  EXPECT_THAT(serials, testing::ElementsAre("T-1", "T-1", "T-1", "none"));
}

TEST_F(UdevRegistryTest, AnnouncesASCSIUnitWithoutItsDiskAfterASecond) {
  addCamera();
  const auto subscription = subscribe(kDVDUnits);
  addOptical();
  addGeneric();
  settle();
  loop.advance(std::chrono::milliseconds(999));
  EXPECT_THAT(appeared, IsEmpty());
  loop.advance(std::chrono::milliseconds(1));
  ASSERT_THAT(appeared, SizeIs(1));
  addBlock(kUnit + "/block/sr0");
  settle();
  EXPECT_EQ(loop.validTimerCount(), 0U);
  EXPECT_THAT(appeared, SizeIs(1));
  EXPECT_EQ(registry().properties(appeared[0])->value("BSD Name", ""), "sr0");
}

TEST_F(UdevRegistryTest, AnnouncesAUnitThatWasThereBeforeItsNodesWhenTheyCome) {
  addCamera();
  addOptical();
  addBlock(kUnit + "/block/sr0");
  const auto subscription = subscribe(kDVDUnits);
  EXPECT_THAT(subscription->present(), IsEmpty());
  loop.advance(std::chrono::minutes(1));
  EXPECT_EQ(loop.validTimerCount(), 0U);
  addGeneric();
  settle();
  EXPECT_THAT(appeared, SizeIs(1));
  EXPECT_EQ(subscribe(kDVDUnits)->present(), appeared) << "known to who asks for the same";
}

TEST_F(UdevRegistryTest, TellsAUnitFromTheOneThatWasInItsPlaceBeforeTheEventsCome) {
  addCamera();
  addOptical();
  addGeneric();
  addBlock(kUnit + "/block/sr0");
  const auto subscription = subscribe(kDVDUnits);
  const auto first = subscription->present().at(0);
  EXPECT_TRUE(registry().properties(first)->contains("SCSI Generic Node"));
  const auto guid = registry().properties(first)->at("SCSITaskUserClient GUID");
  umockdev_testbed_set_attribute(bed.handle(), kCamera, "devnum", "8");
  EXPECT_FALSE(registry().properties(first)->contains("SCSI Generic Node"));
  const auto found = registry().servicesMatching({{"SCSITaskUserClient GUID", guid}});
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_NE(found[0], first);
  for (const char* action : {"remove", "add"})
    bed.uevent(kUnit, action);
  bed.uevent(kUnit + "/scsi_generic/sg1", "add");
  bed.uevent(kUnit + "/block/sr0", "add");
  settle();
  EXPECT_EQ(terminated, std::vector{first});
  EXPECT_EQ(appeared, found);
}

TEST_F(UdevRegistryTest, GivesAUnitTheSameGUIDAtEveryPlugAndAnotherInAnotherPlace) {
  addCamera();
  addOptical();
  addUnit(kInterface + "/host9/target9:0:0/9:0:0:0", "0", "Tarvo", "again");
  addUnit(kInterface + "/host9/target9:0:0/9:0:0:1", "0", "Tarvo", "second unit");
  addUnit("/sys/devices/pci/ata1/1:0:0:0", "0", "ATA", "disk");
  // Ports that share a location, and devices that share a serial number.
  for (const char* port : {"20", "21"}) {
    const std::string path = std::string("/sys/devices/usb1/1-") + port;
    bed.addUSBDevice(path, {1, port, 9}, {{"serial", "T-1"}});
    addUnit(path + "/" + port + ":0:0:0", "5", "Tarvo", port);
  }
  std::map<std::string, PropertyDictionary> units;
  for (const ServiceHandle service : registry().servicesMatching(kUnits)) {
    const auto unit = registry().properties(service).value();
    units[unit["Device Characteristics"]["Product Name"]] = unit;
  }
  const auto guidOf = [&](const char* name) { return units[name]["SCSITaskUserClient GUID"]; };
  EXPECT_EQ(guidOf("again"), guidOf("Lumo 100"));
  EXPECT_NE(guidOf("second unit"), guidOf("Lumo 100"));
  EXPECT_NE(guidOf("disk"), guidOf("Lumo 100"));
  EXPECT_EQ(units["20"]["locationID"], units["21"]["locationID"]);
  EXPECT_NE(guidOf("20"), guidOf("21"));
  EXPECT_FALSE(units["disk"].contains("locationID")) << "it is not of USB";
}

}  // namespace
}  // namespace tarvo
