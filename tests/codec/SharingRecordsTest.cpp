// Contacts, groups and orders between their structs and bytes: what a way there and back keeps,
// and what it loses on purpose. The layout itself is in RecordJSONTest.cpp.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "tests/support/HexBytes.h"
#include "tests/support/Raised.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using test::raised;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

constexpr const char* kID = "00112233-4455-6677-8899-AABBCCDDEEFF";
constexpr const char* kNoID = "00000000-0000-0000-0000-000000000000";

/// What `store` writes of a value.
template <typename Store, typename... Values>
XTMutablePTPDataSet written(Store store, const Values&... values) {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  store(dataSet, values...);
  return dataSet;
}

/// The value after a way to bytes and back, which must read exactly the bytes that are there.
template <typename Value, typename Store, typename Scan>
Value thereAndBack(const Value& value, Store store, Scan scan) {
  auto dataSet = written(store, value);
  const std::uint32_t length = dataSet.length();
  dataSet.setPosition(0);
  Value read = scan(dataSet);
  EXPECT_EQ(dataSet.position(), length);
  return read;
}

Contact wholeContact() {
  return {.uid = kID,
          .email = "a@b.example",
          .nickname = "Ä😀",
          .firstName = "first",
          .lastName = "last",
          .street = "1\r2",
          .city = "city",
          .state = "state",
          .country = "country",
          .zip = "zip",
          .phone = "phone",
          .sharingPref = 1,
          .defaultNumPrints = 65535};
}

TEST(Contact, LosesOnTheWayToTheDeviceExactlyWhatIsNotWritten) {
  const struct {
    const char* what;
    void (*before)(Contact&);
    void (*after)(Contact&);
  } rows[] = {
      {"what is not written",
       [](Contact& c) {
         c.image = 7;
         c.associatedGroups = {1, 2};
         c.handle = 9;
         c.action = DataSyncAction::kAdd;
       },
       [](Contact&) {}},
      {"third line", [](Contact& c) { c.street = "1\r2\r\r4"; }, [](Contact&) {}},
      {"second line alone", [](Contact& c) { c.street = "\r2"; },
       [](Contact& c) { c.street = "2"; }},
      {"end of a line", [](Contact& c) { c.street = "1\r"; }, [](Contact& c) { c.street = "1"; }},
      {"no address", [](Contact& c) { c.email.reset(); }, [](Contact& c) { c.email = ""; }},
      {"small letters", [](Contact& c) { c.uid = "00112233-4455-6677-8899-aabbccddeeff"; },
       [](Contact&) {}},
      {"a uid that is none", [](Contact& c) { c.uid = "me"; }, [](Contact& c) { c.uid = kNoID; }},
  };
  for (const auto& row : rows) {
    Contact contact = wholeContact();
    row.before(contact);
    Contact expected = wholeContact();
    row.after(expected);
    const Contact read = thereAndBack(contact, storeContact, scanContact);
    EXPECT_TRUE(read == expected) << row.what;
    // From then on nothing changes.
    EXPECT_TRUE(thereAndBack(read, storeContact, scanContact) == read) << row.what;
  }
}

TEST(Contact, WithoutUIDGetsANewOneEachTimeItIsWritten) {
  Contact contact = wholeContact();
  contact.uid.reset();
  Contact first = thereAndBack(contact, storeContact, scanContact);
  const Contact second = thereAndBack(contact, storeContact, scanContact);
  EXPECT_FALSE(contact.uid);
  EXPECT_THAT(first.uid.value(), MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
  EXPECT_NE(first.uid, second.uid);
  EXPECT_NE(first.uid, kNoID);
  first.uid = kID;
  EXPECT_TRUE(first == wholeContact());
  // The array of no bytes is for a text that is no GUID, and for it alone.
  EXPECT_EQ(hexText(written(storeContact, Contact{.uid = ""}).bytes()).substr(0, 10), "0000000000");
}

TEST(Contact, ReadsPictureGroupsAndLinesAsTheyAre) {
  const std::pair<const char*, const char*> rows[] = {
      {"00 02 3200 0000", "2"}, {"04 3100 0d00 3200 0000 02 3300 0000", "1\r2\r3"}};
  for (const auto& [lines, street] : rows) {
    const auto bytes = hexBytes("08000000 0011223344556677 00 00 00 00" + std::string(lines) +
                                "00 00 00 00 00 07000000 02000000 01000000 03000000 0000 0000");
    auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
    const Contact expected = {.uid = kNoID,
                              .email = "",
                              .nickname = "",
                              .street = street,
                              .image = 7,
                              .associatedGroups = {1, 3}};
    EXPECT_TRUE(scanContact(dataSet) == expected) << lines;
  }
}

TEST(ContactGroup, HasItsMembersInTheOrderOfTheWire) {
  const ContactsByHandle contacts = {{1, std::make_shared<Contact>(Contact{.firstName = "one"})},
                                     {2, std::make_shared<Contact>(Contact{.firstName = "two"})}};
  const ContactGroup group = {.name = "g", .image = 5, .members = {contacts.at(1)}};
  auto dataSet = written(storeContactGroup, group, std::vector<std::uint32_t>{2, 1, 2});
  EXPECT_EQ(hexText(dataSet.bytes()),
            "0267000000"
            "05000000"
            "03000000"
            "020000000100000002000000");
  dataSet.setPosition(0);
  const ContactGroup read = scanGroupAndAssignContacts(dataSet, contacts);
  EXPECT_EQ(read.name, "g");
  EXPECT_EQ(read.image, 5U);
  EXPECT_THAT(read.members, ElementsAre(contacts.at(2), contacts.at(1), contacts.at(2)));
  EXPECT_EQ(read.handle, 0U);
  EXPECT_EQ(read.action, DataSyncAction::kAbsent);

  auto unknown = written(storeContactGroup, group, std::vector<std::uint32_t>{1, 3});
  unknown.setPosition(0);
  EXPECT_EQ(raised([&] { scanGroupAndAssignContacts(unknown, contacts); }),
            "NSInternalInconsistencyException: Could not find contacts for all members of group g");
}

TEST(Orders, OfTransferPassOverTwentyBytesWhateverTheyAre) {
  const std::pair<const char*, const char*> rows[] = {
      {"10000000", kID}, {"00000000", kNoID}, {"ffffffff", kNoID}};
  for (const auto& [count, id] : rows) {
    const auto bytes =
        hexBytes(std::string(count) + "00112233445566778899aabbccddeeff 0200 00 01000000 07000000");
    auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
    const TransferOrderRecord expected = {.orderID = id, .type = 2, .assetHandles = {7}};
    EXPECT_TRUE(scanTransferOrder(dataSet) == expected) << count;
  }
  // An e-mail order's array is as long as it says.
  const auto bytes = hexBytes("02000000 aabb 0200 00 00000000 00 00 00000000");
  auto dataSet = XTPTPDataSet::ptpDataSetWithBytesNoCpy(bytes, kPTPByteOrder);
  const EmailOrderRecord expected = {.orderID = kNoID, .serviceType = 2};
  EXPECT_TRUE(scanEmailOrder(dataSet) == expected);
}

}  // namespace
}  // namespace tarvo
