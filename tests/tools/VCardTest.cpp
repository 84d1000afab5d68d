// vCards: the versions that programs write, what a device can keep of them, and hostile ones.
#include <gmock/gmock.h>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "tests/tools/SharingBench.h"
#include "tools/addressbook/VCard.h"
#include "tools/output/ToolError.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class VCards : public ::testing::Test {
 protected:
  static tools::VCardBook read(const std::string& text) {
    return tools::bookFromVCards("file.vcf", text);
  }
  ScopedEnvironment program_{"TARVO_VCARD", VCARD_PROGRAM};
};

TEST_F(VCards, OfEveryVersionGiveTheSameContact) {
  const char* kCards[] = {
      "BEGIN:VCARD\r\nVERSION:2.1\r\nN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:M=C3=BCller;J=C3="
      "B6rg"
      "\r\nNICKNAME:Jo\r\nEMAIL;INTERNET:x@y.zz\r\nEMAIL;PREF;INTERNET:jo@example.org\r\n"
      "TEL;CELL:12\r\nADR;HOME:;;Weg 1;Ulm;BW;89073;Germany\r\n"
      "UID:00112233-4455-6677-8899-aabbccddeeff\r\nEND:VCARD\r\n",
      "BEGIN:VCARD\nVERSION:3.0\nFN:J\xC3\xB6rg M\xC3\xBCller\nN:M\xC3\xBCller;J\xC3\xB6rg;;;\n"
      "NICKNAME:Jo\nEMAIL;TYPE=INTERNET:x@y.zz\nEMAIL;TYPE=PREF,HOME:jo@exam\n ple.org\nTEL:12\n"
      "ADR;TYPE=HOME:;;Weg 1;Ulm;BW;89073;Germany\n"
      "UID:00112233-4455-6677-8899-AABBCCDDEEFF\nEND:VCARD\n",
      "begin:vcard\r\nversion:4.0\r\nfn:J\xC3\xB6rg "
      "M\xC3\xBCller\r\nn:M\xC3\xBCller;J\xC3\xB6rg;;;\r\n"
      "nickname:Jo\r\nitem1.email;pref=1:jo@example.org\r\nemail:x@y.zz\r\ntel:12\r\n"
      "adr:;;Weg 1;Ulm;BW;89073;Germany\r\n"
      "uid:urn:uuid:00112233-4455-6677-8899-aabbccddeeff\r\nend:vcard\r\n"};
  const auto expected = *read(kCards[0]).book.contacts->at(0);
  EXPECT_EQ(expected.email, "jo@example.org");
  EXPECT_EQ(expected.uid, "00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_EQ(expected.lastName + expected.firstName + expected.street + expected.city +
                expected.state + expected.zip + expected.country + expected.phone,
            "M\xC3\xBCllerJ\xC3\xB6rgWeg 1UlmBW89073Germany12");
  for (const char* card : kCards) {
    const auto [book, notes, nameless] = read(card);
    ASSERT_EQ(book.contacts->size(), 1U) << card;
    EXPECT_EQ(*book.contacts->front(), expected) << card;
    EXPECT_THAT(notes, ElementsAre(HasSubstr("several e-mail addresses"))) << card;
    EXPECT_FALSE(book.groups) << "no word of groups is not the same as no groups";
  }
  // A zero behind a fold is no end of the text.
  std::string zero = kCards[1];
  zero.insert(zero.find("ple.org"), 1, '\0');
  EXPECT_EQ(*read(zero).book.contacts->front(), expected);
}

TEST_F(VCards, ComeBackAsTheyWere) {
  Contact contact = {.email = "a@b.c", .nickname = "Semi;colon, comma\\ \xE2\x82\xAC"};
  contact.street = "first\rsecond";
  contact.lastName = std::string(200, 'l');
  const auto first = std::make_shared<Contact>(contact);
  AddressBook book;
  book.contacts = Contacts{first};
  book.groups = ContactGroups{
      std::make_shared<ContactGroup>(ContactGroup{.name = "A, B", .members = {first}})};
  const auto again = read(tools::vCardsFromBook(book)).book;
  ASSERT_EQ(again.contacts->size(), 1U);
  EXPECT_EQ(*again.contacts->front(), contact);
  EXPECT_EQ(again.groups->at(0)->name, "A, B");
}

TEST_F(VCards, WhatADeviceCannotKeepIsSaid) {
  const auto [book, notes, nameless] = read(
      "BEGIN:VCARD\nFN:Phone only\nTEL:1\nEND:VCARD\n"
      "BEGIN:VCARD\nFN:Ada von Lovelace\nEMAIL:ada@b.c\nUID:someone-1\nCATEGORIES:Family,Work\n"
      "END:VCARD\n");
  EXPECT_THAT(notes, ElementsAre("1 card has no e-mail address and cannot be kept by the device."));
  ASSERT_EQ(book.contacts->size(), 1U);
  const Contact& contact = *book.contacts->front();
  EXPECT_EQ(contact.nickname, "Ada von Lovelace");
  EXPECT_EQ(contact.lastName, "Lovelace");
  EXPECT_FALSE(contact.uid);
  EXPECT_EQ(book.groups->size(), 2U);
}

TEST_F(VCards, ThatAreHostileEndInWords) {
  const std::string begin = "BEGIN:VCARD\r\nEMAIL:a@b.c\r\n";
  std::string nested;
  for (int depth = 0; depth < 20000; ++depth)
    nested += "BEGIN:VCARD\r\n";
  const std::string kBad[] = {"",           "no card", nested, begin, std::string(100000, '\0'),
                              "END:VCARD\n"};
  for (const auto& text : kBad)
    EXPECT_THROW(read(text), tools::ToolError) << text.substr(0, 40);
  const std::string kOdd[] = {
      begin + "FN:" + std::string(1 << 20, 'x') + "\r\nEND:VCARD\r\n",
      begin + "FN;ENCODING=BASE64:====\r\nFN;ENCODING=QUOTED-PRINTABLE:=\r\n=ZZ\r\nEND:VCARD\r\n",
      begin + "NICKNAME:\xff\xfe\x1b[2J\r\n;;;:::\r\n=\r\nEND:VCARD\r\n",
      begin + "AGENT:\r\nBEGIN:VCARD\r\nEMAIL:other@b.c\r\nEND:VCARD\r\nEND:VCARD\r\n"};
  for (const auto& text : kOdd) {
    const auto book = read(text).book;
    ASSERT_EQ(book.contacts->size(), 1U) << text.substr(0, 60);
    EXPECT_EQ(book.contacts->front()->email, "a@b.c");
  }
}

// Tables of characters lie in files, which a program that is locked up can no longer open.
TEST_F(VCards, OfTheCharacterSetsOfTheirTimeAreRead) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"ISO-8859-1", "=FC", "\xC3\xBC"},       {"windows-1252", "=80", "\xE2\x82\xAC"},
      {"Shift_JIS", "=82=A0", "\xE3\x81\x82"}, {"iso-2022-jp", "=1B$B$\"=1B(B", "\xE3\x81\x82"},
      {"GB2312", "=B0=A1", "\xE5\x95\x8A"},    {"IBM1047", "a", "a"}};
  for (const auto& [charset, bytes, nickname] : rows) {
    const std::string parameters =
        std::string(";CHARSET=") + charset + ";ENCODING=QUOTED-PRINTABLE:";
    const auto book = read("BEGIN:VCARD\r\nVERSION:2.1\r\nNICKNAME" + parameters + bytes +
                           "\r\nEMAIL:a@b.c\r\nEND:VCARD\r\n")
                          .book;
    EXPECT_EQ(book.contacts->at(0)->nickname, nickname) << charset;
  }
}

TEST_F(VCards, AreNotTakenFromAProgramThatMisbehaves) {
  const TemporaryFolder folder;
  const std::pair<const char*, const char*> rows[] = {
      {"kill -SYS $$", "it tried what it may not do"},
      {"exec cat /dev/zero", "cannot be read as vCards"},
      {"exit 3", "more of them than can be taken"},
      {"echo '[[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]'", "levels deep"},
      {"echo '[1, [2], {\"email\": \"a@b.c\", \"categories\": [1, \"G\"], \"uid\": {}}]'", ""}};
  for (const auto& [script, words] : rows) {
    const ScopedEnvironment program("TARVO_VCARD", folder.writeScript("program", script));
    try {
      EXPECT_EQ(read("").book.groups->size(), 1U);
      EXPECT_STREQ(words, "");
    } catch (const tools::ToolError& error) {
      EXPECT_THAT(error.what(), HasSubstr(words)) << script;
      EXPECT_STRNE(words, "") << error.what();
    }
  }
}

TEST_F(VCards, NeedAProgramThatIsThere) {
  SharingBench bench("orders-legacy");
  const ScopedEnvironment none("TARVO_VCARD", "/nowhere/tarvo-vcard");
  EXPECT_THAT(bench.fails({"addressbook", "export", "--format", "vcard"}).err,
              HasSubstr("Install tarvo-vcard, or use JSON (--format json)."));
}

}  // namespace
}  // namespace tarvo::test
