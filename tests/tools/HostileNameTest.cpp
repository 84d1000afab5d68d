// Names that a device gives stay inside the folder that the user chose.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::Not;

std::string withFiles(const std::vector<std::string>& names) {
  nlohmann::json content = nlohmann::json::array();
  for (const auto& name : names)
    content.push_back({{"file", name}, {"text", "from the device"}});
  return nlohmann::json{{"stores", {{{"id", "0x00010001"}, {"content", content}}}}}.dump();
}

TEST(HostileNames, AllStayInsideTheFolder) {
  CameraBench bench(
      withFiles({"../x", "/etc/x", "a/../../b", "..", ".", "", std::string(254, 'n'),
                 "bell\x07\x1b[2J", "line\nend", "Same.txt", "SAME.TXT", "\xEF\xBF\xBD.jpg"}));
  const auto inner = bench.folder.path("chosen/inner");
  const auto run = bench.run({"get", "--all", "--output", inner + "/"});
  EXPECT_EQ(run.exitCode, tools::kFailed) << "three names are none";
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(bench.folder.path())) {
    if (!entry.is_regular_file()) continue;
    EXPECT_EQ(entry.path().parent_path(), inner);
    names.push_back(entry.path().filename());
    for (const char letter : names.back())
      EXPECT_GE(static_cast<unsigned char>(letter), 0x20) << "no control characters";
  }
  EXPECT_EQ(names.size(), 9U);
  for (const char* name : {"x", "b", "Same.txt", "SAME.TXT"})
    EXPECT_THAT(names, Contains(name));
  EXPECT_FALSE(fs::exists("/etc/x"));
}

TEST(HostileNames, CannotSteerTheTerminal) {
  CameraBench bench(withFiles({"bell\x07\x1b[2J.JPG", "two\nlines.JPG"}));
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"ls"},
           {"ls", "--long"},
           {"get", "--all", "--output", bench.folder.path("pictures/")},
           {"rm", "*.JPG"}}) {
    const auto run = bench.run(words);
    for (const std::string& text : {run.out, run.err})
      EXPECT_THAT(text, Not(Contains('\x1b')));
  }
}

TEST(HostileNames, AreWholeInJSON) {
  CameraBench bench(withFiles({"two\nlines.JPG"}));
  EXPECT_EQ(bench.run({"--json", "ls"}).json()[0]["name"], "two\nlines.JPG");
}

}  // namespace
}  // namespace tarvo::test
