// The syntax of order markers and of the address-book file: what makes an order or a contact, what
// is traced, in which encodings, and the edit that changes the file's size.
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using Lines = std::vector<std::string>;

/// "RECIPIENT RECIPIENT > IMAGE; ..." of what an e-mail marker gives.
std::string emailOrders(const EmailOrders& orders) {
  std::string text;
  for (const auto& order : orders) {
    for (const auto& address : order.destAddresses)
      text += "[" + address + "]";
    text += ">" + order.assets.at(0) + ";";
    EXPECT_TRUE(!order.record && order.handle == 0 && order.assets.size() == 1);
  }
  return text;
}

std::string emailOrdersOf(std::string_view text) {
  EmailOrders orders;
  appendEmailOrders(orders, text);
  return emailOrders(orders);
}

/// "COPIES*IMAGE;..." of what a print marker gives.
std::string printOrders(const PrintOrders& orders) {
  std::string text;
  for (const auto& order : orders)
    text += std::to_string(order.quantity) + "*" + order.assets.at(0) + ";";
  return text;
}

std::string printOrdersOf(std::string_view text) {
  PrintOrders orders;
  appendPrintOrders(orders, text);
  return printOrders(orders);
}

TEST(MarkerFile, SeparatorsAreCountedUpToEightOrTheEnd) {
  const std::tuple<const char*, std::size_t, std::size_t, std::size_t> rows[] = {
      {" = \"a", 0, 3, 4},     {"=\"= ", 0, 1, 4},      {"a =", 0, 0, 0},
      {"          ", 0, 8, 8}, {"          ", 7, 3, 3}, {"\t=", 0, 0, 0},
      {"", 0, 0, 0},           {" =", 2, 0, 0},         {" =", 9, 0, 0}};
  for (const auto& [text, offset, plain, quoted] : rows) {
    EXPECT_EQ(skipSpaceEqual(text, offset), plain) << text;
    EXPECT_EQ(skipSpaceEqualQuote(text, offset), quoted) << text;
  }
}

TEST(MarkerFile, AnEmailJobHasRecipientsAndOneImage) {
  const std::pair<const char*, const char*> rows[] = {
      {"\n[JOB]\nDST EML = \"a@b.c\"\nIMG SRC = \"../DCIM/1.JPG\"", "[a@b.c]>1.JPG;"},
      {"\n[JOB]\nIMG SRC=\"1\"\nDST EML=\"a\"\nDST EML=\"b\"\nIMG SRC=\"2\"", "[a][b]>1;"},
      {"\n[JOB]\nDST EML \"a\"\nIMG SRC \"1\"\n[JOB]\nDST EMLb\"\nIMG SRC2\"", "[a]>1;[b]>2;"},
      // No order: one of the two is missing, empty, unclosed, or not at the beginning of a line.
      {"\n[JOB]\nDST EML=\"a\"\n", ""},
      {"\n[JOB]\nIMG SRC=\"1\"\n", ""},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=\"1", ""},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=\"/\"", ""},
      {"\n[JOB] DST EML=\"a\"\nIMG SRC=\"1\"", ""},
      {"\r[JOB]\rDST EML=\"a\"\rIMG SRC=\"1\"", ""},
      {"[JOB]\nDST EML=\"a\"\nIMG SRC=\"1\"\n", ""},
      // What the scanning makes of odd lines.
      {"\n[JOB]\nDST EML=\"\"\nDST EML=\"b\"\nIMG SRC=\"1\"", "[\nDST EML=][b]>1;"},
      {"\n[JOB]\nDST EML=       \"\"\nIMG SRC=\"1\"", "[]>1;"},
      {"\n[JOB]\nDST EML=\"        a\"\nIMG SRC=\"1\"", "[  a]>1;"},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=\"x/..\"", "[a]>..;"},
      {"\n[JOB]\nDST EML=\"\xC3\xA9@\xC3\xA9.c\"\nIMG SRC=\"a/\xC3\xA9.JPG/\"",
       "[\xC3\xA9@\xC3\xA9.c]>\xC3\xA9.JPG;"},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(emailOrdersOf(text), expected) << text;
}

TEST(MarkerFile, APrintJobHasOneImageAndACopyAtLeast) {
  const std::pair<const char*, const char*> quantities[] = {
      {"PRT QTY=   2x\r\n", "2"},
      {"PRT QTY = 0\n", "1"},
      {"PRT QTY = -4\n", "1"},
      {"PRT QTY =\t+4\n", "4"},
      {"PRT QTY =          7\n", "7"},
      {"PRT QTY = 99999999999\n", "2147483647"},
      {"PRT QTY = 1\nPRT QTY = 2\n", "1"},
      {"", "1"}};
  for (const auto& [line, copies] : quantities) {
    EXPECT_EQ(printOrdersOf("\n[JOB]\n" + std::string(line) + "\n<IMG SRC = \"../D/1.JPG\">"),
              std::string(copies) + "*1.JPG;")
        << line;
  }
  const std::pair<const char*, const char*> rows[] = {
      {"\n[JOB]\n<IMG SRC=\"1\">\nPRT QTY=9\n[JOB]\n<IMG SRC=\"2\">", "1*1;1*2;"},
      {"\r\n[JOB]\r\nPRT QTY = 2\r\n<IMG SRC = \"1\">\r\n", "2*1;"},
      {"\n[JOB]\n<IMG SRC=\"a\"/b\">", "1*b;"},
      {"\n[JOB]\n<IMG SRC=\"1\">\n<IMG SRC=\"2\">", "1*1;"},
      {"\n[JOB]\n<IMG SRC=\"1\" >", ""},
      {"\n[JOB]\n<IMG SRC=       \">", ""},
      {"\n[JOB]\n<IMG SRC=       \"\">", "1*\";"},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(printOrdersOf(text), expected) << text;
}

TEST(MarkerFile, WhatIsFoundIsTraced) {
  TraceRecorder traces;
  emailOrdersOf("\n[JOB]\nDST EML=\"a\"\nDST EML=\"b\"\nIMG SRC=\"x/1\"\n[JOB]\nDST EML=\"c\"\n");
  EXPECT_EQ(traces.take(), (Lines{"recipient: a", "recipient: b", "need image file: x/1",
                                  "_emailOrderList send x/1 to (a, b)", "recipient: c"}));
  printOrdersOf("\n[JOB]\nPRT QTY=0\n<IMG SRC=\"x/1\">\n[JOB]\nPRT QTY=3\n<IMG SRC=\"/\">");
  EXPECT_EQ(traces.take(),
            (Lines{"need quantity: 0", "need image file: x/1", "_printOrderList 1 copies of x/1",
                   "need quantity: 3", "need image file: /"}));
}

TEST(MarkerFile, OverlappingRecipientsHoldNoMoreThanTheFileAndAMegabyteTwice) {
  TraceRecorder traces;
  std::string text = "\n[JOB]";
  for (int i = 0; i < 100000; ++i)
    text += "\nDST EML";
  EXPECT_EQ(emailOrdersOf(text + "\nIMG SRC = 1"), "") << "no quotation mark, no recipient";
  EXPECT_EQ(traces.take(), Lines{});
  EmailOrders orders;
  appendEmailOrders(orders, text + "\"\nIMG SRC = \"1\"\n[JOB]\nDST EML=\"\xC3\xA9\"");
  ASSERT_EQ(orders.size(), 1U);
  std::size_t total = 0;
  for (const auto& recipient : orders[0].destAddresses)
    total += recipient.size();
  EXPECT_LE(total, 2 * text.size() + (1U << 20) + 200);
  EXPECT_GT(total, text.size());
  EXPECT_EQ(traces.log().count("recipients left out: they overlap too often"), 1U);
}

constexpr const char* kLatinJob =
    "\n[JOB]\nDST EML=\"\xE9@b.c\"\nPRT QTY=2\nIMG SRC=\"\xE9.JPG\"\n<IMG SRC=\"\xE9.JPG\">";
constexpr const char* kUTF8Job =
    "\n[JOB]\nDST EML=\"\xC3\xA9@b.c\"\nPRT QTY=2\nIMG SRC=\"\xC3\xA9.JPG\"\n"
    "<IMG SRC=\"\xC3\xA9.JPG\">";

TEST(MarkerFile, FilesAreReadInTheDefaultEncodingAndPrintMarkersByWhatTheyAre) {
  const TemporaryFolder folder;
  const std::string utf16("\xFF\xFE\n\0[\0J\0O\0B\0]\0\n\0<\0I\0M\0G\0 \0S\0R\0C\0\xE9\0\"\0>\0",
                          38);
  const char* const kMarked = "\xEF\xBB\xBF\n[JOB]\n<IMG SRC=\"\xC3\xA9\">\nDST EML\"\nIMG SRC1\"";
  const char* const kEmail = "[\xC3\xA9@b.c]>\xC3\xA9.JPG;";
  const char* const kPrint = "2*\xC3\xA9.JPG;";
  const struct {
    std::string bytes;
    const char* encoding;
    const char* email;
    const char* print;
  } rows[] = {
      {kLatinJob, "ISO-8859-1", kEmail, kPrint},
      {kLatinJob, "UTF-8", "", ""},
      {kUTF8Job, "UTF-8", kEmail, kPrint},
      {kUTF8Job, "ISO-8859-1", "[\xC3\x83\xC2\xA9@b.c]>\xC3\x83\xC2\xA9.JPG;", kPrint},
      {std::string(kUTF8Job).substr(0, 17), "UTF-8", "", ""},
      {utf16, "ISO-8859-1", "", "1*\xC3\xA9;"},
      {kMarked, "UTF-8", "[\nIMG SRC1]>1;", "1*\xC3\xA9;"},
  };
  for (const auto& row : rows) {
    const auto file = folder.write("marker", row.bytes);
    EmailOrders email;
    EXPECT_EQ(fillInEmailOrderList(email, file, row.encoding), status::kOK);
    EXPECT_EQ(emailOrders(email), row.email) << row.encoding << row.bytes;
    PrintOrders print;
    EXPECT_EQ(fillInPrintOrderList(print, file, row.encoding), status::kOK);
    EXPECT_EQ(printOrders(print), row.print) << row.encoding << row.bytes;
  }
}

TEST(MarkerFile, AFileThatCannotBeReadAddsNothingToTheList) {
  const TemporaryFolder folder;
  const auto tooLarge = folder.write("large", kUTF8Job);
  std::filesystem::resize_file(tooLarge, kMostBytesOfTextFile + 1);
  const auto kept = folder.write("marker", kUTF8Job);
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  EmailOrders email;
  PrintOrders print;
  TraceRecorder traces;
  for (const auto& file : {kept, std::string(), folder.path(), folder.path("missing"),
                           folder.path("pipe"), std::string("/dev/zero"), tooLarge}) {
    EXPECT_EQ(fillInEmailOrderList(email, file, "UTF-8"), status::kOK);
    EXPECT_EQ(fillInPrintOrderList(print, file, "UTF-8"), status::kOK);
    EXPECT_EQ(email.size() * print.size(), 1U) << file;
  }
  EXPECT_EQ(traces.take().back(), "text file " + tooLarge + " cannot be read: File too large");
}

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
  EXPECT_EQ(contactsOf("a <a>", 0) + contactsOf("", 0), "none");
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
  const std::tuple<const char*, std::uint32_t, const char*, const char*> rows[] = {
      {"abc|de|fg", 3, "abc|de |fg|", "nickname 'de' lengthened to 'de '"},
      {"abc|def", 3, "abc|de|", "nickname 'def' shortened to 'de'"},
      {"abc|de", 0, "ab|de|", "nickname 'abc' shortened to 'ab'"},
      {"a\xC3\xA9|b", 1, "a|b|", "nickname 'a\xC3\xA9' shortened to 'a'"},
      {"a\xF0\x9F\x98\x80", 3, "a|", "nickname 'a\xF0\x9F\x98\x80' shortened to 'a'"},
      {"\xC3\xA9", 2, "\xC3\xA9 |", "nickname '\xC3\xA9' lengthened to '\xC3\xA9 '"},
      {"a|b", 1, "a|b|", nullptr},
      {"a| ", 0, "a| |", nullptr}};
  for (const auto& [before, limit, expected, words] : rows) {
    TraceRecorder traces;
    auto book = bookOfSixtyFour(before);
    book.limits.maxNicknameLengthInBytes = limit;
    EXPECT_EQ(editAddressBookToAvoidMod64ICABug(book), words != nullptr);
    std::string nicknames;
    for (const auto& contact : *book.contacts)
      nicknames += contact->nickname.value() + "|";
    EXPECT_EQ(nicknames, expected);
    const auto trace =
        words ? std::string(words) + " to adjust payload"
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
