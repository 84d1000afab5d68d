// get, put, rm and rename on a simulated camera, with names that lead out of a folder too.
#include <gmock/gmock.h>

#include <filesystem>

#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

class Transfer : public ::testing::Test {
 protected:
  ToolRun get(std::vector<std::string> words, const std::string& folder = "pictures/") {
    words.insert(words.begin(), {"--json", "get", "--output", bench.folder.path(folder)});
    return bench.run(words);
  }
  std::vector<std::string> fetched() const { return bench.folder.names("pictures"); }

  CameraBench bench;
  const std::string notes = "Sharing orders live here.\n";
};

TEST_F(Transfer, GetTakesHandlesNamesPatternsAndPaths) {
  const auto handle = bench.handleText("TARV0003.MOV");
  const auto run = get({handle, "NOTES.TXT", "*1.JPG", "DCIM/*/TARV0002.JPG"});
  EXPECT_EQ(run.exitCode, 0) << run.out;
  EXPECT_THAT(run.json(), SizeIs(4));
  EXPECT_THAT(fetched(),
              UnorderedElementsAre("TARV0003.MOV", "NOTES.TXT", "TARV0001.JPG", "TARV0002.JPG"));
  EXPECT_EQ(bench.folder.read("pictures/NOTES.TXT"), notes);
  EXPECT_EQ(fs::file_size(bench.folder.path("pictures/TARV0003.MOV")), 5242880U);
}

TEST_F(Transfer, GetNewPassesOverWhatIsThere) {
  // Of another date, or none, the content decides.
  bench.folder.write("pictures/NOTES.TXT", notes);
  bench.folder.write("pictures/TARV0002.JPG", std::string(1987, 'x'));
  const auto run = get({"--new"});
  EXPECT_EQ(run.exitCode, 0) << run.out;
  EXPECT_THAT(run.json(), SizeIs(3));
  EXPECT_THAT(fetched(), UnorderedElementsAre("NOTES.TXT", "TARV0001.JPG", "TARV0002.JPG",
                                              "TARV0002 (2).JPG", "TARV0003.MOV"));
  EXPECT_EQ(bench.folder.read("pictures/TARV0002.JPG"), std::string(1987, 'x'));
  EXPECT_THAT(get({"--new"}).json(), IsEmpty()) << "the numbered one counts as there";
}

TEST(TransferOfTwins, EachObjectOfARunHasAFileOfItsOwn) {
  // One name, size and date; the other date is that of a picture taken by another camera.
  CameraBench bench(R"({"stores": [{"id": "0x00010001", "content": [
      {"folder": "100TARVO", "content": [
        {"file": "TARV0001.JPG", "text": "first", "captured": "20240615T120000"}]},
      {"folder": "101TARVO", "content": [
        {"file": "TARV0001.JPG", "text": "other", "captured": "20240615T120000"}]},
      {"folder": "102TARVO", "content": [
        {"file": "TARV0001.JPG", "text": "later", "captured": "20240616T120000"},
        {"file": "TARV0002.JPG", "text": "alone"}]}]}]})");
  const auto get = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"get", "--json", "--output", bench.folder.path("pictures/")});
    return bench.run(words);
  };
  for (const char* option : {"--new", "--overwrite"}) {
    const auto run = get({"--all", option});
    EXPECT_EQ(run.exitCode, 0) << run.out;
    std::vector<std::string> contents;
    for (const auto& name : bench.folder.names("pictures"))
      contents.push_back(bench.folder.read("pictures/" + name));
    EXPECT_THAT(contents, UnorderedElementsAre("first", "other", "later", "alone")) << option;
  }
  const auto asked = bench.sim.asked(ptp::kGetObject);
  EXPECT_THAT(get({"--new"}).json(), IsEmpty());
  EXPECT_EQ(bench.sim.asked(ptp::kGetObject), asked + 3) << "compared, as any may be any";
}

TEST_F(Transfer, GetTakesWhatPassesTheFiltersAndKeepsTheFoldersWhereTheyAreWanted) {
  EXPECT_EQ(get({"--films", "--dry-run"}).json()[0]["source"], "DCIM/100TARVO/TARV0003.MOV");
  EXPECT_FALSE(bench.folder.exists("pictures"));
  get({"tarv000?.jpg", "--sort", "size", "--limit", "1"});
  EXPECT_THAT(fetched(), UnorderedElementsAre("TARV0002.JPG"));
  EXPECT_THAT(get({"--all", "--since", "1h"}).json(), IsEmpty()) << "or without a date";
  get({"--format", "txt", "--tree"}, "tree/");
  EXPECT_EQ(bench.folder.read("tree/MISC/NOTES.TXT"), notes);
}

TEST_F(Transfer, GetNamesTheOneFileAndReplacesNothingUnasked) {
  EXPECT_EQ(get({"NOTES.TXT"}, "mine.txt").exitCode, 0);
  EXPECT_EQ(bench.folder.read("mine.txt"), notes);
  EXPECT_EQ(get({"NOTES.TXT"}, "none/mine.txt").json()["error"]["status"], status::kFileNotFound);
  bench.folder.write("pictures/NOTES.TXT", "mine");
  EXPECT_EQ(get({"NOTES.TXT"}).json()[0]["error"]["status"], status::kDuplicateFile);
  EXPECT_EQ(bench.folder.read("pictures/NOTES.TXT"), "mine");
  EXPECT_EQ(get({"NOTES.TXT", "--overwrite"}).exitCode, 0);
  EXPECT_EQ(bench.folder.read("pictures/NOTES.TXT"), notes);
}

TEST_F(Transfer, GetFetchesThumbnailsAndSaysWhereThereIsNone) {
  const auto run = get({"--thumbnail", "TARV0001.JPG", "NOTES.TXT"});
  EXPECT_THAT(fetched(), UnorderedElementsAre("TARV0001.thumb.jpg"));
  EXPECT_EQ(run.json()[1]["error"]["status"], status::kPTPNoThumbnailPresent);
}

TEST_F(Transfer, OneBadObjectDoesNotEndTheBatch) {
  bench.sim.camera->setFault("respond", "0x200F,0x1009,@2");
  const auto run = bench.fails({"get", "--all", "--output", bench.folder.path("pictures/")});
  EXPECT_THAT(fetched(), SizeIs(3));
  EXPECT_THAT(run.err, ContainsRegex("get DCIM/100TARVO/TARV0002.JPG \\(0x[0-9a-f]{8}\\): access "
                                     "denied by the device\\. .*\\(0x200f\\)"));
  EXPECT_THAT(run.err, HasSubstr("3 files fetched, 7.7 MB, 1 failed\n"));
  EXPECT_THAT(run.lines(), SizeIs(3));
}

TEST_F(Transfer, PutSendsFilesOfEveryLengthByteForByte) {
  std::vector<std::string> words = {"--json", "put"};
  // 52 bytes make a container of 64; more than 2 MiB go in parts where the device takes them.
  for (const std::size_t size : {0U, 1U, 52U, 500U, 3000000U})
    words.push_back(bench.folder.write("P" + std::to_string(size) + ".JPG",
                                       std::string(size, static_cast<char>(size % 251))));
  const auto results = bench.done(words).json();
  ASSERT_THAT(results, SizeIs(5));
  get({"P*.JPG"});
  for (const auto& result : results) {
    const auto name = result["name"].get<std::string>();
    const auto sent = bench.folder.read(name);
    EXPECT_EQ(bench.folder.read("pictures/" + name).substr(0, sent.size()), sent) << name;
  }
}

TEST_F(Transfer, WhatPTPCannotCarryIsRefusedBeforeAnythingIsSent) {
  const auto longName = bench.folder.path(std::string(251, 'x') + ".JPG");
  const auto large = bench.folder.write("LARGE.MOV", "");
  fs::resize_file(large, std::uintmax_t{1} << 32);
  for (const auto& path : {longName, large})
    EXPECT_THAT(bench.fails({"put", path}).err,
                ContainsRegex(": .*(255|4 GiB).*\\. \\(0xffffffce\\)\n$"));
  EXPECT_EQ(bench.sim.asked(ptp::kSendObjectInfo), 0U);
  for (const std::string& name : {std::string(), std::string(255, 'x')})
    EXPECT_THAT(bench.run({"rename", "1", name}).err, HasSubstr("1 to 254 characters"));
}

TEST_F(Transfer, FoldersAndObjectsAreNamedWhereHandlesAre) {
  bench.done({"put", "--to", "dcim/100tarvo", bench.folder.write("NEW.TXT", "x")});
  EXPECT_THAT(bench.run({"ls", "DCIM/100TARVO"}).out, HasSubstr("NEW.TXT"));
  bench.fails({"put", "--to", "NOTES.TXT", bench.folder.path("NEW.TXT")});
  EXPECT_THAT(bench.fails({"rename", "new.txt", "B.TXT"}).err, HasSubstr("that name"));
  EXPECT_THAT(bench.fails({"rename", "NEW.TXT", "B.TXT"}).err, HasSubstr("0x00000008: operation"));
}

TEST_F(Transfer, PutNamesEachFileThatFails) {
  const auto good = bench.folder.write("GOOD.JPG", "picture");
  const auto results = bench
                           .fails({"--json", "put", bench.folder.path("NONE.JPG"), good,
                                   bench.folder.path(), bench.folder.write("A.NONSENSE", "x")})
                           .json();
  ASSERT_THAT(results, SizeIs(4));
  EXPECT_EQ(results[0]["error"]["status"], status::kFileNotFound);
  EXPECT_FALSE(results[1].contains("error")) << results[1];
  EXPECT_EQ(results[2]["error"]["status"], status::kNotAFile);
  EXPECT_TRUE(results[3].contains("error"));
}

TEST_F(Transfer, RemoveTakesHandlesNamesAndPatterns) {
  EXPECT_THAT(bench.done({"rm", "-n", "*", "--films"}).lines(), SizeIs(1));
  bench.fails({"rm", "notes.txt", "--yes"});
  const auto run = bench.fails({"rm", "NOTES.TXT", "TARV*.JPG", "NONE.TXT", "[TAR]", "--yes"});
  for (const char* part : {"NONE.TXT", "rm [TAR]: ", "3 objects deleted, 2 failed"})
    EXPECT_THAT(run.err, HasSubstr(part));
  EXPECT_THAT(bench.names(), UnorderedElementsAre("DCIM", "100TARVO", "TARV0003.MOV", "MISC"));
}

TEST_F(Transfer, NothingIsDeletedUnasked) {
  const auto folder = bench.handleText("100TARVO");
  const auto names = bench.names();
  for (const auto& words : std::vector<std::vector<std::string>>{{"rm", "*"},
                                                                 {"volume", "rm", "*"},
                                                                 {"favourites", "delete"},
                                                                 {"orders", "delete"},
                                                                 {"storage", "format"},
                                                                 {"albums", "put", "new.lcb"}}) {
    const auto run = runTool(words, bench, "y\n");
    EXPECT_EQ(run.exitCode, tools::kBadUsage) << words.front();
    EXPECT_THAT(run.err, HasSubstr("there is nobody to ask; give --yes to ")) << words.front();
  }
  const Terminal no("n\n");
  bench.terminal = no.path();
  const auto run = bench.fails({"--json", "rm", folder, "NOTES.TXT"});
  EXPECT_EQ(run.json()["error"]["statusHex"], "0xfffffe16");
  EXPECT_THAT(no.shown(), HasSubstr("Delete MISC/NOTES.TXT and folder DCIM/100TARVO with 3 "
                                    "objects, 7.7 MB, from Tarvo Lumo X2? [y/N] "));
  EXPECT_EQ(bench.names(), names);
  const Terminal yes("y\n");
  bench.terminal = yes.path();
  bench.done({"rm", "NOTES.TXT"});
  EXPECT_EQ(bench.names().size(), names.size() - 1);
}

/// Ctrl-C once the camera has sent some of a large object.
class CtrlCInTheMiddle : public SimulatedUSBDevice {
 public:
  using SimulatedUSBDevice::SimulatedUSBDevice;
  std::optional<ptp::TransferCompletion> wait(std::chrono::milliseconds timeout) override {
    const auto completion = SimulatedUSBDevice::wait(timeout);
    if (completion && completion->length >= kLarge && ++large_ == 3) ::raise(SIGINT);
    return completion;
  }

 private:
  static constexpr std::size_t kLarge = 0x10000;
  int large_ = 0;
};

TEST_F(Transfer, WhatTheUserEndsSaysWhatItHasLeft) {
  const StopSignals interrupt;
  bench.interrupt = &interrupt;
  fs::create_directories(bench.folder.path("pictures"));
  bench.sim.connector.timeouts.interrupted = &interrupt.signals().flag();
  bench.sim.connector.wrap = [&](std::unique_ptr<ptp::USBDevice>) {
    return std::make_unique<CtrlCInTheMiddle>(bench.sim.camera);
  };
  const auto run = get({"TARV0003.MOV"});
  EXPECT_EQ(run.exitCode, tools::kInterrupted);
  EXPECT_EQ(run.json()["error"]["status"], status::kCancelled);
  ASSERT_THAT(fetched(), SizeIs(1));
  EXPECT_THAT(run.json()["error"]["message"].get<std::string>(),
              ContainsRegex("TARV0003.MOV, [0-9.]+ [kM]B, is kept in '.*" + fetched().front() +
                            "'; unless that file is deleted the same command goes on there. What "
                            "was fetched stays; the same command goes on there"));
}

TEST_F(Transfer, WhatIsKeptIsNamedAndOldPartsToo) {
  const auto old = bench.folder.write("pictures/.OLD.MOV.0123456789abcdef.part", "x");
  fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(31 * 24));
  bench.sim.camera->setFault("truncate", "3000000,0x1009");
  const auto run = bench.fails({"get", "TARV0003.MOV", "--output", bench.folder.path("pictures/")});
  EXPECT_THAT(run.err,
              ContainsRegex("incomplete transfer: the device sent .* is kept in '.*\\.part'; "
                            ".*Check the cable.* \\(0x2007\\)"));
  EXPECT_THAT(run.err, HasSubstr("older than 30 days"));
  EXPECT_THAT(fetched(), SizeIs(2));
}

/// A camera that holds nothing but files of these names, and one whose name is half a surrogate
/// pair and ".jpg".
std::unique_ptr<CameraBench> benchWith(const std::vector<std::string>& names) {
  auto description = nlohmann::json::parse(R"({"stores": [{"id": "0x00010001", "content": [
      {"file": {"utf16": [55296, 46, 106, 112, 103]}, "text": "from the device"}]}]})");
  auto& content = description["stores"][0]["content"];
  for (const auto& name : names)
    content.push_back({{"file", {{"raw", name}}}, {"text", "from the device"}});
  return std::make_unique<CameraBench>(description.dump());
}

TEST(HostileNames, AllStayInsideTheFolder) {
  const auto bench =
      benchWith({"../x", "/etc/x", "a/../../b", "..", ".", "", std::string(254, 'n'),
                 "bell\x07\x1b[2J", "line\nend", "Same.txt", "SAME.TXT", ".bash_profile"});
  const auto inner = bench->folder.path("chosen/inner");
  const auto run = bench->run({"get", "--all", "--output", inner + "/"});
  EXPECT_EQ(run.exitCode, tools::kFailed) << "three names are none";
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(bench->folder.path())) {
    if (!entry.is_regular_file()) continue;
    EXPECT_EQ(entry.path().parent_path(), inner);
    names.push_back(entry.path().filename());
    for (const char letter : names.back())
      EXPECT_GE(static_cast<unsigned char>(letter), 0x20) << "no control characters";
  }
  EXPECT_EQ(names.size(), 10U);
  for (const char* name :
       {"x", "x (2)", "b", "Same.txt", "SAME.TXT", "\xEF\xBF\xBD.jpg", "_bash_profile"})
    EXPECT_THAT(names, Contains(name));
  EXPECT_FALSE(fs::exists("/etc/x"));
  EXPECT_EQ(bench->run({"rm", "*profile", "--yes"}).exitCode, tools::kFailed) << "it is hidden";
  EXPECT_EQ(bench->run({"rm", ".bash*", "--yes"}).exitCode, 0);
}

TEST(HostileNames, CannotSteerTheTerminal) {
  const auto bench = benchWith({"bell\x07\x1b[2J.JPG", "two\nlines.JPG"});
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"ls"},
           {"ls", "--long"},
           {"get", "--all", "--output", bench->folder.path("pictures/")},
           {"rm", "*.JPG", "--yes"}}) {
    const auto run = bench->run(words);
    for (const std::string& text : {run.out, run.err})
      EXPECT_THAT(text, Not(Contains('\x1b')));
  }
}

}  // namespace
}  // namespace tarvo::test
