#include "Utilities/Status.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tarvo {
namespace {

TEST(StatusText, PutsAStatusInWordsWithItsNumber) {
  const std::vector<std::pair<Status, const char*>> rows = {
      {0, "no error (0)"},
      {-43, "file not found (-43)"},
      {-9901, "device in use by another program (-9901)"},
      {0x2002, "general device error, or no response (0x2002)"},
      {0x2005, "operation not supported by the device (0x2005)"},
      {0x10000005, "e-mail address too long (0x10000005)"},
      {-12345, "status -12345"},
      {0x2FFF, "status 12287 (0x2fff)"},
      {-2147483647 - 1, "status -2147483648"},
  };
  for (const auto& [value, text] : rows)
    EXPECT_EQ(statusText(value), text);
}

TEST(StatusText, NeverSaysTheSameOfTwoStatuses) {
  std::set<std::string> texts;
  std::size_t count = 0;
  for (Status value = -10000; value <= 0x2100; ++value, ++count)
    texts.insert(statusText(value));
  for (Status value = 0x10000000; value <= 0x10000020; ++value, ++count)
    texts.insert(statusText(value));
  EXPECT_EQ(texts.size(), count);
}

}  // namespace
}  // namespace tarvo
