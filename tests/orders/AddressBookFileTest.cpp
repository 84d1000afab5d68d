// The address-book file: lines, limits, encodings, and the edit that changes its size.
#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"

#include <gtest/gtest.h>

#include "Utilities/NSStringUtilsCategory.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using Lines = std::vector<std::string>;

AddressBook bookOf(std::uint32_t maxAddresses) {
  AddressBook book;
  book.limits.maxAddresses = maxAddresses;
  return book;
}

/// "NICKNAME|ADDRESS;..." of the book's contacts, "none" where there is no list.
std::string contacts(const AddressBook& book) {
  if (!book.contacts) return "none";
  std::string text;
  for (const auto& contact : *book.contacts) {
    Contact expected;
    expected.nickname = contact->nickname.value();
    expected.email = contact->email.value();
    expected.action = DataSyncAction::kNone;
    EXPECT_EQ(*contact, expected);
    text += *contact->nickname + "|" + *contact->email + ";";
  }
  return text;
}

std::string contactsOf(std::string_view text, std::uint32_t maxAddresses = 3) {
  auto book = bookOf(maxAddresses);
  fillInABDictFromText(book, text);
  return contacts(book);
}

// Bare line feeds separate no lines.
TEST(AddressBookFile, ALineIsANicknameAndAnAddressInAngleBrackets) {
  const std::pair<const char*, const char*> rows[] = {
      {"Ann <a@b.c>\r\nBob B <b@b.c>\r\n", "Ann|a@b.c;Bob B|b@b.c;"},
      {"Ann  <a@b.c>", "Ann |a@b.c;"},
      {"Ann <a@b.c> <d@e.f>>", "Ann|a@b.c;"},
      {"\xC3\xA9 < a\nb >", "\xC3\xA9| a\nb ;"},
      {"Ann<a@b.c>", ""},
      {"Ann <a@b.c", ""},
      {"Ann> <a@b.c>", ""},
      {"Ann\r\n <a@b.c>\r", "|a@b.c;"},
      {"\r\n\r\n\r\n", ""}};
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(contactsOf(text), expected) << text;
}

TEST(AddressBookFile, LinesOverTheLimitLeaveTheContactsAsTheyWere) {
  const std::string three = "a <a>\r\n\r\nc <c>";
  for (const char* end : {"", "\n", "\r", "\r\n", "\n\r\n", "\r\n\r\n"})
    EXPECT_EQ(contactsOf(three + end, 3), "a|a;c|c;") << "not a fourth line: " << end;
  EXPECT_EQ(contactsOf(three + "\r\n\r\n\r\n", 3), "none");
  TraceRecorder traces;
  auto book = bookOf(1);
  fillInABDictFromText(book, "a <a>");
  traces.take();
  fillInABDictFromText(book, "b <b>\r\nc <c>");
  EXPECT_EQ(contacts(book), "a|a;");
  EXPECT_EQ(traces.take(), (Lines{"fileContentsString = b <b>\r\nc <c>",
                                  "Device address book invalid. Has 2 addresses, limit is 1"}));
  EXPECT_EQ(contactsOf("a <a>", 0), "none");
  EXPECT_EQ(contactsOf("", 0), "");
}

TEST(AddressBookFile, EachLineIsTraced) {
  TraceRecorder traces;
  contactsOf("Ann <a>\r\nBob <>\r\nCarl\r\n");
  EXPECT_EQ(traces.take(),
            (Lines{"fileContentsString = Ann <a>\r\nBob <>\r\nCarl",
                   "addressArray = (Ann <a>, Bob <>, Carl)", "address = Ann <a>", "nickname: Ann",
                   "emailAddress: a", "address = Bob <>", "nickname: Bob",
                   "emailAddress: ", "skipping blank entry in address book.", "address = Carl",
                   "skipping blank entry in address book."}));
}

TEST(AddressBookFile, FilesAreReadInTheDefaultEncodingOrAreEmpty) {
  const TemporaryFolder folder;
  const auto latin = folder.write("latin", "Zo\xEB <z@b.c>\r\n");
  const std::tuple<std::string, const char*, const char*> rows[] = {
      {latin, "ISO-8859-1", "Zo\xC3\xAB|z@b.c;"},
      {latin, "UTF-8", ""},
      {folder.path("missing"), "UTF-8", ""},
      {folder.path(), "UTF-8", ""},
  };
  for (const auto& [file, encoding, expected] : rows) {
    auto book = bookOf(1);
    book.contacts.emplace().push_back(std::make_shared<Contact>());
    EXPECT_EQ(fillInABDict(book, file, encoding), status::kOK);
    EXPECT_EQ(contacts(book), expected) << file << encoding;
  }
}

/// A book of nicknames with "|" between them; the first address makes its estimate 64 bytes.
AddressBook bookOfSixtyFour(const std::string& nicknames) {
  AddressBook book;
  book.contacts.emplace();
  std::size_t size = 12;
  std::istringstream stream(nicknames);
  for (std::string nickname; std::getline(stream, nickname, '|');) {
    book.contacts->push_back(std::make_shared<Contact>());
    book.contacts->back()->nickname = nickname;
    book.contacts->back()->email = "";
    size += utf16Length(nickname) + 5;
  }
  book.contacts->front()->email = std::string(64 - size, 'e');
  return book;
}

TEST(Mod64Edit, ANicknameIsLengthenedElseTheLongestShortened) {
  const struct {
    const char* nicknames;
    std::uint32_t limit;
    const char* expected;
    const char* trace;
  } rows[] = {{"abc|de|fg", 3, "abc|de |fg|", "nickname 'de' lengthened to 'de '"},
              {"abc|def", 3, "abc|de|", "nickname 'def' shortened to 'de'"},
              {"abc|de", 0, "ab|de|", "nickname 'abc' shortened to 'ab'"},
              {"a\xC3\xA9|b", 1, "a|b|", "nickname 'a\xC3\xA9' shortened to 'a'"},
              {"a\xF0\x9F\x98\x80", 3, "a|", "nickname 'a\xF0\x9F\x98\x80' shortened to 'a'"},
              {"\xC3\xA9", 2, "\xC3\xA9 |", "nickname '\xC3\xA9' lengthened to '\xC3\xA9 '"},
              {"a|b", 1, "a|b|", nullptr},
              {"a| ", 0, "a| |", nullptr}};
  for (const auto& row : rows) {
    TraceRecorder traces;
    auto book = bookOfSixtyFour(row.nicknames);
    book.limits.maxNicknameLengthInBytes = row.limit;
    EXPECT_EQ(editAddressBookToAvoidMod64ICABug(book), row.trace != nullptr);
    std::string nicknames;
    for (const auto& contact : *book.contacts)
      nicknames += contact->nickname.value() + "|";
    EXPECT_EQ(nicknames, row.expected);
    const auto trace =
        row.trace ? std::string(row.trace) + " to adjust payload"
                  : "address book payload needs adjustment, but no appropriate edit was possible";
    EXPECT_EQ(traces.take(), Lines{trace});
  }
}

TEST(Mod64Edit, OnlyBooksOfSuchASizeAreEditedAndDeletedContactsHaveNoPartInIt) {
  for (const std::size_t length : {43U, 44U, 45U}) {
    auto book = bookOfSixtyFour("abc");
    book.limits.maxNicknameLengthInBytes = 10;
    book.contacts->at(0)->email->resize(length);
    auto deleted = std::make_shared<Contact>();
    deleted->action = DataSyncAction::kDelete;
    book.contacts->insert(book.contacts->begin(), deleted);
    EXPECT_EQ(editAddressBookToAvoidMod64ICABug(book), length == 44) << length;
    EXPECT_EQ(book.contacts->at(0)->nickname, std::nullopt);
    EXPECT_EQ(book.contacts->at(1)->nickname, length == 44 ? "abc " : "abc");
    EXPECT_FALSE(editAddressBookToAvoidMod64ICABug(book)) << "once";
  }
  AddressBook unread;
  EXPECT_FALSE(editAddressBookToAvoidMod64ICABug(unread));
}

}  // namespace
}  // namespace tarvo::test
