// The emulated device node, as plain libusb programs and the testbed's own program meet it.
#include <sys/wait.h>

#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Node : public AgentTestbed {
 protected:
  std::unique_ptr<TestbedProgram> probe(const std::string& id, std::vector<std::string> commands) {
    std::vector<std::string> words = {PROBE_PROGRAM, testbed_->device(id)->address.node()};
    words.insert(words.end(), commands.begin(), commands.end());
    return std::make_unique<TestbedProgram>(*testbed_, words, std::map<std::string, std::string>(),
                                            folder_.path("probe" + std::to_string(++probes_)));
  }
  /// What a probe writes until it ends.
  std::string probed(const std::string& id, std::vector<std::string> commands) {
    const auto program = probe(id, std::move(commands));
    program->waitForEnd();
    return program->output();
  }

  int probes_ = 0;
};

TEST_F(Node, CarriesTransactionsControlRequestsAndLargeTransfers) {
  const auto id = plug("tarvo-camera");
  const auto output = probed(id, {"claim", "info", "session", "num", "object", "5", "control"});
  EXPECT_THAT(output, HasSubstr("num LIBUSB_SUCCESS / LIBUSB_TRANSFER_COMPLETED response 0x2001 "
                                "data 0 parameter 7"));
  EXPECT_THAT(output, HasSubstr("data 5242892 "));
  EXPECT_THAT(output, HasSubstr("status 4 code 0x2001"));
  EXPECT_THAT(camera(id).violations(), IsEmpty());
}

TEST_F(Node, BelongsToOneClaimantUntilThatOneDies) {
  const auto id = plug("tarvo-camera");
  const auto holder = probe(id, {"claim", "hold"});
  ASSERT_TRUE(waitUntil([&] { return !holder->output().empty(); }));
  ASSERT_THAT(holder->output(), HasSubstr("claim LIBUSB_SUCCESS"));
  EXPECT_THAT(probed(id, {"claim"}), HasSubstr("claim LIBUSB_ERROR_BUSY"));
  holder->signal(SIGKILL);
  holder->waitForEnd();
  bool claimed = false;  // kept, as one that has claimed may still count as the next holder
  waitUntil([&] {
    claimed = claimed || probed(id, {"claim"}).find("LIBUSB_SUCCESS") != std::string::npos;
    return claimed;
  });
  EXPECT_TRUE(claimed);
}

TEST_F(Node, EndsWhatIsInFlightWhenTheDeviceIsUnplugged) {
  const auto id = plug("tarvo-camera");
  ASSERT_EQ(camera(id).setFault("silent", ""), "");
  const auto device = testbed_->device(id)->camera;
  const auto waiting = probe(id, {"claim", "info", "info"});
  ASSERT_TRUE(waitUntil([&] { return device->counts().transactions == 1; }));
  testbed_->unplug(id);
  EXPECT_EQ(waiting->waitForEnd(), 0);
  EXPECT_THAT(waiting->output(), HasSubstr("info LIBUSB_ERROR_NO_DEVICE"));
  EXPECT_THAT(waiting->output(), Not(HasSubstr("TIMEOUT")));
}

/// Runs a shell line with $SIM as the simulator's program; gives its output and exit code.
class Program : public ::testing::Test {
 protected:
  int run(const std::string& line) {
    const auto script =
        folder_.writeScript("line", "export SIM='" SIMULATOR_PROGRAM "' TARVO_SIMULATOR_SOCKET='" +
                                        folder_.path("sock") + "' TMPDIR='" + folder_.path("tmp") +
                                        "'\n" + line + "\n");
    std::filesystem::create_directories(folder_.path("tmp"));
    // The program is to make its own testbed, not to find itself in this one.
    const int status = std::system(
        ("unset UMOCKDEV_DIR; LD_PRELOAD= '" + script + "' > '" + folder_.path("out") + "' 2>&1")
            .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
      {"$SIM plug", 2},
      {"$SIM list", 1},
      {"$SIM plug nothing-like-it", 1},
      {"$SIM serve --device nothing-like-it -- true", 1},
      {"$SIM serve -- sh -c '$SIM unplug 1-1'", 1},
      {"$SIM serve -- sh -c '$SIM plug tarvo-camera && $SIM fault 1-1 explode'", 1},
      {"$SIM serve -- sh -c '$SIM plug tarvo-camera && $SIM fault 1-1 delay=5'", 0},
  };
  for (const auto& [line, expected] : rows)
    EXPECT_EQ(run(line), expected) << line << output();
}

}  // namespace
}  // namespace tarvo::test
