#include "platform/foundation/KeyFilePreferences.h"

#include <gtest/gtest.h>

#include <clocale>

#include "platform/foundation/MakerConstants.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/Raised.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using Lines = std::vector<std::string>;

class KeyFilePreferencesTest : public testing::Test {
 protected:
  KeyFilePreferences read(const std::optional<std::string>& file = std::nullopt) {
    return KeyFilePreferences(log_.sink(), file);
  }

  TemporaryFolder folder_;
  RecordingSystemLog log_;
  ScopedEnvironment home_{"XDG_CONFIG_HOME", folder_.path("home")};
  ScopedEnvironment dirs_{"XDG_CONFIG_DIRS",
                          folder_.path("near/") + ":relative:" + folder_.path("far")};
};

TEST_F(KeyFilePreferencesTest, ABooleanIsTrueFalseOrAbsentAndATextHasItsEscapesResolved) {
  folder_.write("home/tarvo/agent.conf",
                "# a comment\n\n[Preferences]\r\n A = true \nB=1\nC=false\r\nD=0\n"
                "[Other]\nE=\\sa\\n\\t\\r\\\\b");
  const auto preferences = read();
  for (const char* key : {"A", "B"})
    EXPECT_EQ(preferences.boolForKey(key), true);
  for (const char* key : {"C", "D"})
    EXPECT_EQ(preferences.boolForKey(key), false);
  for (const char* key : {"E", "a", ""})
    EXPECT_EQ(preferences.boolForKey(key), std::nullopt) << "another group, another case";
  EXPECT_EQ(preferences.text("Other", "E"), " a\n\t\r\\b");
  EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(KeyFilePreferencesTest, ANamedFileOrTheUsersStandsOverTheSystemsInTheirOrder) {
  folder_.write("home/tarvo/agent.conf", "[Preferences]\nA=false\n");
  folder_.write("near/tarvo/agent.conf", "[Preferences]\nA=true\nB=true\n");
  folder_.write("far/tarvo/agent.conf", "[Preferences]\nA=true\nB=false\nC=true\n");
  const auto named = folder_.write("my.conf", "[Preferences]\nB=false\n");
  const auto usual = read();
  EXPECT_EQ(usual.boolForKey("A"), false);
  EXPECT_EQ(usual.boolForKey("B"), true);
  EXPECT_EQ(usual.boolForKey("C"), true);
  const auto replaced = read(named);
  EXPECT_EQ(replaced.boolForKey("A"), true) << "the user's own file is not read";
  EXPECT_EQ(replaced.boolForKey("B"), false);
  const auto missing = folder_.path("missing.conf");
  EXPECT_EQ(raised([&] { read(missing); }),
            "NSInvalidArgumentException: cannot read " + missing + ": No such file or directory");
}

TEST_F(KeyFilePreferencesTest, AMalformedValueIsReportedByFileLineAndKeyAndLeavesTheRest) {
  const auto file = folder_.write("home/tarvo/agent.conf",
                                  "[Preferences]\nA=yes\nB=true\n[Maker]\nlist=a\\q\nname=\xFF\n");
  folder_.write("far/tarvo/agent.conf", "[Preferences]\nA=true\n");
  const auto preferences = read();
  EXPECT_EQ(preferences.boolForKey("A"), true) << "what lies below shows through";
  EXPECT_EQ(preferences.boolForKey("B"), true);
  EXPECT_EQ(preferences.text("Maker", "list"), std::nullopt);
  EXPECT_EQ(log_.lines(), (Lines{file + ", line 2: A is ignored: 'yes' is neither true nor false",
                                 file + ", line 5: the value of list is malformed and ignored",
                                 file + ", line 6: the value of name is malformed and ignored"}));
}

TEST_F(KeyFilePreferencesTest, AMalformedFileIsReportedOnceAndIgnoredWhole) {
  for (const std::string bad : {"nonsense", "[Preferences", "[]", "=true"}) {
    log_.clear();
    const auto file =
        folder_.write("home/tarvo/agent.conf", "[Preferences]\nA=true\n" + bad + "\nB=true\n");
    EXPECT_EQ(read().boolForKey("A"), std::nullopt) << bad;
    EXPECT_EQ(log_.lines(),
              (Lines{file + ", line 3: neither a group nor \"key=value\"; the file is ignored"}));
  }
  std::filesystem::create_directories(folder_.path("near/tarvo/agent.conf"));
  folder_.write("far/tarvo/agent.conf", std::string((1 << 20) + 1, '\n'));
  read();
  EXPECT_EQ(log_.count("Is a directory") + log_.count("File too large"), 2U);
}

TEST(SystemVersionTest, IsTheNumberOfThePlatformGroupOrZero) {
  const std::pair<const char*, std::int32_t> rows[] = {
      {"0x1062", 0x1062}, {"4194", 0x1062}, {"0x80000000", 0}, {"10.6.2", 0}, {"", 0}};
  for (const auto& [text, expected] : rows) {
    FakeUserDefaults defaults;
    defaults.setText("Platform", "SystemVersion", text);
    EXPECT_EQ(systemVersion(defaults), expected) << text;
  }
}

TEST(DefaultEncodingTest, IsAnEightBitOneOfThePlatformGroupOrTheLocales) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(defaultEncoding(FakeUserDefaults()), "UTF-8");
  const std::pair<const char*, const char*> rows[] = {
      {"ISO-8859-1", "ISO-8859-1"}, {"cp1252", "cp1252"}, {"SHIFT_JIS", "SHIFT_JIS"},
      {"ISO-8859", "UTF-8"},        {"UTF-16", "UTF-8"},  {"EBCDIC-US", "UTF-8"}};
  for (const auto& [text, expected] : rows) {
    FakeUserDefaults defaults;
    defaults.setText("Platform", "DefaultEncoding", text);
    EXPECT_EQ(defaultEncoding(defaults), expected) << text;
  }
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(defaultEncoding(FakeUserDefaults()), "ANSI_X3.4-1968");
}

class MakerConstantsTest : public testing::Test {
 protected:
  MakerConstants load() { return MakerConstants::load(defaults_, log_.sink()); }

  FakeUserDefaults defaults_;
  RecordingSystemLog log_;
  ScopedEnvironment bundle_{"TARVO_AGENT_BUNDLE", ""};
};

TEST_F(MakerConstantsTest, AValueThatCannotBeReadIsReportedByItsKeyAndLeavesTheDefault) {
  defaults_.setText("Maker", "usbVendorID", "0x10000");
  defaults_.setText("Maker", "manufacturer", "");
  defaults_.setText("Maker", "agentBundlePath", "../agent");
  defaults_.setText("Maker", "legacyModels", "A b; x ;;");
  const auto constants = load();
  EXPECT_EQ(constants.usbVendorID, 0xF055);
  EXPECT_EQ(constants.manufacturer, "Tarvo Imaging");
  EXPECT_EQ(constants.legacyModels, (Lines{"A b", "x"}));
  EXPECT_TRUE(constants.agentBundlePath.ends_with("Tarvo Agent.app"));
  EXPECT_EQ(log_.lines(),
            (Lines{"[Maker] usbVendorID is ignored: '0x10000' is no number of its range",
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
