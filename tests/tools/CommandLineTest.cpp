// The command line: usage and help.
#include <gmock/gmock.h>

#include <sstream>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

std::string helpOf(const std::string& command) {
  auto words = wordsOf(command);
  words.emplace_back("--help");
  const auto run = runTool(words);
  EXPECT_EQ(run.exitCode, 0) << command;
  return run.out;
}

/// The subcommands that a help text lists.
std::vector<std::string> subcommandsOf(const std::string& help) {
  std::vector<std::string> names;
  const auto at = help.find("Subcommands:\n");
  if (at == std::string::npos) return names;
  std::istringstream lines(help.substr(at + 13));
  for (std::string line; std::getline(lines, line) && line.starts_with("  ");) {
    if (line[2] != ' ') names.push_back(wordsOf(line).front());
  }
  return names;
}

/// Every command below `group` that does something, "storage format" among them.
std::vector<std::string> allCommands(const std::string& group = "") {
  const auto parts = subcommandsOf(helpOf(group));
  if (parts.empty()) return {group};
  std::vector<std::string> commands;
  for (const auto& part : parts)
    for (auto& command : allCommands(group.empty() ? part : group + " " + part))
      commands.push_back(std::move(command));
  return commands;
}

TEST(Usage, MistakesAreExplainedOnStandardErrorAndEndWithTwo) {
  for (const char* words :
       {"", "nonsense", "ls --nonsense", "storage", "rename 1", "--timeout never devices",
        "--timeout 0 devices", "ls --limit -1", "decode nonsense -", "models check F055:10000",
        "get", "get --all --overwrite --keep-both", "volume get", "property get Nonsense",
        "ls --since tomorrow", "--timeout 5x devices", "msc mode set disk",
        "msc mode set camera --wake-after 9"}) {
    const auto run = runTool(wordsOf(words));
    EXPECT_EQ(run.exitCode, tools::kBadUsage) << words;
    EXPECT_THAT(run.out, IsEmpty()) << words;
    EXPECT_THAT(run.err, ContainsRegex("^tarvoctl: .+ Try 'tarvoctl.* --help'\\.\n$")) << words;
  }
}

TEST(Usage, WhatThereIsNoneOfIsNamedWithWhatMayBeMeant) {
  const std::pair<const char*, const char*> kRows[] = {
      {"nonsense", "there is no command 'nonsense'. Try"},
      {"clock nonsense", "there is no command 'nonsense'. Try"},
      {"volume gte", "there is no command 'gte'. Did you mean 'get'? Try"},
      {"ls --recusrive", "there is no option '--recusrive'. Did you mean '--recursive'? Try"},
      {"get --thumbnial=1", "there is no option '--thumbnial'. Did you mean '--thumbnail'? Try"}};
  for (const auto& [words, said] : kRows)
    EXPECT_THAT(runTool(wordsOf(words)).err, HasSubstr(said)) << words;
}

TEST(Usage, SynonymsAndLettersAreUnderstood) {
  for (const char* words :
       {"delete A -y", "-q download -o . -n A", "list -lr", "favorites list", "storage ls",
        "volume list --photos", "orders fulfill 1", "--timeout 500ms devices", "msc umount",
        "unmount", "ls --association 5", "put --parent=5 A", "address-book list"})
    EXPECT_THAT(runTool(wordsOf(words)).err, HasSubstr("asked for")) << words;
}

TEST(Usage, MistakesAreOneJSONDocumentWhereThatIsAskedFor) {
  for (const char* words : {"--json", "--json nonsense", "ls --nonsense --json", "get --json"}) {
    const auto run = runTool(wordsOf(words));
    EXPECT_EQ(run.exitCode, tools::kBadUsage) << words;
    ASSERT_TRUE(run.json().is_object()) << run.out;
    EXPECT_TRUE(run.json()["error"]["why"].is_string()) << run.out;
    EXPECT_THAT(run.err, IsEmpty());
  }
}

TEST(Help, EveryCommandEndsWithAnExampleOfItself) {
  const auto commands = allCommands();
  EXPECT_GE(commands.size(), 20U);
  for (const auto& command : commands)
    EXPECT_THAT(helpOf(command), ContainsRegex("\nExample:\n  tarvoctl " + command + ".*\n+$"));
}

}  // namespace
}  // namespace tarvo::test
