#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"

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

PropertyDictionary wholeBook() {
  return PropertyDictionary::parse(R"({
    "XTAddressBookVersionKey": 1, "XTAddressBookCharTypeLimitKey": 2,
    "XTAddressBookMaxAddressesKey": 3, "XTAddressBookMaxGroupsKey": 4,
    "XTAddressBookMaxAddressesPerGroupKey": 5, "XTAddressBookMaxAddressLengthKey": 6,
    "XTAddressBookMaxNicknameLengthKey": 7, "XTAddressBookMaxGroupNameLengthKey": 8,
    "XTAddressBookSupportsGroupsKey": true,
    "XTAddressBookContactsKey": [
      {"kABUIDProperty": "00112233-4455-6677-8899-AABBCCDDEEFF", "kABEmailProperty": "e",
       "kABNicknameProperty": "n", "kABFirstNameProperty": "f", "kABLastNameProperty": "",
       "kABAddressStreetKey": "1\r2\r3", "kABAddressCityKey": "c", "kABAddressStateKey": "",
       "kABAddressCountryKey": "", "kABAddressZIPKey": "z", "kABPhoneProperty": "p",
       "XTContactImageKey": 9, "XTContactAssociatedGroupsKey": [20], "XTContactSharingPrefKey": 1,
       "XTContactDefaultNumPrintsKey": 0, "XTPTPObjectHandleKey": 10,
       "XTDataSyncActionKey": "kSyncDataAction_None"},
      {"kABEmailProperty": "", "kABNicknameProperty": "m", "kABPhoneProperty": "1",
       "XTDataSyncActionKey": "kSyncDataAction_Add"},
      {"kABNicknameProperty": "", "XTPTPObjectHandleKey": 11}],
    "XTAddressBookGroupsKey": [
      {"kABGroupNameProperty": "g", "XTContactGroupImageKey": 12,
       "contactGroupMembersKey": [11, 10], "XTPTPObjectHandleKey": 20,
       "XTDataSyncActionKey": "kSyncDataAction_Update"}]})");
}

TEST(AddressBookJSON, IsReadAndShownAsExactInverses) {
  const AddressBook book = addressBookFromJSON(wholeBook());
  EXPECT_TRUE(book.limits == XT_AddressBookInfo({1, 2, 3, 4, 5, 6, 7, 8}));
  const Contacts& contacts = book.contacts.value();
  ASSERT_EQ(contacts.size(), 3U);
  const Contact added = {
      .email = "", .nickname = "m", .phone = "1", .action = DataSyncAction::kAdd};
  EXPECT_TRUE(*contacts[1] == added);
  EXPECT_FALSE(contacts[2]->email);  // which is another thing than an empty one
  EXPECT_EQ(contacts[0]->street, "1\r2\r3");
  const ContactGroup& group = *book.groups.value().at(0);
  EXPECT_THAT(group.members, testing::ElementsAre(contacts[2], contacts[0]));
  EXPECT_EQ(group.action, DataSyncAction::kUpdate);
  EXPECT_EQ(jsonFromAddressBook(book), wholeBook());
  EXPECT_EQ(jsonFromContact(*contacts[0]), wholeBook()["XTAddressBookContactsKey"][0]);
}

TEST(AddressBookJSON, TellsAnAbsentListFromAnEmptyOne) {
  const auto absent = jsonFromAddressBook(addressBookFromJSON(PropertyDictionary::object()));
  EXPECT_EQ(absent.at("XTAddressBookMaxAddressesKey"), 0);
  for (const char* key : {"XTAddressBookContactsKey", "XTAddressBookGroupsKey"}) {
    const auto list = PropertyDictionary::array();
    EXPECT_EQ(jsonFromAddressBook(addressBookFromJSON({{key, list}})).at(key), list);
    EXPECT_FALSE(absent.contains(key));
  }
}

TEST(AddressBookJSON, KnowsEveryActionByItsNameAndAnyOtherAsOther) {
  using enum DataSyncAction;
  for (const auto& [name, action] : {std::pair("None", kNone),
                                     {"Add", kAdd},
                                     {"Update", kUpdate},
                                     {"Delete", kDelete},
                                     {"Other", kOther}}) {
    const std::string text = std::string("kSyncDataAction_") + name;
    const PropertyDictionary json = {{"XTDataSyncActionKey", text}};
    EXPECT_EQ(contactFromJSON(json).action, action) << text;
    EXPECT_EQ(jsonFromContact(contactFromJSON(json)), json) << text;
  }
  EXPECT_EQ(contactFromJSON({{"XTDataSyncActionKey", "kSyncDataAction_none"}}).action, kOther);
  EXPECT_EQ(contactFromJSON(PropertyDictionary::object()).action, kAbsent);
}

TEST(AddressBookJSON, SupportsGroupsWhereTheirLimitSaysSoUnlessToldOtherwise) {
  for (const int limit : {0, 1})
    EXPECT_EQ(addressBookFromJSON({{"XTAddressBookMaxGroupsKey", limit}}).supportsGroups,
              limit == 1);
  EXPECT_FALSE(addressBookFromJSON(
                   {{"XTAddressBookMaxGroupsKey", 1}, {"XTAddressBookSupportsGroupsKey", false}})
                   .supportsGroups);
  // Only the validation may refuse a text.
  const std::string name(300, 'x');
  EXPECT_EQ(contactFromJSON({{"kABNicknameProperty", name}}).nickname, name);
}

TEST(AddressBookJSON, RefusesWhatTheBookCannotHoldAndSaysWhere) {
  const struct {
    const char* json;
    const char* reason;
  } rows[] = {
      {"[]", "the document must be an object"},
      {R"({"XTAddressBookContacts": []})", R"("XTAddressBookContacts" is no key of this record)"},
      {R"({"XTAddressBookContactsKey": {}})", "XTAddressBookContactsKey must be an array"},
      {R"({"XTAddressBookContactsKey": [{}, {"kABEmailProperty": 1}]})",
       "XTAddressBookContactsKey[1]: kABEmailProperty must be a text"},
      {R"({"XTAddressBookContactsKey": [{"XTPTPObjectHandleKey": 2}, {},
           {"XTPTPObjectHandleKey": 2}]})",
       "XTAddressBookContactsKey[2]: XTPTPObjectHandleKey 2 is another contact's already"},
      {R"({"XTAddressBookContactsKey": [{"XTPTPObjectHandleKey": 2}],
           "XTAddressBookGroupsKey": [{"contactGroupMembersKey": [2, 3]}]})",
       "XTAddressBookGroupsKey[0]: contactGroupMembersKey names 3, which is no contact's handle"},
      {R"({"XTAddressBookContactsKey": [{}],
           "XTAddressBookGroupsKey": [{"contactGroupMembersKey": [0]}]})",
       "XTAddressBookGroupsKey[0]: contactGroupMembersKey names 0, which is no contact's handle"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(raised([&] { addressBookFromJSON(PropertyDictionary::parse(row.json)); }),
              std::string("NSInvalidArgumentException: ") + row.reason);
  }
}

TEST(OrderJSON, ShowsOfAnOrderWhatItHas) {
  EmailOrder email = {.destAddresses = {"a@b.example"}, .assets = {"1.JPG"}};
  const auto plain = PropertyDictionary::parse(
      R"({"XTEmailOrderDestAddressListKey": ["a@b.example"], "XTOrderAssetListKey": ["1.JPG"]})");
  EXPECT_EQ(jsonFromEmailOrder(email), plain);
  email.record = EmailOrderRecord{.orderID = "id", .destContacts = {7, 8}, .assetHandles = {9}};
  email.handle = 5;
  auto whole = PropertyDictionary::parse(R"({
      "XTOrderIDKey": "id", "XTEmailOrderServiceTypeKey": 0, "XTEmailOrderSenderAddressKey": "",
      "XTEmailOrderSubjectKey": "", "XTEmailOrderBodyKey": "",
      "XTOrderAssetHandlesListKey": [9], "XTPTPObjectHandleKey": 5})");
  whole.update(plain);
  EXPECT_EQ(jsonFromEmailOrder(email), whole);

  PrintOrder print = {.quantity = 3, .assets = {"1.JPG"}};
  EXPECT_EQ(jsonFromPrintOrder(print).dump(),
            R"({"XTOrderAssetListKey":["1.JPG"],"XTPrintOrderQuantityKey":3})");
  print.record = PrintOrderRecord{.orderID = "id", .quantity = 0, .asset = 9};
  const auto json = jsonFromPrintOrder(print);
  EXPECT_EQ(json["XTPrintOrderQuantityKey"], 0) << "a data set's own number is passed on";
  EXPECT_EQ(json["XTOrderAssetHandlesListKey"].dump(), "[9]");
  const auto transfer = jsonFromTransferOrder({.record = {.assetHandles = {2}}, .handle = 3});
  EXPECT_EQ(transfer["XTOrderAssetListKey"].dump(), "[2]");
}

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
  EXPECT_THAT(first.uid.value(),
              testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
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
  EXPECT_EQ(hexText(dataSet.bytes()), "02670000000500000003000000020000000100000002000000");
  dataSet.setPosition(0);
  const ContactGroup read = scanGroupAndAssignContacts(dataSet, contacts);
  EXPECT_EQ(read.name, "g");
  EXPECT_EQ(read.image, 5U);
  EXPECT_THAT(read.members, testing::ElementsAre(contacts.at(2), contacts.at(1), contacts.at(2)));

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
