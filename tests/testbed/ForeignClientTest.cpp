// Programs that nobody here wrote, as black boxes: gphoto2 at the virtual cameras, sg3-utils at the
// virtual units. They must find what the devices hold and nothing to complain about, nor must the
// devices.
#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kInquiry = "sg_raw -t 1 -r 36 /dev/sg1 12 00 00 00 24 00";

class ForeignClient : public AgentTestbed {
 protected:
  void SetUp() override {
    for (const char* program : {"/usr/bin/gphoto2", "/usr/bin/sg_raw"})
      if (!std::filesystem::exists(program)) GTEST_SKIP() << program << " is not installed";
    std::filesystem::create_directories(folder_.path("got"));
  }
  void TearDown() override { expectNoViolations(*testbed_); }

  /// Runs one of the programs in a folder of its own; what it has written, with its exit code.
  std::string run(const std::string& line) {
    std::vector<std::string> words = {"/usr/bin/env", "-C", folder_.path("got")};
    std::istringstream input(line);
    for (std::string word; input >> word;)
      words.push_back(word);
    // What they leak is no fault of ours.
    const std::map<std::string, std::string> environment = {
        {"HOME", folder_.path("home")}, {"LC_ALL", "C"}, {"LSAN_OPTIONS", "detect_leaks=0"}};
    std::filesystem::remove(folder_.path("output"));
    TestbedProgram program(*testbed_, words, environment, folder_.path("output"));
    const auto code = program.waitForEnd();
    return program.output() + "exit " + std::to_string(code.value_or(-1));
  }
  std::string gphoto2(const std::string& options) {
    const auto said = run("gphoto2 " + options);
    EXPECT_THAT(said, AllOf(HasSubstr("exit 0"), Not(HasSubstr("*** Error"))));
    return said;
  }

  /// The file of that name holds the bytes of the object.
  void expectFetched(const std::string& id, const std::string& name, std::uint32_t handle) {
    const auto text = folder_.read("got/" + name);
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(text)), camera(id).bytes(handle)))
        << name << ": " << text.size() << " bytes";
  }
};

TEST_F(ForeignClient, ListsAndFetchesEverything) {
  const auto id = plug("full-camera");
  EXPECT_THAT(gphoto2("--summary"), HasSubstr("Model: Tarvo Lumo X9"));
  gphoto2("--get-all-files");
  int files = 0;
  for (const auto handle : camera(id).handles()) {
    const auto object = camera(id).object(handle);
    if (object->isFolder()) continue;
    expectFetched(id, object->nameText(), handle);
    ++files;
  }
  EXPECT_EQ(files, 6);
}

TEST_F(ForeignClient, SendsFetchesAndDeletes) {
  const auto id = plug("foreign-camera");
  std::string content(100'000, 'x');
  for (std::size_t i = 0; i < content.size(); ++i)
    content[i] = static_cast<char>(i * i >> 3);
  const auto before = camera(id).handles();
  const auto file = folder_.write("UP.JPG", content);
  gphoto2("--folder /store_00010001/DCIM --upload-file " + file);
  const auto after = camera(id).handles();
  ASSERT_EQ(after.size(), before.size() + 1);
  gphoto2("--folder /store_00010001/DCIM --get-file UP.JPG");
  expectFetched(id, "UP.JPG", after.back());
  EXPECT_EQ(folder_.read("got/UP.JPG"), content);
  gphoto2("--folder /store_00010001/DCIM --delete-file UP.JPG");
  EXPECT_EQ(camera(id).handles(), before);
}

TEST_F(ForeignClient, ReadsAUnit) {
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

TEST_F(ForeignClient, ReadsTheFileSystemOfACard) {
  plug("card");
  EXPECT_THAT(run("sg_dd if=/dev/sg1 of=card bs=512"), HasSubstr("exit 0"));
  EXPECT_THAT(run("mtype -i card@@1M ::/MISC/IREVIEW.DB"), HasSubstr("orders\n"));
}

TEST_F(ForeignClient, TellsWhatAUnitGetsWrongAndGoesOnAfterIt) {
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
    EXPECT_THAT(run(kInquiry), HasSubstr(expected)) << fault;
    EXPECT_THAT(run(kInquiry), HasSubstr("Received 36 bytes of data")) << "after " << fault;
  }
}

}  // namespace
}  // namespace tarvo::test
