// orders, on the devices of both generations.
#include <gmock/gmock.h>

#include "tests/tools/SharingBench.h"

namespace tarvo::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(Orders, OfADeviceWithDataSetsAreListedByKind) {
  SharingBench bench("orders-camera");
  const auto run = bench.run({"orders", "list"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(
      run.lines(),
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
  const auto run = bench.run({"--json", "orders", "list"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  ASSERT_THAT(run.json(), SizeIs(1));
  EXPECT_EQ(run.json()[0]["pictures"][0]["name"], "A.JPG");
}

TEST(Orders, AreFetchedIntoAFolderEach) {
  for (const char* camera : {"orders-camera", "orders-legacy"}) {
    SharingBench bench(camera);
    const auto run = bench.run({"orders", "show", "1", "--download", bench.folder.path("o")});
    EXPECT_EQ(run.exitCode, 0) << run.err;
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
    const auto run = bench.run({"orders", "show", "--download", bench.folder.path("in/o")});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(bench.files("in/o"), ::testing::SizeIs(9)) << subject;
    EXPECT_EQ(bench.files("in").size(), bench.files("in/o").size()) << subject;
  }
}

TEST(Orders, AreFulfilledPictureByPicture) {
  SharingBench bench("orders-camera");
  EXPECT_EQ(bench.run({"orders", "fulfil", "1", "TARV0003.MOV"}).exitCode, 0);
  EXPECT_EQ(bench.run({"--json", "orders", "list"}).json()[0]["pictures"].size(), 1U);
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 2U);
  EXPECT_EQ(bench.run({"orders", "fulfil", "1"}).exitCode, 0);
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 1U) << "an order without pictures is done";
  const auto other = bench.run({"orders", "fulfil", "1", "TARV0001.JPG"});
  EXPECT_EQ(other.exitCode, tools::kFailed);
  EXPECT_THAT(other.err, HasSubstr("e-mail order 1 has no such picture"));
}

TEST(Orders, OfMarkerFilesAreDeletedTogetherOrNotAtAll) {
  SharingBench bench("orders-legacy");
  for (const char* command : {"fulfil", "delete"}) {
    const auto run = bench.run({"orders", command, "1"});
    EXPECT_EQ(run.exitCode, tools::kFailed);
    EXPECT_THAT(run.err, HasSubstr("'tarvoctl orders delete' deletes all such orders"));
  }
  EXPECT_EQ(bench.count(0x3006), 4U);
  const auto run = bench.run({"orders", "delete", "--yes"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("5 orders deleted"));
  EXPECT_EQ(bench.count(0x3006), 0U);
  EXPECT_THAT(bench.run({"orders", "list"}).err, HasSubstr("There are no orders."));
}

TEST(Orders, OfDataSetsAreDeletedSinglyAndTogether) {
  SharingBench bench("orders-camera");
  EXPECT_EQ(bench.run({"orders", "delete", "2", "3"}).exitCode, 0);
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 1U);
  EXPECT_EQ(bench.count(ptp::XTD_PRINT_ORDER), 0U);
  const auto run = bench.run({"--json", "orders", "delete", "--yes"});
  EXPECT_EQ(run.json().size(), 1U) << run.out;
  EXPECT_EQ(bench.count(ptp::XTD_EMAIL_ORDER), 0U);
  EXPECT_EQ(bench.count(ptp::XTD_TRANSFER_ORDER), 1U) << "the device keeps those";
  EXPECT_EQ(bench.run({"orders", "show", "9"}).exitCode, tools::kFailed);
}

TEST(Orders, ThatCannotBeReadAreCounted) {
  // GUID, service type and sender, then recipients without an end.
  SharingBench bench("orders-camera", withEndlessDataSet("0xB204", 16 + 2 + 1));
  const auto run = bench.run({"orders", "list"});
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(run.out, HasSubstr("3 copies")) << "the other kinds are there";
  EXPECT_THAT(run.err, ContainsRegex("e-mail orders?.*read"));
  const auto json = bench.run({"--json", "orders", "list"}).json();
  EXPECT_TRUE(json.back().contains("error")) << json;
}

}  // namespace
}  // namespace tarvo::test
