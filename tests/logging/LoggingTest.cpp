#include "NativeServices/Logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::FakeUserDefaults;
using test::RecordingSystemLog;
using test::TraceRecorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// One key of each form; LOG_SUBSYS_PYTHON, which is read twice, with both its bits.
const std::vector<std::pair<const char*, std::uint64_t>> kKeys = {
    {"LOG_INCLUDE_TIMESTAMP", 0x1},      {"LOG_SUBSYS_CAMERA", 0x40},
    {"LOG_SUBSYS_CAMERA_VERBOSE", 0xC0}, {"LOG_SUBSYS_PYTHON", 0x4200},
    {"LOG_SUBSYS_APP_DEBUG", 0x10000},   {"LOG_SUBSYS_LISTENER", 0x100000},
    {"LOG_SUBSYS_ZEROCONF", 0x100000},
};

TEST(Logging, EachKeyTurnsItsOwnFlagsOn) {
  for (const auto& [key, flags] : kKeys) {
    const TraceRecorder room({{key, true}, {"LOG_SUBSYS_OTHER", true}});
    EXPECT_EQ(GGLogging::LogGetActiveLevel(), flags) << key;
    for (const auto& [other, otherFlags] : kKeys)
      EXPECT_EQ(LogCheck(otherFlags), (flags & otherFlags) == otherFlags) << key << ' ' << other;
  }
}

TEST(Logging, ReadsTheKeysOnceAndOnlyWhenTheyAreNeeded) {
  FakeUserDefaults defaults({{"LOG_SUBSYS_CAMERA", true}});
  RecordingSystemLog log;
  const LogState state(defaults, log);
  EXPECT_FALSE(GGLogging::LogCheck(0x40));  // computes nothing
  EXPECT_TRUE(LogCheck(0x40));
  EXPECT_TRUE(GGLogging::LogCheck(0x40));
  defaults.setBool("LOG_SUBSYS_LISTENER", true);
  EXPECT_FALSE(LogCheck(kLogListener));
  EXPECT_EQ(GGLogging::LogGetActiveLevel(), 0x40U);
}

/// What the format keys put before "facility - message": 1 date, 2 thread, 4 milliseconds.
std::string prefixPattern(std::uint64_t options) {
  std::string time =
      (options & 1) != 0 ? "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} - " : "";
  if ((options & 4) != 0) time = " {5}0\\.[0-9]{3} - ";  // wins over the date
  if ((options & 2) == 0) return time;
  return time + formatted("\\[%d:0x%X\\] ", ::getpid(), static_cast<unsigned>(::gettid()));
}

/// A locale whose decimal point is a comma, while it lives.
class CommaLocale {
 public:
  CommaLocale() {
    // It lacks every other category, which the program's exit status says.
    folder_.write("source", "LC_NUMERIC\ndecimal_point \",\"\nEND LC_NUMERIC\n");
    std::system(("localedef -c -i " + folder_.path("source") + " -f ANSI_X3.4-1968 " +
                 folder_.path("comma") + " 2>/dev/null")
                    .c_str());
    EXPECT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr) << "is the package locales there?";
  }
  ~CommaLocale() { std::setlocale(LC_NUMERIC, "C"); }

 private:
  test::TemporaryFolder folder_;
  test::ScopedEnvironment path_{"LOCPATH", folder_.path()};
};

TEST(Logging, PutsTheChosenPrefixBeforeTheFacilityInEveryLocale) {
  const CommaLocale locale;
  for (std::uint64_t options = 0; options < 8; ++options) {
    TraceRecorder room({{"LOG_SUBSYS_LISTENER", true},
                        {"LOG_INCLUDE_TIMESTAMP", (options & 1) != 0},
                        {"LOG_INCLUDE_THREADID", (options & 2) != 0},
                        {"LOG_INCLUDE_MS", (options & 4) != 0}});
    Log(kLogListener, L"RLA_Listener", L"starting Kill Timer");
    ASSERT_EQ(room.log().entries().size(), 1U);
    EXPECT_EQ(room.log().entries()[0].level, LogLevel::kInfo);
    for (std::uint64_t other = 0; other < 8; ++other) {
      const std::string pattern = prefixPattern(other) + "RLA_Listener - starting Kill Timer";
      EXPECT_EQ(::testing::Matches(MatchesRegex(pattern))(room.log().lines()[0]),
                prefixPattern(options) == prefixPattern(other))
          << room.log().lines()[0] << " against " << pattern;
    }
  }
}

TEST(Logging, WritesOnlyWhenEveryBitOfTheLevelIsActiveWhateverTheDynamicFlags) {
  TraceRecorder room({{"LOG_SUBSYS_CAMERA", true}, {"LOG_SUBSYS_ZEROCONF", true}});
  GGLogging::SetDynLogFlags(~7ULL);
  for (const std::uint64_t level : {0x80ULL, 0xC0ULL, 0x300000ULL, 0x100080ULL, ~0ULL})
    GGLogging::Log(level, "F", "m");
  EXPECT_THAT(room.log().lines(), IsEmpty());
  for (const std::uint64_t level : {0x40ULL, 0x100000ULL, 0x100040ULL, 0x0ULL})
    GGLogging::Log(level, "F", std::to_string(level));
  EXPECT_THAT(room.log().lines(), ElementsAre("F - 64", "F - 1048576", "F - 1048640", "F - 0"));
}

/// Flags that are set (true) and cleared, one step after the other.
using Steps = std::vector<std::pair<bool, std::uint64_t>>;

TEST(Logging, TogglesTheWholeArgumentForEachDynamicFlagThatIsNoLongerUsed) {
  // With what is left of the flags then, as the prefix shows it: 1 date, 2 thread, 3 both.
  const std::vector<std::pair<Steps, std::uint64_t>> rows = {
      {{{true, 3}, {false, 3}}, 3},  // toggled twice
      {{{true, 3}, {false, 1}}, 2},
      {{{true, 3}, {false, 1}, {false, 2}}, 0},
      {{{true, 1}, {true, 1}, {false, 1}}, 1},
      {{{true, 1}, {false, 3}}, 2},  // bit 1 toggled along with bit 0
      {{{false, 1}}, 0},             // below zero
      {{{false, 1}, {true, 1}}, 1},  // back to zero
      {{{true, 0x300000000}}, 0},    // of the high word
      {{{true, 2}, {true, 0x8000000000000001}, {false, 0x8000000000000000}}, 3},
  };
  for (const auto& [steps, left] : rows) {
    TraceRecorder room({{"LOG_SUBSYS_APP_DEBUG", true}});
    for (const auto& [set, flags] : steps)
      set ? GGLogging::SetDynLogFlags(flags) : GGLogging::ClearDynLogFlags(flags);
    GGLogging::Log(kLogAppDebug, "F", "m");
    EXPECT_THAT(room.log().lines(), ElementsAre(MatchesRegex(prefixPattern(left) + "F - m")));
  }
}

TEST(Logging, ExpandsTheWholeLineAsAFormatString) {
  TraceRecorder room({{"LOG_SUBSYS_LISTENER", true}});
  GGLogging::Log(kLogListener, "50%%", "%d of %s, %n100%%");
  systemLogLine("50%% of %s");  // a line of its own, no format
  EXPECT_THAT(room.log().lines(), ElementsAre("50% - 0 of (null), 100%", "50%% of %s"));
}

TEST(Logging, TakesWideStrings) {
  TraceRecorder room({{"LOG_SUBSYS_LISTENER", true}});
  const std::wstring facility = stdWStringUTF16("RLA_\u00dc");
  EXPECT_EQ(Log(kLogListener, facility, stdWStringUTF16("\U0001F600 arrived")), facility);
  EXPECT_EQ(Log(kLogListener, L"F", L"\U0001F600\xD800\x7FFFFFFF"), L"F");
  EXPECT_EQ(Log(kLogAppDebug, L"off", L"m"), L"off");
  EXPECT_THAT(room.log().lines(),
              ElementsAre("RLA_\u00dc - \U0001F600 arrived", "F - \U0001F600\uFFFD\uFFFD"));
}

TEST(Logging, SaysNothingWithoutAState) {
  const FakeUserDefaults defaults;
  RecordingSystemLog log;
  { const LogState former(defaults, log); }
  EXPECT_FALSE(LogCheck(0) || GGLogging::LogCheck(0));
  systemLogLine("x");
  TraceLog::dump("x");
  EXPECT_EQ(Log(0, L"F", L"m"), L"F");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(TraceLog, WritesUnderTheFacilityOfTheDeviceLibrary) {
  TraceRecorder room;
  const char* volatile none = nullptr;
  TraceLog::trace("found %s at 0x%x", "it", 0xFAU);
  TraceLog::traceWithTag("tagged", XTOptDebugLog);
  TraceLog::traceFormat("Other", "%d of %d", 1, 2);
  TraceLog::trace(none, "");
  TraceLog::traceMethod("XTThing", "doIt:with:", reinterpret_cast<const void*>(0x12abcdef0UL));
  TraceLog::traceMethod("XTThing", "shared", nullptr);
  EXPECT_THAT(
      room.log().lines(),
      ElementsAre("XT PictureDevice - found it at 0xfa", "XT PictureDevice - tagged",
                  "Other - 1 of 2", "XT PictureDevice - *** Nil format passed to -trace: ***",
                  "XT PictureDevice - -[XTThing doIt:with:] (self=0x12abcdef0)",
                  "XT PictureDevice - +[XTThing shared] (self=0x0)"));
}

TEST(TraceLog, NeedsBothBitsOfTheVerboseLevelAndExpandsFormattedTextASecondTime) {
  TraceRecorder half({{"LOG_SUBSYS_CAMERA", true}});
  TraceLog::trace("x");
  TraceLog::traceMethod("C", "s", nullptr);
  EXPECT_THAT(half.take(), IsEmpty());
  TraceRecorder room;
  TraceLog::trace("%s", "name with %d and %@");
  TraceLog::dump("dumped %s");
  EXPECT_THAT(room.take(), ElementsAre("name with 0 and (null)", "dumped (null)"));
}

TEST(MissingArguments, ExpandsDirectivesToNothing) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {"", ""},
      {"no directive, %%, %%d, %%%d", "no directive, %, %d, %0"},
      {"%d %i %u %x %X %o %ld %llu %hhd %zu", "0 0 0 0 0 0 0 0 0 0"},
      {"%s|%@|%S|%c|%C|%n|%p", "(null)|(null)|(null)||||0x0"},
      {"%f %.2f %.0f %e %g %a", "0.000000 0.00 0 0.000000e+00 0 0x0p+0"},
      {"[%5d] [%-5d] [%05d] [%+d] [% d]", "[    0] [0    ] [00000] [+0] [ 0]"},
      {"[%.3d] [%5.3d] [%05.3d] [%.0d]", "[000] [  000] [  000] []"},
      {"[%+06.2f] [%-8s] [%8@] [%.3s]", "[+00.00] [(null)  ] [  (null)] [(nu]"},
      {"[%*d] [%.*f] [%1$s] [%2$5d]", "[0] [0] [(null)] [    0]"},
      {"%5", "%5"},
      {"%y %l %.", "%y %l %."},
  };
  for (const auto& [format, expanded] : rows)
    EXPECT_EQ(expandMissingArguments(format), expanded) << format;
}

TEST(MissingArguments, LimitsWidthAndPrecisionAndKeepsEveryOtherByte) {
  EXPECT_EQ(expandMissingArguments("%999999999999999999999d"), std::string(63, ' ').append("0"));
  EXPECT_EQ(expandMissingArguments("%.99999f").size(), 66U);
  const std::string text("a\0b\xFF\xE2\x82\xAC", 7);
  EXPECT_EQ(expandMissingArguments(text), text);
}

}  // namespace
}  // namespace tarvo
