// The simulator's program as a person uses it, from a shell.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Program : public ::testing::Test {
 protected:
  /// Runs a shell line in which $SIM is the program and $PROBE a host; gives its exit code.
  int run(const std::string& line) {
    const auto script = folder_.writeScript(
        "line",
        "export SIM='" SIMULATOR_PROGRAM "' PROBE='" PROBE_PROGRAM "' TARVO_SIMULATOR_SOCKET='" +
            folder_.path("sock") + "' TMPDIR='" + folder_.path("tmp") + "'\n" + line + "\n");
    std::filesystem::create_directories(folder_.path("tmp"));
    // The program is to make its own testbed, not to find itself in this one.
    const int status = std::system(
        ("unset UMOCKDEV_DIR; LD_PRELOAD= '" + script + "' > '" + folder_.path("out") + "' 2>&1")
            .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  /// Serves a device for a script; gives the exit code of `serve`.
  int serve(const std::string& arguments, const std::string& script) {
    return run("$SIM serve " + arguments + " -- '" + folder_.writeScript("script", script) + "'");
  }
  std::string output() const { return folder_.read("out"); }

  TemporaryFolder folder_;
};

TEST_F(Program, RunsACommandInTheTestbedAndEndsWithItsExitCode) {
  EXPECT_EQ(run("$SIM serve --device tarvo-camera -- sh -c '"
                "$SIM plug msc-camera --port 250-2; $SIM list; cat /proc/self/mounts; exit 7'"),
            7)
      << output();
  EXPECT_THAT(output(), HasSubstr("1-1      tarvo-camera       0xF055:0x0302"));
  EXPECT_THAT(output(), HasSubstr("/dev/sdb1 /media/"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path("tmp"))) << "the testbed's folder is left";
  EXPECT_FALSE(folder_.exists("sock"));
}

TEST_F(Program, LetsOthersJoinAndCleansUpAfterASignal) {
  EXPECT_EQ(run("$SIM serve --device card > /dev/null & server=$!\n"
                "until $SIM list > /dev/null 2>&1; do kill -0 $server || exit 9; done\n"
                "$SIM run -- sh -c 'ls /media/*/TARVO_CARD/MISC; ls /sys/bus/usb/devices'\n"
                "kill $server; wait $server"),
            0)
      << output();
  EXPECT_THAT(output(), HasSubstr("IREVIEW.DB"));
  EXPECT_THAT(output(), HasSubstr("1-1:1.0"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path("tmp"))) << "the testbed's folder is left";
}

TEST_F(Program, TellsAMistakeFromAFailureByItsExitCode) {
  const std::pair<const char*, int> rows[] = {
      {"$SIM --help", 0},
      {"$SIM", 2},
      {"$SIM juggle", 2},
      {"$SIM list", 1},
      {"$SIM plug nothing-like-it", 1},
      {"$SIM serve --device nothing-like-it -- true", 1},
      {"$SIM serve -- sh -c '$SIM plug tarvo-camera && $SIM fault 1-1 explode'", 1},
      {"$SIM serve -- sh -c '$SIM plug tarvo-camera && $SIM fault 1-1 delay=5'", 0},
  };
  for (const auto& [line, expected] : rows)
    EXPECT_EQ(run(line), expected) << line << output();
}

TEST_F(Program, AddsListsExportsAndRemovesObjects) {
  const std::string script = R"(
set -e
fails() { if "$@"; then exit 8; fi; }
printf 'bytes of a picture' > "$FOLDER/NEW.JPG"
handle=$($SIM add 1-1 "$FOLDER/NEW.JPG" --storage 0x00020001)
$SIM export 1-1 $handle "$FOLDER/back"
$SIM capture 1-1
$SIM objects 1-1
$SIM remove 1-1 $handle
fails $SIM remove 1-1 $handle
fails $SIM export 1-1 1 /dev/null
fails $SIM add 1-1 "$FOLDER/NEW.JPG" --parent 4711
)";
  EXPECT_EQ(serve("--device full-camera", "FOLDER=" + folder_.path() + script), 0) << output();
  EXPECT_EQ(folder_.read("back"), "bytes of a picture");
  EXPECT_THAT(output(), HasSubstr("0x00020001  0x3801            18  -  \"NEW.JPG\""));
  EXPECT_THAT(output(), HasSubstr("\"CAPT0001.JPG\""));
  EXPECT_THAT(output(), HasSubstr("p  \"TARV0002.JPG\""));
}

TEST_F(Program, ShowsDataSetsAndHandsWordsOnAsTheyAre) {
  const std::string script = R"(
fails() { if "$@"; then exit 8; fi; }
$SIM objects 1-1 --format 0xB202
$SIM dataset 1-1 15
$SIM display 1-1
fails $SIM dataset 1-1 3
$SIM run -- printf '%s\n' '[a,b]' ' c'
)";
  EXPECT_EQ(serve("--device orders-camera", script), 0) << output();
  EXPECT_THAT(output(), HasSubstr("0xB202            23  -  \"B2020015.DST\"\n"
                                  "074e006f0062006f006400790000000000000000000000\n\n"));
  EXPECT_THAT(output(), Not(HasSubstr("0xB203")));
  EXPECT_THAT(output(), HasSubstr("\n[a,b]\n c\n"));
}

TEST_F(Program, ShowsABreachOfTheProtocolAndCountsIt) {
  const std::string breach = "$PROBE /dev/bus/usb/001/002 claim num > /dev/null\n";
  EXPECT_EQ(serve("--device tarvo-camera", breach + "$SIM list --violations\n"), 1);
  EXPECT_THAT(output(), HasSubstr("1-1: operation 0x1006 without a session"));
  EXPECT_THAT(output(), HasSubstr("tarvo-simulator: 1-1: the host broke the protocol: operation "
                                  "0x1006 without a session"));
  EXPECT_EQ(serve("--strict --device tarvo-camera", breach), 1) << output();
  EXPECT_EQ(serve("--strict --device tarvo-camera", breach + "$SIM unplug 1-1"), 1) << output();
  EXPECT_EQ(serve("--device tarvo-camera", breach), 0) << output();
  EXPECT_EQ(serve("--strict --device tarvo-camera", "$SIM list --violations"), 0) << output();
}

}  // namespace
}  // namespace tarvo::test
