// The simulator's program as a person uses it on a camera's objects, from a shell.
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

class ObjectVerbs : public ::testing::Test {
 protected:
  /// Serves a device for a script in which $SIM is the program and $PROBE a host; gives the exit
  /// code of `serve`.
  int serve(const std::string& arguments, const std::string& script) {
    const auto file = folder_.writeScript("script", script);
    const auto command = "unset UMOCKDEV_DIR; export LD_PRELOAD= SIM='" SIMULATOR_PROGRAM
                         "' PROBE='" PROBE_PROGRAM "' TARVO_SIMULATOR_SOCKET='" +
                         folder_.path("sock") + "'; \"$SIM\" serve " + arguments + " -- '" + file +
                         "' > '" + folder_.path("out") + "' 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string output() const { return folder_.read("out"); }

  TemporaryFolder folder_;
};

TEST_F(ObjectVerbs, AddListExportAndRemoveObjects) {
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

TEST_F(ObjectVerbs, ShowDataSetsAndWhatIsDisplayed) {
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

TEST_F(ObjectVerbs, ShowNamesWithoutTheirControlCharacters) {
  EXPECT_EQ(serve("--device hostile-names", "$SIM objects 1-1; $SIM objects 1-1 --json"), 0);
  EXPECT_THAT(output(), HasSubstr(R"("TAB\tLINE\n\u001b[31mRED.JPG")"));
  EXPECT_THAT(output(), Not(HasSubstr("\x1B")));
}

TEST_F(ObjectVerbs, ABreachOfTheProtocolIsShownAndCounts) {
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
