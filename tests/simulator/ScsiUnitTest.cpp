// What a virtual unit says about a host whose mode pages break a rule. What else it does is seen by
// sg3-utils, by the kernel and by this project's own programs.
#include "simulator/massstorage/ScsiUnit.h"

#include <gmock/gmock.h>

#include "Utilities/Format.h"
#include "tests/support/HexBytes.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(ScsiUnit, ChecksWhatAHostSelects) {
  struct Row {
    const char* list;
    const char* sense;      ///< key and code
    const char* violation;  ///< "": none
  };
  const Row rows[] = {
      {"0000000000000000 25 07 81 01 0000007b 01", "0000", ""},
      {"000f000000000000 25 07 01 00 00000000 00", "0000", "the header is not all zero"},
      {"0000000000000000 25 07 05 00 00000000 00", "0000", "more than one mode"},
      {"0000000000000000 25 07 41 00 00000000 00", "0000", "unknown mode flags"},
      {"0000000000000000 25 07 04 02 00000000 00", "0000", "power down is neither"},
      {"0000000000000000 25 07 04 00 00000001 00", "0000", "a wake-up delay without"},
      {"0000000000000000 25 07 04 00 00000000 02", "0000", "capabilities"},
      {"0000000000000000 25 08 04 00 00000000 00", "0526", "claims 8 bytes and has 7"},
      {"0000000000000000 25 06 04 00 00000000", "0526", "has 7 bytes"},
      {"0000000000000000 27 00", "0526", "no page 0x27"},
      {"0000000000000000 25", "051a", ""},
      {"0000000000000000 29 0e 3230323430363135313330393035", "0000", ""},
      {"0000000000000000 29 0e 3230323431333135313330393035", "0526", "no date"},
      {"0000000000000000 29 0e 323032343036313531333039303a", "0526", "no date"},
  };
  const auto description = DeviceDescription::fromJson(nlohmann::json::parse(R"({
      "kind": "massStorage", "usb": {"vendor": 1, "product": 2},
      "modePages": {"usbMode": {"autoPowerCycle": true}, "clock": true}})"));
  const Faults none;
  for (const auto& row : rows) {
    HostViolations violations;
    ScsiUnit unit(description, violations);
    const auto list = test::hexBytes(row.list);
    const auto block = formatted("55 00 00 00 00 00 00 00 %02zx 00", list.size());
    ASSERT_EQ(unit.begin(test::hexBytes(block), none).expects, list.size());
    unit.finish(list);
    const auto told = allBytes(*unit.begin(test::hexBytes("03 00 00 00 12 00"), none).data);
    EXPECT_EQ(test::hexText(Bytes{told[2], told[12]}), row.sense) << row.list;
    if (*row.violation == '\0') {
      EXPECT_THAT(violations.list(), IsEmpty()) << row.list;
    } else {
      EXPECT_THAT(violations.list(), ElementsAre(HasSubstr(row.violation))) << row.list;
    }
  }
}

}  // namespace
}  // namespace tarvo::simulator
