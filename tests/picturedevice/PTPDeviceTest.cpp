// A PTP device: its DeviceInfo, the messages that reach the service and those that do not, and the
// capabilities that follow: each code gives its own and no other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/CapabilityDetection.h"
#include "Utilities/Exception.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPTransactions.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;

const std::vector<std::uint16_t> kAllQueries = {0x1001, 0x1002, 0x1003, 0x1014,
                                                0x900C, 0x9009, 0x920A};

/// A camera that answers every vendor query.
FakeImageCapture::Device& addAnsweringCamera(PictureDeviceTestRoom& room) {
  auto& camera = room.ica.addPTPCamera(
      {.operations = kAllQueries, .properties = {0xD00B, 0xD206}, .imageFormats = {0xB803}});
  camera.answers[0x920A] = {.data = PTPBytes().codes({0xB203, 0xB201})};
  camera.answers[0x900C] = {.data = std::vector<std::uint8_t>(12)};
  camera.answers[0x9009] = {.parameters = {3}};
  camera.answers[0x1014] = {.data = PTPBytes().u16(0xD00B).u16(4).u8(0).u16(0).u16(0x41)};
  return camera;
}

std::shared_ptr<XTImageCapturePTPDevice> load(const FakeImageCapture::Device& camera) {
  return XTImageCapturePTPDevice::withICAObject(camera.object, nullptr);
}

TEST(PTPDevice, TakesItsIdentityAndListsFromDeviceInfoAskingEachThingOnce) {
  PictureDeviceTestRoom room;
  const auto& camera = addAnsweringCamera(room);
  const auto device = load(camera);
  ASSERT_TRUE(device);
  EXPECT_EQ(device->vendorExtensionID(), 0x5452U);
  EXPECT_EQ(device->deviceVersion(), "1.02");
  EXPECT_EQ(*device->opCodeList(), kAllQueries);
  EXPECT_THAT(*device->eventCodeList(), ElementsAre(0x4004));
  EXPECT_THAT(*device->propertyList(), ElementsAre(0xD00B, 0xD206));
  EXPECT_THAT(*device->captureFormatList(), ElementsAre(0x3801));
  EXPECT_THAT(*device->imageFormatList(), ElementsAre(0xB803));
  EXPECT_EQ(device->displayRequestVersion(), 3);
  EXPECT_EQ(device->description(),
            "XTImageCapturePTPDevice named Tarvo Lumo 500, model Tarvo Lumo 500 and serial# SN0001"
            ", icaObject 0x00000100");
  EXPECT_EQ(device->loadDeviceInfo(), 0);
  EXPECT_THAT(camera.operations, ElementsAre(0x1001, 0x920A, 0x900C, 0x1014, 0x9009));
  EXPECT_TRUE(room.trace.contains("data: 0x64 0x0 0x52 0x54 0x0 0x0 0x64 0x0"));
}

TEST(PTPDevice, ReadsAShortAnswerOfSupportedDatasetsAsZeros) {
  PictureDeviceTestRoom room;
  auto& camera = addAnsweringCamera(room);
  camera.answers[0x920A] = {.data = PTPBytes().u32(2).u16(0xB203)};
  EXPECT_THAT(load(camera)->supportedDatasets(), ElementsAre(0xB203, 0));
  EXPECT_TRUE(room.trace.contains("supportedDatasets read 8 bytes, the device sent 6"));
}

TEST(PTPDevice, RaisesWhenAVendorQueryFailsAndKeepsTheStatusNotTheResponse) {
  PictureDeviceTestRoom room;
  auto& camera = addAnsweringCamera(room);
  camera.answers[0x9009] = {.responseCode = 0x2019};
  try {
    load(camera);
    FAIL() << "nothing was raised";
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), "XTPTPException");
    EXPECT_EQ(exception.reason(), "XT_GET_DISPLAY_REQUEST_VERSION failed");
    EXPECT_EQ(exception.userInfo(), PropertyDictionary({{"ptpResponseCode", 0}}));
  }
}

TEST(PTPDevice, IsUsedWithoutWhatItListsAndThenDoesNotKnow) {
  for (const std::uint16_t query : {0x920A, 0x9009}) {
    for (const std::uint16_t response : {0x2005, 0x2006}) {
      PictureDeviceTestRoom room;
      auto& camera = addAnsweringCamera(room);
      camera.answers[query] = {.responseCode = response};
      EXPECT_TRUE(load(camera)) << query;
    }
  }
}

TEST(PTPDevice, OfMoreDeviceInfoThanThereIsRoomForIsRefusedInWords) {
  PictureDeviceTestRoom room;
  const auto& camera = room.ica.addPTPCamera({.operations = std::vector<std::uint16_t>(1100, 7)});
  EXPECT_THAT(raised([&] { load(camera); }), testing::HasSubstr("more than the 2048 bytes"));
}

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
  const auto described = [](std::uint16_t type) { return PTPBytes().u16(0xD00B).u16(type).u8(0); };
  const std::tuple<std::vector<std::uint8_t>, bool, bool> rows[] = {
      {{}, false, false},
      {described(1).u8(0xFF).u8(0x01), true, false},
      {described(2).u8(0xFF).u8(0x40), false, true},
      {described(4).u16(0xFFFF).u16(0xBE), false, false},
      {described(6).u32(0xFFFFFFFF).u32(0x100), false, false},
      {described(7).u32(0x41).u32(0x41).u32(0x41), false, false},
      {described(0xFFFF).text("A").text("A"), false, false},
  };
  for (const auto& [description, captures, sendsBragbookImages] : rows) {
    ScriptedPTPTransactions device;
    if (!description.empty()) device.descriptions[0xD00B] = description;
    const auto capabilities = detect({.properties = {0xD00B}}, device);
    EXPECT_EQ(capabilities.deviceSupportsCapture, captures) << description.size();
    EXPECT_EQ(capabilities.supportsDirectBragbookImages, sendsBragbookImages);
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
