// Commands and mode pages of a virtual unit.
#include <gmock/gmock.h>

#include "tests/simulator/UnitOnWire.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// Commands to one unit, one after the other.
struct Step {
  const char* block;
  std::uint32_t room;
  const char* expected;  ///< how the answer begins; "" also for none
};

void expectSteps(UnitOnWire& unit, const std::vector<Step>& steps) {
  for (const auto& step : steps) {
    const auto answer = unit.read(step.block, step.room);
    EXPECT_THAT(answer, StartsWith(step.expected)) << step.block;
    EXPECT_EQ(answer.empty(), *step.expected == '\0') << step.block;
  }
  EXPECT_THAT(unit->violations(), IsEmpty());
}

constexpr const char* kReady = "00 00 00 00 00 00";
constexpr const char* kEject = "1b 00 00 00 02 00";
constexpr const char* kLoad = "1b 00 00 00 03 00";
constexpr const char* kLock = "1e 00 00 00 01 00";
constexpr const char* kUnlock = "1e 00 00 00 00 00";

TEST(ScsiUnit, AnswersAsAnOpticalDriveWithAMedium) {
  UnitOnWire unit(R"({"scsi": {"type": 5}, "volume": {"label": "X"}})");
  expectSteps(unit, {
                        {"12 00 00 00 24 00", 36, "058004021f000000544152564f202020"},
                        {"12 01 00 00 20 00", 32, "05000003008083"},
                        {"12 01 80 00 20 00", 32, "058000025331"},
                        {"12 01 b0 00 20 00", 32, "failed 05/24/00"},
                        {kReady, 0, ""},
                        {"25 00 00 00 00 00 00 00 00 00", 8, "00001fff00000800"},
                        {"23 00 00 00 00 00 00 00 0c 00", 12, "0000000800002000"},
                        {"28 00 00 00 00 00 00 00 01 00", 2048, "eb3c90"},
                        {"28 00 00 00 1f ff 00 00 01 00", 2048, "0000"},
                        {"28 00 00 00 20 00 00 00 01 00", 2048, "failed 05/21/00"},
                        {"43 00 00 00 00 00 00 00 20 00", 32, "001201010014010000000000"},
                        {"43 02 00 00 00 00 00 00 20 00", 32, "001201010014010000000200"},
                        {"43 00 01 00 00 00 00 00 20 00", 32, "000a01010014010000000000"},
                        {"43 00 02 00 00 00 00 00 20 00", 32, "failed 05/24/00"},
                        {"46 00 00 00 00 00 00 00 08 00", 8, "0000002800000008"},
                        {"46 02 00 03 00 00 00 00 20 00", 32,
                         "0000000c00000008"
                         "0003030429000000"},
                        {"4a 01 00 00 10 00 00 00 08 00", 8, "0006041000020000"},
                        {"4a 00 00 00 10 00 00 00 08 00", 8, "failed 05/24/00"},
                        {"51 00 00 00 00 00 00 00 22 00", 34, "00200e01010101"},
                        {"5a 00 2a 00 00 00 00 00 20 00", 32, "001a0000000000002a120000000029"},
                        {"5a 00 25 00 00 00 00 00 20 00", 32, "failed 05/24/00"},
                        {"a0 00 00 00 00 00 00 00 00 10 00 00", 16, "failed 05/20/00"},
                        {kLock, 0, ""},
                        {kEject, 0, "failed 05/53/02"},
                        {kUnlock, 0, ""},
                        {kEject, 0, ""},
                        {kReady, 0, "failed 02/3a/02"},
                        {"25 00 00 00 00 00 00 00 00 00", 8, "failed 02/3a/02"},
                        {"4a 01 00 00 10 00 00 00 08 00", 8, "0006041000010000"},
                        {kLoad, 0, ""},
                        {"4a 01 00 00 10 00 00 00 08 00", 8, "0006041002020000"},
                        {kReady, 0, "failed 06/28/00"},
                        {kReady, 0, ""},
                    });
  EXPECT_EQ(unit.write("2a 00 00 00 00 00 00 00 01 00", std::string(4096, '0')), "failed 07/27/00");
}

TEST(ScsiUnit, HoldsWhatIsWrittenToACard) {
  UnitOnWire unit(R"({"volume": {"label": "card", "content": [
      {"folder": "DCIM", "content": [{"file": "A.TXT", "text": "hello"}]}]}})");
  const std::string block(1024, 'a');
  EXPECT_EQ(unit.write("2a 00 00 00 00 07 00 00 01 00", block), "");
  expectSteps(unit, {{"28 00 00 00 00 07 00 00 01 00", 512, block.c_str()},
                     {"28 00 00 00 08 00 00 00 01 00", 512, "eb"},  // the partition
                     {"35 00 00 00 00 00 00 00 00 00", 0, ""},
                     {"1a 00 3f 00 c0 00", 192, "03000000"},
                     {"43 00 00 00 00 00 00 00 20 00", 32, "failed 05/20/00"}});
}

TEST(ScsiUnit, GivesTheMakersPages) {
  const std::string pages = R"({"scsi": {"type": 0}, "modePages": {"clock": true,
      "usbMode": {"autoPowerCycle": true, "composite": true, "flags": 1, "delay": "0x01020304"},
      "model": {"bytes": [0, 65, 255]}}})";
  UnitOnWire unit(pages);
  expectSteps(unit, {{"5a 00 25 00 00 00 00 00 40 00", 64,
                      "000f000000000000"
                      "250701000102030405"},
                     {"5a 00 25 00 00 00 00 00 08 00", 8, "000f000000000000"},
                     {"5a 00 26 00 00 00 00 00 40 00", 64,
                      "000b000000000000"
                      "26030041ff"},
                     {"5a 00 29 00 00 00 00 00 40 00", 64,
                      "0016000000000000"
                      "290e3230323430313031"},
                     {"1a 00 29 00 40 00", 64, "13000000290e3230"},
                     {"5a 00 e9 00 00 00 00 00 40 00", 64, "failed 05/39/00"},
                     {"5a 00 69 00 00 00 00 00 40 00", 64, "0016000000000000290e0000"},
                     {"5a 00 2a 00 00 00 00 00 40 00", 64, "failed 05/24/00"}});
  ASSERT_EQ(unit->setFault("mode-length", "0xFFFF,0x5A,once"), "");
  expectSteps(unit, {{"5a 00 25 00 00 00 00 00 08 00", 8, "ffff"}});
  ASSERT_EQ(unit->setFault("page-length", "200,0x5A,once"), "");
  expectSteps(unit, {{"5a 00 26 00 00 00 00 00 40 00", 64,
                      "000b000000000000"
                      "26c8"}});
}

TEST(ScsiUnit, KeepsWhatAHostSelectsAndChecksIt) {
  struct Row {
    const char* list;
    const char* answer;
    const char* violation;  ///< "": none
  };
  const Row rows[] = {
      {"0000000000000000 25 07 81 01 0000007b 01", "", ""},
      {"0000000000000000 25 07 00 00 00000000 00", "", ""},
      {"000f000000000000 25 07 01 00 00000000 00", "", "the header is not all zero"},
      {"0000000000000000 25 07 05 00 00000000 00", "", "more than one mode"},
      {"0000000000000000 25 07 41 00 00000000 00", "", "unknown mode flags"},
      {"0000000000000000 25 07 04 02 00000000 00", "", "power down is neither"},
      {"0000000000000000 25 07 04 00 00000001 00", "", "a wake-up delay without"},
      {"0000000000000000 25 07 04 00 00000000 02", "", "capabilities"},
      {"0000000000000000 25 08 04 00 00000000 00", "failed 05/26/00", "claims 8 bytes and has 7"},
      {"0000000000000000 25 06 04 00 00000000", "failed 05/26/00", "has 7 bytes"},
      {"0000000000000000 27 00", "failed 05/26/00", "no page 0x27"},
      {"0000000000000000 26 00", "failed 05/26/00", "no page 0x26"},
      {"0000000000000000 25", "failed 05/1a/00", ""},
      {"0000000000000000 29 0e 3230323430363135313330393035", "", ""},
      {"0000000000000000 29 0e 3230323431333135313330393035", "failed 05/26/00", "no date"},
      {"0000000000000000 29 0e 323032343036313531333039303a", "failed 05/26/00", "no date"},
  };
  for (const auto& row : rows) {
    UnitOnWire unit(R"({"modePages": {"usbMode": {"autoPowerCycle": true}, "clock": true}})");
    const auto block =
        formatted("55 00 00 00 00 00 00 00 %02zx 00", test::hexBytes(row.list).size());
    EXPECT_EQ(unit.write(block, row.list), row.answer) << row.list;
    if (*row.violation == '\0') {
      EXPECT_THAT(unit->violations(), IsEmpty()) << row.list;
    } else {
      EXPECT_THAT(unit->violations(), ElementsAre(HasSubstr(row.violation))) << row.list;
    }
    EXPECT_EQ(unit->commands().front().data, test::hexBytes(row.list));
  }
  UnitOnWire unit(R"({"modePages": {"usbMode": {}, "clock": true}})");
  unit.write("55 00 00 00 00 00 00 00 11 00", "0000000000000000 25 07 01 00 00000000 00");
  unit.write("55 00 00 00 00 00 00 00 18 00",
             "0000000000000000 29 0e 3230323430363135313330393035");
  const auto state = unit->state();
  EXPECT_EQ(state.mode.flags, 1);
  EXPECT_FALSE(state.mode.powerDown);
  EXPECT_EQ(state.clock, "20240615130905");
  EXPECT_FALSE(unit->returnsAsCamera());
}

}  // namespace
}  // namespace tarvo::simulator
