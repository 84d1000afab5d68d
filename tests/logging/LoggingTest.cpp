#include "NativeServices/Logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/foundation/KeyFilePreferences.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo {
namespace {

using test::FakeUserDefaults;
using test::RecordingSystemLog;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

struct KeyRow {
  const char* key;
  std::uint64_t flags;
};

/// Every key once: LOG_SUBSYS_PYTHON, which is read twice, with both its bits.
const std::vector<KeyRow> kKeys = {
    {"LOG_INCLUDE_TIMESTAMP", 0x1},
    {"LOG_INCLUDE_THREADID", 0x2},
    {"LOG_INCLUDE_MS", 0x4},
    {"LOG_SUBSYS_FACEBOOK", 0x10},
    {"LOG_SUBSYS_FACEBOOK_VERBOSE", 0x30},
    {"LOG_SUBSYS_CAMERA", 0x40},
    {"LOG_SUBSYS_CAMERA_VERBOSE", 0xC0},
    {"LOG_SUBSYS_PROGRESS", 0x100},
    {"LOG_SUBSYS_HTTPHANDLER", 0x400},
    {"LOG_SUBSYS_GALLERY", 0x800},
    {"LOG_SUBSYS_GALLERY_VERBOSE", 0x1800},
    {"LOG_SUBSYS_TASKS_VERBOSE", 0x2000},
    {"LOG_SUBSYS_PYTHON", 0x4200},
    {"LOG_SUBSYS_JAVASCRIPT", 0x8000},
    {"LOG_SUBSYS_TRACE_PYTHON_VERBOSE", 0x20000},
    {"LOG_SUBSYS_APP_DEBUG", 0x10000},
    {"LOG_SUBSYS_TRACE_PYTHON_EXCEPTIONS", 0x80000},
    {"LOG_SUBSYS_LISTENER", 0x100000},
    {"LOG_SUBSYS_ZEROCONF", 0x100000},
};

TEST(Logging, EachKeyTurnsItsOwnFlagsOn) {
  for (const auto& row : kKeys) {
    FakeUserDefaults defaults;
    for (const auto& other : kKeys)
      defaults.setBool(other.key, &other == &row);
    RecordingSystemLog log;
    const LogState state(defaults, log);
    EXPECT_EQ(GGLogging::LogGetActiveLevel(), row.flags) << row.key;
    for (const auto& other : kKeys) {
      const bool included = (row.flags & other.flags) == other.flags;
      EXPECT_EQ(LogCheck(other.flags), included) << row.key << ' ' << other.key;
      EXPECT_EQ(GGLogging::LogCheck(other.flags), included) << row.key << ' ' << other.key;
    }
  }
}

TEST(Logging, ReadsTheKeysInOrderAndOnce) {
  class CountingDefaults : public FakeUserDefaults {
   public:
    std::optional<bool> boolForKey(std::string_view key) const override {
      read.emplace_back(key);
      return true;
    }
    mutable std::vector<std::string> read;
  };
  std::vector<std::string> expected;
  for (const auto& row : kKeys)
    expected.emplace_back(row.key);
  const auto afterJavascript = std::ranges::find(expected, "LOG_SUBSYS_JAVASCRIPT") + 1;
  expected.emplace(afterJavascript, "LOG_SUBSYS_PYTHON");

  const CountingDefaults defaults;
  RecordingSystemLog log;
  const LogState state(defaults, log);
  EXPECT_FALSE(GGLogging::LogCheck(0x1));  // computes nothing
  EXPECT_TRUE(GGLogging::LogCheck(0));
  EXPECT_THAT(defaults.read, IsEmpty());
  EXPECT_TRUE(LogCheck(0x1));
  EXPECT_TRUE(GGLogging::LogCheck(0x1));
  EXPECT_EQ(GGLogging::LogGetActiveLevel(), 0x1BFFF7U);
  EXPECT_THAT(defaults.read, ElementsAreArray(expected));
}

TEST(Logging, KeepsTheFlagsOfItsStart) {
  FakeUserDefaults defaults;
  RecordingSystemLog log;
  const LogState state(defaults, log);
  EXPECT_FALSE(LogCheck(kLogListener));
  defaults.setBool("LOG_SUBSYS_LISTENER", true);
  EXPECT_FALSE(LogCheck(kLogListener));
  EXPECT_EQ(GGLogging::LogGetActiveLevel(), 0U);
}

const std::string kDate = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} - ";
const std::string kElapsed = " {5}0\\.[0-9]{3} - ";

std::string threadPrefix() {
  return formatted("\\[%d:0x%X\\] ", ::getpid(), static_cast<unsigned>(::gettid()));
}

/// What the format keys put before "facility - message".
std::string prefixPattern(bool timestamp, bool thread, bool milliseconds) {
  std::string time = timestamp ? kDate : "";
  if (milliseconds) time = kElapsed;  // wins over the date
  return time + (thread ? threadPrefix() : "");
}

TEST(Logging, PutsTheChosenPrefixBeforeTheFacility) {
  struct Shape {
    std::string pattern;
    std::vector<std::string> lines;
  };
  const test::TemporaryFolder folder;
  std::vector<Shape> shapes;
  for (int bits = 0; bits < 32; ++bits) {
    const auto isOn = [bits](int bit) { return (bits >> bit & 1) != 0; };
    std::string text = "[Preferences]\n";
    const std::vector<const char*> keys = {"LOG_INCLUDE_TIMESTAMP", "LOG_INCLUDE_THREADID",
                                           "LOG_INCLUDE_MS", "LOG_SUBSYS_LISTENER",
                                           "LOG_SUBSYS_ZEROCONF"};
    for (int bit = 0; bit < 5; ++bit)
      text += keys[static_cast<std::size_t>(bit)] + std::string(isOn(bit) ? "=true\n" : "=false\n");
    const KeyFilePreferences preferences({}, folder.write("agent.conf", text));
    RecordingSystemLog log;
    const LogState state(preferences, log);
    Log(kLogListener, L"RLA_Listener", L"starting Kill Timer");
    Log(kLogAppDebug, L"RLA_Listener", L"never");
    const bool written = isOn(3) || isOn(4);
    shapes.push_back(
        {written ? prefixPattern(isOn(0), isOn(1), isOn(2)) + "RLA_Listener - starting Kill Timer"
                 : "nothing",
         log.lines()});
    ASSERT_EQ(log.lines().size(), written ? 1U : 0U) << text;
  }
  for (const auto& shape : shapes) {
    for (const auto& other : shapes) {
      if (shape.lines.empty()) continue;
      const bool same = shape.pattern == other.pattern;
      EXPECT_EQ(::testing::Matches(MatchesRegex(other.pattern))(shape.lines[0]), same)
          << shape.lines[0] << " against " << other.pattern;
    }
  }
}

TEST(Logging, WritesAtTheInformationLevel) {
  const FakeUserDefaults defaults({{"LOG_SUBSYS_CAMERA_VERBOSE", true}});
  RecordingSystemLog log;
  const LogState state(defaults, log);
  TraceLog::trace("traced");
  TraceLog::dump("dumped");
  systemLogLine("said");
  ASSERT_EQ(log.entries().size(), 3U);
  for (const auto& entry : log.entries())
    EXPECT_EQ(entry.level, LogLevel::kInfo) << entry.text;
}

TEST(Logging, WritesOnlyWhenEveryBitOfTheLevelIsActive) {
  const FakeUserDefaults defaults({{"LOG_SUBSYS_CAMERA", true}, {"LOG_SUBSYS_ZEROCONF", true}});
  for (const std::uint64_t level : {0x40ULL, 0x100000ULL, 0x100040ULL, 0x0ULL}) {
    RecordingSystemLog log;
    const LogState state(defaults, log);
    GGLogging::Log(level, "F", "m");
    EXPECT_THAT(log.lines(), ElementsAre("F - m")) << level;
  }
  for (const std::uint64_t level : {0x80ULL, 0xC0ULL, 0x300000ULL, 0x100080ULL, ~0ULL}) {
    RecordingSystemLog log;
    const LogState state(defaults, log);
    GGLogging::Log(level, "F", "m");
    EXPECT_THAT(log.lines(), IsEmpty()) << level;
  }
}

struct DynamicStep {
  bool set;
  std::uint64_t flags;
};

struct DynamicRow {
  std::vector<DynamicStep> steps;
  std::uint64_t left;  ///< sDynFlags as the prefix shows them: 1 date, 2 thread, 3 both
};

TEST(Logging, TogglesTheWholeArgumentForEachDynamicFlagThatIsNoLongerUsed) {
  const std::vector<DynamicRow> rows = {
      {{}, 0},
      {{{true, 3}}, 3},
      {{{true, 3}, {false, 3}}, 3},  // toggled twice
      {{{true, 3}, {false, 1}}, 2},
      {{{true, 3}, {false, 1}, {false, 2}}, 0},
      {{{true, 1}, {true, 1}, {false, 1}}, 1},
      {{{true, 1}, {true, 1}, {false, 1}, {false, 1}}, 0},
      {{{true, 1}, {false, 3}}, 2},              // bit 1 toggled along with bit 0
      {{{false, 1}}, 0},                         // below zero
      {{{false, 1}, {true, 1}}, 1},              // back to zero
      {{{true, 1}, {false, 1}, {false, 1}}, 0},  // below zero again
      {{{true, 0x300000000}}, 0},                // of the high word
      {{{true, 2}, {true, 0x8000000000000001}, {false, 0x8000000000000000}}, 3},
  };
  const FakeUserDefaults defaults({{"LOG_SUBSYS_APP_DEBUG", true}});
  for (const auto& row : rows) {
    RecordingSystemLog log;
    const LogState state(defaults, log);
    for (const auto& step : row.steps)
      step.set ? GGLogging::SetDynLogFlags(step.flags) : GGLogging::ClearDynLogFlags(step.flags);
    GGLogging::Log(kLogAppDebug, "F", "m");
    const std::string pattern =
        prefixPattern((row.left & 1) != 0, (row.left & 2) != 0, false) + "F - m";
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0], MatchesRegex(pattern)) << &row - rows.data();
  }
}

TEST(Logging, DynamicFlagsOpenNoGate) {
  const FakeUserDefaults defaults;
  RecordingSystemLog log;
  const LogState state(defaults, log);
  GGLogging::SetDynLogFlags(~0ULL);
  EXPECT_FALSE(LogCheck(kLogListener));
  EXPECT_FALSE(GGLogging::LogCheck(kLogListener));
  GGLogging::Log(kLogListener, "F", "m");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Logging, ExpandsTheWholeLineAsAFormatString) {
  const FakeUserDefaults defaults({{"LOG_SUBSYS_LISTENER", true}});
  RecordingSystemLog log;
  const LogState state(defaults, log);
  GGLogging::Log(kLogListener, "50%%", "%d of %s, %n100%%");
  EXPECT_THAT(log.lines(), ElementsAre("50% - 0 of (null), 100%"));
  log.clear();
  systemLogLine("50%% of %s");  // a line of its own, no format
  EXPECT_THAT(log.lines(), ElementsAre("50%% of %s"));
}

TEST(Logging, TakesWideStrings) {
  const FakeUserDefaults defaults({{"LOG_SUBSYS_LISTENER", true}});
  RecordingSystemLog log;
  const LogState state(defaults, log);
  const std::wstring facility = stdWStringUTF16("RLA_\u00dc");
  EXPECT_EQ(Log(kLogListener, facility, stdWStringUTF16("\U0001F600 arrived")), facility);
  EXPECT_EQ(Log(kLogListener, L"F", L"\U0001F600\xD800\x7FFFFFFF"), L"F");
  EXPECT_EQ(Log(kLogAppDebug, L"off", L"m"), L"off");
  EXPECT_THAT(log.lines(),
              ElementsAre("RLA_\u00dc - \U0001F600 arrived", "F - \U0001F600\uFFFD\uFFFD"));
}

TEST(Logging, SaysNothingWithoutAState) {
  ASSERT_EQ(LogState::current(), nullptr);
  EXPECT_FALSE(LogCheck(0));
  EXPECT_FALSE(GGLogging::LogCheck(0));
  EXPECT_EQ(GGLogging::LogGetActiveLevel(), 0U);
  GGLogging::SetDynLogFlags(3);
  GGLogging::ClearDynLogFlags(3);
  systemLogLine("x");
  TraceLog::trace("x");
  TraceLog::traceWithTag("x", "");
  TraceLog::dump("x");
  EXPECT_EQ(Log(0, L"F", L"m"), L"F");

  const FakeUserDefaults defaults;
  RecordingSystemLog log;
  {
    const LogState outer(defaults, log);
    {
      const LogState inner(defaults, log);
      EXPECT_EQ(LogState::current(), &inner);
    }
    EXPECT_EQ(LogState::current(), &outer);
  }
  EXPECT_EQ(LogState::current(), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Logging, ServesManyThreadsAtOnce) {
  const FakeUserDefaults defaults(
      {{"LOG_SUBSYS_CAMERA_VERBOSE", true}, {"LOG_INCLUDE_THREADID", true}});
  RecordingSystemLog log;
  const LogState state(defaults, log);
  constexpr int kThreads = 8;
  constexpr int kLines = 50;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([] {
      for (int line = 0; line < kLines; ++line) {
        if (LogCheck(kLogCameraVerbose)) TraceLog::trace("line %d", line);
        GGLogging::SetDynLogFlags(4);
        GGLogging::ClearDynLogFlags(4);
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(log.count("XT PictureDevice - line 7"), static_cast<std::size_t>(kThreads));
  EXPECT_EQ(log.lines().size(), static_cast<std::size_t>(kThreads * kLines));
}

}  // namespace
}  // namespace tarvo
