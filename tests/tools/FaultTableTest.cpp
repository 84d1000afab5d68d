// What can go wrong in the first, a middle and the last transaction of a command: the error is
// named, no partial file stays under its final name, and the next command works.
#include <gmock/gmock.h>

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

constexpr const char* kFaults[] = {"stall",     "stall-out", "silent", "short",   "wrong-id",
                                   "lie-short", "lie-long",  "babble", "garbage", "vanish"};

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

  /// How many transactions the command takes, without closing the session.
  static std::size_t transactions() {
    const auto bench = makeBench();
    const auto before = bench->sim.camera->operations().size();
    EXPECT_EQ(bench->run(wordsFor(*bench)).exitCode, 0);
    return bench->sim.camera->operations().size() - before - 1;
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

  static void strike(const char* fault, std::size_t transaction) {
    SCOPED_TRACE(std::string(fault) + " in transaction " + std::to_string(transaction));
    const auto bench = makeBench();
    ASSERT_EQ(bench->sim.camera->setFault(fault, "@" + std::to_string(transaction)), "");
    expectNamedError(bench->run(wordsFor(*bench)));
    expectNoPartialFile(*bench);
    bench->sim.camera->setFault(fault, "off");
    const auto next = bench->run({"ls", "--recursive"});
    if (bench->sim.camera->isGone()) {
      EXPECT_EQ(next.exitCode, tools::kFailed) << "unplugged";
    } else {
      EXPECT_EQ(next.exitCode, 0) << next.err;
    }
    bench->sim.camera->forgetViolations();  // a device in disorder sees an order of its own
  }
};

TEST_P(Faults, AreNamedLeaveNothingPartialAndTheNextCommandWorks) {
  const std::size_t count = transactions();
  ASSERT_GE(count, 3U);
  for (const char* fault : kFaults) {
    for (const std::size_t transaction : {std::size_t{1}, count / 2 + 1, count})
      strike(fault, transaction);
  }
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
