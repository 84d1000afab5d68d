// addressbook, on the devices of both generations: what is said, what is sent, what is kept.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <regex>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "Utilities/Format.h"
#include "library/access/BookPlan.h"
#include "tests/tools/SharingBench.h"

namespace tarvo::test {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr const char* kHandle = "XTPTPObjectHandleKey";

json contact(const std::string& nickname, const std::string& email, json more = json::object()) {
  more.update({{"kABNicknameProperty", nickname}, {"kABEmailProperty", email}});
  return more;
}

std::string bookOf(const std::vector<json>& contacts) {
  return json{{kContacts, contacts}}.dump();
}

/// Laid over a camera: what its only store holds, or what data sets it has.
std::string stored(const std::string& content) {
  return R"({"stores": [{"id": "0x00010001", "content": [)" + content + "]}]}";
}
std::string datasets(const std::string& keys) {
  return R"({"datasets": {)" + keys + "}}";
}

/// The camera without orders to people: those keep whoever they go to.
constexpr const char* kWithoutEmailOrders = R"({"datasets": {"emailOrders": []}})";

TEST(AddressBook, IsShownWithGroupsAndLimits) {
  SharingBench bench("orders-camera");
  const auto run = bench.done({"addressbook", "show"});
  for (const char* line :
       {"Anna +anna@example.org +Anna Keller +Family\n", "Contacts: +3 \\(the device takes 8\\)\n",
        "Groups: +3 \\(the device takes 4\\), each of at most 4 contacts\n"})
    EXPECT_THAT(run.out, ContainsRegex(line));
  SharingBench legacy("orders-legacy");
  EXPECT_THAT(legacy.run({"addressbook", "show"}).out,
              AllOf(ContainsRegex("Bert +bert@example.org\n"), Not(HasSubstr("GROUPS"))));
  EXPECT_THAT(CameraBench().run({"addressbook", "show"}).err, HasSubstr("keeps no address book"));
}

TEST(AddressBook, OfAFileIsCheckedAgainstTheDevice) {
  const std::tuple<std::string, Status, const char*> rows[] = {
      {bookOf({contact("Ok", "ok@b.c"), contact("A", "a.b.c")}), 0x10000012,
       "contact 2, A <a.b.c>: "},
      {bookOf({contact(std::string(21, 'n'), "a@b.c")}), 0x10000006, "has 21 characters, the"},
      {bookOf(std::vector<json>(9, contact("A", "a@b.c"))), 0x10000001, "has 9 contacts"},
  };
  SharingBench bench("orders-camera");
  for (const auto& [book, code, words] : rows) {
    const auto file = bench.folder.write("book.json", book);
    const auto run = bench.fails({"addressbook", "validate", file});
    EXPECT_THAT(run.out, AllOf(HasSubstr("Not valid: "), HasSubstr(words)));
    const auto said = bench.run({"--json", "addressbook", "validate", file}).json();
    EXPECT_EQ(said["valid"], false) << words;
    EXPECT_EQ(said["ptpErrorCode"], code) << words;
    EXPECT_THAT(bench.import(book).err, AllOf(HasSubstr(words), HasSubstr("Nothing was sent")));
  }
  bench.done({"addressbook", "validate"});
  EXPECT_THAT(bench.backups(), IsEmpty());
  EXPECT_EQ(bench.sim.asked(ptp::XTO_UPDATE_DATASET), 0U);
}

TEST(AddressBook, TellsAllFaultsAtOnceAndLeavesThemOutOrShortensWhereAsked) {
  SharingBench bench("orders-camera");
  auto book = bench.book();
  book[kContacts][2]["kABEmailProperty"] = "chloe";
  book[kContacts].push_back(contact("Bad", "bad", {{kHandle, 9998}}));
  book[kContacts].push_back(contact("A nickname that is too long", "long@b.cc", {{kHandle, 9999}}));
  book[kGroups][1][kMembers] = {9998, 9999};
  const auto file = bench.folder.write("book.json", book.dump());
  EXPECT_THAT(bench.fails({"addressbook", "validate", file}).lines(), SizeIs(3));
  EXPECT_THAT(bench.run({"--json", "addressbook", "validate", file}).json()["faults"], SizeIs(3));
  EXPECT_THAT(bench.import(book.dump()).err,
              AllOf(HasSubstr("contact 3, "), HasSubstr("contact 4, "), HasSubstr("contact 5, "),
                    HasSubstr("--skip-invalid"), HasSubstr("--shorten")));
  const auto run = bench.import(book.dump(), {"--yes", "--skip-invalid", "--shorten"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.err, AllOf(HasSubstr("Left out: contact 3"), HasSubstr("Left out: contact 4"),
                             HasSubstr("shortened to 'A nickname that is t'")));
  EXPECT_THAT(bench.contacts(),
              ElementsAre("Anna <anna@example.org>", "Børge <borge@example.org>",
                          "Chloe <chloe@example.org>", "A nickname that is t <long@b.cc>"));
  EXPECT_THAT(bench.book()[kGroups][1][kMembers], SizeIs(1));
  EXPECT_THAT(bench.import(book.dump(), {"--yes", "--skip-invalid", "--shorten"}).err,
              HasSubstr("has all of this already"));
}

TEST(AddressBook, ThatIsSentBackAsItWasChangesNothing) {
  const auto people = [](const std::string& contacts) {
    return datasets(R"("groups": [], "emailOrders": [], "contacts": [)" + contacts + "]");
  };
  const std::tuple<const char*, std::string, bool> rows[] = {
      {"full-camera", "{}", false},
      {"orders-camera", "{}", true},
      {"orders-legacy", "{}", true},
      // Groups of one name, which a vCard cannot tell apart; people without ids, two of them alike.
      {"orders-camera", datasets(R"("groups": [{"name": "G", "members": ["Anna"]},
                                               {"name": "G", "members": ["Chloe"]}])"),
       false},
      {"orders-camera", people(R"(
          {"guid": "00000000000000000000000000000000", "nickname": "A", "email": "a@b.cc"},
          {"guid": "00000000000000000000000000000000", "nickname": "B", "email": "a@b.cc"})"),
       true},
      {"orders-camera", people(R"({"guid": "00", "nickname": "A", "email": "a@b.cc"},
                                  {"guid": "00", "nickname": "A", "email": "a@b.cc"})"),
       false},
      // What the device's own rules would refuse.
      {"orders-camera", people(R"({"nickname": "A", "phone": "1"})"), true},
  };
  for (const auto& [camera, over, isCard] : rows) {
    for (const char* name : {"book.json", "book.vcf"}) {
      if (!isCard && std::string(name) == "book.vcf") continue;
      SharingBench bench(camera, over);
      const auto file = bench.folder.path(name);
      bench.done({"addressbook", "export", file});
      bench.fails({"addressbook", "export", file});  // it is there
      const auto run = bench.done({"addressbook", "import", file, "--yes"});
      EXPECT_THAT(run.err, HasSubstr("has all of this already")) << camera << over << run.out;
      EXPECT_THAT(bench.backups(), IsEmpty());
    }
  }
}

/// The book of orders-camera with Børge gone, Chloe changed, Dora new and in the group Friends.
json changedBook(SharingBench& bench) {
  auto book = bench.book();
  book[kContacts].erase(1);
  book[kContacts][1]["kABPhoneProperty"] = "123";
  book[kContacts].push_back(contact("Dora", "dora@example.org", {{kHandle, 9999}}));
  book[kGroups][1][kMembers] = {9999};
  book[kGroups].erase(2);
  return book;
}

TEST(AddressBook, OfDataSetsIsChangedContactByContact) {
  SharingBench bench("orders-camera", kWithoutEmailOrders);
  const auto before = bench.book();
  const auto wanted = changedBook(bench).dump();
  EXPECT_THAT(bench.import(wanted, {"--dry-run"}).lines(),
              ElementsAre("+ Dora <dora@example.org>", "~ Chloe <chloe@example.org> (phone)",
                          "- Børge <borge@example.org>",
                          "~ group Friends (1 member, 1 more, 1 less)", "- group Nobody"));
  EXPECT_EQ(bench.book(), before);
  EXPECT_EQ(bench.import(wanted).exitCode, 0);
  EXPECT_THAT(bench.contacts(), ::testing::UnorderedElementsAre("Anna <anna@example.org>",
                                                                "Chloe <chloe@example.org>",
                                                                "Dora <dora@example.org>"));
  const auto after = bench.book();
  ASSERT_THAT(after[kGroups], SizeIs(2));
  EXPECT_EQ(after[kGroups][1][kMembers][0], after[kContacts].back()[kHandle]);
  EXPECT_EQ(after[kContacts][0], before[kContacts][0]);
  ASSERT_THAT(bench.backups(), SizeIs(1));
  const auto backup = bench.folder.path(bench.backups()[0]);
  struct ::stat info = {};
  ::stat(backup.c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777U, 0600U);
  EXPECT_EQ(json::parse(bench.folder.read(bench.backups()[0])), before);
  // The backup is a book like any other; the contact that went comes back as a new one.
  bench.done({"addressbook", "import", backup, "--yes"});
  EXPECT_THAT(bench.contacts(), SizeIs(3));
  EXPECT_THAT(bench.backups(), SizeIs(2)) << "no backup replaces another";
}

TEST(AddressBook, InAFileIsReplacedWithAllContacts) {
  SharingBench bench("orders-legacy");
  const auto former = bench.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE);
  const auto wanted =
      bookOf({contact("Bert", "bert@example.org"), contact("Zoë", "zoe@example.org")});
  EXPECT_THAT(bench.import(wanted).err,
              HasSubstr("The old file is deleted and a new one, with all contacts"));
  EXPECT_EQ(bench.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE),
            "Bert <bert@example.org>\r\nZoë <zoe@example.org>\r\n");
  ASSERT_THAT(bench.backups(), SizeIs(2));
  EXPECT_EQ(bench.folder.read(bench.backups()[0]), former) << "byte for byte";
  EXPECT_EQ(bench.import(wanted, {"--yes", "--merge"}).exitCode, 0);
  bench.import(bookOf({contact("Max", "max@example.org")}), {"--yes", "--merge"});
  EXPECT_THAT(bench.contacts(), SizeIs(3));
}

// A file whose size some hosts lose is sent without its last line end, never padded.
TEST(AddressBook, InAFileOfAnySizeArrivesAsItIs) {
  for (std::size_t length = 1; length <= 20; ++length) {
    SharingBench bench("orders-legacy");
    const std::string nickname(length, 'n');
    bench.import(bookOf({contact(nickname, "somebody@example.org"), contact("A", "a@b.c")}));
    const std::string sent = nickname + " <somebody@example.org>\r\nA <a@b.c>";
    const bool isEven = (sent.size() + 2 + 12) % 64 == 0;
    EXPECT_EQ(bench.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE), sent + (isEven ? "" : "\r\n"));
  }
}

TEST(AddressBook, ThatIsOnlySynchronisedSendsNoContact) {
  SharingBench bench("orders-camera");
  const auto contacts = bench.contacts();
  const auto wanted = changedBook(bench).dump();
  EXPECT_THAT(bench.import(wanted, {"--sync", "--yes"}).err, HasSubstr("Groups alone are sent"));
  EXPECT_EQ(bench.contacts(), contacts);
  EXPECT_EQ(bench.count(ptp::XTD_GROUP), 2U);
  SharingBench legacy("orders-legacy");
  EXPECT_THAT(legacy.import(wanted, {"--sync", "--yes"}).err, HasSubstr("An EMPTY file is sent"));
  EXPECT_EQ(legacy.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE), "");
  EXPECT_THAT(legacy.backups(), SizeIs(2));
}

TEST(AddressBook, IsNeverChangedUnaskedOrWithoutABackup) {
  SharingBench bench("orders-camera");
  const auto before = bench.book();
  EXPECT_EQ(bench.import(bookOf({}), {}).exitCode, tools::kBadUsage);
  EXPECT_EQ(bench.run({"addressbook", "edit"}).exitCode, tools::kBadUsage);
  for (const char* bad : {"{", "[]", R"({"XTAddressBookContactsKey": [{"kABEmail": 1}]})"})
    EXPECT_EQ(bench.import(bad).exitCode, tools::kFailed) << bad;
  EXPECT_EQ(bench.book(), before);
  SharingBench full("orders-legacy");
  full.folder.write("data", "a file where a folder should be");
  EXPECT_THAT(full.import(bookOf({})).err, HasSubstr("nothing was sent"));
  EXPECT_THAT(full.contacts(), SizeIs(3));
}

TEST(AddressBook, IsEditedInTheUsersEditor) {
  SharingBench bench("orders-legacy");
  const std::vector<std::string> edit = {"addressbook", "edit", "--yes"};
  const ScopedEnvironment visual(
      "VISUAL", bench.folder.writeScript("editor", "sed -i s/Bert/Berta/ \"$1\"\n"));
  EXPECT_THAT(bench.done(edit).out, HasSubstr("~ Berta <bert@example.org> (nickname)"));
  EXPECT_EQ(bench.contacts()[1], "Berta <bert@example.org>");
  const ScopedEnvironment idle("VISUAL", "true");
  EXPECT_THAT(bench.run(edit).err, HasSubstr("Nothing was changed"));
  const ScopedEnvironment broken("VISUAL", "false");
  EXPECT_THAT(bench.run(edit).err, HasSubstr("Your text is in"));
}

// More lines than the device itself takes, or what is no text: what it holds stays as it stands.
TEST(AddressBook, InAFileThatCannotBeReadInWholeIsLeftAlone) {
  const auto lines = [](const std::string& keys) {
    return stored(R"({"file": "DCEMAIL.ABK", )" + keys + "}");
  };
  const std::vector<std::string> show = {"addressbook", "show"};
  SharingBench latin("orders-legacy",
                     lines(R"("encoding": "ISO-8859-1", "lines": ["B\u00f8rge <b@b.cc>"])"));
  EXPECT_THAT(latin.run(show).err, HasSubstr("no text in the encoding UTF-8"));
  SharingBench odd("orders-legacy", lines(R"("lines": [" <>", "B <b@b.cc>", "C c@b.cc"])"));
  EXPECT_THAT(odd.run(show).err, HasSubstr("line 3 is no contact"));
  SharingBench full("orders-legacy", lines(R"("lines": ["P <p@b.c>", "P <p@b.c>", "P <p@b.c>",
                                                        "P <p@b.c>", "P <p@b.c>"])"));
  const auto held = full.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE);
  EXPECT_THAT(full.run(show).err, HasSubstr("has 5 lines, more than the 4"));
  EXPECT_EQ(full.import(bookOf({}), {"--yes", "--sync"}).exitCode, tools::kFailed);
  EXPECT_EQ(full.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE), held);
  const auto handle =
      std::to_string(full.sim.camera->handles({.format = ptp::XTD_ADDRESS_BOOK_FILE}).front());
  full.ends({"addressbook", "delete", handle}, tools::kBadUsage);
  full.done({"addressbook", "delete", handle, "--yes"});
  EXPECT_EQ(full.folder.read(full.backups()[0]), held);
}

// Whatever does not come of an answer is no reason to take anybody for gone.
TEST(AddressBook, ThatIsCutShortIsShownWithItsGapAndLeftAlone) {
  for (const char* fault :
       {"0,0x9204", "3,0x9204", "21,0x9204", "60,0x9204", "0,0x1007", "8,0x1007", "2,0x9007"}) {
    SharingBench bench("orders-camera", kWithoutEmailOrders);
    const auto before = bench.book();
    const auto file = bench.folder.write("book.json", bookOf({contact("Max", "max@b.cc")}));
    ASSERT_EQ(bench.sim.camera->setFault("truncate", fault), "");
    const ScopedEnvironment visual("VISUAL", "false");
    for (auto words : std::vector<std::vector<std::string>>{
             {"show"}, {"export"}, {"import", file, "--yes"}, {"edit", "--yes"}}) {
      words.insert(words.begin(), "addressbook");
      EXPECT_THAT(bench.fails(words).err, HasSubstr("cannot be read: ")) << fault << words[1];
    }
    bench.sim.camera->setFault("truncate", "off");
    EXPECT_EQ(bench.book(), before) << fault;
  }
}

TEST(AddressBook, WithABadEntryShowsTheOthersNamesItAndIsNotTakenForWhole) {
  // A contact that ends in its picture; a group that names a contact that is gone.
  for (const auto& over :
       {withEndlessDataSet("0xB203", 16 + 11 + 3),
        datasets(
            R"("raw": [{"format": "0xB202", "hex": "0247000000000000000100000099990000"}])")}) {
    SharingBench bench("orders-camera", over);
    const auto bad = formatted("0x%08x", bench.sim.camera->handles({}).back());
    const auto run = bench.fails({"addressbook", "show"});
    EXPECT_THAT(run.out, AllOf(HasSubstr("anna@example.org"), HasSubstr("Family")));
    EXPECT_THAT(run.err, AllOf(HasSubstr(bad + " cannot be read"),
                               HasSubstr("'tarvoctl addressbook delete " + bad + "' removes it")));
    EXPECT_EQ(bench.run({"--json", "addressbook", "show"}).json()["unread"].size(), 1U);
    bench.done({"addressbook", "delete", bad, "--yes"});
    bench.done({"addressbook", "show"});
  }
  // GUID, eleven texts and a picture, then groups without an end.
  SharingBench bench("orders-camera", withEndlessDataSet("0xB203", 16 + 11 + 4));
  bench.fails({"addressbook", "export"});
  bench.fails({"addressbook", "validate"});
  EXPECT_EQ(bench.import(bookOf({})).exitCode, tools::kFailed);
  EXPECT_EQ(bench.count(ptp::XTD_CONTACT), 4U);
}

TEST(AddressBook, OfTwoFilesIsTheFirstAndNothingIsWrittenBesideIt) {
  SharingBench bench("orders-legacy", stored(R"(
      {"file": "DCEMAIL.ABK", "lines": ["A <a@b.cc>"]},
      {"folder": "OLD", "content": [{"file": "DCEMAIL.ABK", "lines": ["B <b@b.cc>"]}]})"));
  const auto second = bench.sim.camera->handles({.format = ptp::XTD_ADDRESS_BOOK_FILE}).back();
  const auto show = bench.fails({"addressbook", "show"});
  EXPECT_THAT(show.out, AllOf(HasSubstr("a@b.cc"), Not(HasSubstr("b@b.cc"))));
  EXPECT_THAT(show.err, HasSubstr(formatted("0x%08x cannot be read: there is another", second)));
  EXPECT_EQ(bench.import(bookOf({contact("A", "a@b.cc")})).exitCode, tools::kFailed);
  EXPECT_EQ(bench.count(ptp::XTD_ADDRESS_BOOK_FILE), 2U);
  bench.done({"addressbook", "delete", std::to_string(second), "--yes"});
  EXPECT_THAT(bench.contacts(), ElementsAre("A <a@b.cc>"));
}

TEST(AddressBook, OfAFileThatIsTooLargeIsNeitherReadNorDeleted) {
  for (const char* hidesSize : {"true", "false"}) {
    SharingBench bench("orders-legacy", stored(std::string(R"(
        {"file": "DCEMAIL.ABK", "size": 9000000, "hidesSize": )") +
                                               hidesSize + "}"));
    const auto handle = bench.sim.camera->handles({.format = ptp::XTD_ADDRESS_BOOK_FILE}).back();
    const auto remove = std::vector<std::string>{"delete", std::to_string(handle), "--yes"};
    for (auto words : {std::vector<std::string>{"show"}, remove}) {
      words.insert(words.begin(), "addressbook");
      EXPECT_THAT(bench.fails(words).err, HasSubstr("larger than what is read into memory"));
    }
    EXPECT_EQ(bench.count(ptp::XTD_ADDRESS_BOOK_FILE), 1U);
  }
}

TEST(AddressBook, TakesNobodyForSomebodyElse) {
  const std::string people = datasets(R"("groups": [{"name": "G"}, {"name": "G"}], "contacts": [
      {"guid": "00000000000000000000000000000000", "nickname": "Anna", "email": "anna@b.cc"},
      {"guid": "00000000000000000000000000000000", "nickname": "Bo", "email": "bo@b.cc"}],
      "emailOrders": [{"to": ["Anna"], "assets": ["TARV0002.JPG"]}])");
  const auto anna = contact("Anna", "anna@b.cc");
  const auto bo = contact("Bo", "bo@b.cc");
  const auto noID = json{{"kABUIDProperty", "00000000-0000-0000-0000-000000000000"}};
  const struct {
    std::vector<json> contacts;
    const char* words;  ///< of a refusal, or of the only change
  } rows[] = {
      {{contact("Anna", "anna@b.cc", noID), contact("Bo", "bo@b.cc", {{"kABUIDProperty", "x"}})},
       "has all of this already"},
      {{anna, contact("Bob", "bo@b.cc")}, "nothing tells whether they are the same"},
      {{anna}, "- Bo <bo@b.cc>"},
      {{bo}, "goes to Anna <anna@b.cc>"},
      {{anna, bo, contact("C", "c@b.cc", {{"kABAddressStreetKey", "1\r2\r3"}})}, "two lines"},
  };
  SharingBench bench("orders-camera", people);
  auto book = bench.book();
  for (const auto& [contacts, words] : rows) {
    const auto run = bench.import(bookOf(contacts), {"--yes", "--dry-run"});
    EXPECT_THAT(run.out + run.err, HasSubstr(words));
    EXPECT_EQ(bench.book(), book);
  }
  // By handle, which an export has; and of two groups of a name, those that it means.
  book[kContacts][1]["kABNicknameProperty"] = "Bob";
  EXPECT_THAT(bench.import(book.dump()).lines(), ElementsAre("~ Bob <bo@b.cc> (nickname)"));
  book[kContacts][0]["kABEmailProperty"] = "other@b.cc";
  EXPECT_THAT(bench.import(book.dump()).err, HasSubstr("goes to Anna"));
}

// Full, so that an entry has to go before another comes; and with a group that grows beyond the
// room that the kept counts give it.
TEST(AddressBook, ThatIsFullExchangesAnEntryAndOneThatGrewIsReadAgain) {
  SharingBench bench("orders-camera", R"({"datasets": {"emailOrders": []}, "vendor": {"addressBook":
      {"maxAddresses": 3, "maxGroups": 3}}})");
  auto book = changedBook(bench);
  book[kGroups].push_back({{"kABGroupNameProperty", "New"}});
  EXPECT_EQ(bench.import(book.dump()).exitCode, 0);
  EXPECT_THAT(bench.contacts(), ::testing::Contains("Dora <dora@example.org>"));
  EXPECT_THAT(bench.book()[kGroups], SizeIs(3));

  SharingBench roomy("orders-camera", R"({"datasets": {"emailOrders": []}, "vendor": {"addressBook":
      {"maxAddresses": 1000, "maxAddressesPerGroup": 1000}}})");
  book = roomy.book();
  for (int number = 1; number <= 300; ++number) {
    const auto name = "n" + std::to_string(number);
    book[kContacts].push_back(contact(name, name + "@b.cc", {{kHandle, 9000 + number}}));
    book[kGroups][2][kMembers].push_back(9000 + number);
  }
  EXPECT_EQ(roomy.import(book.dump()).exitCode, 0);
  EXPECT_THAT(roomy.book()[kGroups][2][kMembers], SizeIs(300));
}

// Everybody in doubt, and all groups of one name in another order: each comparison of one with all
// others would be four hundred million.
TEST(AddressBook, OfAsManyAsThereMayBeIsComparedOneByOne) {
  AddressBook there = {.contacts = Contacts(), .groups = ContactGroups()};
  AddressBook wanted = there;
  for (std::uint32_t number = 1; number <= kMostBookEntries; ++number) {
    const auto email = std::to_string(number) + "@b.cc";
    there.contacts->push_back(std::make_shared<Contact>(Contact{.email = email}));
    wanted.contacts->push_back(std::make_shared<Contact>(Contact{.email = email, .nickname = "N"}));
    for (const auto& [book, handle] : {std::pair(&there, number), {&wanted, 20001 - number}})
      book->groups->push_back(
          std::make_shared<ContactGroup>(ContactGroup{.name = "G", .handle = handle}));
  }
  const auto plan = library::planBook(there, wanted, {});
  EXPECT_THAT(plan.doubt, HasSubstr("N <20000@b.cc> has the address of <20000@b.cc>"));
  EXPECT_EQ(plan.book.groups->front()->handle, kMostBookEntries);
  EXPECT_TRUE(plan.changes.groups.isEmpty());
  wanted.contacts->push_back(wanted.contacts->front());
  EXPECT_THAT(SharingBench("orders-camera").import(jsonFromAddressBook(wanted).dump()).err,
              HasSubstr("20000 entries"));
}

TEST(AddressBook, ThatIsMergedKeepsWhatTheFileDoesNotHave) {
  SharingBench bench("orders-camera");
  const auto merge = [&](const std::string& cards) {
    return bench.done(
        {"addressbook", "import", bench.folder.write("few.vcf", cards), "--merge", "--yes"});
  };
  const auto run = merge(
      "\xEF\xBB\xBF"
      "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Anna K\r\nN:K;Anna;;;\r\nNICKNAME:Anna\r\n"
      "EMAIL:anna@example.org\r\nCATEGORIES:Friends\r\nEND:VCARD\r\n");
  EXPECT_THAT(run.lines(), ElementsAre("~ Anna <anna@example.org> (last name)",
                                       "~ group Friends (2 members, 1 more)"));
  EXPECT_EQ(bench.book()[kContacts][0]["kABPhoneProperty"], "+49 731 0000");
  const auto cards = bench.run({"addressbook", "export", "--format", "vcard"}).out;
  merge(std::regex_replace(cards, std::regex("NICKNAME:[^\n]*\n"), ""));
  EXPECT_EQ(bench.book()[kContacts][0]["kABNicknameProperty"], "Anna");
}

}  // namespace
}  // namespace tarvo::test
