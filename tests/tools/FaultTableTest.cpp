// What can go wrong in each single transaction of a command, closing the session included: the
// error is named, no partial file stays under its final name, and the next command works.
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <map>

#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;

struct CommandRow {
  const char* name;
  std::vector<std::string> words;
};

void PrintTo(const CommandRow& row, std::ostream* stream) {
  *stream << row.name;
}

struct FaultRow {
  const char* name;
  const char* amount = "";  ///< ends with a comma where there is one
};
constexpr FaultRow kFaults[] = {{"stall"},    {"stall-out"},          {"silent"},
                                {"short"},    {"truncate", "3,"},     {"babble"},
                                {"wrong-id"}, {"lie-short"},          {"lie-long"},
                                {"garbage"},  {"respond", "0x2002,"}, {"respond", "0x2019,"},
                                {"vanish"}};

class Faults : public ::testing::TestWithParam<CommandRow> {
 protected:
  /// The words of the command; files lie in the bench's folder.
  static std::vector<std::string> wordsFor(const CameraBench& bench) {
    std::vector<std::string> words;
    for (const auto& word : GetParam().words) {
      const bool isPath = word.starts_with('@');
      words.push_back(isPath ? bench.folder.path(word.substr(1)) : word);
    }
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
    const auto run = bench->run(wordsFor(*bench));
    EXPECT_EQ(run.exitCode, 0);
    said_ = told(*bench, run);
    return bench->sim.camera->operations().size() - before;
  }

  /// Files that were fetched are as large as they have to be.
  static void expectNoPartialFile(const CameraBench& bench) {
    const std::map<std::string, std::uintmax_t> kSizes = {{"TARV0001.JPG", 2412034},
                                                          {"TARV0002.JPG", 1987},
                                                          {"TARV0003.MOV", 5242880},
                                                          {"NOTES.TXT", 26}};
    if (!fs::exists(bench.folder.path("pictures"))) return;
    for (const auto& entry : fs::directory_iterator(bench.folder.path("pictures"))) {
      const auto name = entry.path().filename().string();
      // A hidden part is what the next attempt goes on with.
      if (name.starts_with('.')) continue;
      EXPECT_EQ(entry.file_size(), kSizes.at(name)) << name;
    }
  }

  static void expectNamedError(const ToolRun& run) {
    EXPECT_TRUE(run.exitCode == tools::kDone || run.exitCode == tools::kFailed) << run.exitCode;
    if (run.exitCode != tools::kFailed) return;
    EXPECT_THAT(run.err, ContainsRegex("tarvoctl: [a-z ]+.*: .+\\(.*0x[0-9a-f]+\\)"));
  }

  /// Returns the exit status of the command that was struck.
  int strike(const FaultRow& fault, std::size_t transaction) {
    const std::string value = fault.amount + ("@" + std::to_string(transaction));
    SCOPED_TRACE(std::string(fault.name) + "=" + value);
    const auto bench = makeBench();
    EXPECT_EQ(bench->sim.camera->setFault(fault.name, value), "");
    const auto run = bench->run(wordsFor(*bench));
    expectNamedError(run);
    if (run.exitCode == tools::kDone) {
      EXPECT_EQ(told(*bench, run), said_) << run.err;
    }
    expectNoPartialFile(*bench);
    bench->sim.camera->setFault(fault.name, "off");
    const auto next = bench->run({"ls", "--recursive"});
    if (bench->sim.camera->isGone()) {
      EXPECT_EQ(next.exitCode, tools::kFailed) << "unplugged";
    } else {
      EXPECT_EQ(next.exitCode, 0) << next.err;
    }
    bench->sim.camera->forgetViolations();  // a device in disorder sees an order of its own
    return run.exitCode;
  }

 private:
  std::string said_;  ///< by the command when nothing strikes
};

TEST_P(Faults, AreNamedLeaveNothingPartialAndTheNextCommandWorks) {
  const std::size_t count = transactions();
  ASSERT_GE(count, 4U);
  std::map<int, std::size_t> outcomes;
  for (const auto& fault : kFaults) {
    for (std::size_t transaction = 1; transaction <= count; ++transaction)
      ++outcomes[strike(fault, transaction)];
  }
  std::printf("%s: %zu faults in each of %zu transactions: %zu runs, %zu failed, %zu got through\n",
              GetParam().name, std::size(kFaults), count, std::size(kFaults) * count,
              outcomes[tools::kFailed], outcomes[tools::kDone]);
}

// A fault that strikes every time is never taken for success.
TEST_P(Faults, ThatStayMakeTheCommandFail) {
  for (const char* fault : {"stall", "silent", "wrong-id", "garbage"}) {
    const auto bench = makeBench();
    bench->sim.camera->setFault(fault, "@3+");
    const auto run = bench->run(wordsFor(*bench));
    EXPECT_EQ(run.exitCode, tools::kFailed) << fault;
    expectNamedError(run);
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
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tarvo::test
