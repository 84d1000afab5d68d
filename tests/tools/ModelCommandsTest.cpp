// models: what the shipped list of models says.
#include <gmock/gmock.h>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;

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
  struct Row {
    const char* ids;
    bool ptp;
    bool massStorage;
  };
  for (const Row& row : {Row{"F055:0302", true, false}, Row{"0xf055:0x302", true, false},
                         Row{"F055:040B", false, true}, Row{"F055:0410", false, true},
                         Row{"F055:0420", false, false}, Row{"04a9:0302", false, false}}) {
    ModelPlatform platform(DATA_FOLDER "/bundle");
    const auto run = runTool({"--json", "models", "check", row.ids}, platform);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.json()["ptp"], row.ptp) << row.ids;
    EXPECT_EQ(run.json()["massStorage"], row.massStorage) << row.ids;
  }
}

TEST(Models, AreListedOnceEach) {
  ModelPlatform platform(DATA_FOLDER "/bundle");
  const auto run = runTool({"models", "list"}, platform);
  EXPECT_THAT(run.out, HasSubstr("f055:0302  PTP camera"));
  EXPECT_THAT(run.out, HasSubstr("f055:041f  mass storage"));
  auto lines = run.lines();
  std::ranges::sort(lines);
  EXPECT_EQ(std::ranges::adjacent_find(lines), lines.end());
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
