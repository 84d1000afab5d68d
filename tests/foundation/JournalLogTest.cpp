#include "platform/foundation/JournalLog.h"

#include <gtest/gtest.h>

namespace tarvo::test {
namespace {

using namespace std::string_literals;

TEST(JournalLogTest, ALineOnStandardErrorIsWholeAndCanNeitherForgeAnotherNorSteerATerminal) {
  const std::string longest(300000, 'x');
  const std::pair<std::string, std::string> rows[] = {
      {"", "\n"},
      {"100 %s%n %d%%", "100 %s%n %d%%\n"},
      {"a\nb\tc\x1b[2Jd\re\x7f", "a\n\tb\tc\\x1b[2Jd\\x0de\\x7f\n"},
      {"a\0b"s, "a\\x00b\n"},
      {"Größe – ok", "Größe – ok\n"},
      {"a\u009b2Jb\u202ec\x9b", "a\\u009b2Jb\\u202ec\uFFFD\n"},
      {longest, longest + "\n"}};
  for (const auto& [line, expected] : rows) {
    testing::internal::CaptureStderr();
    JournalLog().write(LogLevel::kInfo, line);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
  }
}

}  // namespace
}  // namespace tarvo::test
