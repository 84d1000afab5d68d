// The command line: usage, help, and whether man page and completions know all of it.
#include <gmock/gmock.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

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

/// The long options that a help text lists.
std::set<std::string> optionsOf(const std::string& help) {
  std::set<std::string> options;
  const std::regex pattern("(^|[ ,])(--[a-z][a-z-]*)");
  for (std::istringstream lines(help.substr(0, help.find("Example:"))); !lines.eof();) {
    std::string line;
    std::getline(lines, line);
    if (!line.starts_with("  -")) continue;
    std::smatch match;
    const std::string head = line.substr(0, 30);
    if (std::regex_search(head, match, pattern)) options.insert(match[2]);
  }
  return options;
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
        "ls --store x", "msc mode set disk", "msc mode set camera --wake-after 9"}) {
    const auto run = runTool(wordsOf(words));
    EXPECT_EQ(run.exitCode, tools::kBadUsage) << words;
    EXPECT_THAT(run.out, IsEmpty()) << words;
    EXPECT_THAT(run.err, ContainsRegex("^tarvoctl: .+ Try 'tarvoctl.* --help'\\.\n$")) << words;
  }
}

TEST(Usage, ACommandThatThereIsNoneOfIsNamed) {
  EXPECT_THAT(runTool({"nonsense"}).err, HasSubstr("there is no command 'nonsense'"));
  EXPECT_THAT(runTool({"clock", "nonsense"}).err, HasSubstr("there is no command 'nonsense'"));
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

/// Documents that have to name every command and every option.
class Documentation : public ::testing::TestWithParam<std::string> {
 protected:
  /// As the document writes an option.
  std::string written(const std::string& option) const {
    if (GetParam().ends_with(".fish")) return " -l " + option.substr(2) + " ";
    std::string text = option;
    if (GetParam().ends_with(".in"))
      for (std::size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2)
        text.insert(at, "\\");
    return text;
  }
  const std::string text_ = contentOf(std::string(DATA_FOLDER) + GetParam());
};

TEST_P(Documentation, NamesEveryCommandAndEveryOptionAndNoOther) {
  std::set<std::string> options = optionsOf(helpOf(""));
  for (const auto& command : allCommands()) {
    for (const auto& word : wordsOf(command))
      EXPECT_THAT(text_, ContainsRegex("[^a-z]" + word + "[^a-z]"));
    options.merge(optionsOf(helpOf(command)));
  }
  EXPECT_GE(options.size(), 20U);
  for (const auto& option : options)
    EXPECT_THAT(text_, HasSubstr(written(option)));
  const bool isFish = GetParam().ends_with(".fish");
  std::string text = std::regex_replace(text_, std::regex("\\\\-"), "-");
  // The completions' own tools have options as well.
  text = std::regex_replace(text, std::regex("compgen [^\n]*|complete -F[^\n]*"), "");
  const std::regex pattern(isFish ? " -l ([a-z][a-z-]*)" : "[^a-z-](--[a-z][a-z-]*)");
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at) {
    const std::string option = isFish ? "--" + (*at)[1].str() : (*at)[1].str();
    EXPECT_TRUE(options.contains(option)) << option;
  }
}

INSTANTIATE_TEST_SUITE_P(Files, Documentation,
                         ::testing::Values("/man/tarvoctl.1.in", "/completions/bash/tarvoctl",
                                           "/completions/zsh/_tarvoctl",
                                           "/completions/fish/tarvoctl.fish"));

}  // namespace
}  // namespace tarvo::test
