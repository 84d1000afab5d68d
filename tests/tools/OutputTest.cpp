// What a person reads: words in place of numbers, aligned columns, and nothing that steers a
// terminal.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <tuple>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Status.h"
#include "tests/tools/ToolBench.h"
#include "tools/output/Output.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

TEST(Words, SizesAreInThousandsAndOneThingIsOne) {
  const std::pair<std::uint64_t, const char*> kSizes[] = {
      {1, "1 byte"}, {999, "999 bytes"}, {999950, "1.0 MB"}, {UINT64_MAX, "18.4 EB"}};
  for (const auto& [bytes, words] : kSizes)
    EXPECT_EQ(sizeInWords(bytes), words);
  EXPECT_EQ(counted(1, "files fetched"), "1 file fetched");
}

TEST(Words, OfSettingsAndClocks) {
  const std::tuple<std::uint16_t, std::int64_t, const char*> kSettings[] = {
      {0x5005, 2, "automatic"},  {0x5007, 280, "f/2.8"},        {0x500D, 80, "1/125 s"},
      {0x5010, -500, "-0.5 EV"}, {0x500F, 0xFFFF, "automatic"}, {0x5005, 0x8001, ""}};
  for (const auto& [property, value, words] : kSettings)
    EXPECT_EQ(settingInWords(property, value), words) << property;
  const auto behind = [](std::time_t seconds) {
    return clockInWords(ptpDateOfTime(std::time(nullptr) - seconds).value());
  };
  EXPECT_THAT(behind(0), EndsWith(", as this computer"));
  EXPECT_THAT(behind(150), EndsWith(", 2 min behind this computer"));
  EXPECT_THAT(behind(-40L * 86400), EndsWith(" days ahead of this computer"));
}

TEST(Words, NoTwoCodesShareANameAndUnknownOnesAreNumbers) {
  EXPECT_EQ(formatInWords(0xB999), "format 0xb999");
  EXPECT_EQ(eventName(0xC001), "0xc001");
  std::set<std::string> properties;
  std::set<std::string> formats;
  for (unsigned code = 0; code <= 0xFFFF; ++code) {
    EXPECT_TRUE(properties.insert(propertyName(static_cast<std::uint16_t>(code))).second) << code;
    EXPECT_TRUE(formats.insert(formatInWords(static_cast<std::uint16_t>(code))).second) << code;
  }
}

TEST(Words, TextFromADeviceCannotSteerATerminal) {
  EXPECT_EQ(printable("a\nb\x7f"),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  EXPECT_EQ(printable("\xE2\x80\xAEgpj"), "\xEF\xBF\xBDgpj") << "turned around";
  EXPECT_EQ(printable("\xC3\xA4\xFF"), "\xC3\xA4\xEF\xBF\xBD") << "what is no UTF-8";
  EXPECT_EQ(displayWidth("\xE5\x86\x99\xE7\x9C\x9F.JPG"), 8U) << "wide characters";
}

TEST(Words, AFailureNamesOperationObjectStatusAndWhatToDo) {
  const Failure failure = {
      .operation = "get", .object = "A.JPG", .status = status::kICATimeout, .why = "it is slow"};
  EXPECT_THAT(inWords(failure),
              AllOf(HasSubstr("get A.JPG: device did not answer in time: it is slow. Switch the "
                              "device off and on"),
                    EndsWith(" (0xffffd950)")));
  EXPECT_EQ(asJSON(failure)["statusHex"], "0xffffd950");
  // A failure without a status of its own has one all the same; bad usage needs none.
  EXPECT_THAT(asJSON(ToolError({.why = "it is no JSON"}).failure())["message"].get<std::string>(),
              HasSubstr("it is no JSON. Check what was given. (0xffffffce)"));
  EXPECT_FALSE(asJSON(ToolError({.why = "?"}, kBadUsage).failure()).contains("status"));
}

/// What a list is that breaks off behind its first entry.
std::string brokenList(const GlobalOptions& options) {
  char* said = nullptr;
  std::size_t length = 0;
  std::FILE* out = ::open_memstream(&said, &length);
  Output output(out, stderr, options);
  output.beginList();
  output.item(1);
  output.error({.operation = "ls", .status = status::kICATimeout});
  std::fclose(out);
  const std::unique_ptr<char, void (*)(void*)> owner(said, std::free);
  return said;
}

TEST(OutputAsJSON, IsADocumentAlsoWhereAListBreaksOff) {
  const auto said = brokenList({.json = true});
  EXPECT_EQ(nlohmann::json::parse(said, nullptr, false).size(), 2U) << said;
}

TEST(OutputAsJSON, IsALineADocumentWhereThatIsAskedFor) {
  EXPECT_THAT(brokenList({.jsonLines = true}),
              ::testing::MatchesRegex("1\n\\{\"error\":[^\n]*\\}\n"));
}

TEST(ProgressLine, HasBarRateAndTimeLeftAndFitsTheTerminal) {
  EXPECT_EQ(progressLine("A.JPG", 500, 1000, std::chrono::seconds(1), 80),
            "A.JPG [##########..........]  50 %  500 bytes/s  00:01");
  for (const std::size_t columns : {0U, 1U, 20U, 39U, 60U})
    for (const std::uint64_t size : {0U, 2000000U}) {
      const auto line =
          progressLine(std::string(300, 'x'), 123456, size, std::chrono::seconds(1), columns);
      EXPECT_LE(displayWidth(line), columns) << line;
    }
  EXPECT_THAT(progressLine("12/345 TARV0001.JPG", 500, 1000, std::chrono::seconds(1), 39),
              AllOf(HasSubstr("TARV"), HasSubstr(" 50 %"), EndsWith("00:01")));
  EXPECT_EQ(searchLine("Tarvo Z7590", 1234, 79), "Looking through Tarvo Z7590: 1,234 objects ...");
  EXPECT_THAT(searchLine(std::string(40, 'x'), 1234, 39), EndsWith("x: 1,234 objects ..."));
}

}  // namespace
}  // namespace tarvo::tools
