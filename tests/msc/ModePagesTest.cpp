// The vendor mode pages: every byte that is sent, every answer that a unit can give.
#include "msc/ModePages.h"
#include "tests/msc/MSCFixture.h"

namespace tarvo::test {
namespace {

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
  EXPECT_THAT(traces.take(), testing::IsEmpty());
}

TEST_F(MSCTest, WritesEachModeByteByByte) {
  const auto device = unit();
  const auto written = [&] {
    const auto page = pageWritten(*answers);
    return page.substr(std::string("00000000000000002507").size());
  };
  const std::tuple<bool, bool, std::uint32_t, const char*> switches[] = {
      {true, true, 9, "04010000000000"},
      {true, true, 0xFFFFFFFF, "04011999999900"},
      {false, true, 0x0A0B0C0D, "010101011ace00"},
      {true, false, 1000, "04000000000000"}};
  for (const auto& [camera, powerDown, delay, page] : switches) {
    EXPECT_TRUE(device->setUSBMode(camera, powerDown, delay));
    EXPECT_EQ(written(), page);
  }
  const std::pair<PropertyDictionary, const char*> dictionaries[] = {
      {{{"startupMode", true}}, "01000000000007"},
      {{{"memoryMode", 1}}, "02000000000007"},
      {{{"cameraMode", true}, {"permanent", true}}, "84000000000007"},
      {{{"powerDown", true}, {"autowakeDelay", 1234}, {"cameraMode", false}}, "00010000007b07"},
      {{{"autowakeDelay", 1234}, {"autoWakeup", 7}, {"memoryMode", "yes"}}, "00000000000007"}};
  for (const auto& [mode, page] : dictionaries) {
    EXPECT_TRUE(device->setUSBModeDictionary(mode));
    EXPECT_EQ(written(), page) << mode.dump();
  }
}

TEST_F(MSCTest, ReadsEachBitOfTheModeWhereItLies) {
  const auto device = unit();
  // Which key is true, by the flags and the capabilities.
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"supportsAutoPowerCycle", "00", "01"},
      {"supportsVariableAutoWakeup", "00", "02"},
      {"isCompositeDevice", "00", "04"},
      {"startupMode", "01", "00"},
      {"memoryMode", "02", "00"},
      {"cameraMode", "04", "00"},
      {"none", "f8", "f8"}};
  for (const auto& [key, flags, capabilities] : rows) {
    answers->pages[0x25] = "000f 0000 00000000 25 07 " + flags + "ff 00000000 " + capabilities;
    const auto mode = device->usbModeDictionary().value();
    for (const auto& [name, value] : mode.items())
      EXPECT_TRUE(name == "autoWakeup" ? value == 0 : value == (name == key)) << key << name;
    EXPECT_EQ(device->canAutoPowerCycle(), key == "supportsAutoPowerCycle");
  }
  answers->pages[0x25] = kUSBModePageAnswer;
  EXPECT_EQ(device->usbModeDictionary()->at("autoWakeup"), 0x0403);
  // The preference changes what is shown and not what is done.
  defaults.setBool("OverrideSupportAutoRestart", false);
  EXPECT_EQ(device->usbModeDictionary()->at("supportsAutoPowerCycle"), false);
  EXPECT_TRUE(device->canAutoPowerCycle());
}

TEST_F(MSCTest, TakesShortAndLyingPagesAsFarAsTheyGo) {
  // The size of the second sense, whether there is a mode in it, and the last byte that is written.
  const std::tuple<const char*, unsigned, bool, const char*> rows[] = {
      // 16 bytes, 17 bytes; a length that wraps, to less than a header, to nothing; one that lies.
      {"0008 0000 00000000 25 07 00 00 00000000", 16, false, "00"},
      {"0009 0000 00000000 25 07 00 00 00000000 05", 17, true, "05"},
      {"ffff 0000 00000000 25 07 00 00 00000000 05", 7, false, "00"},
      {"fff8 0000 00000000 25 07 00 00 00000000 05", 0, false, "00"},
      {"fff7 0000 00000000 25 07 00 00 00000000 05", 65535, true, "05"},
      {"0000 0000 00000000", 8, false, "00"}};
  const auto device = unit();
  std::uint16_t length = 0;
  for (const auto& [page, asked, hasMode, written] : rows) {
    answers->pages[0x25] = page;
    EXPECT_EQ(device->usbModeDictionary().has_value(), hasMode) << page;
    EXPECT_THAT(answers->take(), testing::ElementsAre("ModeSense10 0 0 0 25 8",
                                                      formatted("ModeSense10 0 0 0 25 %u", asked)));
    EXPECT_EQ(device->canAutoPowerCycle(), hasMode);
    length = 0xAAAA;
    EXPECT_TRUE(device->_modeSenseTestPageCode(0x25, &length));
    EXPECT_EQ(length, asked < 9 ? 0xAAAA : 7) << page;
    answers->take();
    EXPECT_TRUE(device->setUSBModeDictionary({{"cameraMode", true}}));
    EXPECT_EQ(pageWritten(*answers).substr(32), written) << page;
  }
  answers->pages[0x25] = "0001 0000 00000000 25";
  EXPECT_TRUE(device->_modeSenseTestPageCode(0x25, &length));
  EXPECT_EQ(length, 0) << "the byte behind what there is reads as zero";
}

TEST_F(MSCTest, ReadsTheModelAsFarAsItIsThereAndKeepsIt) {
  const std::tuple<const char*, std::optional<std::string>, std::size_t> rows[] = {
      {"0012 0000 00000000 26 08 4c756d6f 20373030", "Lumo 700", 0},
      // Control characters go at the ends alone; the text is in the default encoding.
      {"0012 0000 00000000 26 08 009b4c 01 e9 0d857f", "L\x01\u00e9", 0},
      {"0012 0000 00000000 26 ff 4c756d6f 20373030", "Lumo 700", 0},
      {"0003 0000 00000000 26 08 4c", "L", 0},
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

TEST_F(MSCTest, TellsHowEachStepOfASenseFailed) {
  const std::string step = "ModeSense10 failed err = 0xe00002c0\n";
  using Statuses = std::vector<std::uint8_t>;
  // What is traced and what is printed.
  const std::tuple<const char*, Statuses, Status, Lines, std::string> faults[] = {
      {"ModeSense10 0 0 0 25 8", {}, status::kIOReturnNoDevice, {"Error: " + step}, ""},
      {"ModeSense10 0 0 0 25 23", {}, status::kIOReturnNoDevice, {}, step},
      {"", {0xFF}, status::kIOReturnError, {"Error: ModeSense10 task status ff"}, ""},
      {"", {0x00, 0x02}, status::kIOReturnError, {"ModeSense10 task status 2"}, ""}};
  const auto device = unit();
  for (const auto& [failing, statuses, result, traced, words] : faults) {
    std::vector<std::byte> buffer = {std::byte{1}};
    std::uint16_t size = 1;
    answers->failsAt = failing;
    answers->senseStatuses = statuses;
    EXPECT_EQ(device->_modeSensePageCode(0x25, &buffer, &size), result);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(traces.take(), traced);
    EXPECT_EQ(takePrinted(), words);
    EXPECT_EQ(device->lastFailure().status, result);

    answers->senseStatuses = statuses;
    answers->take();
    EXPECT_FALSE(device->setUSBMode(true, true, 0));
    takePrinted();
    EXPECT_EQ(traces.take().back(), "Error: Could not set USB mode.");
    EXPECT_THAT(answers->take(), testing::Not(testing::Contains("ObtainExclusiveAccess")));
  }
  std::uint16_t size = 0;
  EXPECT_EQ(raised([&] { return device->_modeSensePageCode(0x25, nullptr, &size); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: buffer != NULL");
}

TEST_F(MSCTest, TellsHowEachStepOfASelectFailedAndGivesTheUnitUpEachTime) {
  const auto device = unit();
  const auto page = usbModePage(usb_mode::kCamera, true, 1234);
  const auto select = [&](bool isDone, std::size_t calls, const Lines& traced) {
    EXPECT_EQ(device->_modeSelectPage(page), isDone) << answers->failsAt;
    EXPECT_EQ(traces.take(), traced);
    EXPECT_EQ(device->lastFailure().why.empty(), isDone);
    EXPECT_FALSE(answers->isExclusive);
    EXPECT_EQ(answers->take().size(), calls) << answers->failsAt;
  };
  const std::pair<const char*, std::size_t> steps[] = {
      {"ObtainExclusiveAccess", 1},   {"CreateSCSITask", 3},     {"SetCommandDescriptorBlock", 5},
      {"SetScatterGatherEntries", 6}, {"SetTimeoutDuration", 7}, {"ExecuteTaskSync", 8},
      {"GetSCSIServiceResponse", 9}};
  for (const auto& [step, calls] : steps) {
    answers->failsAt = step;
    const std::string name = step;
    select(false, calls,
           {calls <= 3 ? "Error: " + name + " failed"
                       : "Error: _modeSelectPage " + name + " failed err = 0xe00002c0\n"});
  }
  answers->failsAt = "";
  answers->selectStatus = 0xFF;
  select(false, 9, {"SCSI task status:FF", "Error: _modeSelectPage taskStatus is not good."});
  answers->selectStatus = 0;
  const std::string told = "SCSIServiceResponse = ";
  const std::string notComplete = "Error: serviceResponse says task not complete: response = ";
  const Lines responses[] = {
      {told + "0", notComplete + "0"},
      {told + "kSCSIServiceResponse_SERVICE_DELIVERY_OR_TARGET_FAILURE", notComplete + "1"},
      {},
      {told + "kSCSIServiceResponse_LINK_COMMAND_COMPLETE"},
      {told + "kSCSIServiceResponse_FUNCTION_COMPLETE"},
      {told + "5", notComplete + "5"}};
  for (const Lines& lines : responses) {
    answers->response = static_cast<SCSIServiceResponse>(&lines - responses);
    select(lines.size() < 2, 9, lines);
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
  EXPECT_THAT(traces.take(), testing::ElementsAre("Setting date: 20251125070005",
                                                  "Set date to 2025-11-25 07:00:05 +0200"));
  answers->pages.clear();
  EXPECT_FALSE(device->setDateTime(0));
  EXPECT_EQ(traces.take().back(), "Error: Could not set date");
  EXPECT_EQ(raised([&] { return device->setDateTime(std::nullopt); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: dateTime");
}

TEST_F(MSCTest, EndsEveryOperationWhenTheUnitGoesAtAnyStep) {
  using Unit = TarvoMSCDevice;
  using Operation = bool (*)(Unit&);
  const Operation operations[] = {
      [](Unit& u) { return u.setUSBMode(true, true, 1000); },
      [](Unit& u) { return u.setUSBModeDictionary(PropertyDictionary::object()); },
      [](Unit& u) { return u.setDateTime(0); },
      [](Unit& u) { return u.usbModeDictionary().has_value(); },
      [](Unit& u) { return u.canAutoPowerCycle(); },
      [](Unit& u) { return u.model().has_value(); },
      [](Unit& u) { return u.ejectTray(); }};
  const Pages pages = {{0x25, kUSBModePageAnswer},
                       {0x26, "0003 0000 00000000 26 01 4c"},
                       {0x29, "0010 0000 00000000 29 0e"}};
  TarvoMSCDeviceList list;
  list.init();
  for (const Operation operation : operations) {
    bool isDone = false;
    for (int calls = 0; !isDone; ++calls) {
      ASSERT_LT(calls, 20);
      unit(pages);
      ASSERT_EQ(list.devices().size(), 1U);
      const std::weak_ptr<Unit> listed = list.mainDevice();
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
