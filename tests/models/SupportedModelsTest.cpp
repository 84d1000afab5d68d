#include "identify/models/SupportedModels.h"

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
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Pids = std::vector<std::int32_t>;

constexpr std::int32_t kVendor = 0xF055;
constexpr const char* kInf = "bundle/Resources/ggcam.inf";
constexpr const char* kNoFile = "getValidDscPids: Failed to open file 'ggcam.inf'";
constexpr const char* kNoSection = "getValidDscPids: Failed to find [Models.NTx86] in ggcam.inf";

/// A bundle in a private folder that is also the working directory.
class SupportedModelsTest : public ::testing::Test {
 protected:
  SupportedModelsTest() {
    fs::create_directories(folder_.path("bundle/Resources"));
    fs::create_directories(folder_.path("cwd"));
    fs::current_path(folder_.path("cwd"));
    constants_.agentBundlePath = folder_.path("bundle");
  }
  ~SupportedModelsTest() override { fs::current_path(previous_); }

  fs::path inf() const { return folder_.path(kInf); }
  std::optional<Pids> pidsOf(const std::string& text) {
    folder_.write(kInf, text);
    SupportedModels models(constants_);
    models.getValidDscPids();
    return models.pidList();
  }

  test::TraceRecorder traces_;
  MakerConstants constants_;
  test::TemporaryFolder folder_;
  fs::path previous_ = fs::current_path();
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

struct FileRow {
  const char* name;
  std::string text;
  std::optional<Pids> pids;
};

TEST_F(SupportedModelsTest, ReadsTheModelLinesOfItsSection) {
  const std::string lower = "%MfgName%=QRS.Camera,USB.VID_f055&PID_0001\r\n";
  const std::string foreign = "%MfgName%=QRS.Camera,USB.VID_F056&PID_0001\r\n";
  const std::vector<FileRow> rows = {
      {"plain", "[Version]\r\n\r\n" + kHeader + model("0A21") + model("0401"),
       withFixed({0xA21, 0x401})},
      {"more text", kHeader + model("0A21&MI_00"), withFixed({0xA21})},
      {"lower case", kHeader + model("0a2f"), withFixed({0xA2F})},
      {"duplicates", kHeader + model("0302") + model("0302"), withFixed({0x302, 0x302})},
      {"no number", kHeader + model("") + model("zz") + model(" 12") + model("0x12"),
       withFixed({0, 0, 0, 0})},
      {"large number", kHeader + model("7FFFFFFF") + model("123456789ABCDEF"),
       withFixed({0x7FFFFFFF, -1})},
      {"dots stand for anything", kHeader + "%MfgName%=QRS\\Camera,USB\\VID_F055&PID_0007\r\n",
       withFixed({7})},
      {"model line with LF alone", kHeader + "%MfgName%=QRS.Camera,USB.VID_F055&PID_0007\n",
       withFixed({7})},
      {"comment first", kHeader + "; models\r\n" + model("0A21"), withFixed({})},
      {"blank line", kHeader + model("0001") + "\r\n" + model("0002"), withFixed({1})},
      {"next section", kHeader + model("0001") + "[Models]\r\n" + model("0002"), withFixed({1})},
      {"text before", kHeader + model("0001") + " " + model("0002"), withFixed({1})},
      {"other maker", kHeader + model("0001") + foreign + model("0002"), withFixed({1})},
      {"maker in lower case", kHeader + lower + model("0002"), withFixed({})},
      {"last line without end", kHeader + model("0001") + "%MfgName%=QRS.Camera,USB.VID_F055&PID_2",
       withFixed({1})},
      {"models before the section", model("0001") + kHeader + model("0002"), withFixed({2})},
      {"second section", kHeader + model("0001") + "\r\n" + kHeader + model("0002"),
       withFixed({1})},
      {"overlong line", kHeader + model("0001") + model(std::string(5000, '2')) + model("0003"),
       withFixed({1})},
      {"header alone", kHeader, withFixed({})},
      {"empty", "", std::nullopt},
      {"LF ends", "[Models.NTx86]\n" + model("0001"), std::nullopt},
      {"header with blank", "[Models.NTx86] \r\n" + model("0001"), std::nullopt},
      {"header in lower case", "[models.ntx86]\r\n" + model("0001"), std::nullopt},
      {"header without end", "[Models.NTx86]\r", std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(pidsOf(row.text), row.pids) << row.name;
    if (row.pids) {
      EXPECT_THAT(traces_.take(), IsEmpty()) << row.name;
    } else {
      EXPECT_THAT(traces_.take(), ElementsAre(kNoSection)) << row.name;
    }
  }
}

TEST_F(SupportedModelsTest, LooksAtTheFirstMegabyteOfAFile) {
  EXPECT_EQ(pidsOf(std::string(2 << 20, 'x') + "\r\n" + kHeader + model("0001")), std::nullopt);
  EXPECT_EQ(pidsOf(std::string(100000, '\0') + "\n" + kHeader + model("0001")), withFixed({1}));
}

TEST_F(SupportedModelsTest, WritesTheMakerInFourUpperCaseDigits) {
  constants_.usbVendorID = 0x0ABC;
  const std::string line = "%MfgName%=QRS.Camera,USB.VID_0ABC&PID_0001\r\n";
  EXPECT_EQ(pidsOf(kHeader + line), withFixed({1}));
  EXPECT_EQ(pidsOf(kHeader + model("0001")), withFixed({}));
}

TEST_F(SupportedModelsTest, FallsBackToTheFileBesideTheWorkingDirectory) {
  fs::remove(inf());
  folder_.write("Resources/ggcam.inf", kHeader + model("0007"));
  SupportedModels models(constants_);
  EXPECT_TRUE(models.isValidDscVid(kVendor, 7));
  EXPECT_THAT(traces_.take(), ElementsAre(kNoFile));
}

TEST_F(SupportedModelsTest, TriesAgainUntilTheListIsBuilt) {
  fs::create_directory(inf());  // no file to read
  SupportedModels models(constants_);
  EXPECT_FALSE(models.isValidDscVid(kVendor, 0x302));
  EXPECT_FALSE(models.isValidDscVid(kVendor + 1, 0x302));
  EXPECT_THAT(traces_.take(), ElementsAre(kNoFile, kNoFile));
  fs::remove(inf());
  folder_.write(kInf, "no section\r\n");
  EXPECT_FALSE(models.isValidDscVid(kVendor, 0x302));
  EXPECT_THAT(traces_.take(), ElementsAre(kNoSection));
  EXPECT_EQ(models.pidList(), std::nullopt);

  folder_.write(kInf, kHeader + model("0001"));
  EXPECT_TRUE(models.isValidDscVid(kVendor, 1));
  folder_.write(kInf, kHeader + model("0002"));
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
  const std::vector<std::pair<const char*, bool>> rows = {
      {"MISC/SSECUPLD.XML", true}, {"MISC/SSICUPLD.XML", true}, {"MISC/EREVIEW.DB", true},
      {"MISC/IREVIEW.DB", true},   {"MISC/OTHER.DB", false},    {"IREVIEW.DB", false},
      {"DCIM/IREVIEW.DB", false}};
  for (const auto& [marker, valid] : rows) {
    const std::string card = folder_.path("card");
    folder_.write(std::string("card/") + marker, "");
    EXPECT_EQ(SupportedModels::isValidCard(card), valid) << marker;
    EXPECT_EQ(SupportedModels::isValidCard(card + "/"), valid) << marker;
    fs::remove_all(card);
    EXPECT_FALSE(SupportedModels::isValidCard(card));
  }
  EXPECT_FALSE(SupportedModels::isValidCard(std::nullopt));
  folder_.write("cwd/MISC/IREVIEW.DB", "");
  EXPECT_FALSE(SupportedModels::isValidCard(""));
}

TEST_F(SupportedModelsTest, IsReachedWhileItsOwnerHoldsIt) {
  EXPECT_EQ(SupportedModels::current(), nullptr);
  {
    const SupportedModels models(constants_);
    EXPECT_EQ(SupportedModels::current(), &models);
  }
  EXPECT_EQ(SupportedModels::current(), nullptr);
}

TEST_F(SupportedModelsTest, FindsTheShippedModels) {
  constants_.agentBundlePath = TARVO_BUNDLE_DIRECTORY;
  SupportedModels models(constants_);
  EXPECT_TRUE(models.isValidDscVid(kVendor, 0xA21));
  EXPECT_GE(models.pidList()->size(), 24U + 16U);
  EXPECT_EQ(std::ranges::count(*models.pidList(), 0), 0);
  EXPECT_THAT(traces_.take(), IsEmpty());
}

}  // namespace
}  // namespace tarvo
