#include "NativeServices/Logging.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace tarvo {
namespace {

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
