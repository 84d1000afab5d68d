// What a person reads: words in place of numbers, aligned columns, and nothing that steers a
// terminal.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>

#include "Utilities/Status.h"
#include "tests/tools/ToolBench.h"
#include "tools/output/Output.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

using ::testing::HasSubstr;

TEST(Words, SizesAreInThousandsAndOneThingIsOne) {
  const std::pair<std::uint64_t, const char*> kSizes[] = {
      {1, "1 byte"}, {999, "999 bytes"}, {999950, "1.0 MB"}, {UINT64_MAX, "18.4 EB"}};
  for (const auto& [bytes, words] : kSizes)
    EXPECT_EQ(sizeInWords(bytes), words);
  EXPECT_EQ(counted(1, "files fetched"), "1 file fetched");
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
              HasSubstr("get A.JPG: device did not answer in time (-9904, 0xffffd950): it is slow. "
                        "Switch the device off and on"));
  EXPECT_EQ(asJSON(failure)["statusHex"], "0xffffd950");
  // A failure without a status of its own has one all the same; bad usage needs none.
  EXPECT_THAT(asJSON(ToolError({.why = "it is no JSON"}).failure())["message"].get<std::string>(),
              HasSubstr("bad parameter (-50, 0xffffffce): it is no JSON"));
  EXPECT_FALSE(asJSON(ToolError({.why = "?"}, kBadUsage).failure()).contains("status"));
}

TEST(OutputAsJSON, IsADocumentAlsoWhereAListBreaksOff) {
  char* said = nullptr;
  std::size_t length = 0;
  std::FILE* out = ::open_memstream(&said, &length);
  GlobalOptions options;
  options.json = true;
  Output output(out, stderr, options);
  output.beginList();
  output.item(1);
  output.error({.operation = "ls", .status = status::kICATimeout});
  std::fclose(out);
  const std::unique_ptr<char, void (*)(void*)> owner(said, std::free);
  EXPECT_EQ(nlohmann::json::parse(said, nullptr, false).size(), 2U) << said;
}

TEST(ProgressLine, HasBarRateAndTimeLeftAndFitsTheTerminal) {
  EXPECT_EQ(progressLine("A.JPG", 500, 1000, std::chrono::seconds(1), 80),
            "A.JPG [##########..........]  50 %  500 bytes/s  00:01");
  EXPECT_LE(displayWidth(progressLine(std::string(300, 'x'), 1, 2, std::chrono::seconds(1), 60)),
            60U);
}

}  // namespace
}  // namespace tarvo::tools
