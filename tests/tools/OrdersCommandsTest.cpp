// orders, on the devices of both generations.
#include <gmock/gmock.h>

#include "Utilities/Format.h"
#include "tests/tools/SharingBench.h"

namespace tarvo::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

TEST(Orders, OfADeviceWithDataSetsAreListedByKind) {
  SharingBench bench("orders-camera");
  EXPECT_THAT(
      bench.done({"orders", "list"}).lines(),
      ElementsAre(ContainsRegex("^ORDER +HANDLE +KIND +FOR +PICTURES$"),
                  ContainsRegex("^ +1  0x[0-9a-f]{8}  e-mail +anna@example.org, borge@example.org "
                                "+TARV0001.JPG, TARV0003.MOV$"),
                  ContainsRegex("^ +2 .*e-mail +chloe@example.org +TARV0002.JPG$"),
                  ContainsRegex("^ +3 .*print +3 copies +TARV0002.JPG$"),
                  ContainsRegex("^ +4 .*transfer +me +TARV0001.JPG$"),
                  ContainsRegex("^ +5 .*transfer +TARV0002.JPG, TARV0003.MOV$")));
  const auto json = bench.run({"--json", "orders", "list"}).json();
  EXPECT_EQ(json[0]["XTEmailOrderSubjectKey"], "Holidays");
  EXPECT_EQ(json[2]["pictures"][0]["name"], "TARV0002.JPG");
}

TEST(Orders, OfMarkerFilesAreListedAlike) {
  SharingBench bench("orders-legacy");
  const auto json = bench.run({"--json", "orders", "list"}).json();
  std::vector<std::string> seen;
  for (const auto& order : json)
    seen.push_back(order["kind"].get<std::string>() + " " + order["pictures"][0].value("name", ""));
  EXPECT_THAT(seen, ElementsAre("email TARV0001.JPG", "email TARV0002.JPG", "email TARV0002.JPG",
                                "print TARV0001.JPG", "print TARV0002.JPG"));
  EXPECT_FALSE(json[0]["pictures"][0].contains("handle"));
}

TEST(Orders, OfAResponderOfOthersAreFoundInItsFolders) {
  SharingBench bench("folder-by-folder-camera");
  const auto orders = bench.done({"--json", "orders", "list"}).json();
  ASSERT_THAT(orders, SizeIs(1));
  EXPECT_EQ(orders[0]["pictures"][0]["name"], "A.JPG");
}

TEST(Orders, AreFetchedIntoAFolderEach) {
  for (const char* camera : {"orders-camera", "orders-legacy"}) {
    SharingBench bench(camera);
    bench.done({"orders", "show", "1", "--download", bench.folder.path("o")});
    const bool isLegacy = std::string(camera) == "orders-legacy";
    const std::string folder = isLegacy ? "o/1 email/" : "o/1 email - Holidays/";
    EXPECT_EQ(std::filesystem::file_size(bench.folder.path(folder + "TARV0001.JPG")), 241203U);
    EXPECT_EQ(nlohmann::json::parse(bench.folder.read(folder + "order.json"))["kind"], "email");
    const auto again =
        bench.run({"orders", "show", "1", "2", "--download", bench.folder.path("o")});
    EXPECT_THAT(again.err, HasSubstr(isLegacy ? ", 1 there already" : ", 2 there already"));
  }
}

TEST(Orders, NothingThatADeviceSaysLeadsOutOfTheFolder) {
  for (const char* subject : {"../../up", "/etc", "..", "a\\u0000b/\\u001b[2J"}) {
    SharingBench bench("orders-camera", std::string(R"({"datasets": {"emailOrders": [
        {"to": ["Anna"], "assets": ["TARV0002.JPG"], "subject": ")") +
                                            subject + R"("}]}})");
    bench.done({"orders", "show", "--download", bench.folder.path("in/o")});
    EXPECT_THAT(bench.files("in/o"), SizeIs(9)) << subject;
    EXPECT_EQ(bench.files("in").size(), bench.files("in/o").size()) << subject;
  }
}

TEST(Orders, OfMarkerFilesAreDeletedTogetherOrNotAtAll) {
  SharingBench bench("orders-legacy");
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"orders", "fulfil", "1"}, {"orders", "delete", "1", "--yes"}})
    EXPECT_THAT(bench.fails(words).err,
                HasSubstr("'tarvoctl orders delete' deletes all such orders"));
  EXPECT_EQ(bench.count(0x3006), 4U);
  EXPECT_THAT(bench.done({"orders", "delete", "--yes"}).err, HasSubstr("5 orders deleted"));
  EXPECT_EQ(bench.count(0x3006), 0U);
  EXPECT_THAT(bench.run({"orders", "list"}).err, HasSubstr("There are no orders."));
}

TEST(Orders, OfDataSetsAreFulfilledAndDeletedSinglyAndTogether) {
  SharingBench bench("orders-camera");
  const auto pictures = [&] {
    return bench.run({"--json", "orders", "list"}).json()[0]["pictures"].size();
  };
  const auto held = bench.count(0x3801);
  EXPECT_EQ(pictures(), 2U);
  bench.done({"orders", "fulfil", "1", "TARV0001.JPG"});
  bench.fails({"orders", "fulfil", "1", "NONE.JPG"});
  EXPECT_EQ(pictures(), 1U) << "the other one is still to be sent";
  bench.done({"orders", "delete", "2", "3", "--yes"});
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 1U);
  EXPECT_EQ(bench.count(ptp::XTD_PRINT_ORDER), 0U);
  EXPECT_EQ(bench.run({"--json", "orders", "delete", "--yes"}).json().size(), 1U);
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 0U);
  EXPECT_EQ(bench.count(ptp::XTD_TRANSFER_ORDER), 1U) << "the device keeps those";
  EXPECT_EQ(bench.count(0x3801), held) << "and its pictures";
  bench.fails({"orders", "show", "9"});
}

TEST(Orders, OfADeviceThatWaitsForATransferStay) {
  SharingBench bench("orders-camera",
                     R"({"properties": [{"code": "0xD206", "type": "UINT32", "value": 2}]})");
  EXPECT_THAT(bench.done({"orders", "delete", "--yes"}).err, HasSubstr(" of them stay"));
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 2U);
  EXPECT_EQ(bench.count(ptp::XTD_PRINT_ORDER), 1U);
}

TEST(Orders, ThatCannotBeReadHideNoOtherAndGoOnDemandAlone) {
  // Camera, what is laid over it; format of the bad one, which is the last of it; how many others
  // 'delete --yes' takes; words.
  const std::tuple<const char*, std::string, std::uint16_t, std::size_t, const char*> rows[] = {
      {"orders-camera", withEndlessDataSet("0xB204", 16 + 2 + 1), 0xB204, 3, "e-mail order"},
      // Its picture has gone.
      {"orders-camera",
       R"({"datasets": {"printOrders": [{"asset": "TARV0002.JPG"}, {"asset": 9999}]}})", 0xB205, 3,
       "print order"},
      {"orders-legacy", R"({"stores": [{"id": "0x00020001", "content": [
          {"file": "PRINTTAG.MRK", "lines": ["[HDR]", "[JOB]", "PRT QTY = 3", "<IMG SRC = \"A.JPG\">"]},
          {"file": "EMAILTAG.MRK", "lines": ["[HDR]", "[JOB]", "DST EML = \"a@b.cc\"",
           "IMG SRC = \"A.JPG\"", "[JOB]", "DST EML = \"b@b.cc\""]}]}]})",
       0x3006, 1, "marker file"},
  };
  for (const auto& [camera, over, format, others, words] : rows) {
    SharingBench bench(camera, over);
    const auto bad = formatted("0x%08x", bench.sim.camera->handles({.format = format}).back());
    const auto list = bench.fails({"orders", "list"});
    EXPECT_THAT(list.out, ContainsRegex("e-mail .*a")) << words;
    EXPECT_THAT(list.err, HasSubstr(words + (" " + bad) + " cannot be read: "));
    EXPECT_THAT(list.err, HasSubstr("'tarvoctl orders delete " + bad + "' removes it"));
    const auto all = bench.fails({"--json", "orders", "delete", "--yes"});  // it is still there
    EXPECT_EQ(all.json().size(), others + 1) << all.out;
    EXPECT_EQ(bench.count(format), 1U) << words;
    bench.done({"orders", "delete", bad, "--yes"});
    EXPECT_EQ(bench.count(format), 0U) << words;
  }
}

TEST(Orders, ThatAreCutShortAreNoOrders) {
  for (const char* length : {"0", "4", "21", "40"}) {
    SharingBench bench("orders-camera");
    bench.sim.camera->setFault("truncate", std::string(length) + ",0x9204");
    EXPECT_THAT(bench.fails({"orders", "delete", "--yes"}).err,
                ContainsRegex("print order 0x[0-9a-f]+ cannot be read: it was cut short"));
    EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 2U) << length;
    EXPECT_EQ(bench.count(ptp::XTD_PRINT_ORDER), 1U) << length;
  }
}

TEST(Orders, KeepTheirFoldersAndAllTheirPictures) {
  // Three pictures of one name and one size: two of them are of one order.
  const std::string files = R"("stores": [{"id": "0x00010001", "content": [
      {"folder": "A", "content": [{"file": "P.JPG", "size": 500}]},
      {"folder": "B", "content": [{"file": "P.JPG", "size": 500}]},
      {"folder": "C", "content": [{"file": "P.JPG", "size": 500}]}]}],
      "datasets": {"contacts": [], "groups": [], "albums": [], "transferOrders": [],
                   "printOrders": [], "emailOrders": [)";
  const auto pictures =
      SharingBench("orders-camera", "{" + files + "]}}").sim.camera->handles({.format = 0x3801});
  ASSERT_EQ(pictures.size(), 3U);
  const auto number = [&](std::size_t index) { return std::to_string(pictures[index]); };
  SharingBench bench("orders-camera", "{" + files + R"({"to": [77], "assets": [)" + number(0) +
                                          "," + number(1) + R"(]}, {"assets": [)" + number(2) +
                                          "]}]}}");
  const std::vector<std::string> fetch = {"orders", "show", "--download", bench.folder.path("o")};
  bench.done(fetch);
  EXPECT_THAT(bench.files("o"),
              ElementsAre("o/1 email/P (2).JPG", "o/1 email/P.JPG", "o/1 email/order.json",
                          "o/2 email/P.JPG", "o/2 email/order.json"));
  EXPECT_THAT(bench.run(fetch).err, HasSubstr(", 3 there already"));
  EXPECT_THAT(bench.run({"orders", "list"}).out, HasSubstr("1 recipient who is no contact"));
  // The second order is the first one now; its pictures go nowhere near those of the other.
  bench.done({"orders", "fulfil", "1"});
  bench.done(fetch);
  EXPECT_THAT(bench.files("o/1 email"), SizeIs(3));
  EXPECT_THAT(bench.files("o/1 email (2)"), SizeIs(2));
}

}  // namespace
}  // namespace tarvo::test
