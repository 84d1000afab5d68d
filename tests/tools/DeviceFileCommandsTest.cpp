// albums, favourites, collection, shoebox, wireless-config and display; and what of a hostile
// device reaches a terminal, whatever the command.
#include <gmock/gmock.h>

#include <regex>
#include <set>

#include "Utilities/NSStringUtilsCategory.h"
#include "tests/tools/SharingBench.h"

namespace tarvo::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr const char* kGUID = "00112233-4455-6677-8899-AABBCCDDEEFF";

/// A title, the end of a command, DEL, "clear the screen" in one byte, and text turned around.
constexpr const char* kSteering =
    "\x07\r\x1b]0;x\x1b\\\x7f\xC2\x9B"
    "2J\xE2\x80\xAE\xE2\x81\xA6";

/// Puts it behind every text of a description that a device tells.
void makeHostile(nlohmann::json& told, const std::string& key = {}) {
  static const std::set<std::string> kTold = {
      "nickname", "email",   "firstName",  "street",       "members",   "to",
      "sender",   "subject", "body",       "name",         "text",      "description",
      "label",    "serial",  "annotation", "manufacturer", "queryRows", "value"};
  if (told.is_string() && kTold.contains(key)) told = told.get<std::string>() + kSteering;
  for (auto& [name, value] : told.items())
    if (told.is_structured()) makeHostile(value, told.is_object() ? name : key);
}

SharingBench hostileBench() {
  auto camera = nlohmann::json::parse(shippedCamera("orders-camera"));
  camera["vendor"]["queryRows"] = {"1|A\n"};
  camera["properties"].push_back({{"code", "0x501F"}, {"type", "STR"}, {"value", "me"}});
  camera["stores"][0]["content"].push_back(
      {{"file", {{"raw", std::string("A.TXT") + kSteering}}}, {"size", 3}});
  makeHostile(camera);
  return SharingBench("orders-camera", camera.dump());
}

TEST(Terminal, IsNotSteeredByAnythingThatADeviceTells) {
  auto bench = hostileBench();
  const auto file = bench.folder.write("book.json", R"({"XTAddressBookContactsKey": []})");
  const std::vector<std::string> kCommands[] = {
      {"devices"},
      {"info"},
      {"storage", "list"},
      {"ls", "--recursive", "--long"},
      {"get", "--all", "--output", bench.folder.path("all/")},
      {"get", std::string("none") + kSteering},
      {"property", "list"},
      {"property", "get", "0x501f"},
      {"orders", "list"},
      {"orders", "show"},
      {"addressbook", "show"},
      {"addressbook", "export"},
      {"addressbook", "export", "--format", "vcard"},
      {"addressbook", "validate"},
      {"addressbook", "import", "--dry-run", file},
      {"albums", "list"},
      {"albums", "show"},
      {"favourites", "list"},
      {"wireless-config", "show"},
      {"query", "SELECT 1"}};
  // The terminal's own ends of lines, and what colours and the progress bar are made of.
  const std::regex own("\r\n|\r\x1b\\[K|\x1b\\[[0-9;]*m");
  for (auto words : kCommands) {
    for (const bool isJSON : {false, true}) {
      if (isJSON) words.insert(words.begin(), "--json");
      const auto shown = std::regex_replace(shownByTool(words, bench), own, "\n");
      EXPECT_FALSE(shown.empty());
      EXPECT_EQ(replacingControls(shown, [](char32_t c) { return c == '\n' ? "\n" : "(control)"; }),
                shown)
          << ::testing::PrintToString(words);
    }
  }
  // Elsewhere nothing is lost of it.
  EXPECT_EQ(bench.run({"query", "SELECT 1"}).out, std::string("1|A\n") + kSteering);
  EXPECT_THAT(bench.names(), ::testing::Contains(std::string("A.TXT") + kSteering));
}

TEST(Albums, AreListedShownFetchedAndReplaced) {
  for (const char* camera : {"orders-camera", "orders-legacy"}) {
    SharingBench bench(camera);
    EXPECT_EQ(bench.run({"albums", "show"}).out, "Summer\nWinter\n");
    bench.done({"albums", "get", bench.folder.path("a.lcb")});
    EXPECT_EQ(bench.folder.read("a.lcb"), "Summer\nWinter\n");
    bench.fails({"albums", "get", bench.folder.path("a.lcb")});
    const auto other = bench.run({"albums", "put", bench.folder.write("n.txt", "x"), "--yes"});
    EXPECT_THAT(other.err, HasSubstr("ends in .lcb"));
    bench.done({"albums", "put", bench.folder.write("n.lcb", "Autumn\n"), "--yes"});
    EXPECT_EQ(bench.onlyObject(ptp::XTD_ALBUM_NAMES_FILE), "Autumn\n");
    ASSERT_THAT(bench.backups(), SizeIs(1));
    EXPECT_EQ(bench.folder.read(bench.backups()[0]), "Summer\nWinter\n");
  }
  SharingBench bench("orders-camera");
  EXPECT_THAT(bench.run({"--json", "albums", "list"}).json(), SizeIs(1));
  const std::string block(33, '\0');  // is told from text
  bench.run({"albums", "put", bench.folder.write("n.lcb", block), "--yes"});
  EXPECT_THAT(bench.run({"albums", "show"}).out, HasSubstr("0 records"));
  EXPECT_EQ(bench.run({"--json", "albums", "show"}).json()["isValidLCB"], true);
}

TEST(Favourites, AreListedAndDeleted) {
  for (const auto& [camera, format] :
       {std::pair("orders-camera", 0xB803), std::pair("orders-legacy", 0xB802)}) {
    SharingBench bench(camera);
    EXPECT_THAT(bench.run({"favourites", "list"}).out, HasSubstr("FAV0001.JPG"));
    const auto run = bench.run({"favourites", "delete", "--yes"});
    EXPECT_THAT(run.out, HasSubstr("1 favourite deleted.")) << run.err;
    EXPECT_EQ(bench.count(static_cast<std::uint16_t>(format)), 0U);
  }
}

TEST(Collection, IsReadAndSetAsThePropertyOrAsTheFile) {
  for (const auto& [camera, id] :
       {std::pair("orders-camera", "10111213-1415-1617-1819-1A1B1C1D1E1F"),
        std::pair("orders-legacy", "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0")}) {
    SharingBench bench(camera);
    EXPECT_EQ(bench.run({"collection", "get"}).out, std::string(id) + "\n");
    EXPECT_EQ(bench.run({"collection", "set", "00112233-4455-6677-8899-aabbccddeeff"}).out,
              std::string(kGUID) + "\n");
    EXPECT_EQ(bench.run({"--json", "collection", "get"}).json()["collectionID"], kGUID);
    bench.ends({"collection", "set"}, tools::kBadUsage);
    bench.ends({"collection", "set", "x"}, tools::kBadUsage);
  }
  SharingBench legacy("orders-legacy");
  legacy.done({"collection", "set", "--clear"});
  EXPECT_THAT(legacy.run({"collection", "get"}).err, HasSubstr("no collection id"));
}

TEST(Shoebox, GetsFilesAndPictures) {
  SharingBench bench("orders-camera");
  const auto picture = bench.folder.write("p.jpg", "a picture");
  bench.done({"shoebox", "add", picture});
  EXPECT_EQ(bench.onlyObject(ptp::XTD_SHOEBOX_IMAGE), "a picture");
  bench.done({"shoebox", "send", bench.folder.write("p.sbx", "box")});
  EXPECT_EQ(bench.onlyObject(0xB00C), "box");
  EXPECT_THAT(bench.names(),
              AllOf(::testing::Contains("sbximg.jpg"), ::testing::Contains("tarvodsb.sbx")));
}

TEST(NoneOnTheDevice, IsNotTakenForCannotBeAsked) {
  const std::tuple<const char*, const char*, std::vector<std::string>, int> rows[] = {
      {"orders-camera", "0x200F,0x1015", {"collection", "get"}, 0x200F},
      {"orders-camera", "0x200F,0x1015", {"collection", "set", kGUID}, 0x200F},
      {"orders-legacy", "0x200F,0x1009", {"collection", "get"}, 0x200F},
      {"orders-camera", "0x2002,0x1008", {"wireless-config", "show"}, 0x2002},
      {"orders-legacy", "0x2002,0x9999", {"wireless-config", "show"}, status::kFileNotFound},
  };
  for (auto [camera, fault, words, status] : rows) {
    SharingBench bench(camera);
    bench.sim.camera->setFault("respond", fault);
    words.insert(words.begin(), "--json");
    EXPECT_EQ(bench.fails(words).json()["error"]["status"], status) << fault;
  }
}

TEST(Display, SendsTheBytesAsTheyAreAndWirelessConfigShowsThem) {
  SharingBench bench("orders-camera");
  EXPECT_EQ(bench.run({"wireless-config", "show"}).out, "<network><ssid>attic</ssid></network>\n");
  const std::string request("\x01\0\xff page", 8);
  bench.done({"display", bench.folder.write("r.bin", request)});
  const auto shown = bench.sim.camera->displayRequest();
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(shown.data()), shown.size()), request);
  bench.fails({"display", bench.folder.write("empty", "")});
  SharingBench without("orders-legacy");
  EXPECT_THAT(without.run({"display", bench.folder.path("r.bin")}).err,
              HasSubstr("shows nothing that a computer sends"));
}

}  // namespace
}  // namespace tarvo::test
