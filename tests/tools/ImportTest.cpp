// import: what is new on a camera or a card into folders by date; the whole of the device and of
// the folder is compared.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>

#include "Utilities/PTPCodes.h"
#include "tests/tools/SharingBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr const char* kPictures = R"({"stores": [{"id": "0x00010001", "content": [
  {"folder": "DCIM", "content": [{"folder": "100TARVO", "content": [
    {"file": "TARV0001.JPG", "text": "one", "captured": "20240615T120000"},
    {"file": "TARV0001.NEF", "text": "raw of one", "captured": "20240615T120000"},
    {"file": "TARV0002.MOV", "text": "film", "captured": "20240616T000001"},
    {"file": "TARV0003.JPG", "text": "kept", "captured": "20240616T080000", "protected": true}]}]},
  {"file": "NOTES.TXT", "text": "no picture", "captured": "20240615T120000"}]}]})";

/// A camera, the folder that it is imported into, and the history.
struct ImportBench {
  explicit ImportBench(const char* camera = kPictures) : bench(camera) {
    ::setenv("XDG_STATE_HOME", bench.folder.path("state").c_str(), 1);
  }
  ~ImportBench() { ::unsetenv("XDG_STATE_HOME"); }
  ImportBench(const ImportBench&) = delete;
  ImportBench& operator=(const ImportBench&) = delete;

  ToolRun run(std::vector<std::string> words) {
    words.insert(words.begin(), {"import", "--output", target()});
    return bench.run(words);
  }
  std::string target() const { return bench.folder.path("pictures"); }
  /// Content by path below the target.
  std::map<std::string, std::string> imported() const { return filesBelow("pictures"); }
  std::map<std::string, std::string> filesBelow(const std::string& place) const {
    std::map<std::string, std::string> files;
    const std::string root = bench.folder.path(place);
    if (!fs::exists(root)) return files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (!entry.is_regular_file()) continue;
      const std::string path = entry.path().string().substr(root.size() + 1);
      files[path] = bench.folder.read(place + "/" + path);
    }
    return files;
  }
  /// Below the folder of the camera.
  static std::string at(const std::string& path) { return "Tarvo Lumo X2/" + path; }
  static std::map<std::string, std::string> all() {
    return {{at("2024-06-15/TARV0001.JPG"), "one"},
            {at("2024-06-15/TARV0001.NEF"), "raw of one"},
            {at("2024-06-16/TARV0002.MOV"), "film"},
            {at("2024-06-16/TARV0003.JPG"), "kept"}};
  }

  void expectNothingLost() {
    const auto onDevice = bench.names();
    const auto here = imported();
    for (const auto& [path, content] : all())
      EXPECT_TRUE(here.contains(path) ||
                  std::ranges::count(onDevice, fs::path(path).filename().string()) == 1)
          << path;
  }

  CameraBench bench;
};

class Import : public ::testing::Test, protected ImportBench {
 protected:
  using ImportBench::ImportBench;

  ToolRun import(std::vector<std::string> words = {}) { return run(std::move(words)); }
};

TEST_F(Import, GoesIntoFoldersByDateOnce) {
  const auto devices = bench.names();
  EXPECT_THAT(import({"--dry-run"}).out, HasSubstr("2024-06-16/TARV0002.MOV"));
  EXPECT_THAT(imported(), IsEmpty());
  const auto first = import({"--verify"});
  EXPECT_EQ(first.exitCode, 0) << first.err;
  EXPECT_THAT(first.err, HasSubstr("4 files fetched"));
  EXPECT_EQ(imported(), all());
  // Without the history what lies there is known; without the files the history knows them.
  const auto asked = bench.sim.asked(ptp::kGetObject);
  fs::remove_all(bench.folder.path("state"));
  EXPECT_THAT(import().err, HasSubstr("0 files fetched, 4 known"));
  EXPECT_EQ(imported(), all());
  fs::rename(target(), bench.folder.path("moved"));
  import();
  EXPECT_THAT(import().err, HasSubstr("0 files fetched, 4 known"));
  EXPECT_THAT(imported(), IsEmpty());
  EXPECT_EQ(bench.sim.asked(ptp::kGetObject), asked);
  EXPECT_EQ(bench.names(), devices);
}

TEST_F(Import, TakesWhatIsAskedFor) {
  const std::pair<std::vector<std::string>, std::vector<std::string>> kRows[] = {
      {{"--films"}, {"TARV0002.MOV"}},
      {{"--pictures"}, {"TARV0001.JPG", "TARV0001.NEF", "TARV0003.JPG"}},
      {{"*1.*"}, {"TARV0001.JPG", "TARV0001.NEF"}},
      {{"--since", "2024-06-16"}, {"TARV0002.MOV", "TARV0003.JPG"}},
      {{"--all-files", "NOTES.TXT"}, {"NOTES.TXT"}}};
  for (const auto& [words, names] : kRows) {
    std::vector<std::string> taken;
    auto asked = words;
    asked.insert(asked.end(), {"--dry-run", "--json"});
    for (const auto& each : import(asked).json())
      taken.push_back(fs::path(each.value("source", "")).filename());
    EXPECT_EQ(taken, names) << ::testing::PrintToString(words);
  }
  EXPECT_EQ(import({"--pattern", "../{name}"}).exitCode, tools::kBadUsage);
  EXPECT_EQ(import({"--pattern", "{year}/{month}/{time} {stem}"}).exitCode, 0);
  EXPECT_THAT(imported(), Contains(Pair("2024/06/120000 TARV0001.NEF", "raw of one")));
}

TEST_F(Import, NothingIsReplacedAndWhatBelongsTogetherStaysTogether) {
  bench.folder.write("pictures/" + at("2024-06-15/TARV0001.NEF"), "somebody else's");
  bench.folder.write("pictures/" + at("2024-06-16/TARV0002.MOV"), "film");
  EXPECT_EQ(import().exitCode, 0);
  EXPECT_THAT(imported(),
              UnorderedElementsAre(Pair(at("2024-06-15/TARV0001.NEF"), "somebody else's"),
                                   Pair(at("2024-06-15/TARV0001 (2).JPG"), "one"),
                                   Pair(at("2024-06-15/TARV0001 (2).NEF"), "raw of one"),
                                   Pair(at("2024-06-16/TARV0002.MOV"), "film"),
                                   Pair(at("2024-06-16/TARV0003.JPG"), "kept")));
}

TEST_F(Import, DeletesWhatItFetchedAndNothingElse) {
  import({"*.MOV"});
  const auto refused = import({"--delete"});
  EXPECT_EQ(refused.exitCode, tools::kBadUsage) << "nobody can be asked";
  const auto run = import({"--delete", "--yes"});
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(run.err, AllOf(HasSubstr("TARV0003.JPG stays on the device: it is protected"),
                             HasSubstr("3 files fetched"), HasSubstr("2 deleted")));
  EXPECT_THAT(bench.names(),
              ElementsAre("DCIM", "100TARVO", "TARV0002.MOV", "TARV0003.JPG", "NOTES.TXT"));
  EXPECT_EQ(imported().size(), 4U);
}

class ImportOfTwins : public Import {
 protected:
  ImportOfTwins()
      : Import(R"({"stores": [{"id": "0x00010001", "content": [
      {"folder": "100TARVO", "content": [
        {"file": "A.JPG", "text": "first", "captured": "20240615T120000"},
        {"file": "NODATE.JPG", "text": "undated", "captured": ""}]},
      {"folder": "101TARVO", "content": [
        {"file": "A.JPG", "text": "other", "captured": "20240615T120001"}]},
      {"folder": "102TARVO", "content": [
        {"file": "A.JPG", "text": "first", "captured": "20240615T120000"}]}]}]})") {}
};

TEST_F(ImportOfTwins, AreToldApartByTheirContent) {
  const auto all = UnorderedElementsAre(Pair(at("2024-06-15/A.JPG"), "first"),
                                        Pair(at("2024-06-15/A (2).JPG"), "other"),
                                        Pair(at("undated/NODATE.JPG"), "undated"));
  // One of them alone first: the history then knows what the others look like, too.
  EXPECT_EQ(import({"101TARVO/A.JPG"}).exitCode, 0);
  fs::remove_all(target());
  import();
  EXPECT_THAT(imported(), UnorderedElementsAre(Pair(at("2024-06-15/A.JPG"), "first"),
                                               Pair(at("undated/NODATE.JPG"), "undated")));
  fs::remove_all(bench.folder.path("state"));
  for (int run = 0; run < 3; ++run) {
    EXPECT_EQ(import().exitCode, 0);
    EXPECT_THAT(imported(), all);
  }
  EXPECT_THAT(import().err, HasSubstr("0 files fetched"));
}

/// Whatever strikes, at whichever transaction: none is here twice or in part, what is not on the
/// device is here, and the same command finishes it.
TEST(ImportFaults, LoseNothingAndDoubleNothing) {
  constexpr std::pair<const char*, const char*> kFaults[] = {
      {"stall", ""}, {"silent", ""}, {"vanish", ""}, {"truncate", "3,"}, {"respond", "0x2002,"}};
  constexpr std::size_t kTransactions = 24;
  for (const auto& [fault, amount] : kFaults) {
    for (std::size_t transaction = 1; transaction <= kTransactions; ++transaction) {
      SCOPED_TRACE(std::string(fault) + " at " + std::to_string(transaction));
      ImportBench import;
      auto& camera = *import.bench.sim.camera;
      ASSERT_EQ(camera.setFault(fault, amount + ("@" + std::to_string(transaction))), "");
      import.run({"--delete", "--yes"});
      camera.setFault(fault, "off");
      for (const auto& [path, content] : import.imported())
        EXPECT_THAT(ImportBench::all(), Contains(Pair(path, content)));
      if (!camera.isGone()) import.expectNothingLost();
      if (!camera.isGone()) {
        import.run({"--delete", "--yes"});
        EXPECT_EQ(import.imported(), ImportBench::all());
      }
      camera.forgetViolations();
    }
  }
}

class ImportOfCard : public Import {
 protected:
  ImportOfCard() {
    bench.sim.mounts.moveTo(bench.folder.path("volumes"));
    const auto unit = bench.sim.registry.plug({{"IOClass", "usb_device"},
                                               {"USB Product Name", "Dock"},
                                               {"USB Serial Number", "SNCARD"},
                                               {"idVendor", 0xF055},
                                               {"idProduct", 0x0501},
                                               {"locationID", 0x02000000}});
    bench.sim.registry.plug({{"IOClass", "block"}, {"BSD Name", "sdb1"}}, unit);
    write("DCIM/100TARVO/TARV0001.JPG", "one", "2024-06-15 12:00:01");
    write("DCIM/100TARVO/TARV0009.JPG", "new", "2024-06-17 12:00:00");
    bench.sim.mounts.mount("/dev/sdb1", bench.folder.path("volumes/CARD"));
  }
  void write(const std::string& path, const std::string& content, const std::string& date) {
    const auto file = bench.folder.write("volumes/CARD/" + path, content);
    std::tm when{};
    ::strptime(date.c_str(), "%Y-%m-%d %H:%M:%S", &when);
    when.tm_isdst = -1;
    const timespec times[] = {{.tv_sec = ::mktime(&when), .tv_nsec = 0},
                              {.tv_sec = ::mktime(&when), .tv_nsec = 0}};
    ::utimensat(AT_FDCWD, file.c_str(), times, 0);
  }
};

TEST_F(ImportOfCard, KnowsWhatCameByTheCamera) {
  EXPECT_EQ(import({"--device", "0x01420000"}).exitCode, 0);
  const auto run = import({"--device", "CARD", "--delete", "--yes"});
  EXPECT_THAT(run.err, AllOf(HasSubstr("1 file fetched"), HasSubstr("1 known")));
  EXPECT_THAT(imported(), Contains(Pair("CARD/2024-06-17/TARV0009.JPG", "new")));
  EXPECT_EQ(imported().size(), 5U);
  EXPECT_THAT(filesBelow("volumes"), ElementsAre(Pair("CARD/DCIM/100TARVO/TARV0001.JPG", "one")));
  EXPECT_EQ(import({"--device", "CARD", "--output", bench.folder.path("volumes/CARD/x")}).exitCode,
            tools::kBadUsage);
}

/// A picture with the date in it.
std::string dated(const std::string& date, const std::string& rest) {
  using namespace std::string_literals;
  const std::string block =
      "Exif\0\0II*\0\x08\0\0\0\1\0\x69\x87\4\0\1\0\0\0\x1A\0\0\0\0\0\0\0"
      "\1\0\3\x90\2\0\x14\0\0\0\x2C\0\0\0\0\0\0\0"s +
      date + "\0"s;
  return "\xFF\xD8\xFF\xE1\0"s + static_cast<char>(block.size() + 2) + block + rest;
}

/// What is known by the date in it alone, as the card tells another hour, hides nothing that looks
/// like it.
TEST_F(ImportOfCard, TellsAlikePicturesApartThatItKnowsByTheirOwnDate) {
  constexpr const char* kHourLater = "2024-06-17 13:00:00";
  write("DCIM/100TARVO/TARV0009.JPG", dated("2024:06:17 12:00:00", "first"), "2024-06-17 12:00:00");
  EXPECT_THAT(import({"--device", "CARD"}).err, HasSubstr("2 files fetched"));
  write("DCIM/100TARVO/TARV0009.JPG", dated("2024:06:17 12:00:00", "first"), kHourLater);
  for (int run = 0; run < 2; ++run)
    EXPECT_THAT(import({"--device", "CARD"}).err, HasSubstr("0 files fetched, 2 known"));
  write("DCIM/101TARVO/TARV0009.JPG", dated("2024:06:17 12:00:00", "other"), kHourLater);
  EXPECT_THAT(import({"--device", "CARD"}).err, HasSubstr("1 file fetched"));
  EXPECT_THAT(import({"--device", "CARD"}).err, HasSubstr("0 files fetched"));
  EXPECT_EQ(imported().size(), 3U);
}

class Talk : public Import {
 protected:
  using Import::Import;
  using Events = std::vector<nlohmann::json>;

  Events talk(const std::string& commands) {
    const auto run =
        runTool({"import", "--output", target(), "--progress", "json"}, bench, commands);
    Events events;
    for (const auto& line : run.lines())
      events.push_back(nlohmann::json::parse(line));
    return events;
  }
  static Events named(const Events& events, const std::string& name) {
    Events found;
    std::ranges::copy_if(events, std::back_inserter(found),
                         [&](const auto& each) { return each["event"] == name; });
    return found;
  }
};

TEST_F(Talk, ListsChoosesFetchesAndDeletes) {
  const auto events = talk(
      "nonsense\n{\"command\": \"fly\"}\n[]\n"
      "{\"command\": \"list\"}\n"
      "{\"command\": \"choose\", \"ids\": [0, 2, 99, -1, \"0\", 3], \"except\": [3]}\n"
      "{\"command\": \"start\"}\n"
      "{\"command\": \"delete\", \"ids\": [0, 1]}\n{\"command\": \"quit\"}\n");
  EXPECT_EQ(named(events, "hello").at(0)["protocol"], 1);
  EXPECT_EQ(named(events, "refused").size(), 3U);
  EXPECT_EQ(named(events, "object").size(), 4U);
  EXPECT_EQ(named(events, "chosen").at(0)["objects"], 2);
  EXPECT_EQ(named(events, "safe").size(), 2U);
  EXPECT_EQ(named(events, "done").at(0)["fetched"], 2);
  EXPECT_EQ(named(events, "deleted").at(0)["id"], 0);
  EXPECT_EQ(named(events, "kept").at(0)["id"], 1);
  EXPECT_THAT(imported(), UnorderedElementsAre(Pair(at("2024-06-15/TARV0001.JPG"), "one"),
                                               Pair(at("2024-06-16/TARV0002.MOV"), "film")));
  EXPECT_THAT(bench.names(), Not(Contains("TARV0001.JPG")));
  // What was known while it was found, and what the whole told.
  const auto again = talk("{\"command\": \"list\"}\n{\"command\": \"quit\"}\n");
  EXPECT_EQ(named(again, "object").size(), 3U);
  EXPECT_EQ(named(again, "listed").at(0)["new"], 2);
}

class TalkOfOrders : public Talk {
 protected:
  TalkOfOrders() : Talk(shippedCamera("orders-camera").c_str()) {}
};

TEST_F(TalkOfOrders, FetchesAndFulfilsThem) {
  const auto events = talk(
      "{\"command\": \"list\"}\n{\"command\": \"start\", \"orders\": true}\n"
      "{\"command\": \"quit\"}\n");
  EXPECT_EQ(named(events, "hello").at(0)["orders"], 5);
  EXPECT_EQ(named(events, "order").size(), 5U);
  EXPECT_EQ(named(events, "orderPicture").size(), 7U);
  const auto done = named(events, "done").at(0);
  EXPECT_EQ(done["orders"], 5) << done;
  EXPECT_THAT(imported(), Contains(Pair(at("").substr(0, 13) + " orders/3 print/order.json",
                                        HasSubstr("TARV0002.JPG"))));
  EXPECT_FALSE(named(talk("{\"command\": \"quit\"}\n"), "hello").at(0).contains("orders"));
}

TEST_F(Talk, SaysThatThereIsNoDevice) {
  const auto run = import({"--device", "NONE", "--progress", "json"});
  EXPECT_EQ(run.exitCode, tools::kNoDevice);
  EXPECT_EQ(nlohmann::json::parse(run.lines().at(0))["event"], "error");
}

}  // namespace
}  // namespace tarvo::test
