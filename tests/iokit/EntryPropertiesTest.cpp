#include "platform/iokit/EntryProperties.h"

#include <gtest/gtest.h>

#include "platform/iokit/PropertyMatch.h"

namespace tarvo {
namespace {

struct LocationRow {
  unsigned bus;
  const char* portPath;
  std::uint32_t location;
};

class LocationID : public testing::TestWithParam<LocationRow> {};

TEST_P(LocationID, HasTheBusInTheTopByteAndAPortInEachNibble) {
  const LocationRow& row = GetParam();
  EXPECT_EQ(usbLocationID(row.bus, row.portPath), row.location) << row.bus << "-" << row.portPath;
}

INSTANTIATE_TEST_SUITE_P(
    Table, LocationID,
    testing::Values(LocationRow{1, "0", 0x01000000}, LocationRow{1, "4", 0x01400000},
                    LocationRow{1, "4.2", 0x01420000}, LocationRow{2, "1.2.3.4.5.6", 0x02123456},
                    LocationRow{250, "2", 0xFA200000}, LocationRow{255, "15", 0xFFF00000},
                    // A port that does not fit a nibble, a level too deep, a bus beyond a byte.
                    LocationRow{3, "16.1", 0x03F10000}, LocationRow{3, "1.1.1.1.1.1.7", 0x03111111},
                    LocationRow{0x105, "1", 0x05100000},
                    // Nothing that a kernel writes.
                    LocationRow{1, "", 0x01000000}, LocationRow{1, "x.2", 0x01020000},
                    LocationRow{1, "4..2", 0x01402000}));

TEST(KindsThatCanMatch, AreThoseThatHaveEveryKey) {
  EXPECT_EQ(kindsThatCanMatch({{"IOClass", "usb_interface"}}), kUSBInterfaceEntry);
  EXPECT_EQ(kindsThatCanMatch({{"idVendor", 1}}), kUSBDeviceEntry | kSCSIUnitEntry);
  EXPECT_EQ(kindsThatCanMatch({{"idVendor", 1}, {"BSD Name", "sr0"}}), kSCSIUnitEntry);
  EXPECT_EQ(kindsThatCanMatch({{"IOPropertyMatch", {{"device-type", "DVD"}}}}), kSCSIUnitEntry);
  EXPECT_EQ(kindsThatCanMatch(PropertyDictionary::object()), kEveryEntry);
  EXPECT_EQ(kindsThatCanMatch({{"no such key", 1}}), kNoEntry);
  EXPECT_EQ(kindsThatCanMatch({{"IOClass", "no such class"}}), kNoEntry);
  EXPECT_EQ(kindsThatCanMatch({{"bInterfaceClass", 6}, {"device-type", "DVD"}}), kNoEntry);
  EXPECT_EQ(kindsThatCanMatch("no dictionary"), kNoEntry);
}

TEST(PropertiesMatch, WhenEveryKeyIsThereWithAnEqualValue) {
  const PropertyDictionary unit = {{"device-type", "DVD"}, {"idVendor", 0xF055}};
  EXPECT_TRUE(propertiesMatch(unit, PropertyDictionary::object()));
  EXPECT_TRUE(propertiesMatch(unit, {{"device-type", "DVD"}}));
  EXPECT_TRUE(propertiesMatch(unit, {{"IOPropertyMatch", {{"device-type", "DVD"}}}}));
  EXPECT_TRUE(propertiesMatch(unit, {{"idVendor", 0xF055}, {"IOPropertyMatch", unit}}));
  EXPECT_FALSE(propertiesMatch(unit, {{"device-type", "dvd"}}));
  EXPECT_FALSE(propertiesMatch(unit, {{"idVendor", "61525"}}));
  EXPECT_FALSE(propertiesMatch(unit, {{"BSD Name", nullptr}}));
  EXPECT_FALSE(propertiesMatch(unit, {{"IOPropertyMatch", {{"idVendor", 1}}}}));
  EXPECT_FALSE(propertiesMatch(unit, {{"IOPropertyMatch", "DVD"}}));
  EXPECT_FALSE(propertiesMatch("DVD", PropertyDictionary::object()));
}

}  // namespace
}  // namespace tarvo
