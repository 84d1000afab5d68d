#include "platform/foundation/JournalLog.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvo::test {
namespace {

std::string standardErrorOf(LogLevel level, std::string_view line) {
  testing::internal::CaptureStderr();
  JournalLog log;
  log.write(level, line);
  return testing::internal::GetCapturedStderr();
}

TEST(JournalLogTest, ALineGoesPlainlyToStandardErrorWhereThatIsAFile) {
  EXPECT_EQ(standardErrorOf(LogLevel::kInfo, "RLA_Listener - starting Kill Timer"),
            "RLA_Listener - starting Kill Timer\n");
  EXPECT_EQ(standardErrorOf(LogLevel::kError, ""), "\n");
}

TEST(JournalLogTest, TextIsNeverTakenForAFormat) {
  EXPECT_EQ(standardErrorOf(LogLevel::kDebug, "100 %s%n %d%%"), "100 %s%n %d%%\n");
}

TEST(JournalLogTest, ControlCharactersCanNeitherForgeALineNorSteerATerminal) {
  EXPECT_EQ(standardErrorOf(LogLevel::kInfo, "a\nb\tc\x1b[2Jd\re\x7f"),
            "a\n\tb\tc\\x1b[2Jd\\x0de\\x7f\n");
  EXPECT_EQ(standardErrorOf(LogLevel::kInfo, "Größe – ok"), "Größe – ok\n");
  EXPECT_EQ(standardErrorOf(LogLevel::kInfo, std::string_view("a\0b", 3)), "a\\x00b\n");
}

TEST(JournalLogTest, ALongLineIsWrittenWhole) {
  const std::string line(300000, 'x');
  EXPECT_EQ(standardErrorOf(LogLevel::kInfo, line), line + "\n");
}

}  // namespace
}  // namespace tarvo::test
