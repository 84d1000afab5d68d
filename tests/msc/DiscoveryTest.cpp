// Which entries of the registry are the maker's units, and the list of those that are there.
#include "tests/msc/MSCFixture.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

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

const Row kRows[] = {
    {"the vendor id", PropertyDictionary::object(), true},
    {"another vendor id, whatever the name", {{"idVendor", 0xF056}}, false},
    {"a vendor id that is text", {{"idVendor", "F055"}}, false},
    {"the name in any case", vendor("tARVO"), true, detected("tARVO")},
    {"no letter of the name", vendor(""), true, detected("")},
    {"more than the name", vendor("Tarvos"), false, detected("Tarvos")},
    {"no product name",
     {{"Device Characteristics", {{"Product Name", nullptr}}}},
     false,
     {"Detected device vendor ='Tarvo' model='(null)'"}},
    {"no characteristics", {{"Device Characteristics", nullptr}}, false, {}},
    {"a GUID that is text",
     {{"SCSITaskUserClient GUID", "sr0"}},
     false,
     {"Service does not have a guid for the SCSI task user client"}},
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
    EXPECT_THAT(list.devices(), SizeIs(row.isFound ? 3 : 2)) << row.name;
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
  EXPECT_EQ(list.mainDevice(), nullptr);
  const auto device = [](std::uint8_t guid) {
    return TarvoMSCDevice::initWithMMCDevice(std::make_shared<FakeSCSIUnit>(Pages{}), 1, "",
                                             std::vector{guid});
  };
  const auto first = device(1);
  const auto twin = device(1);
  const auto other = device(2);
  list.addDevice(first).addDevice(twin).addDevice(other);
  EXPECT_EQ(list.mainDevice(), first);
  list.removeDevice({1, 0}).removeDevice({}).removeDevice({3});
  EXPECT_THAT(list.devices(), ElementsAre(first, twin, other));
  list.removeDevice({1});
  EXPECT_THAT(list.devices(), ElementsAre(twin, other));
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
