#include "platform/diskarbitration/UDisks2Refusal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <functional>

#include "tests/diskarbitration/HoldingProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

TEST(ProcessesUsing, NamesWhoHasSomethingBelowAMountPointInWhateverWay) {
  const TemporaryFolder folder;
  const std::string mountPoint = folder.path("CARD 1");
  const std::string file = folder.write("CARD 1/DCIM/a.jpg", "picture");
  const std::string program = folder.path("CARD 1/relay");
  std::filesystem::copy_file("/bin/sh", program);
  const std::string other = folder.write("CARD 11/a.jpg", "another volume");
  const struct {
    const char* how;
    std::function<void()> take;
    bool counts;
  } rows[] = {
      {"working folder", [&] { (void)::chdir(mountPoint.c_str()); }, true},
      {"open file", [&] { (void)::open(file.c_str(), O_RDONLY); }, true},
      {"program",
       [&] {
         ::execl(program.c_str(), "relay", "-c", "kill -STOP $$", static_cast<char*>(nullptr));
       },
       true},
      {"volume of a longer name", [&] { (void)::open(other.c_str(), O_RDONLY); }, false},
  };
  for (const auto& row : rows) {
    const HoldingProcess process(row.take);
    const std::string pid = "(pid " + std::to_string(process.pid()) + ")";
    EXPECT_EQ(processesUsing({"/nowhere", mountPoint}).ends_with(pid), row.counts) << row.how;
  }
  const HoldingProcess one(rows[0].take);
  const HoldingProcess two(rows[0].take);
  EXPECT_THAT(processesUsing({mountPoint}),
              testing::MatchesRegex("[^,]+ \\(pid [0-9]+\\), [^,]+ \\(pid [0-9]+\\)"));
  EXPECT_EQ(processesUsing({}), "");
}

}  // namespace
}  // namespace tarvo::test
