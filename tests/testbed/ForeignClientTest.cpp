// A PTP client that nobody here wrote, at the virtual cameras: gphoto2, as a black box. What it
// fetches must be what the camera holds, and it must find nothing to complain about, nor the
// camera.
#include <algorithm>
#include <filesystem>

#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

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

  /// The file of that name holds the bytes of the object.
  void expectFetched(const std::string& id, const std::string& name, std::uint32_t handle) {
    const auto text = folder_.read("got/" + name);
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(text)), camera(id).bytes(handle)))
        << name << ": " << text.size() << " bytes";
  }
};

TEST_F(ForeignClient, ListsAndFetchesEverything) {
  const auto id = plug("full-camera");
  EXPECT_THAT(gphoto2({"--summary"}), HasSubstr("Model: Tarvo Lumo X9"));
  gphoto2({"--get-all-files"});
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
  gphoto2({"--folder", "/store_00010001/DCIM", "--upload-file", file});
  const auto after = camera(id).handles();
  ASSERT_EQ(after.size(), before.size() + 1);
  gphoto2({"--folder", "/store_00010001/DCIM", "--get-file", "UP.JPG"});
  expectFetched(id, "UP.JPG", after.back());
  EXPECT_EQ(folder_.read("got/UP.JPG"), content);
  gphoto2({"--folder", "/store_00010001/DCIM", "--delete-file", "UP.JPG"});
  EXPECT_EQ(camera(id).handles(), before);
}

}  // namespace
}  // namespace tarvo::test
