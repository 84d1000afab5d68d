// A PTP client that nobody here wrote, at the virtual cameras: gphoto2, as a black box. What it
// fetches must be what the camera holds, and it must find nothing to complain about, nor the
// camera.
#include <filesystem>

#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::uint32_t kStore = 0x00010001;

class ForeignClient : public AgentTestbed {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists("/usr/bin/gphoto2")) GTEST_SKIP() << "gphoto2 is not installed";
    std::filesystem::create_directories(folder_.path("got"));
  }
  void TearDown() override { expectNoViolations(*testbed_); }

  /// Runs gphoto2 in a folder of its own; gives what it wrote.
  std::string gphoto2(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"/usr/bin/env", "-C", folder_.path("got"), "gphoto2"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const std::map<std::string, std::string> environment = {{"HOME", folder_.path("home")},
                                                            {"LC_ALL", "C"}};
    TestbedProgram program(*testbed_, words, environment, folder_.path("output"));
    EXPECT_EQ(program.waitForEnd(), 0) << program.output();
    EXPECT_THAT(program.output(), Not(HasSubstr("*** Error")));
    return program.output();
  }

  /// Whether the file of that name holds the bytes of the object.
  ::testing::AssertionResult hasFetched(const std::string& id, const std::string& name,
                                        std::uint32_t handle) {
    const auto text = fileContent(folder_.path("got/" + name));
    const auto bytes = std::as_bytes(std::span(text));
    const auto held = camera(id).bytes(handle);
    if (std::equal(bytes.begin(), bytes.end(), held.begin(), held.end())) {
      return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << name << ": " << bytes.size() << " bytes fetched, " << held.size() << " on the camera";
  }
};

TEST_F(ForeignClient, ListsAndFetchesEverything) {
  const auto id = plug("full-camera");
  EXPECT_THAT(gphoto2({"--summary"}),
              AllOf(HasSubstr("Model: Tarvo Lumo X9"), HasSubstr("VolumeLabel: TARVO_SD"),
                    HasSubstr("Battery Level")));
  EXPECT_THAT(gphoto2({"--list-files"}), AllOf(HasSubstr("TARV0001.JPG"), HasSubstr("NOTES.TXT"),
                                               HasSubstr("/store_00020001/DCIM/101TARVO")));
  gphoto2({"--get-all-files"});
  int files = 0;
  for (const auto handle : camera(id).handles()) {
    const auto object = camera(id).object(handle);
    if (object->isFolder()) continue;
    EXPECT_TRUE(hasFetched(id, object->nameText(), handle));
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
  gphoto2({"--folder", "/store_00010001/DCIM", "--upload-file", file});
  const auto after = camera(id).handles();
  ASSERT_EQ(after.size(), before.size() + 1);
  EXPECT_EQ(camera(id).object(after.back())->nameText(), "UP.JPG");
  gphoto2({"--folder", "/store_00010001/DCIM", "--get-file", "UP.JPG"});
  EXPECT_TRUE(hasFetched(id, "UP.JPG", after.back()));
  EXPECT_EQ(fileContent(folder_.path("got/UP.JPG")), content);
  gphoto2({"--folder", "/store_00010001/DCIM", "--delete-file", "UP.JPG"});
  EXPECT_EQ(camera(id).handles(), before);
  EXPECT_EQ(camera(id).freeSpace(kStore), 2'000'000'000U);
}

TEST_F(ForeignClient, GetsThumbnailsAndAnOldCamerasFiles) {
  const auto id = plug("legacy-camera");
  gphoto2({"--get-all-thumbnails"});
  EXPECT_EQ(fileContent(folder_.path("got/thumb_P0000001.jpg")).substr(0, 2), "\xFF\xD8");
  gphoto2({"--get-all-files"});
  EXPECT_TRUE(hasFetched(id, "P0000001.JPG", 2));
}

}  // namespace
}  // namespace tarvo::test
