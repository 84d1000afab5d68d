// property: values in words, and only those that fit are sent.
#include <gmock/gmock.h>

#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

TEST(Properties, AreReadByNameAndByCode) {
  CameraBench bench;
  for (const char* property : {"BatteryLevel", "batterylevel", "0x5001", "20481"})
    EXPECT_EQ(bench.run({"--json", "property", "get", property}).json()["current"], 80) << property;
  EXPECT_THAT(bench.run({"property", "get", "ExposureBiasCompensation"}).out,
              ContainsRegex("Allowed: +-1000, 0, 1000\n"));
  EXPECT_THAT(bench.fails({"property", "get", "0x5002"}).err,
              HasSubstr("FunctionalMode (0x5002): device property not supported (0x200a)"));
}

TEST(Properties, AreSetInTheirOwnType) {
  CameraBench bench;
  bench.done({"property", "set", "0x5010", "-1000"});
  for (const char* date : {"20261124T120000.0+0200", "2026-11-24 12:00:00 +0200", "20261124T120000",
                           "2026-11-24 12:00:00"})
    bench.done({"property", "set", "DateTime", date});
  EXPECT_EQ(bench.run({"--json", "property", "get", "0x5010"}).json()["current"], -1000);
  EXPECT_EQ(bench.run({"--json", "property", "get", "DateTime"}).json()["current"],
            "20261124T120000");
}

TEST(Properties, WhatDoesNotFitIsNotSent) {
  CameraBench bench;
  const std::string tooLong(255, '1');
  const std::vector<std::string> kBad[] = {
      {"0x5010", "much"},    {"0x5010", "40000"},       {"0x5010", "[1]"},
      {"BatteryLevel", "1"}, {"DateTime", "yesterday"}, {"DateTime", "2026-02-30 12:00:00"},
      {"DateTime", tooLong}};
  for (const auto& words : kBad)
    EXPECT_THAT(bench.fails({"property", "set", words[0], words[1]}).err,
                ContainsRegex("property set .+\\(0x50[01][01]\\): .+"));
  EXPECT_EQ(bench.sim.asked(ptp::kSetDevicePropValue), 0U);
}

}  // namespace
}  // namespace tarvo::test
