// The bulk-only transport of a virtual unit (USB Mass Storage Class, Bulk-Only Transport 1.0).
#include <gmock/gmock.h>

#include "tests/simulator/UnitOnWire.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kDock = R"({"scsi": {"type": 5}, "modePages": {"usbMode": {}}})";
constexpr const char* kInquiryBlock = "12 00 00 00 24 00";
constexpr const char* kSelectBlock = "55 00 00 00 00 00 00 00 11 00";
constexpr const char* kPage = "0000000000000000 25 07 01 00 00000000 00";

/// A status wrapper for the tag of UnitOnWire.
std::string status(std::uint32_t residue, unsigned code) {
  ByteWriter writer;
  writer.u32(0x53425355);
  writer.u32(0x11223344);
  writer.u32(residue);
  writer.u8(static_cast<std::uint8_t>(code));
  return test::hexText(writer.take());
}

// What the host expects (nothing, data in, data out) against what the unit does: the cases of 6.7.
TEST(BulkOnly, AgreesOrDisagreesAboutDataAsLaidDown) {
  struct Row {
    int number;
    const char* block;
    std::uint32_t expected;
    bool toHost;
    std::string data;  ///< what comes or goes on the bulk endpoint
    std::uint32_t residue;
    unsigned code;
  };
  const std::string inquiry = "058004021f000000";  // how it begins
  const Row rows[] = {
      {1, "1b 00 00 00 00 00", 0, false, "", 0, 0},
      {2, kInquiryBlock, 0, false, "", 0, 2},
      {3, kSelectBlock, 0, false, "", 0, 2},
      {4, "1b 00 00 00 00 00", 36, true, "stalled", 36, 0},
      {5, kInquiryBlock, 64, true, inquiry, 28, 0},
      {6, kInquiryBlock, 36, true, inquiry, 0, 0},
      {7, kInquiryBlock, 8, true, inquiry, 0, 2},
      {8, kSelectBlock, 17, true, "stalled", 17, 2},
      {9, "1b 00 00 00 00 00", 17, false, "stalled", 17, 0},
      {10, kInquiryBlock, 36, false, "stalled", 36, 2},
      {11, kSelectBlock, 20, false, "accepted", 3, 0},
      {12, kSelectBlock, 17, false, "accepted", 0, 0},
      {13, kSelectBlock, 9, false, "accepted", 0, 2},
  };
  for (const auto& row : rows) {
    UnitOnWire unit(kDock);
    ASSERT_EQ(unit.out(UnitOnWire::wrapper(row.block, row.expected, row.toHost)), "accepted");
    if (row.expected > 0 && row.toHost) {
      const auto data = unit.in(row.expected);
      EXPECT_EQ(data.substr(0, row.data.size()), row.data) << "case " << row.number;
      unit.clear(MassStorageUnit::kBulkIn);
    } else if (row.expected > 0) {
      auto page = test::hexBytes(kPage);
      page.resize(row.expected);
      EXPECT_EQ(unit.out(page), row.data) << "case " << row.number;
      unit.clear(MassStorageUnit::kBulkOut);
    }
    EXPECT_EQ(unit.in(13), status(row.residue, row.code)) << "case " << row.number;
    EXPECT_EQ(unit.in(13), "waiting") << "case " << row.number;
    const bool agrees = row.code == 0;
    EXPECT_EQ(unit->violations().empty(), agrees) << "case " << row.number;
  }
}

TEST(BulkOnly, TakesNothingButACommandWrapper) {
  auto unit = UnitOnWire::wrapper(kInquiryBlock, 36, true);
  auto shortened = unit;
  shortened.pop_back();
  auto signature = unit;
  signature[0] = std::byte{0};
  auto otherUnit = unit;
  otherUnit[13] = std::byte{1};
  auto noBlock = unit;
  noBlock[14] = std::byte{0};
  auto reserved = unit;
  reserved[12] = std::byte{0x81};
  for (const auto& bad : {shortened, signature, otherUnit, noBlock, reserved}) {
    UnitOnWire wire(kDock);
    EXPECT_EQ(wire.out(bad), "accepted");
    EXPECT_EQ(wire->violations().size(), 1U);
    // Clearing alone does not help; resetting and clearing does (5.3.4).
    for (const bool isReset : {false, true}) {
      EXPECT_TRUE(!isReset || wire.reset());
      wire.clear(MassStorageUnit::kBulkIn);
      wire.clear(MassStorageUnit::kBulkOut);
      EXPECT_EQ(wire.out(unit), isReset ? "accepted" : "stalled");
      EXPECT_EQ(wire.in(36).substr(0, 4), isReset ? "0580" : "stal");
    }
    EXPECT_EQ(wire.in(13), status(0, 0));
  }
}

TEST(BulkOnly, EndsShortDataOfWholePacketsWithAHalt) {
  UnitOnWire unit(R"({"volume": {"label": "X"}})");
  ASSERT_EQ(unit.out(UnitOnWire::wrapper("28 00 00 00 00 00 00 00 01 00", 2048, true)), "accepted");
  const auto data = unit.in(2048);
  EXPECT_EQ(data.size(), 1024 + std::string("stalled").size());
  EXPECT_THAT(data, HasSubstr("55aastalled"));  // the partition table
  unit.clear(MassStorageUnit::kBulkIn);
  EXPECT_EQ(unit.in(13), status(1536, 0));
}

TEST(BulkOnly, AnswersTheClassRequests) {
  UnitOnWire unit(kDock);
  EXPECT_EQ(unit->control({0xA1, 0xFE, 0, 0, 1}, {}), Bytes(1));
  EXPECT_FALSE(unit->control({0xA1, 0xFD, 0, 0, 1}, {}));
  EXPECT_TRUE(unit.reset());
}

TEST(BulkOnly, GoesWrongWhereAFaultSaysSo) {
  struct Row {
    const char* name;
    const char* value;
    std::string data;
    std::string status;
  };
  const Row rows[] = {
      {"stall", "", "stalled", status(36, 1)},
      {"stall", "0x12,@2", "0580", "555342"},
      {"silent", "", "waiting", "waiting"},
      {"sense", "0x042000", "stalled", status(36, 1)},
      {"status", "8", "stalled", status(36, 1)},
      {"phase-error", "", "0580", status(0, 2)},
      {"wrong-tag", "", "0580", "555342534b332211"},
      {"wrong-signature", "", "0580", "5453425344332211"},
      {"short", "", "0580", status(18, 0)},
      {"truncate", "3", "058004", status(33, 0)},
      {"truncate", "0", "stalled", status(36, 0)},
      {"babble", "", "overflow", status(0, 0)},
      {"vanish", "", "058004021f000000544152564f2020204361gone", "gone"},
      {"vanish-status", "", "0580", "gone"},
      {"garbage", "", "", status(0, 0)},
  };
  for (const auto& row : rows) {
    UnitOnWire unit(kDock);
    ASSERT_EQ(unit->setFault(row.name, row.value), "");
    ASSERT_EQ(unit.out(UnitOnWire::wrapper(kInquiryBlock, 36, true)), "accepted") << row.name;
    const auto data = unit.in(36);
    EXPECT_EQ(data.substr(0, row.data.size()), row.data) << row.name << " " << data;
    EXPECT_EQ(data.starts_with("0580"), row.data.starts_with("0580")) << row.name;
    unit.clear(MassStorageUnit::kBulkIn);
    EXPECT_EQ(unit.in(13).substr(0, row.status.size()), row.status) << row.name;
  }
  UnitOnWire unit(kDock);
  EXPECT_THAT(unit->setFault("wrong-id", ""), HasSubstr("unknown fault"));
  EXPECT_EQ(unit->setFault("vanish-command", ""), "");
  EXPECT_EQ(unit.out(UnitOnWire::wrapper(kInquiryBlock, 36, true)), "gone");
}

TEST(BulkOnly, GoesWrongWhileItReceives) {
  for (const auto& [fault, expected] :
       {std::pair{"stall-out", "stalled"}, std::pair{"vanish", "gone"}}) {
    UnitOnWire unit(kDock);
    ASSERT_EQ(unit->setFault(fault, "0x55"), "");
    ASSERT_EQ(unit.out(UnitOnWire::wrapper(kSelectBlock, 17, false)), "accepted");
    EXPECT_EQ(unit.out(test::hexBytes(kPage)), expected);
    unit.clear(MassStorageUnit::kBulkOut);
    EXPECT_EQ(unit.in(13), fault == std::string("vanish") ? "gone" : status(17, 1));
  }
}

TEST(BulkOnly, GoesWhenTheStatusOfItsSwitchWasTaken) {
  UnitOnWire unit(R"({"modePages": {"usbMode": {"autoPowerCycle": true}},
    "camera": {"usb": {"vendor": 1, "product": 2}, "deviceInfo": {}}})");
  ASSERT_EQ(unit.out(UnitOnWire::wrapper(kSelectBlock, 17, false)), "accepted");
  ASSERT_EQ(unit.out(test::hexBytes("0000000000000000 25 07 04 01 00000064 00")), "accepted");
  EXPECT_FALSE(unit->isGone());
  EXPECT_EQ(unit.in(13), status(0, 0));
  EXPECT_TRUE(unit->isGone());
  EXPECT_TRUE(unit->returnsAsCamera());
  EXPECT_THAT(unit->violations(), IsEmpty());
}

TEST(BulkOnly, ComplainsOfCommandsThatComeTooEarly) {
  UnitOnWire unit(kDock);
  unit.out(UnitOnWire::wrapper(kInquiryBlock, 36, true));
  unit.out(UnitOnWire::wrapper("1b 00 00 00 00 00", 0, false));
  EXPECT_EQ(unit.in(13), status(0, 0));
  EXPECT_THAT(unit->violations(), ElementsAre("a command came before the last status was taken"));
}

}  // namespace
}  // namespace tarvo::simulator
