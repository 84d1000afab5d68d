// Names that a device gives stay inside the folder that the user chose.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::Not;

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
  const auto bench = benchWith({"../x", "/etc/x", "a/../../b", "..", ".", "", std::string(254, 'n'),
                                "bell\x07\x1b[2J", "line\nend", "Same.txt", "SAME.TXT"});
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
  EXPECT_EQ(names.size(), 9U);
  for (const char* name : {"x", "x (2)", "b", "Same.txt", "SAME.TXT", "\xEF\xBF\xBD.jpg"})
    EXPECT_THAT(names, Contains(name));
  EXPECT_FALSE(fs::exists("/etc/x"));
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
