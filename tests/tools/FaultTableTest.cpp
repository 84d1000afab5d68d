// What can go wrong in each single transaction of a command, closing the session included: the
// error is named, no partial file stays under its final name, and the next command works.
#include <gmock/gmock.h>

#include <filesystem>
#include <map>

#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;

using CommandRow = std::pair<const char*, std::vector<std::string>>;

/// Name and amount, which ends with a comma where there is one.
constexpr std::pair<const char*, const char*> kFaults[] = {
    {"stall", ""},         {"stall-out", ""}, {"silent", ""},     {"short", ""},
    {"babble", ""},        {"wrong-id", ""},  {"lie-short", ""},  {"lie-long", ""},
    {"garbage", ""},       {"vanish", ""},    {"truncate", "3,"}, {"respond", "0x2002,"},
    {"respond", "0x2019,"}};

class Faults : public ::testing::TestWithParam<CommandRow> {
 protected:
  /// The words of the command; files lie in the bench's folder.
  static std::vector<std::string> wordsFor(const CameraBench& bench) {
    std::vector<std::string> words;
    for (const auto& word : GetParam().second)
      words.push_back(word.starts_with('@') ? bench.folder.path(word.substr(1)) : word);
    return words;
  }

  static std::unique_ptr<CameraBench> makeBench() {
    auto bench = std::make_unique<CameraBench>();
    bench->folder.write("SENT.JPG", std::string(3000, 's'));
    return bench;
  }

  /// What it says, whatever the bench's folder is called.
  static std::string told(const CameraBench& bench, const ToolRun& run) {
    std::string text = run.out;
    const auto& folder = bench.folder.path();
    for (auto at = text.find(folder); at != std::string::npos; at = text.find(folder))
      text.erase(at, folder.size());
    return text;
  }

  /// How many transactions the command takes; keeps what it says.
  std::size_t transactions() {
    const auto bench = makeBench();
    const auto before = bench->sim.camera->operations().size();
    said_ = told(*bench, bench->done(wordsFor(*bench)));
    return bench->sim.camera->operations().size() - before;
  }

  /// Files that were fetched are as large as they have to be.
  static void expectNoPartialFile(const CameraBench& bench) {
    const std::map<std::string, std::uintmax_t> kSizes = {{"TARV0001.JPG", 2412034},
                                                          {"TARV0002.JPG", 1987},
                                                          {"TARV0003.MOV", 5242880},
                                                          {"NOTES.TXT", 26}};
    for (const auto& name : bench.folder.names("pictures")) {
      // A hidden part is what the next attempt goes on with.
      if (name.starts_with('.')) continue;
      EXPECT_EQ(fs::file_size(bench.folder.path("pictures/" + name)), kSizes.at(name)) << name;
    }
  }

  static void expectNamedError(const ToolRun& run) {
    EXPECT_TRUE(run.exitCode == tools::kDone || run.exitCode == tools::kFailed) << run.exitCode;
    if (run.exitCode != tools::kFailed) return;
    EXPECT_THAT(run.err, ContainsRegex("tarvoctl: [a-z ]+.*: .+\\(.*0x[0-9a-f]+\\)"));
  }

  void strike(const char* fault, const std::string& value) const {
    SCOPED_TRACE(std::string(fault) + "=" + value);
    const auto bench = makeBench();
    EXPECT_EQ(bench->sim.camera->setFault(fault, value), "");
    const auto run = bench->run(wordsFor(*bench));
    expectNamedError(run);
    EXPECT_TRUE(run.exitCode != tools::kDone || told(*bench, run) == said_) << run.out << run.err;
    expectNoPartialFile(*bench);
    bench->sim.camera->setFault(fault, "off");
    bench->ends({"ls", "--recursive"}, bench->sim.camera->isGone() ? tools::kFailed : tools::kDone);
    bench->sim.camera->forgetViolations();  // a device in disorder sees an order of its own
  }

 private:
  std::string said_;  ///< by the command when nothing strikes
};

TEST_P(Faults, AreNamedLeaveNothingPartialAndTheNextCommandWorks) {
  const std::size_t count = transactions();
  ASSERT_GE(count, 4U);
  for (const auto& [fault, amount] : kFaults) {
    for (std::size_t transaction = 1; transaction <= count; ++transaction)
      strike(fault, amount + ("@" + std::to_string(transaction)));
  }
}

// A fault that strikes every time is never taken for success.
TEST_P(Faults, ThatStayMakeTheCommandFail) {
  for (const char* fault : {"stall", "silent", "wrong-id", "garbage"}) {
    const auto bench = makeBench();
    bench->sim.camera->setFault(fault, "@3+");
    expectNamedError(bench->fails(wordsFor(*bench)));
    expectNoPartialFile(*bench);
    bench->sim.camera->forgetViolations();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Commands, Faults,
    ::testing::Values(CommandRow{"list", {"ls", "--long", "--recursive"}},
                      CommandRow{"get", {"get", "--all", "--output", "@pictures/"}},
                      CommandRow{"put", {"put", "@SENT.JPG"}},
                      CommandRow{"delete", {"rm", "TARV*", "--yes"}},
                      CommandRow{"format", {"storage", "format", "--yes"}},
                      CommandRow{"property", {"property", "set", "DateTime", "20261124T120000"}}),
    [](const auto& row) { return row.param.first; });

}  // namespace
}  // namespace tarvo::test
