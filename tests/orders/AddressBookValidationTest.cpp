// The rules of an address book: each breach has a code and a trace of its own, in a fixed order.
#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"

#include <gtest/gtest.h>

#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using Lines = std::vector<std::string>;

TEST(EmailAddress, TheFirstRuleThatItBreaksGivesCodeAndTrace) {
  const std::tuple<std::optional<std::string>, Status, const char*> rows[] = {
      {"a b!'/@b..c", 0, nullptr},
      {"abcdefgh@b.c", 0, nullptr},  // as long as the maximum
      {std::nullopt, 0x10000011, "cannot be converted to ascii"},
      {"\xC3\xA9", 0x10000011, "cannot be converted to ascii"},  // and no "@"
      {".", 0x10000012, "missing @"},
      {"a@b@", 0x10000013, "missing ."},
      {".@", 0x10000013, "missing . after @"},
      {"@b.c", 0x10000017, "begins or ends with dot"},
      {"a@.b@", 0x10000017, "begins or ends with dot"},
      {"a@.b.c", 0x10000014, "contains '.@'"},
      {"a.@.b", 0x10000014, "contains '.@'"},
      {"a.@b.c", 0x10000016, "contains '@.'"},
      {"(@@b.c", 0x10000015, "contains more than one '@'"},
      {"abcdefghi@b.c", 0x10000005, "is too long"},
      {"abcdefgh(@b.c", 0x10000011, "contains invalid characters"},
  };
  TraceRecorder traces;
  for (const auto& [address, code, words] : rows) {
    const auto shown = address.value_or("(null)");
    EXPECT_EQ(validateEmailAddressFormat(address, 12), code) << shown;
    EXPECT_EQ(traces.take(), words ? Lines{"Email " + shown + " address " + words} : Lines{});
  }
  for (const char character : std::string_view("()<>,;:\\\"[]"))
    EXPECT_EQ(validateEmailAddressFormat(std::string("a@b") + character + ".c", 12), 0x10000011);
}

TEST(Nickname, WithoutAnyCharacterAllowedNumberSignsAloneAre) {
  const std::pair<std::optional<std::string>, Status> rows[] = {
      {"", 0}, {"###", 0}, {"#a", 0x10000010}, {" ", 0x10000010}, {std::nullopt, 0x10000010}};
  for (const auto& [nickname, code] : rows) {
    EXPECT_EQ(validateNickname(nickname, 3), status::kOK);
    for (const std::uint16_t limit : {0, 2, 4, 0xFFFF})
      EXPECT_EQ(validateNickname(nickname, limit), code) << nickname.value_or("none") << limit;
  }
}

/// A book that is as full as its limits allow: two contacts, two groups of two, texts of eight
/// units.
struct Book {
  Book() {
    book.limits = {1, 3, 2, 2, 2, 8, 8, 8};
    book.contacts.emplace();
    book.groups.emplace();
    const char* const eight = "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xF0\x9F\x98\x80\xF0\x9F\x98\x80";
    for (int i = 0; i < 2; ++i) {
      addContact("ab@cd.ef", eight);
      addGroup(eight, 2);
    }
  }
  Contact& addContact(const char* email, const char* nickname) {
    return *book.contacts->emplace_back(
        std::make_shared<Contact>(Contact{.email = email, .nickname = nickname}));
  }
  ContactGroup& addGroup(const char* name, std::size_t members) {
    return *book.groups->emplace_back(std::make_shared<ContactGroup>(
        ContactGroup{.name = name, .members = Contacts(members, book.contacts->front())}));
  }
  Contact& contact(std::size_t index) { return *book.contacts->at(index); }
  ContactGroup& group(std::size_t index) { return *book.groups->at(index); }

  AddressBook book;
};

struct Breach {
  const char* name;
  void (*make)(Book& book);
  Status code;
  std::optional<std::string> value;
  const char* trace;  ///< null for none
};

/// In the order in which they are found, so that each hides all behind it.
const Breach kBreaches[] = {
    {"too many contacts", [](Book& b) { b.addContact("ab@cd.ef", "n"); }, 0x10000001, std::nullopt,
     "Too many contacts for device: 3 exceeds limit of 2."},
    {"an address without @", [](Book& b) { b.contact(0).email = "a.b"; }, 0x10000012, "a.b",
     "Email a.b address missing @"},
    {"an address that is too long", [](Book& b) { b.contact(0).email = "abc@cd.ef"; }, 0x10000005,
     "abc@cd.ef", "Email abc@cd.ef address is too long"},
    {"a nickname that is too long", [](Book& b) { b.contact(0).nickname = "123456789"; },
     0x10000006, "123456789", "Nickname <123456789> is more than the limit of 8 characters"},
    {"a nickname's characters",
     [](Book& b) {
       b.book.limits.characterTypeLimitation = 2;
       b.contact(0).nickname = "Ann";
       b.contact(1).nickname = "#";
     },
     0x10000010, "Ann", nullptr},
    {"the second contact", [](Book& b) { b.contact(1).email = "a@.b.c"; }, 0x10000014, "a@.b.c",
     "Email a@.b.c address contains '.@'"},
    {"too many groups", [](Book& b) { b.addGroup("g", 0); }, 0x10000002, std::nullopt,
     "Too many groups for device: 3 exceeds limit of 2."},
    {"too many members of a group without a name",
     [](Book& b) {
       b.group(0).name = "";
       b.group(0).members.assign(3, std::make_shared<Contact>());
       b.group(0).members[0]->action = DataSyncAction::kDelete;  // a member all the same
     },
     0x10000003, std::nullopt, "Too many members in a group for device: 3 exceeds limit of 2."},
    {"a group's name", [](Book& b) { b.group(1).name = "123456789"; }, 0x10000007, "123456789",
     "Group name too long: 9 exceeds limit of 8."},
};

TEST(AddressBookCheck, EachBreachHasItsOwnCodeValueAndTrace) {
  EXPECT_EQ(validateAddressBookDict(Book().book, true), std::nullopt);
  TraceRecorder traces;
  for (const auto& breach : kBreaches) {
    Book book;
    breach.make(book);
    const auto error = validateAddressBookDict(book.book, true);
    EXPECT_EQ(error, (AddressBookError{breach.code, breach.value})) << breach.name;
    EXPECT_EQ(traces.take(), breach.trace ? Lines{breach.trace} : Lines{}) << breach.name;
    EXPECT_EQ(validateAddressBook(book.book, false), status::kPTPOperationNotSupported);
    EXPECT_EQ(traces.take(), Lines{});
  }
  EXPECT_EQ(validateAddressBookDict({}, false),
            (AddressBookError{status::kPTPOperationNotSupported, {}}));
}

TEST(AddressBookCheck, AnEarlierBreachHidesALaterOne) {
  for (std::size_t first = 0; first + 1 < std::size(kBreaches); ++first) {
    Book book;
    kBreaches[first + 1].make(book);
    kBreaches[first].make(book);
    EXPECT_EQ(validateAddressBook(book.book, true), kBreaches[first].code) << kBreaches[first].name;
  }
}

TEST(AddressBookCheck, OnlyEntriesToBeDeletedDoNotCountAndAMissingLimitIsNought) {
  using enum DataSyncAction;
  for (const auto action : {kAbsent, kNone, kAdd, kUpdate, kOther, kDelete}) {
    Book contacts;
    contacts.addContact("bad", "123456789").action = action;
    EXPECT_EQ(validateAddressBook(contacts.book, true), action == kDelete ? 0 : 0x10000001);
    Book groups;
    groups.addGroup("123456789", 3).action = action;
    EXPECT_EQ(validateAddressBook(groups.book, true), action == kDelete ? 0 : 0x10000002);
  }
  EXPECT_EQ(validateAddressBookDict({}, true), std::nullopt);
  Book book;
  book.book.limits.maxGroups = 0;
  EXPECT_EQ(validateAddressBook(book.book, true), status::kAddressBookTooManyGroups);
  book.book.groups.reset();
  EXPECT_EQ(validateAddressBook(book.book, true), status::kOK);
  book.book.limits.maxAddresses = 0;
  EXPECT_EQ(validateAddressBook(book.book, true), status::kAddressBookTooManyContacts);
}

TEST(LCBBlock, IsValidWithItsExactLengthAndItsCheckByte) {
  TraceRecorder traces;
  for (const std::size_t count : {0U, 255U}) {
    std::vector<std::byte> block(33 + 272 * count, std::byte{7});
    block[31] = static_cast<std::byte>(count);
    block.back() = block[31] ^ std::byte{7};  // an odd number of sevens besides
    EXPECT_TRUE(isValidLCB(block)) << count;
    for (const std::size_t at : {std::size_t{0}, block.size() - 1}) {
      auto changed = block;
      changed[at] ^= std::byte{0x80};
      EXPECT_FALSE(isValidLCB(changed)) << count << " " << at;
    }
    for (const std::size_t size : {block.size() - 1, block.size() + 1}) {
      block.resize(size);
      EXPECT_FALSE(isValidLCB(block)) << size;
    }
    EXPECT_EQ(traces.log().count("> isValidLCB: checksum mismatch"), 2 * (count == 0 ? 1U : 2U));
  }
  traces.take();
  EXPECT_FALSE(isValidLCB({}));
  EXPECT_EQ(traces.take(), Lines{}) << "an empty one is not worth a line";
  EXPECT_FALSE(isValidLCB(std::vector<std::byte>(5, std::byte{0xA1})));
  EXPECT_EQ(traces.take(), Lines{"isValidLCB: LCB data size is 5, expected 33, data:\r"
                                 "<a1a1a1a1 a1>"});
}

}  // namespace
}  // namespace tarvo::test
