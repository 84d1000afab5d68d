// The vendor mode pages: every byte that is sent, every answer that a unit can give.
#include "msc/ModePages.h"
#include "tests/msc/MSCFixture.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const Lines kSelectOf17 = {"ObtainExclusiveAccess",
                           "CreateSCSITask",
                           "SetCommandDescriptorBlock 55000000000000001100",
                           "SetScatterGatherEntries 0000000000000000250704010000007b00",
                           "SetTimeoutDuration 6000",
                           "ExecuteTaskSync 18",
                           "GetSCSIServiceResponse",
                           "ReleaseTask",
                           "ReleaseExclusiveAccess"};

std::string pageWritten(FakeSCSIUnit& unit) {
  constexpr std::string_view kData = "SetScatterGatherEntries ";
  for (const auto& call : unit.take())
    if (call.starts_with(kData)) return call.substr(kData.size());
  return {};
}

TEST_F(MSCTest, SwitchesWithTwoSensesAndOneSelect) {
  const auto device = unit();
  EXPECT_TRUE(device->setUSBMode(true, true, 1234));
  Lines expected = {"ModeSense10 0 0 0 25 8", "ModeSense10 0 0 0 25 23"};
  expected.insert(expected.end(), kSelectOf17.begin(), kSelectOf17.end());
  EXPECT_EQ(answers->take(), expected);
  EXPECT_THAT(traces.take(), IsEmpty());
  EXPECT_EQ(device->lastFailure().status, status::kOK);
}

TEST_F(MSCTest, WritesEachModeByteByByte) {
  const auto device = unit();
  const std::tuple<bool, bool, std::uint32_t, const char*> switches[] = {
      {true, true, 1000, "0000000000000000 25 07 04 01 00000064 00"},
      {true, true, 9, "0000000000000000 25 07 04 01 00000000 00"},
      {true, true, 0xFFFFFFFF, "0000000000000000 25 07 04 01 19999999 00"},
      {false, true, 0x0A0B0C0D, "0000000000000000 25 07 01 01 01011ace 00"},
      {true, false, 1000, "0000000000000000 25 07 04 00 00000000 00"},
      {false, false, 1000, "0000000000000000 25 07 01 00 00000000 00"}};
  for (const auto& [camera, powerDown, delay, page] : switches) {
    EXPECT_TRUE(device->setUSBMode(camera, powerDown, delay));
    EXPECT_EQ(pageWritten(*answers), hexText(hexBytes(page)));
  }
  const std::pair<PropertyDictionary, const char*> dictionaries[] = {
      {PropertyDictionary::object(), "0000000000000000 25 07 00 00 00000000 07"},
      {{{"startupMode", true}}, "0000000000000000 25 07 01 00 00000000 07"},
      {{{"memoryMode", 1}}, "0000000000000000 25 07 02 00 00000000 07"},
      {{{"cameraMode", true}, {"permanent", true}}, "0000000000000000 25 07 84 00 00000000 07"},
      {{{"powerDown", true}, {"autowakeDelay", 1234}, {"cameraMode", false}},
       "0000000000000000 25 07 00 01 0000007b 07"},
      {{{"autowakeDelay", 1234}, {"autoWakeup", 7}, {"memoryMode", "yes"}},
       "0000000000000000 25 07 00 00 00000000 07"}};
  for (const auto& [mode, page] : dictionaries) {
    EXPECT_TRUE(device->setUSBModeDictionary(mode));
    EXPECT_EQ(pageWritten(*answers), hexText(hexBytes(page))) << mode.dump();
  }
}

TEST_F(MSCTest, ReadsEachBitOfTheModeWhereItLies) {
  const auto device = unit();
  const std::pair<const char*, const char*> rows[] = {
      {"supportsAutoPowerCycle", "000f 0000 00000000 25 07 00 00 00000000 01"},
      {"supportsVariableAutoWakeup", "000f 0000 00000000 25 07 00 00 00000000 02"},
      {"isCompositeDevice", "000f 0000 00000000 25 07 00 00 00000000 04"},
      {"startupMode", "000f 0000 00000000 25 07 01 00 00000000 00"},
      {"memoryMode", "000f 0000 00000000 25 07 02 00 00000000 00"},
      {"cameraMode", "000f 0000 00000000 25 07 04 00 00000000 00"},
      {"none", "ff00 ffff ffffffff 25 ff f8 ff 00000000 f8"}};
  for (const auto& [key, page] : rows) {
    answers->pages[0x25] = page;
    const auto mode = device->usbModeDictionary().value();
    for (const auto& [name, value] : mode.items())
      EXPECT_TRUE(name == "autoWakeup" ? value == 0 : value == (name == key)) << key << name;
    EXPECT_EQ(device->canAutoPowerCycle(), std::string_view(key) == "supportsAutoPowerCycle");
  }
  answers->pages[0x25] = kUSBModePageAnswer;
  EXPECT_EQ(device->usbModeDictionary()->at("autoWakeup"), 0x0403);
  // The preference changes what is shown and not what is done.
  defaults.setBool("OverrideSupportAutoRestart", false);
  EXPECT_EQ(device->usbModeDictionary()->at("supportsAutoPowerCycle"), false);
  EXPECT_TRUE(device->canAutoPowerCycle());
}

TEST_F(MSCTest, TakesShortAndLyingPagesAsFarAsTheyGo) {
  struct Row {
    const char* page;
    unsigned asked;  ///< size of the second sense
    bool hasMode;
    const char* written;
  };
  const Row rows[] = {
      // 16 bytes, 17 bytes; a length that wraps, to less than a header, to nothing; one that lies.
      {"0008 0000 00000000 25 07 00 00 00000000", 16, false, "00"},
      {"0009 0000 00000000 25 07 00 00 00000000 05", 17, true, "05"},
      {"ffff 0000 00000000 25 07 00 00 00000000 05", 7, false, "00"},
      {"fff8 0000 00000000 25 07 00 00 00000000 05", 0, false, "00"},
      {"fff7 0000 00000000 25 07 00 00 00000000 05", 65535, true, "05"},
      {"0000 0000 00000000", 8, false, "00"}};
  const auto device = unit();
  for (const Row& row : rows) {
    answers->pages[0x25] = row.page;
    EXPECT_EQ(device->usbModeDictionary().has_value(), row.hasMode) << row.page;
    EXPECT_THAT(answers->take(), ElementsAre("ModeSense10 0 0 0 25 8",
                                             formatted("ModeSense10 0 0 0 25 %u", row.asked)));
    EXPECT_EQ(device->canAutoPowerCycle(), row.hasMode);
    std::uint16_t length = 0xAAAA;
    EXPECT_TRUE(device->_modeSenseTestPageCode(0x25, &length));
    EXPECT_EQ(length, row.asked < 9 ? 0xAAAA : 7) << row.page;
    answers->take();
    EXPECT_TRUE(device->setUSBModeDictionary({{"cameraMode", true}}));
    EXPECT_EQ(pageWritten(*answers).substr(32), row.written) << row.page;
  }
  answers->pages[0x25] = "0001 0000 00000000 25";
  std::uint16_t length = 0xAAAA;
  EXPECT_TRUE(device->_modeSenseTestPageCode(0x25, &length));
  EXPECT_EQ(length, 0) << "the byte behind what there is reads as zero";
}

TEST_F(MSCTest, ReadsTheModelAsFarAsItIsThereAndKeepsIt) {
  const std::tuple<const char*, std::optional<std::string>, std::size_t> rows[] = {
      {"0012 0000 00000000 26 08 4c756d6f 20373030", "Lumo 700", 0},
      // Control characters go at the ends alone; the text is in the default encoding.
      {"0012 0000 00000000 26 08 009b4c 01 e9 0d857f", "L\x01\u00e9", 0},
      {"0012 0000 00000000 26 ff 4c756d6f 20373030", "Lumo 700", 0},
      {"0012 0000 00000000 26 00 4c756d6f 20373030", "", 0},
      {"0003 0000 00000000 26 08 4c", "L", 0},
      {"0002 0000 00000000 26 08 4c756d6f 20373030", std::nullopt, 1},
      {"ffff 0000 00000000 26 08 4c756d6f 20373030", std::nullopt, 1}};
  for (const auto& [page, model, lines] : rows) {
    const auto device = unit({{0x26, page}});
    traces.take();
    EXPECT_EQ(device->model(), model) << page;
    EXPECT_EQ(traces.take(),
              Lines(lines, "Error: Mode sense data looks too short to contain model string."));
    answers->take();
    EXPECT_EQ(device->model(), model);
    EXPECT_EQ(answers->take().empty(), model.has_value());
  }
}

struct SenseFault {
  const char* failsAt;
  std::vector<std::uint8_t> statuses;
  Status result;
  Lines traced;
  const char* printed = "";
};

TEST_F(MSCTest, TellsHowEachStepOfASenseFailed) {
  const SenseFault faults[] = {
      {"ModeSense10 0 0 0 25 8",
       {},
       status::kIOReturnNoDevice,
       {"Error: ModeSense10 failed err = 0xe00002c0\n"}},
      {"ModeSense10 0 0 0 25 23",
       {},
       status::kIOReturnNoDevice,
       {},
       "ModeSense10 failed err = 0xe00002c0\n"},
      {"", {0x08}, status::kIOReturnError, {"Error: ModeSense10 task status 8"}},
      {"", {0xFF}, status::kIOReturnError, {"Error: ModeSense10 task status ff"}},
      {"", {0x00, 0x02}, status::kIOReturnError, {"ModeSense10 task status 2"}}};
  const auto device = unit();
  for (const SenseFault& fault : faults) {
    std::vector<std::byte> buffer = {std::byte{1}};
    std::uint16_t size = 1;
    answers->failsAt = fault.failsAt;
    answers->senseStatuses = fault.statuses;
    EXPECT_EQ(device->_modeSensePageCode(0x25, &buffer, &size), fault.result);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(traces.take(), fault.traced);
    EXPECT_EQ(takePrinted(), fault.printed);
    EXPECT_EQ(device->lastFailure().status, fault.result);

    answers->senseStatuses = fault.statuses;
    answers->take();
    EXPECT_FALSE(device->setUSBMode(true, true, 0));
    takePrinted();
    EXPECT_EQ(traces.take().back(), "Error: Could not set USB mode.");
    EXPECT_THAT(answers->take(), Not(Contains("ObtainExclusiveAccess")));
  }
  std::uint16_t size = 0;
  EXPECT_EQ(raised([&] { return device->_modeSensePageCode(0x25, nullptr, &size); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: buffer != NULL");
}

struct SelectFault {
  const char* failsAt = "";
  std::uint8_t taskStatus = 0;
  int response = 2;
  bool isDone = false;
  Lines traced{};
  std::size_t calls = kSelectOf17.size();
};

std::string stepFailed(const std::string& step) {
  return "Error: _modeSelectPage " + step + " failed err = 0xe00002c0\n";
}
std::string respondedWith(const std::string& response) {
  return "SCSIServiceResponse = " + response;
}
std::string notComplete(int response) {
  return "Error: serviceResponse says task not complete: response = " + std::to_string(response);
}

TEST_F(MSCTest, TellsHowEachStepOfASelectFailedAndGivesTheUnitUpEachTime) {
  const std::string named = "kSCSIServiceResponse_";
  const SelectFault faults[] = {
      {.failsAt = "ObtainExclusiveAccess",
       .traced = {"Error: ObtainExclusiveAccess failed"},
       .calls = 1},
      {.failsAt = "CreateSCSITask", .traced = {"Error: CreateSCSITask failed"}, .calls = 3},
      {.failsAt = "SetCommandDescriptorBlock",
       .traced = {stepFailed("SetCommandDescriptorBlock")},
       .calls = 5},
      {.failsAt = "SetScatterGatherEntries",
       .traced = {stepFailed("SetScatterGatherEntries")},
       .calls = 6},
      {.failsAt = "SetTimeoutDuration", .traced = {stepFailed("SetTimeoutDuration")}, .calls = 7},
      {.failsAt = "ExecuteTaskSync", .traced = {stepFailed("ExecuteTaskSync")}, .calls = 8},
      {.failsAt = "GetSCSIServiceResponse", .traced = {stepFailed("GetSCSIServiceResponse")}},
      {.taskStatus = 0x02,
       .traced = {"SCSI task status:2", "Error: _modeSelectPage taskStatus is not good."}},
      {.taskStatus = 0xFF,
       .response = 1,
       .traced = {"SCSI task status:FF", "Error: _modeSelectPage taskStatus is not good."}},
      {.response = 0, .traced = {respondedWith("0"), notComplete(0)}},
      {.response = 1,
       .traced = {respondedWith(named + "SERVICE_DELIVERY_OR_TARGET_FAILURE"), notComplete(1)}},
      {.response = 2, .isDone = true},
      {.response = 3, .isDone = true, .traced = {respondedWith(named + "LINK_COMMAND_COMPLETE")}},
      {.response = 4, .isDone = true, .traced = {respondedWith(named + "FUNCTION_COMPLETE")}},
      {.response = 5, .traced = {respondedWith("5"), notComplete(5)}},
  };
  const auto device = unit();
  const auto page = usbModePage(usb_mode::kCamera, true, 1234);
  for (const SelectFault& fault : faults) {
    answers->failsAt = fault.failsAt;
    answers->selectStatus = fault.taskStatus;
    answers->response = static_cast<SCSIServiceResponse>(fault.response);
    EXPECT_EQ(device->_modeSelectPage(page), fault.isDone) << fault.failsAt << fault.response;
    EXPECT_EQ(traces.take(), fault.traced);
    EXPECT_EQ(device->lastFailure().why.empty(), fault.isDone);
    EXPECT_FALSE(answers->isExclusive);
    EXPECT_EQ(answers->take().size(), fault.calls) << fault.failsAt;
  }
  answers->failsAt = "ReleaseExclusiveAccess";
  EXPECT_FALSE(device->_modeSelectPage(page));
  EXPECT_EQ(traces.take().back(), "Error: ReleaseExclusiveAccess failed err = 0xe00002c0\n");
  answers->hasTaskInterface = false;
  const auto without = TarvoMSCDevice::initWithMMCDevice(answers, 1, "", std::vector<uint8_t>{1});
  EXPECT_EQ(raised([&] { return without->_modeSelectPage(page); }),
            "NSInternalInconsistencyException: No scsi task device interface!");
}

TEST_F(MSCTest, SetsTheClockToLocalTimeInFourteenDigits) {
  ::setenv("TZ", "EET-2", 1);
  ::tzset();
  const auto device = unit({{0x29, "0010 0000 00000000 29 0e 0000000000000000000000000000"}});
  EXPECT_TRUE(device->setDateTime(1764046805));  // 2025-11-25 05:00:05 UTC
  EXPECT_EQ(pageWritten(*answers), hexText(hexBytes("0000000000000000 29 0e 3230323531313235"
                                                    "303730303035")));
  EXPECT_THAT(traces.take(),
              ElementsAre("Setting date: 20251125070005", "Set date to 2025-11-25 07:00:05 +0200"));
  answers->pages.clear();
  EXPECT_FALSE(device->setDateTime(0));
  EXPECT_EQ(traces.take().back(), "Error: Could not set date");
  EXPECT_EQ(raised([&] { return device->setDateTime(std::nullopt); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: dateTime");
}

// Pulled out after any number of calls: each operation ends, fails, and leaves nothing held.
TEST_F(MSCTest, EndsEveryOperationWhenTheUnitGoesAtAnyStep) {
  using Operation = bool (*)(TarvoMSCDevice&);
  const Operation operations[] = {
      [](TarvoMSCDevice& device) { return device.setUSBMode(true, true, 1000); },
      [](TarvoMSCDevice& device) {
        return device.setUSBModeDictionary({{"cameraMode", true}});
      },
      [](TarvoMSCDevice& device) { return device.setDateTime(0); },
      [](TarvoMSCDevice& device) { return device.usbModeDictionary().has_value(); },
      [](TarvoMSCDevice& device) { return device.canAutoPowerCycle(); },
      [](TarvoMSCDevice& device) { return device.model().has_value(); },
      [](TarvoMSCDevice& device) { return device.ejectTray(); }};
  TarvoMSCDeviceList list;
  list.init();
  for (const Operation operation : operations) {
    bool isDone = false;
    for (int calls = 0; !isDone; ++calls) {
      ASSERT_LT(calls, 20);
      const Pages pages = {{0x25, kUSBModePageAnswer},
                           {0x26, "0003 0000 00000000 26 01 4c"},
                           {0x29, "0010 0000 00000000 29 0e"}};
      unit(pages);
      ASSERT_EQ(list.devices().size(), 1U);
      const std::weak_ptr<TarvoMSCDevice> listed = list.mainDevice();
      answers->callsUntilUnplugged = calls;
      isDone = operation(*list.mainDevice());
      // The release at the end of a select may fail unseen.
      EXPECT_EQ(list.mainDevice()->lastFailure().status == status::kOK, isDone);
      EXPECT_FALSE(answers->isExclusive);
      registry.unplug(usb);
      EXPECT_TRUE(listed.expired());
    }
  }
}

}  // namespace
}  // namespace tarvo::test
