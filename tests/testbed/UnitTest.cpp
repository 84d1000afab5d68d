// SCSI programs that nobody here wrote at the virtual units: sg3-utils, as a black box.
#include <array>
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

  /// Runs one of the programs in the test's folder; what it has written, with its exit code.
  std::string run(const std::string& line) {
    std::vector<std::string> words = {"/usr/bin/env", "-C", folder_.path("")};
    std::istringstream input(line);
    for (std::string word; input >> word;)
      words.push_back(word);
    // What they leak is no fault of ours.
    const std::map<std::string, std::string> environment = {{"LC_ALL", "C"},
                                                            {"LSAN_OPTIONS", "detect_leaks=0"}};
    std::filesystem::remove(folder_.path("output"));
    TestbedProgram program(*testbed_, words, environment, folder_.path("output"));
    const auto code = program.waitForEnd();
    return program.output() + "exit " + std::to_string(code.value_or(-1));
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
  EXPECT_THAT(run("sg_turs -v /dev/sg1"), HasSubstr("Medium not present - tray closed"));
  EXPECT_THAT(run("sg_start --eject /dev/sg1"), HasSubstr("exit 0"));
  EXPECT_TRUE(testbed_->device(id)->unit->state().isTrayOpen);
}

TEST_F(Unit, HoldsAFileSystemThatOthersRead) {
  plug("card");
  EXPECT_THAT(run("sg_dd if=/dev/sg1 of=card bs=512"), HasSubstr("exit 0"));
  EXPECT_THAT(run("mtype -i card@@1M ::/MISC/IREVIEW.DB"), HasSubstr("orders\n"));
}

TEST_F(Unit, TellsWhatGoesWrongAndGoesOnAfterIt) {
  const auto id = plug("dock");
  auto& unit = *testbed_->device(id)->unit;
  const std::array<const char*, 3> rows[] = {
      {"sense", "0x052400,0x12,once", "Invalid field in cdb"},
      {"status", "8,0x12,once", "SCSI Status: Busy"},
      {"stall", "0x12,once", "SCSI Status: Check Condition"},
      {"short", "0x12,once", "Received 18 bytes of data"},
      {"wrong-tag", "0x12,once", "Host_status=0x07"},
      {"silent", "0x12,once", "Host_status=0x03"},
  };
  for (const auto& [fault, value, expected] : rows) {
    ASSERT_EQ(unit.setFault(fault, value), "");
    EXPECT_THAT(raw(kInquiry), HasSubstr(expected)) << fault;
    EXPECT_THAT(raw(kInquiry), HasSubstr("Received 36 bytes of data")) << "after " << fault;
  }
}

}  // namespace
}  // namespace tarvo::test
