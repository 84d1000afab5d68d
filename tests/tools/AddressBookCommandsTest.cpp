// addressbook, on the devices of both generations: what is said, what is sent, what is kept.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <regex>

#include "Utilities/Format.h"
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

json contact(const std::string& nickname, const std::string& email) {
  return {{"kABNicknameProperty", nickname}, {"kABEmailProperty", email}};
}

std::string bookOf(const std::vector<json>& contacts) {
  return json{{"XTAddressBookContactsKey", contacts}}.dump();
}

TEST(AddressBook, IsShownWithGroupsAndLimits) {
  SharingBench bench("orders-camera");
  const auto run = bench.run({"addressbook", "show"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, ContainsRegex("Anna +anna@example.org +Anna Keller +Family\n"));
  EXPECT_THAT(run.out, ContainsRegex("Contacts: +3 \\(the device takes 8\\)\n"));
  EXPECT_THAT(run.out,
              ContainsRegex("Groups: +3 \\(the device takes 4\\), each of at most 4 contacts\n"));
  SharingBench legacy("orders-legacy");
  EXPECT_THAT(legacy.run({"addressbook", "show"}).out,
              AllOf(ContainsRegex("Bert +bert@example.org\n"), Not(HasSubstr("GROUPS"))));
  EXPECT_THAT(CameraBench().run({"addressbook", "show"}).err, HasSubstr("keeps no address book"));
}

TEST(AddressBook, OfAFileIsCheckedAgainstTheDevice) {
  struct Row {
    const char* name;
    std::string book;
    Status code;
    const char* words;
  };
  const auto ofOne = [](const char* nickname, const char* email) {
    return bookOf({contact("Ok", "ok@example.org"), contact(nickname, email)});
  };
  const std::string longName(21, 'n');
  const Row rows[] = {
      {"no at", ofOne("A", "a.example.org"), 0x10000012, "contact 2, A <a.example.org>: "},
      {"nickname", ofOne(longName.c_str(), "a@b.c"), 0x10000006, "has 21 characters, the device "},
      {"many", bookOf(std::vector<json>(9, contact("A", "a@b.c"))), 0x10000001, "has 9 contacts"},
  };
  SharingBench bench("orders-camera");
  for (const auto& row : rows) {
    const auto file = bench.folder.write("book.json", row.book);
    const auto run = bench.run({"addressbook", "validate", file});
    EXPECT_EQ(run.exitCode, tools::kFailed) << row.name;
    EXPECT_THAT(run.out, AllOf(HasSubstr("Not valid: "), HasSubstr(row.words))) << row.name;
    const auto said = bench.run({"--json", "addressbook", "validate", file}).json();
    EXPECT_EQ(said["valid"], false) << row.name;
    EXPECT_EQ(said["ptpErrorCode"], row.code) << row.name;
    const auto sent = bench.run({"addressbook", "import", file, "--yes"});
    EXPECT_THAT(sent.err, AllOf(HasSubstr(row.words), HasSubstr("Nothing was sent"))) << row.name;
  }
  EXPECT_EQ(bench.run({"addressbook", "validate"}).exitCode, 0) << "its own";
  EXPECT_THAT(bench.backups(), IsEmpty());
  EXPECT_EQ(bench.sim.asked(ptp::XTO_UPDATE_DATASET), 0U);
}

TEST(AddressBook, ThatIsSentBackAsItWasChangesNothing) {
  const struct {
    const char* camera;
    const char* over;
    std::vector<const char*> files;
  } rows[] = {
      {"full-camera", "{}", {"book.json"}},
      {"orders-camera", "{}", {"book.json", "book.vcf"}},
      {"orders-legacy", "{}", {"book.json", "book.vcf"}},
      // Groups of one name, which a vCard cannot tell apart; people without ids, two of them alike.
      {"orders-camera",
       R"({"datasets": {"groups": [{"name": "G", "members": ["Anna"]},
                                                    {"name": "G", "members": ["Chloe"]}]}})",
       {"book.json"}},
      {"orders-camera",
       R"({"datasets": {"groups": [], "emailOrders": [], "contacts": [
          {"guid": "00000000000000000000000000000000", "nickname": "A", "email": "a@b.cc"},
          {"guid": "00000000000000000000000000000000", "nickname": "B", "email": "a@b.cc"}]}})",
       {"book.json", "book.vcf"}},
      {"orders-camera",
       R"({"datasets": {"groups": [], "emailOrders": [], "contacts": [
          {"guid": "00", "nickname": "A", "email": "a@b.cc"},
          {"guid": "00", "nickname": "A", "email": "a@b.cc"}]}})",
       {"book.json"}},
      // What the device's own rules would refuse.
      {"orders-camera",
       R"({"datasets": {"groups": [], "emailOrders": [],
                            "contacts": [{"nickname": "A", "phone": "1"}]}})",
       {"book.json", "book.vcf"}},
  };
  for (const auto& [camera, over, files] : rows) {
    for (const char* name : files) {
      SharingBench bench(camera, over);
      const auto file = bench.folder.path(name);
      EXPECT_EQ(bench.run({"addressbook", "export", file}).exitCode, 0);
      EXPECT_EQ(bench.run({"addressbook", "export", file}).exitCode, tools::kFailed) << "is there";
      const auto run = bench.run({"addressbook", "import", file, "--yes"});
      EXPECT_EQ(run.exitCode, 0) << run.err;
      EXPECT_THAT(run.err, HasSubstr("has all of this already")) << camera << over << run.out;
      EXPECT_THAT(bench.backups(), IsEmpty());
    }
  }
}

/// The book of orders-camera with Børge gone, Chloe changed, Dora new and in the group Friends.
std::string changedBook(SharingBench& bench) {
  auto book = bench.book();
  auto& contacts = book["XTAddressBookContactsKey"];
  contacts.erase(1);
  contacts[1]["kABPhoneProperty"] = "123";
  contacts.push_back(contact("Dora", "dora@example.org"));
  contacts.back()["XTPTPObjectHandleKey"] = 9999;
  auto& groups = book["XTAddressBookGroupsKey"];
  groups[1]["contactGroupMembersKey"] = {9999};
  groups.erase(2);
  return book.dump();
}

/// The camera without orders to people: those keep whoever they go to.
constexpr const char* kWithoutEmailOrders = R"({"datasets": {"emailOrders": []}})";

TEST(AddressBook, OfDataSetsIsChangedContactByContact) {
  SharingBench bench("orders-camera", kWithoutEmailOrders);
  const auto before = bench.book();
  const auto file = bench.folder.write("book.json", changedBook(bench));
  const auto dry = bench.run({"addressbook", "import", file, "--dry-run"});
  EXPECT_THAT(dry.lines(),
              ElementsAre("+ Dora <dora@example.org>", "~ Chloe <chloe@example.org> (phone)",
                          "- Børge <borge@example.org>",
                          "~ group Friends (1 member, 1 more, 1 less)", "- group Nobody"));
  EXPECT_EQ(bench.book(), before);
  const auto run = bench.run({"addressbook", "import", file, "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(bench.contacts(), ::testing::UnorderedElementsAre("Anna <anna@example.org>",
                                                                "Chloe <chloe@example.org>",
                                                                "Dora <dora@example.org>"));
  const auto after = bench.book();
  ASSERT_THAT(after["XTAddressBookGroupsKey"], SizeIs(2));
  EXPECT_EQ(after["XTAddressBookGroupsKey"][1]["contactGroupMembersKey"][0],
            after["XTAddressBookContactsKey"].back()["XTPTPObjectHandleKey"]);
  EXPECT_EQ(after["XTAddressBookContactsKey"][0], before["XTAddressBookContactsKey"][0]);
  ASSERT_THAT(bench.backups(), SizeIs(1));
  struct ::stat backup = {};
  ::stat(bench.folder.path(bench.backups()[0]).c_str(), &backup);
  EXPECT_EQ(backup.st_mode & 0777U, 0600U);
  EXPECT_EQ(json::parse(bench.folder.read(bench.backups()[0])), before);
  // The backup is a book like any other; the contact that went comes back as a new one.
  const auto back =
      bench.run({"addressbook", "import", bench.folder.path(bench.backups()[0]), "--yes"});
  EXPECT_EQ(back.exitCode, 0) << back.err;
  EXPECT_THAT(bench.contacts(), SizeIs(3));
  EXPECT_THAT(bench.backups(), SizeIs(2)) << "no backup replaces another";
}

TEST(AddressBook, InAFileIsReplacedWithAllContacts) {
  SharingBench bench("orders-legacy");
  const auto former = bench.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE);
  const auto file = bench.folder.write("book.json", bookOf({contact("Bert", "bert@example.org"),
                                                            contact("Zoë", "zoe@example.org")}));
  const auto run = bench.run({"addressbook", "import", file, "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(bench.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE),
            "Bert <bert@example.org>\r\nZoë <zoe@example.org>\r\n");
  EXPECT_THAT(run.err, HasSubstr("The old file is deleted and a new one, with all contacts"));
  ASSERT_THAT(bench.backups(), SizeIs(2));
  EXPECT_EQ(bench.folder.read(bench.backups()[0]), former) << "byte for byte";
  EXPECT_EQ(bench.run({"addressbook", "import", file, "--yes", "--merge"}).exitCode, 0);
  bench.folder.write("more.json", bookOf({contact("Max", "max@example.org")}));
  bench.run({"addressbook", "import", bench.folder.path("more.json"), "--yes", "--merge"});
  EXPECT_THAT(bench.contacts(), SizeIs(3));
}

// A file whose size some hosts lose is sent without its last line end, never padded.
TEST(AddressBook, InAFileOfAnySizeArrivesAsItIs) {
  for (std::size_t length = 1; length <= 20; ++length) {
    SharingBench bench("orders-legacy");
    const std::string nickname(length, 'n');
    const auto file = bench.folder.write(
        "b.json", bookOf({contact(nickname, "somebody@example.org"), contact("A", "a@b.c")}));
    EXPECT_EQ(bench.run({"addressbook", "import", file, "--yes"}).exitCode, 0) << length;
    const std::string sent = nickname + " <somebody@example.org>\r\nA <a@b.c>";
    const bool isEven = (sent.size() + 2 + 12) % 64 == 0;
    EXPECT_EQ(bench.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE), sent + (isEven ? "" : "\r\n"));
  }
}

TEST(AddressBook, ThatIsOnlySynchronisedSendsNoContact) {
  SharingBench bench("orders-camera");
  const auto contacts = bench.contacts();
  const auto file = bench.folder.write("book.json", changedBook(bench));
  const auto run = bench.run({"addressbook", "import", file, "--sync", "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("Groups alone are sent"));
  EXPECT_EQ(bench.contacts(), contacts);
  EXPECT_EQ(bench.count(ptp::XTD_GROUP), 2U);
  SharingBench legacy("orders-legacy");
  const auto empties = legacy.run({"addressbook", "import", file, "--sync", "--yes"});
  EXPECT_EQ(empties.exitCode, 0) << empties.err;
  EXPECT_THAT(empties.err, HasSubstr("An EMPTY file is sent"));
  EXPECT_EQ(legacy.onlyObject(ptp::XTD_ADDRESS_BOOK_FILE), "");
  EXPECT_THAT(legacy.backups(), SizeIs(2));
}

TEST(AddressBook, IsNeverChangedUnasked) {
  SharingBench bench("orders-camera");
  const auto before = bench.book();
  const auto file = bench.folder.write("book.json", bookOf({}));
  EXPECT_EQ(bench.run({"addressbook", "import", file}).exitCode, tools::kBadUsage);
  EXPECT_EQ(bench.run({"addressbook", "edit"}).exitCode, tools::kBadUsage);
  for (const char* bad : {"{", "[]", R"({"XTAddressBookContactsKey": [{"kABEmail": 1}]})"})
    EXPECT_EQ(
        bench.run({"addressbook", "import", bench.folder.write("b.json", bad), "--yes"}).exitCode,
        tools::kFailed);
  EXPECT_EQ(bench.book(), before);
}

TEST(AddressBook, WithoutRoomForABackupIsLeftAlone) {
  SharingBench bench("orders-legacy");
  bench.folder.write("data", "a file where a folder should be");
  const auto file = bench.folder.write("book.json", bookOf({}));
  const auto run = bench.run({"addressbook", "import", file, "--yes"});
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(run.err, HasSubstr("nothing was sent"));
  EXPECT_THAT(bench.contacts(), SizeIs(3));
}

TEST(AddressBook, IsEditedInTheUsersEditor) {
  SharingBench bench("orders-legacy");
  const ScopedEnvironment visual(
      "VISUAL", bench.folder.writeScript("editor", "sed -i s/Bert/Berta/ \"$1\"\n"));
  const auto run = bench.run({"addressbook", "edit", "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("~ Berta <bert@example.org> (nickname)"));
  EXPECT_EQ(bench.contacts()[1], "Berta <bert@example.org>");
  const ScopedEnvironment idle("VISUAL", "true");
  EXPECT_THAT(bench.run({"addressbook", "edit", "--yes"}).err, HasSubstr("Nothing was changed"));
  const ScopedEnvironment broken("VISUAL", "false");
  EXPECT_THAT(bench.run({"addressbook", "edit", "--yes"}).err, HasSubstr("Your text is in"));
}

TEST(AddressBook, ThatCannotBeReadInWholeIsNotTakenForWhole) {
  // GUID, eleven texts and a picture, then groups without an end.
  SharingBench bench("orders-camera", withEndlessDataSet("0xB203", 16 + 11 + 4));
  const auto file = bench.folder.write("book.json", bookOf({}));
  for (auto words : std::vector<std::vector<std::string>>{
           {"show"}, {"export"}, {"import", file, "--yes"}, {"validate"}}) {
    words.insert(words.begin(), "addressbook");
    const auto run = bench.run(words);
    EXPECT_EQ(run.exitCode, tools::kFailed) << words[1] << run.out;
  }
  EXPECT_EQ(bench.count(ptp::XTD_CONTACT), 4U);
  // More lines than the device itself takes: what it holds is kept as it stands.
  std::string lines;
  for (int line = 0; line < 5; ++line)
    lines += R"("P <p@b.c>",)";
  lines.pop_back();
  SharingBench full("orders-legacy", R"({"stores": [{"id": "0x00010001", "content": [
      {"file": "DCEMAIL.ABK", "lines": [)" +
                                         lines + "]}]}]}");
  EXPECT_THAT(full.run({"addressbook", "show"}).err, HasSubstr("has 5 lines, more than the 4"));
  EXPECT_EQ(full.run({"addressbook", "import", file, "--yes", "--sync"}).exitCode, 1);
  EXPECT_EQ(full.count(ptp::XTD_ADDRESS_BOOK_FILE), 1U);
  const auto handle = full.sim.camera->handles({.format = ptp::XTD_ADDRESS_BOOK_FILE}).front();
  EXPECT_EQ(full.run({"addressbook", "delete", std::to_string(handle)}).exitCode, 2);
  EXPECT_EQ(full.run({"addressbook", "delete", std::to_string(handle), "--yes"}).exitCode, 0);
  EXPECT_THAT(full.folder.read(full.backups()[0]), SizeIs(5 * 11));
  SharingBench latin("orders-legacy", R"({"stores": [{"id": "0x00010001", "content": [
      {"file": "DCEMAIL.ABK", "encoding": "ISO-8859-1", "lines": ["B\u00f8rge <b@b.cc>"]}]}]})");
  EXPECT_THAT(latin.run({"addressbook", "show"}).err, HasSubstr("no text in the encoding UTF-8"));
  SharingBench odd("orders-legacy", R"({"stores": [{"id": "0x00010001", "content": [
      {"file": "DCEMAIL.ABK", "lines": [" <>", "B <b@b.cc>", "C c@b.cc"]}]}]})");
  EXPECT_THAT(odd.run({"addressbook", "show"}).err, HasSubstr("line 3 is no contact"));
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
      const auto run = bench.run(words);
      EXPECT_EQ(run.exitCode, tools::kFailed) << fault << words[1];
      EXPECT_THAT(run.err, HasSubstr("cannot be read: ")) << fault << words[1];
    }
    bench.sim.camera->setFault("truncate", "off");
    EXPECT_EQ(bench.book(), before) << fault;
  }
}

TEST(AddressBook, WithABadEntryShowsTheOthersAndNamesIt) {
  // A contact with groups without an end; a group that names a contact that is gone.
  for (const char* hex : {"\"0xB203\", \"hex\": \"100000000000000000000000000000000000000000000000"
                          "00000000000000000000ffffffff\"",
                          "\"0xB202\", \"hex\": \"0247000000000000000100000099990000\""}) {
    SharingBench bench("orders-camera",
                       std::string(R"({"datasets": {"raw": [{"format": )") + hex + "}]}}");
    const auto all = bench.sim.camera->handles({});
    const auto bad = formatted("0x%08x", all.back());
    const auto run = bench.run({"addressbook", "show"});
    EXPECT_EQ(run.exitCode, tools::kFailed);
    EXPECT_THAT(run.out, AllOf(HasSubstr("anna@example.org"), HasSubstr("Family")));
    EXPECT_THAT(run.err, AllOf(HasSubstr(bad + " cannot be read"),
                               HasSubstr("'tarvoctl addressbook delete " + bad + "' removes it")));
    EXPECT_EQ(bench.run({"--json", "addressbook", "show"}).json()["unread"].size(), 1U);
    EXPECT_EQ(bench.run({"addressbook", "delete", bad, "--yes"}).exitCode, 0);
    EXPECT_EQ(bench.run({"addressbook", "show"}).exitCode, 0);
  }
}

TEST(AddressBook, OfTwoFilesIsTheFirstAndNothingIsWrittenBesideIt) {
  SharingBench bench("orders-legacy", R"({"stores": [{"id": "0x00010001", "content": [
      {"file": "DCEMAIL.ABK", "lines": ["A <a@b.cc>"]},
      {"folder": "OLD", "content": [{"file": "DCEMAIL.ABK", "lines": ["B <b@b.cc>"]}]}]}]})");
  const auto file = bench.folder.write("book.json", bookOf({contact("A", "a@b.cc")}));
  const auto second = bench.sim.camera->handles({.format = ptp::XTD_ADDRESS_BOOK_FILE}).back();
  const auto show = bench.run({"addressbook", "show"});
  EXPECT_EQ(show.exitCode, tools::kFailed);
  EXPECT_THAT(show.out, AllOf(HasSubstr("a@b.cc"), Not(HasSubstr("b@b.cc"))));
  EXPECT_THAT(show.err, HasSubstr(formatted("0x%08x cannot be read: there is another", second)));
  EXPECT_EQ(bench.run({"addressbook", "import", file, "--yes"}).exitCode, tools::kFailed);
  EXPECT_EQ(bench.count(ptp::XTD_ADDRESS_BOOK_FILE), 2U);
  EXPECT_EQ(bench.run({"addressbook", "delete", std::to_string(second), "--yes"}).exitCode, 0);
  EXPECT_THAT(bench.contacts(), ElementsAre("A <a@b.cc>"));
}

TEST(AddressBook, TakesNobodyForSomebodyElse) {
  const std::string kNobody = "00000000000000000000000000000000";
  const std::string people =
      R"({"datasets": {"groups": [{"name": "G"}, {"name": "G"}], "contacts": [
      {"guid": ")" +
      kNobody + R"(", "nickname": "Anna", "email": "anna@b.cc"},
      {"guid": ")" +
      kNobody + R"(", "nickname": "Bo", "email": "bo@b.cc"}],
      "emailOrders": [{"to": ["Anna"], "assets": ["TARV0002.JPG"]}]}})";
  const auto with = [](json contact, const char* key, const json& value) {
    contact[key] = value;
    return contact;
  };
  const auto anna = contact("Anna", "anna@b.cc");
  const auto bo = contact("Bo", "bo@b.cc");
  const std::string uid = "kABUIDProperty";
  const struct {
    std::vector<json> contacts;
    const char* words;  ///< of a refusal, or of the only change
  } rows[] = {
      {{with(anna, uid.c_str(), "00000000-0000-0000-0000-000000000000"),
        with(bo, uid.c_str(), "x")},
       "has all of this already"},
      {{anna, contact("Bob", "bo@b.cc")}, "nothing tells whether they are the same"},
      {{anna}, "- Bo <bo@b.cc>"},
      {{bo}, "goes to Anna <anna@b.cc>"},
      {{anna, bo, with(contact("C", "c@b.cc"), "kABAddressStreetKey", "1\r2\r3")}, "two lines"},
  };
  for (const auto& row : rows) {
    SharingBench bench("orders-camera", people);
    const auto before = bench.book();
    const auto file = bench.folder.write("book.json", bookOf(row.contacts));
    const auto run = bench.run({"addressbook", "import", file, "--yes", "--dry-run"});
    EXPECT_THAT(run.out + run.err, HasSubstr(row.words));
    EXPECT_EQ(bench.book(), before);
  }
  // By handle, which an export has; and of two groups of a name, those that it means.
  SharingBench bench("orders-camera", people);
  auto book = bench.book();
  book["XTAddressBookContactsKey"][1]["kABNicknameProperty"] = "Bob";
  const auto file = bench.folder.write("book.json", book.dump());
  EXPECT_THAT(bench.run({"addressbook", "import", file, "--yes"}).lines(),
              ElementsAre("~ Bob <bo@b.cc> (nickname)"));
  book["XTAddressBookContactsKey"][0]["kABEmailProperty"] = "other@b.cc";
  bench.folder.write("book.json", book.dump());
  EXPECT_THAT(bench.run({"addressbook", "import", file, "--yes"}).err, HasSubstr("goes to Anna"));
}

TEST(AddressBook, ThatIsFullExchangesAnEntry) {
  SharingBench bench("orders-camera", R"({"datasets": {"emailOrders": []}, "vendor": {"addressBook":
      {"maxAddresses": 3, "maxGroups": 3}}})");
  const auto file = bench.folder.write("book.json", changedBook(bench));
  auto book = json::parse(bench.folder.read("book.json"));
  book["XTAddressBookGroupsKey"].push_back({{"kABGroupNameProperty", "New"}});
  bench.folder.write("book.json", book.dump());
  const auto run = bench.run({"addressbook", "import", file, "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(bench.contacts(), ::testing::Contains("Dora <dora@example.org>"));
  EXPECT_THAT(bench.book()["XTAddressBookGroupsKey"], SizeIs(3));
}

// The room that the kept counts give a group is too small for the members that it was given.
TEST(AddressBook, ThatGrewIsReadAgainInWhole) {
  SharingBench bench("orders-camera", R"({"datasets": {"emailOrders": []}, "vendor": {"addressBook":
      {"maxAddresses": 1000, "maxAddressesPerGroup": 1000}}})");
  auto book = bench.book();
  auto& members = book["XTAddressBookGroupsKey"][2]["contactGroupMembersKey"];
  for (int number = 1; number <= 300; ++number) {
    const auto name = "n" + std::to_string(number);
    auto& contacts = book["XTAddressBookContactsKey"];
    contacts.push_back(contact(name, name + "@b.cc"));
    contacts.back()["XTPTPObjectHandleKey"] = 9000 + number;
    members.push_back(9000 + number);
  }
  const auto file = bench.folder.write("book.json", book.dump());
  const auto run = bench.run({"addressbook", "import", file, "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(bench.book()["XTAddressBookGroupsKey"][2]["contactGroupMembersKey"], SizeIs(300));
}

TEST(AddressBook, ThatIsMergedKeepsWhatTheFileDoesNotHave) {
  SharingBench bench("orders-camera");
  const auto file = bench.folder.write(
      "few.vcf",
      "\xEF\xBB\xBF"
      "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Anna K\r\nN:K;Anna;;;\r\nNICKNAME:Anna\r\n"
      "EMAIL:anna@example.org\r\nCATEGORIES:Friends\r\nEND:VCARD\r\n");
  const auto run = bench.run({"addressbook", "import", file, "--merge", "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.lines(), ElementsAre("~ Anna <anna@example.org> (last name)",
                                       "~ group Friends (2 members, 1 more)"));
  EXPECT_EQ(bench.book()["XTAddressBookContactsKey"][0]["kABPhoneProperty"], "+49 731 0000");

  const auto cards = bench.run({"addressbook", "export", "--format", "vcard"}).out;
  const auto nameless = bench.folder.write(
      "nameless.vcf", std::regex_replace(cards, std::regex("NICKNAME:[^\n]*\n"), ""));
  EXPECT_EQ(bench.run({"addressbook", "import", nameless, "--merge", "--yes"}).exitCode, 0);
  EXPECT_EQ(bench.book()["XTAddressBookContactsKey"][0]["kABNicknameProperty"], "Anna");
}

}  // namespace
}  // namespace tarvo::test
