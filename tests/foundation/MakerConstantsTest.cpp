#include "platform/foundation/MakerConstants.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using Texts = std::vector<std::string>;

class MakerConstantsTest : public testing::Test {
 protected:
  MakerConstants load() { return MakerConstants::load(defaults_, log_.sink()); }

  FakeUserDefaults defaults_;
  RecordingSystemLog log_;
  ScopedEnvironment bundle_{"TARVO_AGENT_BUNDLE", ""};
};

TEST_F(MakerConstantsTest, EveryFieldIsOverriddenByTheKeyOfItsName) {
  EXPECT_TRUE(load().agentBundlePath.ends_with(
      "/lib/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Agent.app"));
  const char* const keys[] = {
      "manufacturer",          "legacyModels",           "undefinedFormatModelsWithFamily",
      "relayBundleIdentifier", "helperBundleIdentifier", "volumeSerialPlaceholder"};
  for (const char* key : keys)
    defaults_.setText("Maker", key, std::string(key) + "; x ;;");
  defaults_.setText("Maker", "usbVendorID", "0x1234");
  defaults_.setText("Maker", "ptpVendorExtensionID", "4294967295");
  defaults_.setText("Maker", "uiLanguageProperty", "0xD207");
  defaults_.setText("Maker", "dockedProperty", "0xD208");
  defaults_.setText("Maker", "undefinedFormatModels", "");
  const auto constants = load();
  EXPECT_EQ(constants.usbVendorID, 0x1234);
  EXPECT_EQ(constants.ptpVendorExtensionID, 0xFFFFFFFF);
  EXPECT_EQ(constants.uiLanguageProperty, 0xD207);
  EXPECT_EQ(constants.dockedProperty, 0xD208);
  EXPECT_EQ(constants.legacyModels, (Texts{"legacyModels", "x"}));
  EXPECT_EQ(constants.undefinedFormatModels, Texts{});
  EXPECT_EQ(constants.undefinedFormatModelsWithFamily,
            (Texts{"undefinedFormatModelsWithFamily", "x"}));
  EXPECT_EQ(constants.manufacturer, "manufacturer; x ;;");
  EXPECT_EQ(constants.relayBundleIdentifier, "relayBundleIdentifier; x ;;");
  EXPECT_EQ(constants.helperBundleIdentifier, "helperBundleIdentifier; x ;;");
  EXPECT_EQ(constants.volumeSerialPlaceholder, "volumeSerialPlaceholder; x ;;");
  EXPECT_EQ(log_.lines(), Texts{});
}

TEST_F(MakerConstantsTest, AValueThatCannotBeReadIsReportedByItsKeyAndLeavesTheDefault) {
  defaults_.setText("Maker", "usbVendorID", "0x10000");
  defaults_.setText("Maker", "manufacturer", "");
  defaults_.setText("Maker", "agentBundlePath", "../agent");
  const auto constants = load();
  EXPECT_EQ(constants.usbVendorID, 0xF055);
  EXPECT_EQ(constants.manufacturer, "Tarvo Imaging");
  EXPECT_TRUE(constants.agentBundlePath.ends_with("Tarvo Agent.app"));
  EXPECT_EQ(log_.lines(),
            (Texts{"[Maker] usbVendorID is ignored: '0x10000' is no number of its range",
                   "[Maker] manufacturer is ignored: '' is empty",
                   "[Maker] agentBundlePath is ignored: '../agent' is no absolute path"}));
}

TEST_F(MakerConstantsTest, TheEnvironmentNamesTheBundleOverTheConfiguration) {
  defaults_.setText("Maker", "agentBundlePath", "/opt/agent");
  EXPECT_EQ(load().agentBundlePath, "/opt/agent");
  const ScopedEnvironment absolute("TARVO_AGENT_BUNDLE", "/srv/a/../Agent.app/");
  EXPECT_EQ(load().agentBundlePath, "/srv/Agent.app");
  const ScopedEnvironment relative("TARVO_AGENT_BUNDLE", "Agent.app");
  EXPECT_EQ(load().agentBundlePath, std::filesystem::current_path().string() + "/Agent.app");
}

}  // namespace
}  // namespace tarvo::test
