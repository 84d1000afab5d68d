#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/Raised.h"

namespace tarvo {
namespace {

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
  const XT_AddressBookInfo limits = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_TRUE(book.limits == limits);
  const Contacts& contacts = book.contacts.value();
  ASSERT_EQ(contacts.size(), 3U);
  const Contact added = {
      .email = "", .nickname = "m", .phone = "1", .action = DataSyncAction::kAdd};
  EXPECT_TRUE(*contacts[1] == added);
  EXPECT_FALSE(contacts[2]->email);  // which is another thing than an empty one
  EXPECT_EQ(contacts[0]->street, "1\r2\r3");
  ASSERT_EQ(book.groups.value().size(), 1U);
  const ContactGroup& group = *book.groups->front();
  EXPECT_THAT(group.members, ::testing::ElementsAre(contacts[2], contacts[0]));
  EXPECT_EQ(group.action, DataSyncAction::kUpdate);
  EXPECT_EQ(jsonFromAddressBook(book), wholeBook());
  EXPECT_EQ(jsonFromContact(*contacts[0]), wholeBook()["XTAddressBookContactsKey"][0]);
  EXPECT_EQ(jsonFromContactGroup(group), wholeBook()["XTAddressBookGroupsKey"][0]);
}

TEST(AddressBookJSON, TellsAnAbsentListFromAnEmptyOne) {
  for (const char* key : {"XTAddressBookContactsKey", "XTAddressBookGroupsKey"}) {
    const auto empty =
        jsonFromAddressBook(addressBookFromJSON({{key, PropertyDictionary::array()}}));
    EXPECT_EQ(empty.at(key), PropertyDictionary::array());
    const auto absent = jsonFromAddressBook(addressBookFromJSON(PropertyDictionary::object()));
    EXPECT_FALSE(absent.contains(key));
    EXPECT_EQ(absent.at("XTAddressBookMaxAddressesKey"), 0);
  }
}

TEST(AddressBookJSON, KnowsEveryActionByItsNameAndAnyOtherAsOther) {
  using enum DataSyncAction;
  const std::pair<const char*, DataSyncAction> rows[] = {
      {"kSyncDataAction_None", kNone},     {"kSyncDataAction_Add", kAdd},
      {"kSyncDataAction_Update", kUpdate}, {"kSyncDataAction_Delete", kDelete},
      {"kSyncDataAction_Other", kOther},   {"kSyncDataAction_none", kOther}};
  for (const auto& [text, action] : rows) {
    const Contact contact = contactFromJSON({{"XTDataSyncActionKey", text}});
    EXPECT_EQ(contact.action, action) << text;
    EXPECT_TRUE(jsonFromContact(contact).at("XTDataSyncActionKey") == text || action == kOther);
  }
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
  EXPECT_EQ(jsonFromPrintOrder(print),
            PropertyDictionary::parse(
                R"({"XTPrintOrderQuantityKey": 3, "XTOrderAssetListKey": ["1.JPG"]})"));
  print.record = PrintOrderRecord{.orderID = "id", .quantity = 0, .asset = 9};
  const auto json = jsonFromPrintOrder(print);
  EXPECT_EQ(json["XTPrintOrderQuantityKey"], 0) << "a data set's own number is passed on";
  EXPECT_EQ(json["XTOrderAssetHandlesListKey"], PropertyDictionary::array({9}));
  EXPECT_EQ(
      jsonFromTransferOrder({.record = {.assetHandles = {2}}, .handle = 3})["XTOrderAssetListKey"],
      PropertyDictionary::array({2}));
}

}  // namespace
}  // namespace tarvo
