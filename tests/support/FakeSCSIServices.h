// SCSI units whose mode pages and answers the test says, and which write down, in hexadecimal, what
// was asked of them.
//
//   auto unit = plugFakeUnit(registry, scsi, "sr0", {{0x25, kUSBModePageAnswer}}, usb);
//   unit->failsAt = "ExecuteTaskSync";
//   EXPECT_THAT(unit->take(), ElementsAre("ModeSense10 0 0 0 25 8", ...));
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Format.h"
#include "platform/iokit/SCSITask.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/HexBytes.h"

namespace tarvo::test {

/// What a unit sends for each page, with the header in front.
using Pages = std::map<std::uint8_t, std::string>;

/// A USB mode page: camera mode, 0x0403 as the delay, all that can be had.
inline constexpr const char* kUSBModePageAnswer = "000f 0000 00000000 25 07 04 00 03040000 07";

/// Always held by std::shared_ptr.
class FakeSCSIUnit : public MMCDeviceInterface,
                     public SCSITaskDeviceInterface,
                     public std::enable_shared_from_this<FakeSCSIUnit> {
 public:
  explicit FakeSCSIUnit(Pages sent) : pages(std::move(sent)) {}

  Pages pages;          ///< a page that is not here is answered with CHECK CONDITION
  std::string failsAt;  ///< the call, as take() gives it or up to its first blank
  Status failure = status::kIOReturnNoDevice;
  int callsUntilUnplugged = -1;  ///< then each one fails; -1 never
  std::vector<std::uint8_t>
      senseStatuses;  ///< task statuses of the next MODE SENSEs; then as above
  std::uint8_t selectStatus = scsi::kGood;
  std::string senseData = "70 00 05 00000000 0a 00000000 26 00";
  SCSIServiceResponse response = SCSIServiceResponse::kTaskComplete;
  bool hasTaskInterface = true;
  bool isExclusive = false;

  std::vector<std::string> take() { return std::exchange(calls_, {}); }

  Status modeSense10(bool llbaa, bool dbd, std::uint8_t pageControl, std::uint8_t page,
                     std::span<std::byte> buffer, std::uint8_t& taskStatus,
                     std::span<std::byte> sense) override {
    EXPECT_EQ(taskStatus, scsi::kNoTaskStatus);
    const Status called = call(
        formatted("ModeSense10 %d %d %d %02x %zu", llbaa, dbd, pageControl, page, buffer.size()));
    if (called != status::kOK) return called;
    taskStatus = pages.contains(page) ? scsi::kGood : scsi::kCheckCondition;
    if (!senseStatuses.empty()) {
      taskStatus = senseStatuses.front();
      senseStatuses.erase(senseStatuses.begin());
    }
    if (taskStatus == scsi::kCheckCondition) giveSense(sense);
    std::fill(buffer.begin(), buffer.end(), std::byte{});
    const auto sent = pages.contains(page) ? hexBytes(pages[page]) : std::vector<std::byte>();
    std::copy_n(sent.begin(), std::min(sent.size(), buffer.size()), buffer.begin());
    return status::kOK;
  }
  Status setTrayState(bool isOpen, TrayLock lock, std::span<std::byte> sense) override {
    const Status called = call(
        formatted("SetTrayState %d%s", isOpen, lock == TrayLock::kRespected ? ", locked" : ""));
    if (called == status::kIOReturnError) giveSense(sense);
    return called;
  }
  std::shared_ptr<SCSITaskDeviceInterface> getSCSITaskDeviceInterface() override {
    return hasTaskInterface ? shared_from_this() : nullptr;
  }

  Status obtainExclusiveAccess() override {
    const Status called = call("ObtainExclusiveAccess");
    isExclusive = called == status::kOK;
    return called;
  }
  Status releaseExclusiveAccess() override {
    isExclusive = false;
    return call("ReleaseExclusiveAccess");
  }
  std::unique_ptr<SCSITaskInterface> createSCSITask() override {
    if (call("CreateSCSITask") != status::kOK) return nullptr;
    return std::make_unique<Task>(*this);
  }

 private:
  class Task : public SCSITaskInterface {
   public:
    explicit Task(FakeSCSIUnit& unit) : unit_(unit) {}
    ~Task() override { unit_.calls_.emplace_back("ReleaseTask"); }
    Status setCommandDescriptorBlock(std::span<const std::byte> block) override {
      return unit_.call("SetCommandDescriptorBlock " + hexText(block));
    }
    Status setScatterGatherEntries(std::span<std::byte> data, std::uint64_t transferCount,
                                   Direction direction) override {
      EXPECT_EQ(direction, Direction::kFromInitiatorToTarget);
      EXPECT_EQ(transferCount, data.size());
      return unit_.call("SetScatterGatherEntries " + hexText(data));
    }
    Status setTimeoutDuration(std::chrono::milliseconds duration) override {
      return unit_.call("SetTimeoutDuration " + std::to_string(duration.count()));
    }
    Status executeTaskSync(std::span<std::byte> sense, std::uint8_t& taskStatus,
                           std::uint64_t& /*realised*/) override {
      EXPECT_EQ(taskStatus, scsi::kNoTaskStatus);
      EXPECT_TRUE(unit_.isExclusive);
      taskStatus = unit_.selectStatus;
      unit_.giveSense(sense);
      return unit_.call(formatted("ExecuteTaskSync %zu", sense.size()));
    }
    Status getSCSIServiceResponse(SCSIServiceResponse& received) override {
      received = unit_.response;
      return unit_.call("GetSCSIServiceResponse");
    }

   private:
    FakeSCSIUnit& unit_;
  };

  void giveSense(std::span<std::byte> area) const {
    const auto data = hexBytes(senseData);
    std::copy_n(data.begin(), std::min(data.size(), area.size()), area.begin());
  }
  Status call(const std::string& what) {
    calls_.push_back(what);
    const bool fails = what == failsAt || what.substr(0, what.find(' ')) == failsAt;
    if (callsUntilUnplugged == 0 || fails) return failure;
    if (callsUntilUnplugged > 0) --callsUntilUnplugged;
    return status::kOK;
  }

  std::vector<std::string> calls_;
};

class FakeSCSIServices : public SCSIServices {
 public:
  std::map<ServiceHandle, std::shared_ptr<FakeSCSIUnit>> units;

  std::shared_ptr<MMCDeviceInterface> createMMCDevice(ServiceHandle service,
                                                      Status& failure) override {
    const auto found = units.find(service);
    if (found != units.end()) return found->second;
    failure = status::kIOReturnNoDevice;
    return nullptr;
  }
};

/// Properties of a unit as the registry has them. The GUID is made of the name of its disk.
inline PropertyDictionary unitProperties(const std::string& bsdName) {
  return {{"IOClass", "scsi_unit"},
          {"device-type", "DVD"},
          {"SCSITaskUserClient GUID", PropertyDictionary::binary({bsdName.begin(), bsdName.end()})},
          {"Protocol Characteristics", {{"Physical Interconnect", "USB"}}},
          {"Device Characteristics", {{"Vendor Name", "Tarvo"}, {"Product Name", "Lumo 700"}}},
          {"idVendor", 0xF055},
          {"BSD Name", bsdName}};
}

/// A unit that has come, with its disk, below `usbDevice`.
inline std::shared_ptr<FakeSCSIUnit> plugFakeUnit(FakeRegistry& registry, FakeSCSIServices& scsi,
                                                  const std::string& bsdName, const Pages& pages,
                                                  ServiceHandle usbDevice) {
  auto unit = std::make_shared<FakeSCSIUnit>(pages);
  const ServiceHandle service = registry.add(unitProperties(bsdName), usbDevice);
  scsi.units[service] = unit;
  registry.add({{"IOClass", "block"}, {"BSD Name", bsdName}}, service);
  registry.announce(service);
  return unit;
}

}  // namespace tarvo::test
