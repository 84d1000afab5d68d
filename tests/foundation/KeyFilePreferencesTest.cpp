#include "platform/foundation/KeyFilePreferences.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Utilities/Exception.h"
#include "platform/foundation/KeyFile.h"
#include "platform/foundation/SystemVersion.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

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

TEST_F(KeyFilePreferencesTest, ABooleanIsTrueFalseOrAbsent) {
  folder_.write("home/tarvo/agent.conf",
                "# a comment\n\n[Preferences]\r\n A = true \nB=1\nC=false\r\nD=0\n[Other]\nE=true");
  const auto preferences = read();
  EXPECT_EQ(preferences.boolForKey("A"), true);
  EXPECT_EQ(preferences.boolForKey("B"), true);
  EXPECT_EQ(preferences.boolForKey("C"), false);
  EXPECT_EQ(preferences.boolForKey("D"), false);
  EXPECT_EQ(preferences.boolForKey("E"), std::nullopt) << "of another group";
  EXPECT_EQ(preferences.boolForKey("a"), std::nullopt) << "keys have a case";
  EXPECT_EQ(preferences.text("Other", "E"), "true");
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(KeyFilePreferencesTest, TheUsersFileStandsOverTheSystemsInTheirOrder) {
  folder_.write("home/tarvo/agent.conf", "[Preferences]\nA=false\n");
  folder_.write("near/tarvo/agent.conf", "[Preferences]\nA=true\nB=true\n");
  folder_.write("far/tarvo/agent.conf", "[Preferences]\nA=true\nB=false\nC=true\n");
  const auto preferences = read();
  EXPECT_EQ(preferences.boolForKey("A"), false);
  EXPECT_EQ(preferences.boolForKey("B"), true);
  EXPECT_EQ(preferences.boolForKey("C"), true);
}

TEST_F(KeyFilePreferencesTest, ANamedFileReplacesTheUsersOwn) {
  folder_.write("home/tarvo/agent.conf", "[Preferences]\nA=false\nB=true\n");
  folder_.write("far/tarvo/agent.conf", "[Preferences]\nC=true\n");
  const auto preferences = read(folder_.write("my.conf", "[Preferences]\nA=true\n"));
  EXPECT_EQ(preferences.boolForKey("A"), true);
  EXPECT_EQ(preferences.boolForKey("B"), std::nullopt);
  EXPECT_EQ(preferences.boolForKey("C"), true);
}

TEST_F(KeyFilePreferencesTest, ANamedFileThatCannotBeReadIsRaisedWithItsCause) {
  const auto reason = [&](const std::string& file) -> std::string {
    try {
      read(file);
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), exception_name::kInvalidArgument);
      return exception.reason();
    }
    return "nothing raised";
  };
  const auto missing = folder_.path("missing.conf");
  EXPECT_EQ(reason(missing), "cannot read " + missing + ": No such file or directory");
  EXPECT_EQ(reason(folder_.path()), "cannot read " + folder_.path() + ": Is a directory");
}

TEST_F(KeyFilePreferencesTest, AMalformedValueIsReportedByFileLineAndKeyAndLeavesTheRest) {
  const auto file = folder_.write("home/tarvo/agent.conf",
                                  "[Preferences]\nA=yes\nB=true\n[Maker]\nlist=a\\q\nname=\xFF\n");
  folder_.write("far/tarvo/agent.conf", "[Preferences]\nA=true\n");
  const auto preferences = read();
  EXPECT_EQ(preferences.boolForKey("A"), true) << "what lies below shows through";
  EXPECT_EQ(preferences.boolForKey("B"), true);
  EXPECT_EQ(preferences.text("Maker", "list"), std::nullopt);
  EXPECT_EQ(preferences.text("Maker", "name"), std::nullopt);
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                              file + ", line 2: A is ignored: 'yes' is neither true nor false",
                              file + ", line 5: the value of list is malformed and ignored",
                              file + ", line 6: the value of name is malformed and ignored"}));
}

TEST_F(KeyFilePreferencesTest, AMalformedFileIsReportedOnceAndIgnoredWhole) {
  for (const std::string bad : {"nonsense", "[Preferences", "[]", "=true"}) {
    log_.clear();
    const auto file =
        folder_.write("home/tarvo/agent.conf", "[Preferences]\nA=true\n" + bad + "\nB=true\n");
    const auto preferences = read();
    EXPECT_EQ(preferences.boolForKey("A"), std::nullopt) << bad;
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{
                  file + ", line 3: neither a group nor \"key=value\"; the file is ignored"}));
  }
}

TEST_F(KeyFilePreferencesTest, AFileThatIsNoneOrTooLargeIsReportedAndIgnored) {
  std::filesystem::create_directories(folder_.path("home/tarvo/agent.conf"));
  folder_.write("near/tarvo/agent.conf", std::string((1 << 20) + 1, '\n'));
  read();
  EXPECT_EQ(log_.count("Is a directory"), 1U);
  EXPECT_EQ(log_.count("File too large"), 1U);
}

TEST_F(KeyFilePreferencesTest, EscapesOfAValueAreResolvedAndOthersRefused) {
  EXPECT_EQ(unescapedKeyFileValue(R"(\sa\n\t\r\\b)"), " a\n\t\r\\b");
  EXPECT_EQ(unescapedKeyFileValue(""), "");
  EXPECT_EQ(unescapedKeyFileValue("a\\"), std::nullopt);
  EXPECT_EQ(unescapedKeyFileValue("\\x"), std::nullopt);
}

TEST(SystemVersionTest, IsTheNumberOfThePlatformGroupOrZero) {
  const std::vector<std::pair<std::string, std::int32_t>> rows = {
      {"0x1062", 0x1062},
      {"4194", 0x1062},
      {"0", 0},
      {"", 0},
      {"10.6.2", 0},
      {"-1", 0},
      {"0x1062 ", 0},
      {"0x", 0},
      {"0x7FFFFFFF", 0x7FFFFFFF},
      {"0x80000000", 0},
      {"99999999999999999999", 0},
  };
  for (const auto& [text, expected] : rows) {
    FakeUserDefaults defaults;
    defaults.setText("Platform", "SystemVersion", text);
    EXPECT_EQ(systemVersion(defaults), expected) << text;
  }
  EXPECT_EQ(systemVersion(FakeUserDefaults()), 0);
}

}  // namespace
}  // namespace tarvo::test
