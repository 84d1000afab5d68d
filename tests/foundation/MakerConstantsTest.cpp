#include "platform/foundation/MakerConstants.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

class MakerConstantsTest : public testing::Test {
 protected:
  MakerConstants load() { return MakerConstants::load(defaults_, log_.sink()); }

  FakeUserDefaults defaults_;
  RecordingSystemLog log_;
  ScopedEnvironment bundle_{"TARVO_AGENT_BUNDLE", ""};
};

TEST_F(MakerConstantsTest, WithoutConfigurationTheDefaultsStand) {
  const auto constants = load();
  EXPECT_EQ(constants.usbVendorID, 0xF055);
  EXPECT_EQ(constants.relayBundleIdentifier, "com.tarvo.Relay");
  EXPECT_TRUE(constants.agentBundlePath.starts_with("/"));
  EXPECT_TRUE(constants.agentBundlePath.ends_with(
      "/lib/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Agent.app"));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(MakerConstantsTest, EveryFieldIsOverriddenByTheKeyOfItsName) {
  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"usbVendorID", "0x1234"},
           {"ptpVendorExtensionID", "4294967295"},
           {"manufacturer", "Maker"},
           {"legacyModels", "One; Two ;;"},
           {"undefinedFormatModels", ""},
           {"undefinedFormatModelsWithFamily", "Three"},
           {"relayBundleIdentifier", "org.relay"},
           {"helperBundleIdentifier", "org.helper"},
           {"volumeSerialPlaceholder", "none"},
           {"agentBundlePath", "/opt/agent"}}) {
    defaults_.setText("Maker", key, value);
  }
  const auto constants = load();
  EXPECT_EQ(constants.usbVendorID, 0x1234);
  EXPECT_EQ(constants.ptpVendorExtensionID, 0xFFFFFFFF);
  EXPECT_EQ(constants.manufacturer, "Maker");
  EXPECT_EQ(constants.legacyModels, (std::vector<std::string>{"One", "Two"}));
  EXPECT_TRUE(constants.undefinedFormatModels.empty());
  EXPECT_EQ(constants.undefinedFormatModelsWithFamily, (std::vector<std::string>{"Three"}));
  EXPECT_EQ(constants.relayBundleIdentifier, "org.relay");
  EXPECT_EQ(constants.helperBundleIdentifier, "org.helper");
  EXPECT_EQ(constants.volumeSerialPlaceholder, "none");
  EXPECT_EQ(constants.agentBundlePath, "/opt/agent");
  EXPECT_TRUE(log_.lines().empty());
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
            (std::vector<std::string>{
                "[Maker] usbVendorID is ignored: '0x10000' is no number of its range",
                "[Maker] manufacturer is ignored: '' is empty",
                "[Maker] agentBundlePath is ignored: '../agent' is no absolute path"}));
}

TEST_F(MakerConstantsTest, TheEnvironmentNamesTheBundleOverTheConfiguration) {
  defaults_.setText("Maker", "agentBundlePath", "/opt/agent");
  const ScopedEnvironment absolute("TARVO_AGENT_BUNDLE", "/srv/a/../Agent.app/");
  EXPECT_EQ(load().agentBundlePath, "/srv/Agent.app");
  const ScopedEnvironment relative("TARVO_AGENT_BUNDLE", "Agent.app");
  EXPECT_EQ(load().agentBundlePath, std::filesystem::current_path().string() + "/Agent.app");
}

}  // namespace
}  // namespace tarvo::test
