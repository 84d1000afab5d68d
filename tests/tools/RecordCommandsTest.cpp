// decode, encode and models: without a device, and without more of a platform than the models.
#include <gmock/gmock.h>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using nlohmann::json;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::string_view kTwoNumbers("\2\0\0\0\1\0\2\0", 8);

TEST(Decode, MalformedInputIsOneWithTheReason) {
  const auto run = runTool({"decode", "uint16array", "-"}, std::string("\2\0\0\0\1", 5));
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_THAT(run.err, ContainsRegex("^tarvoctl: decode -: .+\n$"));
}

TEST(Decode, SeveralFilesAreAnArrayInTheirOrder) {
  const auto run = runTool({"decode", "uint16array", "-", "/none"}, std::string(kTwoNumbers));
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_EQ(run.json()[0], json::parse("[1, 2]"));
  EXPECT_EQ(run.json()[1]["error"]["status"], status::kFileNotFound);
}

TEST(Encode, WritesNothingUnlessAllCanBeWritten) {
  const TemporaryFolder folder;
  const auto good = folder.write("good", "[1, 2]");
  EXPECT_EQ(runTool({"encode", "uint16array", good, good}).out,
            std::string(kTwoNumbers) + std::string(kTwoNumbers));
  for (const char* bad : {"[70000]", "{", "\"text\"", "[\"\xff\"]"}) {
    const auto run = runTool({"encode", "uint16array", good, "-"}, bad);
    EXPECT_EQ(run.exitCode, tools::kFailed) << bad;
    EXPECT_THAT(run.out, IsEmpty()) << bad;
    EXPECT_THAT(run.err, HasSubstr("encode -: ")) << bad;
  }
}

/// The models and nothing else.
class ModelPlatform : public NoPlatform {
 public:
  explicit ModelPlatform(const std::string& bundle) { maker_.agentBundlePath = bundle; }
  const MakerConstants& maker() override { return maker_; }
  SupportedModels& models() override {
    if (!models_) models_ = std::make_unique<SupportedModels>(maker_);
    return *models_;
  }

 private:
  MakerConstants maker_;
  std::unique_ptr<SupportedModels> models_;
};

TEST(Models, AreCheckedAsCameraAndAsMassStorage) {
  const std::tuple<const char*, bool, bool> rows[] = {
      {"0xf055:0x302", true, false}, {"F055:040B", false, true}, {"04a9:0302", false, false}};
  for (const auto& [ids, isCamera, isDisk] : rows) {
    ModelPlatform platform(DATA_FOLDER "/bundle");
    const auto said = runTool({"--json", "models", "check", ids}, platform).json();
    EXPECT_EQ(said["ptp"], isCamera) << ids;
    EXPECT_EQ(said["massStorage"], isDisk) << ids;
  }
}

TEST(Models, WithoutTheListTheFileIsNamed) {
  ModelPlatform platform("/none");
  const auto run = runTool({"models", "check", "F055:0302"}, platform);
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(run.err, HasSubstr("/none/Resources/ggcam.inf"));
  for (const char* known : {"F055:040B", "04a9:0302"})
    EXPECT_EQ(runTool({"models", "check", known}, platform).exitCode, 0) << known;
}

}  // namespace
}  // namespace tarvo::test
