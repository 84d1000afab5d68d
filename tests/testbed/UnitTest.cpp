// SCSI programs that nobody here wrote at the virtual units: sg3-utils, as a black box.
#include <filesystem>
#include <sstream>

#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr const char* kInquiry = "-r 36 /dev/sg1 12 00 00 00 24 00";

class Unit : public AgentTestbed {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists("/usr/bin/sg_raw")) GTEST_SKIP() << "sg3-utils is not installed";
  }
  void TearDown() override { expectNoViolations(*testbed_); }

  /// Starts one of the programs, in the test's folder.
  std::unique_ptr<TestbedProgram> start(const std::string& line) {
    std::filesystem::remove(folder_.path("output"));
    std::vector<std::string> words = {"/usr/bin/env", "-C", folder_.path("")};
    std::istringstream input(line);
    for (std::string word; input >> word;)
      words.push_back(word);
    // What they leak is no fault of ours.
    const std::map<std::string, std::string> environment = {{"LC_ALL", "C"},
                                                            {"LSAN_OPTIONS", "detect_leaks=0"}};
    return std::make_unique<TestbedProgram>(*testbed_, words, environment, folder_.path("output"));
  }
  /// What it has written, with its exit code at the end.
  std::string run(const std::string& words) {
    const auto program = start(words);
    const auto code = program->waitForEnd();
    return program->output() + "exit " + std::to_string(code.value_or(-1));
  }
  std::string raw(const std::string& words) { return run("sg_raw -t 1 " + words); }
};

TEST_F(Unit, IsReadBySg3Utils) {
  const auto id = plug("dock");
  EXPECT_THAT(run("sg_inq /dev/sg1"),
              AllOf(HasSubstr("cd/dvd"), HasSubstr("Vendor identification: TARVO"),
                    HasSubstr("Product identification: Picture Dock"),
                    HasSubstr("Unit serial number: TPD-000073"), HasSubstr("exit 0")));
  EXPECT_THAT(run("sg_modes -H -p 0x25 /dev/sg1"),
              HasSubstr("25 07 02 00 00 00 00 00\n 10     03"));
  EXPECT_THAT(run("sg_modes -H -p 0x26 /dev/sg1"), HasSubstr("54 61 72 76 6f 20"));
  EXPECT_THAT(run("sg_turs -v /dev/sg1"), HasSubstr("Medium not present - tray closed"));
  EXPECT_THAT(run("sg_start --eject /dev/sg1"), HasSubstr("exit 0"));
  EXPECT_TRUE(testbed_->device(id)->unit->state().isTrayOpen);
  plug("dock-fixed");
  EXPECT_THAT(run("sg_readcap /dev/sg2"), HasSubstr("Logical block length=2048 bytes"));
}

TEST_F(Unit, HoldsAFileSystemThatOthersRead) {
  plug("card");
  plug("dock-fixed");
  EXPECT_THAT(run("sg_dd if=/dev/sg1 of=card bs=512"), HasSubstr("exit 0"));
  EXPECT_THAT(run("mtype -i card@@1M ::/MISC/IREVIEW.DB"), HasSubstr("orders\n"));
  EXPECT_THAT(run("sg_dd if=/dev/sg2 of=dock bs=2048"), HasSubstr("exit 0"));
  EXPECT_THAT(run("mdir -i dock ::/DCIM"), AllOf(HasSubstr("TARVO_DOCK"), HasSubstr("131072")));
}

TEST_F(Unit, TellsWhatGoesWrongAndGoesOnAfterIt) {
  const auto id = plug("dock");
  auto& unit = *testbed_->device(id)->unit;
  struct Row {
    const char* fault;
    const char* value;
    const char* expected;
  };
  const Row rows[] = {
      {"sense", "0x052400", "Invalid field in cdb"},
      {"sense", "0x0b0800", "Logical unit communication failure"},
      {"status", "8", "SCSI Status: Busy"},
      {"status", "0x18", "SCSI Status: Reservation Conflict"},
      {"stall", "", "SCSI Status: Check Condition"},
      {"short", "", "Received 18 bytes of data"},
      {"truncate", "0", "No data received"},
      {"phase-error", "", "Host_status=0x07"},
      {"wrong-tag", "", "Host_status=0x07"},
      {"wrong-signature", "", "Host_status=0x07"},
      {"babble", "", "Host_status=0x07"},
      {"silent", "", "Host_status=0x03"},
      {"delay", "5", "Received 36 bytes of data"},
  };
  for (const auto& row : rows) {
    const std::string value = row.value;
    ASSERT_EQ(unit.setFault(row.fault, value.empty() ? "0x12,once" : value + ",0x12,once"), "");
    EXPECT_THAT(raw(kInquiry), HasSubstr(row.expected)) << row.fault << " " << row.value;
    EXPECT_THAT(raw(kInquiry), HasSubstr("Received 36 bytes of data")) << "after " << row.fault;
  }
}

TEST_F(Unit, IsPulledOutUnderACommandThatWaits) {
  const auto id = plug("dock");
  const auto unit = testbed_->device(id)->unit;
  ASSERT_EQ(unit->setFault("silent", ""), "");
  const auto program = start(std::string("sg_raw -t 600 ") + kInquiry);
  ASSERT_TRUE(waitUntil([&] { return !unit->commands().empty(); }));
  testbed_->unplug(id);
  EXPECT_NE(program->waitForEnd(), 0);
  EXPECT_THAT(program->output(), HasSubstr("No such device"));
}

}  // namespace
}  // namespace tarvo::test
