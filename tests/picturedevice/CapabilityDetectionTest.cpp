// Which capabilities follow from a DeviceInfo: each code gives its own and no other.
#include <gtest/gtest.h>

#include <vector>

#include "NativeServices/PictureDevice/operations/CapabilityDetection.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/ScriptedPTPTransactions.h"

namespace tarvo::test {
namespace {

struct Facts {
  std::string manufacturer = "Tarvo Imaging";
  std::string model = "Tarvo Lumo 500";
  CodeList opcodes{};
  CodeList properties{};
  CodeList imageFormats{};
  CodeList datasets{};
};

DeviceCapabilities detect(const Facts& facts, ScriptedPTPTransactions& device) {
  const MakerConstants maker;
  return CapabilityDetection(device, maker)
      .detect({facts.manufacturer, facts.model, facts.opcodes, facts.properties, facts.imageFormats,
               facts.datasets});
}

using Flags = std::vector<bool DeviceCapabilities::*>;
using C = DeviceCapabilities;

DeviceCapabilities withFlags(const Flags& flags) {
  DeviceCapabilities capabilities;
  for (const auto flag : flags)
    capabilities.*flag = true;
  return capabilities;
}

const struct {
  Facts facts;
  Flags makers;     ///< set on a device of the maker, beside capture
  Flags foreign{};  ///< set on another's device
} kRows[] = {
    {{}, {}},
    {{.opcodes = {0x9007}}, {&C::deviceSupportsAddressBooks}},
    {{.opcodes = {0x900C}}, {&C::deviceSupportsAlbumNames}},
    {{.datasets = {0xB203}}, {&C::deviceSupportsAddressBooks}},
    {{.datasets = {0xB201}}, {&C::deviceSupportsAlbumNames}},
    {{.datasets = {0xB202}}, {}},
    {{.opcodes = {0x9011}}, {&C::deviceSupportsBragbooks}},
    {{.imageFormats = {0xB803}}, {&C::deviceRequiresYCC422}},
    {{.properties = {0xD206}}, {&C::deviceSupportsIntention}},
    {{.opcodes = {0x9009}}, {&C::deviceSupportsCameraBackDisplay}},
    {{.opcodes = {0x9209}}, {&C::hasDeleteVendorObject}},
    {{.opcodes = {0x9002}}, {&C::hasSendVendorObject}},
    {{.opcodes = {0x9006}}, {&C::xtSendRequired, &C::deviceAcceptsFiles}},
    {{.opcodes = {0x9006, 0x100D}}, {&C::deviceAcceptsFiles}, {&C::deviceAcceptsFiles}},
    {{.opcodes = {0x100B}}, {&C::hasDeleteObject}, {&C::hasDeleteObject}},
    {{.model = "Tarvo Lumo 200"}, {&C::deviceAcceptsFiles}, {&C::deviceAcceptsFiles}},
};
{"nothing", {}, {}},
    {"address book information", {.opcodes = {0x9007}}, {&C::deviceSupportsAddressBooks}},
    {"contacts", {.datasets = {0xB203}}, {&C::deviceSupportsAddressBooks}},
    {"LCB information", {.opcodes = {0x900C}}, {&C::deviceSupportsAlbumNames}},
    {"albums", {.datasets = {0xB201}}, {&C::deviceSupportsAlbumNames}},
    {"groups", {.datasets = {0xB202}}, {}},
    {"bragbook version", {.opcodes = {0x9011}}, {&C::deviceSupportsBragbooks}},
    {"newer bragbook pictures", {.imageFormats = {0xB803}}, {&C::deviceRequiresYCC422}},
    {"older bragbook pictures", {.imageFormats = {0xB802}}, {}},
    {"intention", {.properties = {0xD206}}, {&C::deviceSupportsIntention}},
    {"a property as an operation", {.opcodes = {0xD206}}, {}},
    {"back display", {.opcodes = {0x9009}}, {&C::deviceSupportsCameraBackDisplay}},
    {"vendor delete", {.opcodes = {0x9209}}, {&C::hasDeleteVendorObject}},
    {"vendor send", {.opcodes = {0x9002}}, {&C::hasSendVendorObject}},
    {"vendor send only", {.opcodes = {0x9006}}, {&C::xtSendRequired, &C::deviceAcceptsFiles}},
    {"both sends",
     {.opcodes = {0x9006, 0x100D}},
     {&C::deviceAcceptsFiles},
     {&C::deviceAcceptsFiles}},
    {"standard send", {.opcodes = {0x100D}}, {&C::deviceAcceptsFiles}, {&C::deviceAcceptsFiles}},
    {"standard delete", {.opcodes = {0x100B}}, {&C::hasDeleteObject}, {&C::hasDeleteObject}},
    {"legacy", {.model = "Tarvo Lumo 200"}, {&C::deviceAcceptsFiles}, {&C::deviceAcceptsFiles}},
};

TEST(CapabilityDetection, GivesEachCodeItsOwnFlagOnTheMakersDevicesAlone) {
  for (const auto& row : kRows) {
    ScriptedPTPTransactions device;
    DeviceCapabilities expected = withFlags(row.makers);
    expected.deviceSupportsCapture = true;
    const auto which = &row - kRows;
    EXPECT_EQ(detect(row.facts, device), expected) << which;

    Facts foreign = row.facts;
    foreign.manufacturer = "Tarvo Imaging ";
    ScriptedPTPTransactions foreignDevice;
    EXPECT_EQ(detect(foreign, foreignDevice), withFlags(row.foreign)) << which;
    EXPECT_EQ(foreignDevice.calls.size(), 0U) << which;
  }
}

TEST(CapabilityDetection, TakesListedLCBInformationOnlyWhenItWorks) {
  ScriptedPTPTransactions device;
  device.failing["LCBInfo"] = 0x2002;
  EXPECT_FALSE(detect({.opcodes = {0x900C}}, device).deviceSupportsAlbumNames);
  EXPECT_EQ(device.calls.size(), 1U);
  EXPECT_TRUE(detect({.opcodes = {0x900C}, .datasets = {0xB201}}, device).deviceSupportsAlbumNames);
}

TEST(CapabilityDetection, ReadsTheCaptureCapabilityByItsDatatype) {
  const struct {
    std::vector<std::uint8_t> description;
    bool captures = false;
    bool sendsBragbookImages = false;
  } rows[] = {
      {{}},
      {PTPBytes().u16(0xD00B).u16(1).u8(0).u8(0xFF).u8(0x01), true, false},
      {PTPBytes().u16(0xD00B).u16(2).u8(0).u8(0xFF).u8(0x40), false, true},
      {PTPBytes().u16(0xD00B).u16(4).u8(0).u16(0xFFFF).u16(0xBE)},
      {PTPBytes().u16(0xD00B).u16(6).u8(0).u32(0xFFFFFFFF).u32(0x100)},
      {PTPBytes().u16(0xD00B).u16(7).u8(0).u32(0x41).u32(0x41).u32(0x41)},
      {PTPBytes().u16(0xD00B).u16(0xFFFF).u8(0).text("A").text("A")},
  };
  for (const auto& row : rows) {
    ScriptedPTPTransactions device;
    if (!row.description.empty()) device.descriptions[0xD00B] = row.description;
    const auto capabilities = detect({.properties = {0xD00B}}, device);
    EXPECT_EQ(capabilities.deviceSupportsCapture, row.captures) << &row - rows;
    EXPECT_EQ(capabilities.supportsDirectBragbookImages, row.sendsBragbookImages) << &row - rows;
  }
}

TEST(SupportedOperation, DependsOnTheListAndForVendorOperationsOnTheExtension) {
  const CodeList listed = {0x1004, 0x1000, 0x101C, 0x101D, 0x9007};
  using Codes = std::vector<std::uint16_t>;
  const auto offered = [](const CodeList* list, bool hasMakersExtension) {
    Codes codes;
    for (const std::uint16_t code :
         {0x1000, 0x1001, 0x1003, 0x1004, 0x101C, 0x101D, 0x9007, 0x9009})
      if (isOperationSupported(code, list, hasMakersExtension)) codes.push_back(code);
    return codes;
  };
  EXPECT_EQ(offered(&listed, true),
            Codes({0x1000, 0x1001, 0x1003, 0x1004, 0x101C, 0x101D, 0x9007}));
  EXPECT_EQ(offered(&listed, false), Codes({0x1001, 0x1003, 0x1004, 0x101C}));
  EXPECT_EQ(offered(nullptr, true), Codes({0x1001, 0x1003}));
}

}  // namespace
}  // namespace tarvo::test
