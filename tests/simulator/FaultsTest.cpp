#include "simulator/description/Faults.h"

#include <gmock/gmock.h>

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAreArray;
using ::testing::StartsWith;

/// In which of a row of transactions a fault strikes.
std::vector<bool> strikesIn(const char* name, const char* value, Fault fault,
                            const std::vector<std::uint16_t>& operations) {
  Faults faults;
  EXPECT_EQ(faults.set(name, value), "");
  std::vector<bool> struck;
  for (const auto operation : operations) {
    faults.begin(operation);
    struck.push_back(faults.strikes(fault));
  }
  return struck;
}

TEST(Faults, StrikeInTheTransactionsThatTheyWereSetFor) {
  struct Row {
    const char* name;
    const char* value;
    Fault fault;
    std::vector<bool> expected;
  };
  const std::vector<std::uint16_t> operations = {0x1001, 0x1009, 0x1009, 0x920A};
  const Row rows[] = {
      {"stall", "0x1009", Fault::kStall, {false, true, true, false}},
      {"stall", "", Fault::kStall, {true, true, true, true}},
      {"stall", "once", Fault::kStall, {true, false, false, false}},
      {"stall", "0x1009,once", Fault::kStall, {false, true, false, false}},
      {"silent", "@3", Fault::kSilent, {false, false, true, false}},
      {"silent", "@3+", Fault::kSilent, {false, false, true, true}},
      {"silent", "@2,0x1009", Fault::kSilent, {false, false, true, false}},
      {"raise", "", Fault::kRaise, {false, false, false, true}},
      {"raise", "0x1001", Fault::kRaise, {true, false, false, false}},
      {"truncate", "5", Fault::kTruncate, {true, false, false, false}},
      {"respond", "0x2019,0x1009", Fault::kRespond, {false, true, true, false}},
      {"short", "off", Fault::kShort, {false, false, false, false}},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(strikesIn(row.name, row.value, row.fault, operations),
                ElementsAreArray(row.expected))
        << row.name << "=" << row.value;
  }
}

TEST(Faults, TakeTimesInMillisecondsAndMicroseconds) {
  const std::pair<const char*, std::uint32_t> rows[] = {
      {"5", 5000}, {"5ms", 5000}, {"250us", 250}, {"7us,0x1001", 7}};
  for (const auto& [value, expected] : rows) {
    Faults faults;
    ASSERT_EQ(faults.set("delay", value), "");
    faults.begin(0x1001);
    EXPECT_EQ(faults.amount(Fault::kDelay), expected) << value;
  }
}

TEST(Faults, RefuseWhatTheyDoNotTake) {
  Faults faults;
  for (const auto& [name, value] :
       {std::pair{"delay", ""}, std::pair{"delay", "5s"}, std::pair{"stall", "0x10000"},
        std::pair{"stall", "x"}, std::pair{"stall", "@0"}, std::pair{"respond", "once"}}) {
    EXPECT_THAT(faults.set(name, value), StartsWith("the fault is written ")) << name;
  }
  EXPECT_THAT(faults.set("explode", ""), StartsWith("unknown fault"));
}

}  // namespace
}  // namespace tarvo::simulator
