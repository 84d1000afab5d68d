// decode and encode: without a device, and without a platform.
#include <gmock/gmock.h>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using nlohmann::json;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::string_view kTwoNumbers("\2\0\0\0\1\0\2\0", 8);

TEST(Decode, OneFileIsOneDocument) {
  const TemporaryFolder folder;
  const auto run = runTool({"decode", "uint16array", folder.write("a", kTwoNumbers)});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.json(), json::parse("[1, 2]"));
}

TEST(Decode, SeveralFilesAreAnArrayInTheirOrder) {
  const TemporaryFolder folder;
  const auto path = folder.write("a", kTwoNumbers);
  const auto run = runTool({"decode", "uint16array", path, "-"}, std::string("\0\0\0\0", 4));
  EXPECT_EQ(run.json(), json::parse("[[1, 2], []]"));
}

TEST(Decode, MalformedInputIsOneWithTheReason) {
  const auto run = runTool({"decode", "uint16array", "-"}, std::string("\2\0\0\0\1", 5));
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_THAT(run.err, ContainsRegex("^tarvoctl: decode -: .+\n$"));
  const auto asJSON = runTool({"--json", "decode", "uint16array", "-"}, "\2");
  EXPECT_EQ(asJSON.exitCode, tools::kFailed);
  EXPECT_FALSE(asJSON.json()["error"]["why"].get<std::string>().empty());
}

TEST(Decode, AMalformedFileAmongSeveralKeepsItsPlace) {
  const auto run = runTool({"decode", "uint16array", "-", "/none"}, std::string(kTwoNumbers));
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_EQ(run.json()[0], json::parse("[1, 2]"));
  EXPECT_EQ(run.json()[1]["error"]["status"], status::kFileNotFound);
}

TEST(Encode, IsTheInverseOfDecodeForEveryType) {
  const TemporaryFolder folder;
  for (const auto& type : recordTypes()) {
    const std::string name(type.name);
    const auto zeros = runTool({"decode", name, "-"}, std::string(4096, '\0'));
    if (zeros.exitCode != 0) continue;  // a property without a datatype is none
    const auto encoded = runTool({"encode", name, "-"}, zeros.out);
    ASSERT_EQ(encoded.exitCode, 0) << name << encoded.err;
    const auto again = runTool({"decode", name, folder.write(name, encoded.out)});
    EXPECT_EQ(again.json(), zeros.json()) << name;
  }
}

TEST(Encode, WritesOfAContactWhatADeviceWouldBeSent) {
  const json contact = {{"kABUIDProperty", "00112233-4455-6677-8899-AABBCCDDEEFF"},
                        {"kABEmailProperty", "a@b.example"},
                        {"kABAddressStreetKey", "1\r2\r3"},
                        {"XTContactImageKey", 7},
                        {"XTContactAssociatedGroupsKey", {1, 2}}};
  const auto encoded = runTool({"encode", "contact", "-"}, contact.dump());
  auto decoded = runTool({"decode", "contact", "-"}, encoded.out).json();
  json changes = json::object();
  for (const auto& [key, value] : contact.items())
    if (decoded[key] != value) changes[key] = decoded[key];
  EXPECT_EQ(changes, json::parse(R"({"kABAddressStreetKey": "1\r2", "XTContactImageKey": 0,
                                     "XTContactAssociatedGroupsKey": []})"));
}

TEST(Encode, WritesNothingUnlessAllCanBeWritten) {
  const TemporaryFolder folder;
  const auto good = folder.write("good", "[1, 2]");
  EXPECT_EQ(runTool({"encode", "uint16array", good, good}).out,
            std::string(kTwoNumbers) + std::string(kTwoNumbers));
  for (const char* bad : {"[70000]", "{", "\"text\"", "[\"\xff\"]"}) {
    const auto run = runTool({"encode", "uint16array", good, "-"}, bad);
    EXPECT_EQ(run.exitCode, tools::kFailed) << bad;
    EXPECT_THAT(run.out, IsEmpty()) << bad;
    EXPECT_THAT(run.err, HasSubstr("encode -: ")) << bad;
  }
}

}  // namespace
}  // namespace tarvo::test
