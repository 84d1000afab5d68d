#include "platform/iokit/SgSCSIServices.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <semaphore>

#include "platform/iokit/UdevRegistry.h"
#include "tests/iokit/ScriptedUnit.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ManualRunLoop.h"
#include "tests/support/UdevTestbed.h"

namespace tarvo {
namespace {

using test::hexBytes;
using test::hexText;
using test::UnitAnswer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

using Direction = SCSITaskInterface::Direction;
using Response = SCSIServiceResponse;

const std::string kUSBDevice = "/sys/devices/usb1/1-4";
const std::string kScsiDevice = kUSBDevice + "/1-4:1.0/host6/target6:0:0/6:0:0:0";
/// The USB mode page: camera mode, power down, 123 units of delay.
const std::vector<std::byte> kPage = hexBytes("0000000000000000 25 07 04 01 0000007b 05");
const std::string kSelect =
    "6000 55000000000000001100 > 000000000000000025070401000000"
    "7b05";

class SgSCSIServicesTest : public testing::Test {
 protected:
  SgSCSIServicesTest() {
    bed.addUSBDevice(kUSBDevice, {1, "4", 7});
    bed.add(kScsiDevice, {{"SUBSYSTEM", "scsi"}, {"DEVTYPE", "scsi_device"}}, {{"type", "5"}});
    bed.add(kScsiDevice + "/scsi_generic/sg1", {{"SUBSYSTEM", "scsi_generic"}}, {}, "sg1");
    unit = std::make_unique<test::ScriptedUnit>(bed.handle(), "/dev/sg1");
    service = registry.servicesMatching({{"IOClass", "scsi_unit"}}).at(0);
    Status failure = -1;
    mmc = services.createMMCDevice(service, failure);
    EXPECT_EQ(failure, status::kOK);
  }

  void unplug() {
    bed.remove(kScsiDevice + "/scsi_generic/sg1");
    bed.remove(kScsiDevice);
  }

  /// What is told of one mode select, from the making of the task to its end.
  struct Told {
    Status called = -1;
    unsigned taskStatus = scsi::kNoTaskStatus;
    Response response = Response::kRequestInProcess;
    std::uint64_t realised = 4711;
    std::string sense;
  };
  Told select(std::size_t senseArea = 18) {
    Told told;
    const auto device = mmc->getSCSITaskDeviceInterface();
    EXPECT_EQ(device->obtainExclusiveAccess(), status::kOK);
    const auto task = device->createSCSITask();
    auto page = kPage;
    EXPECT_EQ(task->setCommandDescriptorBlock(hexBytes("55 00 00000000 00 0011 00")), 0);
    EXPECT_EQ(task->setScatterGatherEntries(page, page.size(), Direction::kFromInitiatorToTarget),
              0);
    EXPECT_EQ(task->setTimeoutDuration(std::chrono::milliseconds(6000)), 0);
    // Guarded by bytes behind it, which must stay.
    std::vector<std::byte> sense(senseArea + 4, std::byte{0xEE});
    std::uint8_t taskStatus = scsi::kNoTaskStatus;
    told.called =
        task->executeTaskSync(std::span(sense).first(senseArea), taskStatus, told.realised);
    told.taskStatus = taskStatus;
    EXPECT_EQ(task->getSCSIServiceResponse(told.response), 0);
    EXPECT_EQ(page, kPage);
    EXPECT_EQ(device->releaseExclusiveAccess(), status::kOK);
    told.sense = hexText(sense);
    return told;
  }

  struct Sensed {
    Status called = -1;
    unsigned taskStatus = scsi::kNoTaskStatus;
    std::string data;
  };
  Sensed sense(std::size_t size = 8) {
    std::vector<std::byte> buffer(size + 4, std::byte{0xEE});
    std::uint8_t taskStatus = scsi::kNoTaskStatus;
    const Status called =
        mmc->modeSense10(false, false, 0, 0x25, std::span(buffer).first(size), taskStatus, {});
    return {called, taskStatus, hexText(buffer)};
  }

  test::UdevTestbed bed;
  test::ManualRunLoop loop;
  std::vector<std::string> log;
  LogSink sink = [this](LogLevel level, std::string_view line) {
    EXPECT_EQ(level, LogLevel::kDebug) << line;
    log.emplace_back(line);
  };
  UdevRegistry registry{loop, nullptr};
  /// Every open of a node: its flags, and the error that it is to fail with.
  std::vector<int> opened;
  int openError = 0;
  std::function<void()> onOpen;
  std::atomic<bool> interrupted = false;
  SgSCSIServices services{registry, &interrupted, sink, [this](const char* path, int flags) {
                            EXPECT_STREQ(path, "/dev/sg1");
                            opened.push_back(flags);
                            if (onOpen) onOpen();
                            errno = openError;
                            return openError ? -1 : SgSCSIServices::openDeviceNode(path, flags);
                          }};
  std::unique_ptr<test::ScriptedUnit> unit;
  ServiceHandle service = 0;
  std::shared_ptr<MMCDeviceInterface> mmc;
};

constexpr int kShared = O_RDWR | O_NONBLOCK | O_CLOEXEC;

TEST_F(SgSCSIServicesTest, SensesAPageWithTheNodeOpenForThatCommandAlone) {
  unit->answers = {{.data = hexBytes("0010 000000000000 25 07 04 01")}};
  const auto told = sense(12);
  EXPECT_EQ(told.called, 0);
  EXPECT_EQ(told.taskStatus, scsi::kGood);
  EXPECT_EQ(told.data, "001000000000000025070401eeeeeeee");
  std::vector<std::byte> longest(0xFFFF);
  std::uint8_t taskStatus = scsi::kNoTaskStatus;
  EXPECT_EQ(mmc->modeSense10(true, true, 3, 0x3F, longest, taskStatus, {}), 0);
  longest.emplace_back();
  EXPECT_EQ(mmc->modeSense10(false, false, 0, 0, longest, taskStatus, {}),
            status::kIOReturnBadArgument);
  EXPECT_THAT(unit->commands,
              ElementsAre("6000 5a002500000000000c00 < 12", "6000 5a18ff00000000ffff00 < 65535"));
  EXPECT_THAT(opened, ElementsAre(kShared, kShared));
  EXPECT_THAT(log, Contains("SCSI /dev/sg1 status 0x00, 12 of 12 bytes: 00 10 00 00 00 00 00 00 "
                            "25 07 04 01"));
}

TEST_F(SgSCSIServicesTest, TellsOfASenseWhatTheUnitAnsweredOrWhyItDidNot) {
  const std::string whole = "0010aabbccddeeffeeeeeeee";
  const std::string nothing = "0000000000000000eeeeeeee";
  const auto data = hexBytes("0010aabbccddeeff 9999");
  const struct {
    UnitAnswer answer;
    Status called;
    unsigned taskStatus;
    std::string data;
  } rows[] = {
      {{.data = hexBytes("0010")}, 0, 0x00, "0010000000000000eeeeeeee"},
      {{.data = data, .residual = 1 << 30, .liesAboutResidual = true}, 0, 0x00, whole},
      {{.data = data, .residual = -5, .liesAboutResidual = true}, 0, 0x00, whole},
      {{.status = 0x02, .sense = hexBytes("70 00 05"), .driverStatus = 8}, 0, 0x02, nothing},
      {{.status = 0x02, .senseLength = 255}, 0, 0x02, nothing},
      {{.hostStatus = 1}, status::kIOReturnNoDevice, 0xFF, nothing},
      {{.hostStatus = 3}, status::kIOReturnTimeout, 0xFF, nothing},
      {{.driverStatus = 6}, status::kIOReturnError, 0xFF, nothing},
      {{.error = ENODEV}, status::kIOReturnNoDevice, 0xFF, nothing},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    unit->answers = {row.answer};
    const auto told = sense();
    EXPECT_EQ(told.called, row.called) << statusText(told.called);
    EXPECT_EQ(told.taskStatus, row.taskStatus);
    EXPECT_EQ(told.data, row.data);
  }
  EXPECT_THAT(log, Contains(HasSubstr("status 0x02, 0 of 8 bytes:, sense 70 00 05")));
  EXPECT_THAT(log, Contains(HasSubstr("failed: no answer in time")));
}

TEST_F(SgSCSIServicesTest, NeitherWaitsForAUnitNorAsksItAgainOnceInterrupted) {
  std::binary_semaphore answers(0);
  bool isFirst = true;
  unit->onCommand = [&] {
    if (!std::exchange(isFirst, false)) return;
    interrupted = true;
    answers.acquire();
  };
  for (int times = 0; times < 2; ++times) {
    const auto told = sense();
    EXPECT_EQ(told.called, status::kIOReturnAborted);
    EXPECT_EQ(told.data, "eeeeeeeeeeeeeeeeeeeeeeee");
  }
  EXPECT_EQ(unit->commands.size(), 1U);
  answers.release();
  interrupted = false;
  EXPECT_EQ(sense().called, 0);
}

TEST_F(SgSCSIServicesTest, AsksForAPageAgainWhereTheUnitTellsThatSomethingHasHappenedToIt) {
  const UnitAnswer attention{.status = 0x02, .sense = hexBytes("70 00 06 00000000 0a 00000000 29")};
  unit->answers = {attention, attention, {.data = hexBytes("0010")}};
  EXPECT_EQ(sense().taskStatus, scsi::kGood);
  unit->answers.assign(4, attention);
  std::array<std::byte, 18> given{};
  std::uint8_t taskStatus = scsi::kNoTaskStatus;
  EXPECT_EQ(mmc->modeSense10(false, false, 0, 0x25, {}, taskStatus, given), 0);
  EXPECT_EQ(taskStatus, scsi::kCheckCondition);
  EXPECT_EQ(hexText(given), "700006000000000a0000000029" + std::string(10, '0'));
  EXPECT_THAT(unit->commands, testing::SizeIs(6));
  EXPECT_EQ(select().taskStatus, scsi::kCheckCondition) << "a select is sent once";
}

TEST_F(SgSCSIServicesTest, SelectsAPageWithTheNodeToItselfAndTellsStatusResponseAndSense) {
  const std::string none(std::size_t{2} * 22, 'e');
  const std::vector<std::byte> sense = hexBytes("70 00 05 00000000 0a 00000000 20 00 00 000000");
  ASSERT_EQ(sense.size(), 18U);
  const std::vector<std::byte> longest(252);
  const struct {
    UnitAnswer answer;
    Status called;
    unsigned taskStatus;  ///< 0xFF: no answer came
    std::string sense;
  } rows[] = {
      {{}, 0, 0, none},
      {{.status = 0x02, .sense = sense, .driverStatus = 8}, 0, 0x02, hexText(sense) + "eeeeeeee"},
      {{.status = 0x02, .sense = hexBytes("72 05 20 00")}, 0, 0x02, "72052000" + none.substr(8)},
      {{.status = 0x02, .sense = longest}, 0, 0x02, std::string(36, '0') + "eeeeeeee"},
      {{.residual = -1, .liesAboutResidual = true}, 0, 0, none},
      {{.hostStatus = 3}, 0, 0xFF, none},
      {{.error = EACCES}, status::kIOReturnNotPrivileged, 0xFF, none},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    unit->answers = {row.answer};
    const auto told = select();
    const bool answered = row.taskStatus != 0xFF;
    EXPECT_EQ(told.called, row.called) << statusText(told.called);
    EXPECT_EQ(told.taskStatus, row.taskStatus);
    EXPECT_EQ(told.response,
              answered ? Response::kTaskComplete : Response::kServiceDeliveryOrTargetFailure);
    EXPECT_EQ(told.realised, answered ? 17U : 0U);
    EXPECT_EQ(told.sense, row.sense);
  }
  unit->answers = {{.status = 0x02, .sense = sense}};
  EXPECT_EQ(select(0).sense, "eeeeeeee") << "nobody wants it";
  EXPECT_EQ(unit->commands.front(), kSelect);
  EXPECT_THAT(opened, testing::Each(kShared | O_EXCL));
}

TEST_F(SgSCSIServicesTest, NamesWhyANodeCannotBeOpened) {
  const auto device = mmc->getSCSITaskDeviceInterface();
  for (const auto& [error, expected] : {std::pair(EBUSY, status::ioKitStatus(0xE00002C5)),
                                        {EPERM, status::ioKitStatus(0xE00002C1)},
                                        {ENXIO, status::ioKitStatus(0xE00002C0)},
                                        {ENOENT, status::ioKitStatus(0xE00002C0)},
                                        {EMFILE, status::ioKitStatus(0xE00002BC)}}) {
    openError = error;
    EXPECT_EQ(device->obtainExclusiveAccess(), expected) << error;
    EXPECT_EQ(sense().called, expected) << error;
    EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), expected) << error;
  }
  EXPECT_THAT(unit->commands, testing::IsEmpty());
}

TEST_F(SgSCSIServicesTest, MakesTasksUnderExclusiveAccessOnlyAndChecksWhatTheyAreGiven) {
  const auto device = mmc->getSCSITaskDeviceInterface();
  EXPECT_EQ(device->createSCSITask(), nullptr);
  EXPECT_EQ(device->releaseExclusiveAccess(), status::ioKitStatus(0xE00002CD));
  ASSERT_EQ(device->obtainExclusiveAccess(), 0);
  EXPECT_EQ(device->obtainExclusiveAccess(), status::kIOReturnExclusiveAccess);
  const auto task = device->createSCSITask();
  std::array<std::byte, 4> area{};
  for (const std::size_t length : {5U, 17U})
    EXPECT_EQ(task->setCommandDescriptorBlock(std::vector<std::byte>(length)),
              status::kIOReturnBadArgument);
  EXPECT_EQ(task->setScatterGatherEntries(area, 5, Direction::kFromTargetToInitiator),
            status::kIOReturnBadArgument);
  EXPECT_EQ(task->setTimeoutDuration(std::chrono::milliseconds(0)), status::kIOReturnBadArgument);
  std::uint8_t taskStatus = scsi::kNoTaskStatus;
  std::uint64_t realised = 1;
  EXPECT_EQ(task->executeTaskSync({}, taskStatus, realised), status::kIOReturnBadArgument);
  EXPECT_EQ(task->setCommandDescriptorBlock(std::vector<std::byte>(6)), 0);
  EXPECT_EQ(task->setScatterGatherEntries(area, 3, Direction::kFromTargetToInitiator), 0);
  EXPECT_EQ(task->setTimeoutDuration(std::chrono::milliseconds(1001)), 0);
  unit->answers = {{.data = hexBytes("01020304")}};
  EXPECT_EQ(task->executeTaskSync({}, taskStatus, realised), 0);
  EXPECT_EQ(realised, 3U);
  EXPECT_EQ(hexText(area), "01020300") << "no further than the transfer count";
  EXPECT_THAT(unit->commands, ElementsAre("2000 000000000000 < 3"));
  for (const auto& [residual, moved] : {std::pair(1, 2U), {1 << 30, 0U}, {-5, 3U}}) {
    unit->answers = {{.residual = residual, .liesAboutResidual = true}};
    EXPECT_EQ(task->executeTaskSync({}, taskStatus, realised), 0);
    EXPECT_EQ(realised, moved) << "of a residual of " << residual;
  }
  EXPECT_EQ(device->releaseExclusiveAccess(), 0);
  EXPECT_EQ(task->executeTaskSync({}, taskStatus, realised), status::kIOReturnNotOpen);
}

TEST_F(SgSCSIServicesTest, ReleasesTheLockOfAMediumBeforeTheTrayOpens) {
  const UnitAnswer refusal{.status = 0x02, .sense = hexBytes("70 00 05")};
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), 0);
  unit->answers = {refusal, {}};
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), 0) << "a unit that knows no lock";
  unit->answers = {{.hostStatus = 1}};
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), status::kIOReturnNoDevice);
  EXPECT_EQ(mmc->setTrayState(false, TrayLock::kReleased, {}), 0);
  const std::string allow = "6000 1e0000000000";
  const std::string eject = "6000 1b0000000200";
  EXPECT_THAT(unit->commands, ElementsAre(allow, eject, allow, eject, allow, "6000 1b0000000300"));
}

TEST_F(SgSCSIServicesTest, OpensATrayThatSomebodyLocksAgainMeanwhile) {
  const UnitAnswer locked{.status = 0x02,
                          .sense = hexBytes("70 00 05 00000000 0a 00000000 53 02 00000000")};
  unit->answers = {{}, locked, {}, locked, {}, {}};
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), 0);
  EXPECT_THAT(unit->commands, testing::SizeIs(6));
  unit->commands.clear();
  for (int i = 0; i < 40; ++i)
    unit->answers.push_back(i % 2 == 0 ? UnitAnswer{} : locked);
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), status::kIOReturnError)
      << "it has an end";
  EXPECT_THAT(unit->commands, testing::SizeIs(10));
  unit->commands.clear();
  unit->answers = {locked};
  std::array<std::byte, 18> sense{};
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kRespected, sense), status::kIOReturnError);
  EXPECT_EQ(hexText(sense), hexText(locked.sense));
  EXPECT_THAT(unit->commands, ElementsAre("6000 1b0000000200")) << "the lock stays";
}

TEST_F(SgSCSIServicesTest, NeverTakesTheNextUnitAtItsPlaceForTheOneThatIsMeant) {
  // It comes while the node is being opened, and nobody has heard of either event yet.
  onOpen = [&] { umockdev_testbed_set_attribute(bed.handle(), kUSBDevice.c_str(), "devnum", "8"); };
  EXPECT_EQ(sense().called, status::kIOReturnNoDevice);
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), status::kIOReturnNoDevice);
  EXPECT_THAT(unit->commands, testing::IsEmpty());
}

TEST_F(SgSCSIServicesTest, NeverTakesAnothersNodeForThatOfAUnitThatHasGone) {
  const auto device = mmc->getSCSITaskDeviceInterface();
  ASSERT_EQ(device->obtainExclusiveAccess(), 0);
  const auto task = device->createSCSITask();
  unplug();
  opened.clear();
  EXPECT_EQ(sense().called, status::kIOReturnNoDevice);
  EXPECT_EQ(mmc->setTrayState(true, TrayLock::kReleased, {}), status::kIOReturnNoDevice);
  EXPECT_EQ(mmc->getSCSITaskDeviceInterface()->obtainExclusiveAccess(), status::kIOReturnNoDevice);
  EXPECT_THAT(opened, testing::IsEmpty());
  EXPECT_EQ(device->releaseExclusiveAccess(), 0);
  Status failure = 0;
  EXPECT_EQ(services.createMMCDevice(service, failure), nullptr);
  EXPECT_EQ(failure, status::kIOReturnNoDevice);
  EXPECT_EQ(services.createMMCDevice(4711, failure), nullptr);
}

}  // namespace
}  // namespace tarvo
