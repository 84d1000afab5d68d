// The unmodified tarvoctl on virtual hardware: every example of its help, transfers, interruption,
// and what a shell does to it.
#include <filesystem>
#include <sstream>

#include "Utilities/PTPCodes.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Tool : public ToolTestbed {
 protected:
  std::string work(const std::string& name) const { return folder_.path("work/" + name); }
  bool waitForOperation(const std::string& id, std::uint16_t operation) {
    return waitUntil([&] {
      const auto all = pluggedCamera(id).operations();
      return std::ranges::count(all, operation) > 0;
    });
  }
  static std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder, none))
      names.push_back(entry.path().filename());
    return names;
  }
};

/// The last line of a help text.
std::string exampleOf(const std::string& help) {
  std::istringstream lines(help);
  std::string example;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  tarvoctl ")) example = line.substr(2);
  }
  return example;
}

TEST_F(Tool, EveryExampleOfItsHelpWorks) {
  folder_.write("work/photo.jpg", "a picture");
  for (const char* command : {"",       "devices",       "info",         "clock set",
                              "reset",  "events",        "storage list", "storage format",
                              "ls",     "get",           "put",          "rm",
                              "rename", "property list", "property get", "property set",
                              "query",  "models list",   "models check", "encode",
                              "decode", "storage",       "clock",        "property",
                              "models"}) {
    const auto example = exampleOf(tool(std::string(command) + " --help").out);
    ASSERT_THAT(example, HasSubstr("tarvoctl " + std::string(command))) << out() << err();
    if (std::string(command) == "encode") folder_.write("work/object.json", "{}");
    auto description = camera();
    description.vendor.operations.push_back(ptp::XTO_UPDATE_EXT_OBJECT_INFO);
    const auto id = plug(description);
    pluggedCamera(id).sendEvent(0x4002, {3});
    const auto run = shell(example);
    EXPECT_EQ(run.exitCode, 0) << example << "\n" << run.out << run.err;
    EXPECT_THAT(run.out, Not(IsEmpty())) << example;
    if (std::string(command) == "encode") folder_.write("work/object.bin", run.out);
    EXPECT_THAT(pluggedCamera(id).violations(), IsEmpty()) << example;
    testbed_->unplug(id);
  }
}

TEST_F(Tool, FetchesWhatItSentByteForByte) {
  plug(camera());
  std::string content;
  for (unsigned index = 0; index < 3'000'000; ++index)
    content += static_cast<char>(index * 7919 >> 5);
  folder_.write("work/SENT.JPG", content);
  EXPECT_EQ(tool("put SENT.JPG").exitCode, 0) << err();
  EXPECT_EQ(tool("get SENT.JPG NOTES.TXT --output back/").exitCode, 0) << err();
  EXPECT_TRUE(folder_.read("work/back/SENT.JPG") == content);
  EXPECT_EQ(folder_.read("work/back/NOTES.TXT"), "Sharing orders live here.\n");
  EXPECT_EQ(tool("--json get --all --output all/").json().size(), 5U);
  EXPECT_THAT(err(), IsEmpty());
}

TEST_F(Tool, ShowsAnObjectBeforeTheNextOneIsAsked) {
  const auto id = plug(camera());
  pluggedCamera(id).setFault("silent", "0x1008,@3");
  start("ls --recursive");
  EXPECT_TRUE(waitUntil([&] { return out().find("DCIM/100TARVO/\n") != std::string::npos; }));
  EXPECT_TRUE(running().isRunning()) << "it waits for the third object";
  running().signal(SIGINT);
  EXPECT_EQ(finish().exitCode, 130);
}

TEST_F(Tool, CtrlCCancelsATransferAndTheCameraWorksOn) {
  for (const bool knowsClassRequests : {true, false}) {
    auto description = camera();
    description.habits.noClassRequests = !knowsClassRequests;
    const auto id = plug(description);
    pluggedCamera(id).setFault("silent", "0x1009,@1");
    start("--timeout 60 get TARV0001.JPG --output pictures/");
    ASSERT_TRUE(waitForOperation(id, ptp::kGetObject));
    running().signal(SIGINT);
    const auto run = finish();
    EXPECT_EQ(run.exitCode, 130);
    EXPECT_THAT(run.err, HasSubstr("cancelled (-490"));
    EXPECT_THAT(filesIn(work("pictures")), Not(::testing::Contains("TARV0001.JPG")));
    EXPECT_EQ(tool("get TARV0001.JPG --output pictures/").exitCode, 0) << err();
    EXPECT_EQ(fs::file_size(work("pictures/TARV0001.JPG")), 2412034U);
    fs::remove_all(work("pictures"));
    testbed_->unplug(id);
  }
}

TEST_F(Tool, AKilledCommandDoesNotBlockTheNextOne) {
  auto description = camera();
  description.habits.sessionBeforeDeviceInfo = true;
  description.habits.checksTransactionIDs = true;
  const auto id = plug(description);
  pluggedCamera(id).setFault("silent", "0x1009,@1");
  start("--timeout 60 get TARV0001.JPG");
  ASSERT_TRUE(waitForOperation(id, ptp::kGetObject));
  running().signal(SIGKILL);
  EXPECT_EQ(finish().exitCode, 128 + SIGKILL);
  // Longer than a first word is waited for by itself.
  pluggedCamera(id).setFault("delay", "1500,0x1001,@1");
  EXPECT_EQ(tool("--timeout 60 ls").exitCode, 0) << err();
}

TEST_F(Tool, ADeviceThatIsHeldIsReportedWithItsHolder) {
  const auto id = plug(camera());
  const auto other = startAnother("events");
  ASSERT_TRUE(
      waitUntil([&] { return folder_.read("other.err").find("Watching") != std::string::npos; }));
  const auto run = tool("ls");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, ContainsRegex("in use by .*tarvoctl \\(pid [0-9]+\\).* Close the program"));
  pluggedCamera(id).sendEvent(0x4002, {7});
  EXPECT_TRUE(
      waitUntil([&] { return folder_.read("other").find("ObjectAdded") != std::string::npos; }));
  other->signal(SIGINT);
  EXPECT_EQ(other->waitForEnd(), 130);
}

TEST_F(Tool, EndsQuietlyWhenNobodyReads) {
  plug(camera("big-store"));
  const auto run = shell("tarvoctl ls --recursive --handles | head -n 2; echo ${PIPESTATUS[0]}");
  EXPECT_THAT(run.out, ContainsRegex("^HANDLE\n0x[0-9a-f]{8}\n0\n$"));
  EXPECT_THAT(run.err, IsEmpty());
  const auto full = shell("tarvoctl models list > /dev/full");
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.err, HasSubstr("standard output: input/output error"));
}

}  // namespace
}  // namespace tarvo::test
