// addressbook, on the devices of both generations: what is said, what is sent, what is kept.
#include <gmock/gmock.h>
#include <sys/stat.h>

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
      {"no dot", ofOne("A", "a@example"), 0x10000013, "no '.' behind the '@'"},
      {"long", ofOne("A", (std::string(60, 'a') + "@b.c").c_str()), 0x10000005,
       "has 64 characters"},
      {"nickname", ofOne(longName.c_str(), "a@b.c"), 0x10000006, "has 21 characters, the device "},
      {"no email", bookOf({json{{"kABNicknameProperty", "A"}}}), 0x10000011, "no e-mail address"},
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
  for (const char* camera : {"orders-camera", "orders-legacy"}) {
    for (const char* name : {"book.json", "book.vcf"}) {
      SharingBench bench(camera);
      const auto file = bench.folder.path(name);
      EXPECT_EQ(bench.run({"addressbook", "export", file}).exitCode, 0);
      EXPECT_EQ(bench.run({"addressbook", "export", file}).exitCode, tools::kFailed) << "is there";
      const auto run = bench.run({"addressbook", "import", file, "--yes"});
      EXPECT_EQ(run.exitCode, 0) << run.err;
      EXPECT_THAT(run.err, HasSubstr("has all of this already")) << camera << name << run.out;
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

TEST(AddressBook, OfDataSetsIsChangedContactByContact) {
  SharingBench bench("orders-camera");
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
  for (const auto& words : std::vector<std::vector<std::string>>{{"import", file}, {"edit"}}) {
    std::vector<std::string> all = {"addressbook"};
    all.insert(all.end(), words.begin(), words.end());
    EXPECT_EQ(bench.run(all).exitCode, tools::kBadUsage);
  }
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
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"show"}, {"export"}, {"import", file, "--yes"}, {"validate"}}) {
    std::vector<std::string> all = {"addressbook"};
    all.insert(all.end(), words.begin(), words.end());
    const auto run = bench.run(all);
    EXPECT_EQ(run.exitCode, tools::kFailed) << words[0] << run.out;
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
  EXPECT_EQ(full.run({"addressbook", "import", file, "--yes", "--sync"}).exitCode, 0);
  EXPECT_THAT(full.folder.read(full.backups()[0]), SizeIs(5 * 11));
  SharingBench latin("orders-legacy", R"({"stores": [{"id": "0x00010001", "content": [
      {"file": "DCEMAIL.ABK", "encoding": "ISO-8859-1", "lines": ["B\u00f8rge <b@b.cc>"]}]}]})");
  EXPECT_THAT(latin.run({"addressbook", "show"}).err, HasSubstr("no text in the encoding UTF-8"));
}

TEST(AddressBook, ThatIsWrittenInPartSaysWhichPart) {
  struct Row {
    const char* device;
    const char* fault;
    const char* text;
  };
  // SendObject, and the replacing of a data set.
  for (const Row& row :
       {Row{"orders-legacy", "0x2002,0x100D,@1", "Nothing of it was written. Not written: + Dora"},
        Row{"orders-camera", "0x2002,0x9207,@1",
            "Written: + Dora <dora@example.org>. Not written: ~ Ann"}}) {
    SharingBench bench(row.device);
    auto book = bench.book();
    book["XTAddressBookContactsKey"][0]["kABNicknameProperty"] = "Ann";
    book["XTAddressBookContactsKey"].push_back(
        {{"kABNicknameProperty", "Dora"}, {"kABEmailProperty", "dora@example.org"}});
    bench.folder.write("book.json", book.dump());
    bench.sim.camera->setFault("respond", row.fault);
    const auto run = bench.run({"addressbook", "import", bench.folder.path("book.json"), "--yes"});
    EXPECT_EQ(run.exitCode, tools::kFailed);
    EXPECT_THAT(run.err, HasSubstr(row.text));
    EXPECT_THAT(run.err, HasSubstr("What it held before is in " + bench.folder.path()));
  }
}

}  // namespace
}  // namespace tarvo::test
