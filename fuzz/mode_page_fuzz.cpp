// Feeds what is asked of a mass-storage unit by mode pages what a hostile unit could answer.
//
// An input is the unit: the task status of its two answers to MODE SENSE, and that of MODE SELECT,
// then the answers, the first of 8 bytes. What it says of itself must be what a second reading of
// the bytes gives, and a page that is sent to it must be of the laid-down form, whatever it said.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "fuzz/Require.h"
#include "msc/MSCRoom.h"
#include "msc/TarvoMSCDevice.h"
#include "platform/foundation/MakerConstants.h"
#include "tests/support/FakeDiskArbitration.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/FakeSCSIServices.h"
#include "tests/support/FakeUserDefaults.h"

namespace {

using tarvo::PropertyDictionary;
using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kStatuses = 3;
constexpr std::size_t kHeader = 8;
/// From this first byte of an input on a page may have any size.
constexpr std::uint8_t kLargePages = 248;

/// The script of an input.
struct Script {
  explicit Script(Bytes input) : input_(input) {}
  std::uint8_t at(std::size_t index) const {
    return index < input_.size() ? input_[index] : std::uint8_t{0};
  }
  /// Mostly GOOD.
  std::uint8_t taskStatus(std::size_t which) const { return at(which) % 4 == 3 ? at(which) : 0; }
  /// What stands there, and zeros behind it: pages are long.
  void copy(std::size_t from, std::span<std::byte> to) const {
    std::ranges::fill(to, std::byte{0});
    const auto rest = std::as_bytes(input_.subspan(std::min(from, input_.size())));
    std::ranges::copy(rest.first(std::min(rest.size(), to.size())), to.begin());
  }
  /// Mostly of a size below 256: clearing room for the largest page costs a hundred inputs.
  std::uint8_t headerAt(std::size_t index) const {
    return index == 0 && at(0) < kLargePages ? std::uint8_t{0} : at(kStatuses + index);
  }
  std::uint8_t pageAt(std::size_t index) const { return at(kStatuses + kHeader + index); }

 private:
  Bytes input_;
};

/// The unit, which holds what was sent to it.
class HostileUnit : public tarvo::MMCDeviceInterface,
                    public tarvo::SCSITaskDeviceInterface,
                    public std::enable_shared_from_this<HostileUnit> {
 public:
  explicit HostileUnit(const Script& script) : script_(script) {}

  std::vector<std::byte> sent;
  bool isExclusive = false;

  tarvo::Status modeSense10(bool /*llbaa*/, bool /*dbd*/, std::uint8_t /*pageControl*/,
                            std::uint8_t /*page*/, std::span<std::byte> buffer,
                            std::uint8_t& taskStatus, std::span<std::byte> sense) override {
    // A header that was refused is not followed by a page.
    const bool isHeader = !std::exchange(isPageNext_, false);
    isPageNext_ = isHeader && script_.taskStatus(0) == tarvo::scsi::kGood;
    require(!isHeader || buffer.size() == kHeader);
    require(buffer.size() <= 0xFFFF);
    script_.copy(isHeader ? kStatuses : kStatuses + kHeader, buffer);
    if (isHeader) buffer[0] = std::byte{script_.headerAt(0)};
    script_.copy(kStatuses + kHeader, sense);
    taskStatus = script_.taskStatus(isHeader ? 0 : 1);
    return tarvo::status::kOK;
  }
  tarvo::Status setTrayState(bool /*isOpen*/, tarvo::TrayLock /*lock*/,
                             std::span<std::byte> /*sense*/) override {
    return tarvo::status::kOK;
  }
  std::shared_ptr<tarvo::SCSITaskDeviceInterface> getSCSITaskDeviceInterface() override {
    return shared_from_this();
  }
  tarvo::Status obtainExclusiveAccess() override {
    isExclusive = true;
    return tarvo::status::kOK;
  }
  tarvo::Status releaseExclusiveAccess() override {
    isExclusive = false;
    return tarvo::status::kOK;
  }
  std::unique_ptr<tarvo::SCSITaskInterface> createSCSITask() override {
    return std::make_unique<Task>(*this);
  }

 private:
  class Task : public tarvo::SCSITaskInterface {
   public:
    explicit Task(HostileUnit& unit) : unit_(unit) {}
    tarvo::Status setCommandDescriptorBlock(std::span<const std::byte> block) override {
      require(block.size() == 10 && block[0] == std::byte{0x55});
      return tarvo::status::kOK;
    }
    tarvo::Status setScatterGatherEntries(std::span<std::byte> data, std::uint64_t transferCount,
                                          Direction /*direction*/) override {
      require(transferCount == data.size());
      unit_.sent.assign(data.begin(), data.end());
      return tarvo::status::kOK;
    }
    tarvo::Status setTimeoutDuration(std::chrono::milliseconds /*duration*/) override {
      return tarvo::status::kOK;
    }
    tarvo::Status executeTaskSync(std::span<std::byte> /*sense*/, std::uint8_t& taskStatus,
                                  std::uint64_t& /*realised*/) override {
      require(unit_.isExclusive);
      taskStatus = unit_.script_.taskStatus(2);
      return tarvo::status::kOK;
    }
    tarvo::Status getSCSIServiceResponse(tarvo::SCSIServiceResponse& response) override {
      response = static_cast<tarvo::SCSIServiceResponse>(unit_.script_.at(2) / 4 % 5);
      return tarvo::status::kOK;
    }

   private:
    HostileUnit& unit_;
  };

  const Script& script_;
  bool isPageNext_ = false;
};

/// How many bytes a unit is asked for, in 16 bits; none where an answer was refused.
std::optional<std::size_t> naiveSize(const Script& script) {
  if (script.taskStatus(0) != 0 || script.taskStatus(1) != 0) return std::nullopt;
  return (script.headerAt(0) * 256U + script.headerAt(1) + 8U) % 65536U;
}

void checkMode(tarvo::TarvoMSCDevice& device, const Script& script) {
  const auto size = naiveSize(script);
  const auto mode = device.usbModeDictionary();
  require(mode.has_value() == (size && *size >= 17));
  require(device.canAutoPowerCycle() == (mode && script.pageAt(16) % 2 == 1));
  if (!mode) return require(device.lastFailure().status != 0 || (size && *size < 17));
  const std::uint64_t delay = script.pageAt(12) + script.pageAt(13) * 256ULL +
                              script.pageAt(14) * 65536ULL + script.pageAt(15) * 16777216ULL;
  require((*mode)["autoWakeup"] == delay);
  require((*mode)["supportsVariableAutoWakeup"] == (script.pageAt(16) / 2 % 2 == 1));
  require((*mode)["isCompositeDevice"] == (script.pageAt(16) / 4 % 2 == 1));
  require((*mode)["startupMode"] == (script.pageAt(10) % 2 == 1));
  require((*mode)["memoryMode"] == (script.pageAt(10) / 2 % 2 == 1));
  require((*mode)["cameraMode"] == (script.pageAt(10) / 4 % 2 == 1));
}

void checkModel(tarvo::TarvoMSCDevice& device, const Script& script) {
  const auto size = naiveSize(script);
  const auto model = device.model();
  require(model.has_value() == (size && *size > 10));
  if (!model) return;
  // A character of ISO 8859-1 is two bytes of UTF-8 at most.
  require(model->size() <= 2 * std::min<std::size_t>(script.pageAt(9), *size - 10));
  require(tarvo::validUTF8(*model) == *model && tarvo::withoutOuterControls(*model) == *model);
}

void checkSending(tarvo::TarvoMSCDevice& device, HostileUnit& unit, const Script& script) {
  const auto size = naiveSize(script);
  unit.sent.clear();
  const bool isSet = device.setUSBModeDictionary(
      {{"cameraMode", true}, {"powerDown", true}, {"autowakeDelay", 770}});
  require(!unit.isExclusive && (!isSet || size) && unit.sent.empty() == !size);
  if (!size) return;
  const std::uint8_t capabilities = *size > 16 ? script.pageAt(16) : std::uint8_t{0};
  const std::array<std::uint8_t, 17> expected = {0, 0, 0, 0, 0, 0, 0,  0,           0x25,
                                                 7, 4, 1, 0, 0, 0, 77, capabilities};
  require(unit.sent.size() == expected.size() &&
          std::memcmp(unit.sent.data(), expected.data(), expected.size()) == 0);
  unit.sent.clear();
  (void)device.setDateTime(1'700'000'000);
  require(unit.sent.size() == 24 && unit.sent[8] == std::byte{0x29});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static tarvo::NotificationCenter center;
  static tarvo::test::FakeRegistry registry;
  static tarvo::test::FakeSCSIServices scsi;
  static tarvo::test::FakeDiskArbitration disks;
  static tarvo::test::FakeMountTable mounts{"/media"};
  static tarvo::test::FakeUserDefaults defaults;
  static const tarvo::MakerConstants maker;
  // What is printed is of no interest here.
  static tarvo::MSCRoom room({center, registry, scsi, disks, mounts, defaults, maker,
                              [](tarvo::LogLevel, std::string_view) {}, "ISO-8859-1",
                              std::fopen("/dev/null", "we")});
  const Script script({data, size});
  const auto unit = std::make_shared<HostileUnit>(script);
  const auto device =
      tarvo::TarvoMSCDevice::initWithMMCDevice(unit, 1, "Lumo 700", std::vector<std::uint8_t>{1});
  checkMode(*device, script);
  checkModel(*device, script);
  checkSending(*device, *unit, script);
  return 0;
}
