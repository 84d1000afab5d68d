#include "NativeServices/models/SupportedModels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;
using Pids = std::vector<std::int32_t>;

constexpr std::int32_t kVendor = 0xF055;
constexpr const char* kInf = "bundle/Resources/ggcam.inf";
constexpr const char* kNoFile = "getValidDscPids: Failed to open file 'ggcam.inf'";
const std::string kNoSection = "getValidDscPids: Failed to find [Models.NTx86] in ggcam.inf";

/// A bundle in a private folder, beside the working directory.
class SupportedModelsTest : public ::testing::Test {
 protected:
  SupportedModelsTest() {
    fs::create_directories(folder_.path("bundle/Resources"));
    fs::create_directories(folder_.path("cwd"));
    fs::current_path(folder_.path("cwd"));
    constants_.agentBundlePath = folder_.path("bundle");
  }
  ~SupportedModelsTest() override { fs::current_path("/"); }

  std::optional<Pids> pidsOf(const std::string& text) {
    folder_.write(kInf, text);
    SupportedModels models(constants_);
    models.getValidDscPids();
    return models.pidList();
  }

  test::TraceRecorder traces_;
  MakerConstants constants_;
  test::TemporaryFolder folder_;
};

Pids withFixed(Pids pids) {
  for (std::int32_t pid = 0x302; pid <= 0x311; ++pid)
    pids.push_back(pid);
  return pids;
}

std::string model(const std::string& pid) {
  return "%MfgName%=QRS.Camera,USB.VID_F055&PID_" + pid + "\r\n";
}

const std::string kHeader = "[Models.NTx86]\r\n";

TEST_F(SupportedModelsTest, ReadsTheModelLinesOfItsSection) {
  const std::string lower = "%MfgName%=QRS.Camera,USB.VID_f055&PID_0001\r\n";
  const std::string foreign = "%MfgName%=QRS.Camera,USB.VID_F056&PID_0001\r\n";
  const std::string unfinished = "%MfgName%=QRS.Camera,USB.VID_F055&PID_2";
  const std::vector<std::pair<std::string, std::optional<Pids>>> rows = {
      {"[Version]\r\n\r\n" + kHeader + model("0A21") + model("0401"), withFixed({0xA21, 0x401})},
      {kHeader + model("0A21&MI_00") + model("0a2f"), withFixed({0xA21, 0xA2F})},
      {kHeader + model("") + model("zz") + model(" 12") + model("0x12"), withFixed({0, 0, 0, 0})},
      {kHeader + model("7FFFFFFF") + model("123456789ABCDEF"), withFixed({0x7FFFFFFF, -1})},
      {kHeader + "%MfgName%=QRS\\Camera,USB\\VID_F055&PID_0007\r\n", withFixed({7})},
      {kHeader + "; models\r\n" + model("0A21"), withFixed({})},
      {kHeader + model("0001") + "\r\n" + model("0002"), withFixed({1})},
      {kHeader + model("0001") + foreign + model("0002"), withFixed({1})},
      {kHeader + lower + model("0002"), withFixed({})},
      {kHeader + model("0001") + unfinished, withFixed({1})},
      {model("0001") + kHeader + model("0002") + "\r\n" + kHeader + model("3"), withFixed({2})},
      {kHeader + model("0001") + model(std::string(5000, '2')) + model("3"), withFixed({1})},
      {"[Models.NTx86]\n" + model("0001"), std::nullopt},
      {"[models.ntx86]\r\n" + model("0001"), std::nullopt},
  };
  for (const auto& [text, pids] : rows) {
    EXPECT_EQ(pidsOf(text), pids) << text;
    EXPECT_EQ(traces_.take(), pids ? std::vector<std::string>{} : std::vector{kNoSection});
  }
}

TEST_F(SupportedModelsTest, LooksAtTheFirstMegabyteOfAFile) {
  EXPECT_EQ(pidsOf(std::string(2 << 20, 'x') + "\r\n" + kHeader + model("0001")), std::nullopt);
  EXPECT_EQ(pidsOf(std::string(100000, '\0') + "\n" + kHeader + model("0001")), withFixed({1}));
}

TEST_F(SupportedModelsTest, TriesAgainAndBesideTheWorkingDirectoryUntilTheListIsBuilt) {
  fs::create_directory(folder_.path(kInf));  // no file to read
  SupportedModels models(constants_);
  EXPECT_EQ(SupportedModels::current(), &models);
  EXPECT_FALSE(models.isValidDscVid(kVendor, 0x302));
  EXPECT_FALSE(models.isValidDscVid(kVendor + 1, 0x302));
  EXPECT_EQ(models.pidList(), std::nullopt);
  folder_.write("Resources/ggcam.inf", kHeader + model("0001"));
  EXPECT_TRUE(models.isValidDscVid(kVendor, 1));
  EXPECT_THAT(traces_.take(), testing::ElementsAre(kNoFile, kNoFile, kNoFile));
  folder_.write("Resources/ggcam.inf", kHeader + model("0002"));
  models.getValidDscPids();
  EXPECT_EQ(models.pidList(), withFixed({1}));  // built once
}

TEST_F(SupportedModelsTest, TakesOnlyTheMakersListedProducts) {
  folder_.write(kInf, kHeader + model("0A21"));
  SupportedModels models(constants_);
  for (std::int32_t pid = -1; pid <= 0x1000; ++pid) {
    const bool valid = pid == 0xA21 || (pid >= 0x302 && pid <= 0x311);
    ASSERT_EQ(models.isValidDscVid(kVendor, pid), valid) << pid;
    ASSERT_FALSE(models.isValidDscVid(kVendor - 1, pid)) << pid;
    const bool frame = pid == 0x40B || (pid >= 0x410 && pid <= 0x41F);
    ASSERT_EQ(models.isValidPVC(kVendor, pid), frame) << pid;
    ASSERT_FALSE(models.isValidPVC(kVendor | 0x10000, pid)) << pid;
  }
}

TEST_F(SupportedModelsTest, KnowsACardByAnyOfItsMarkerFiles) {
  const std::pair<const char*, bool> rows[] = {
      {"MISC/SSECUPLD.XML", true}, {"MISC/SSICUPLD.XML", true}, {"MISC/EREVIEW.DB", true},
      {"MISC/IREVIEW.DB", true},   {"MISC/OTHER.DB", false},    {"DCIM/IREVIEW.DB", false}};
  const std::string card = folder_.path("cwd");
  for (const auto& [marker, valid] : rows) {
    const auto path = folder_.write(std::string("cwd/") + marker, "");
    EXPECT_EQ(SupportedModels::isValidCard(card), valid) << marker;
    EXPECT_FALSE(SupportedModels::isValidCard("") || SupportedModels::isValidCard(std::nullopt));
    fs::remove(path);
  }
}

TEST_F(SupportedModelsTest, FindsTheShippedModels) {
  constants_.agentBundlePath = TARVO_BUNDLE_DIRECTORY;
  SupportedModels models(constants_);
  EXPECT_TRUE(models.isValidDscVid(kVendor, 0xA21));
  EXPECT_GE(models.pidList()->size(), 24U + 16U);
  EXPECT_EQ(std::ranges::count(*models.pidList(), 0), 0);
  EXPECT_THAT(traces_.take(), testing::IsEmpty());
}

}  // namespace
}  // namespace tarvo
