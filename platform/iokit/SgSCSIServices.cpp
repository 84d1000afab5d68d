#include "platform/iokit/SgSCSIServices.h"

#include <fcntl.h>
#include <scsi/sg_lib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "platform/iokit/EntryProperties.h"
#include "platform/iokit/SgCommand.h"

namespace tarvo {
namespace {

using Direction = SCSITaskInterface::Direction;

constexpr std::byte byte(unsigned value) {
  return static_cast<std::byte>(value & 0xFFU);
}

using SenseArea = std::array<std::byte, 18>;

/// All zeros where there are no sense data.
sg_scsi_sense_hdr headerOf(const SenseArea& sense) {
  sg_scsi_sense_hdr header{};
  ::sg_scsi_normalize_sense(reinterpret_cast<const std::uint8_t*>(sense.data()),
                            static_cast<int>(sense.size()), &header);
  return header;
}

/// ILLEGAL REQUEST, MEDIUM REMOVAL PREVENTED (SPC-4, annex F).
bool isRemovalPrevented(const SenseArea& sense) {
  const auto header = headerOf(sense);
  return header.sense_key == SPC_SK_ILLEGAL_REQUEST && header.asc == 0x53 && header.ascq == 0x02;
}

void giveSense(const SenseArea& sense, std::span<std::byte> area) {
  std::ranges::copy(std::span(sense).first(std::min(sense.size(), area.size())), area.begin());
}

/// A node that is open, and its name for the log.
struct OpenedNode {
  SgNode descriptor;
  std::string path;
};

/// The unit behind a service; what all its interfaces share.
class SgUnit {
 public:
  SgUnit(Registry& registry, ServiceHandle service, const std::atomic<bool>* interrupted,
         LogSink log, SgSCSIServices::OpenNode openNode)
      : registry_(registry),
        service_(service),
        interrupted_(interrupted),
        log_(std::move(log)),
        openNode_(std::move(openNode)) {}

  /// None where the unit has gone or never had one.
  std::optional<std::string> nodePath() const {
    const auto properties = registry_.properties(service_);
    return properties ? textForKey(*properties, kGenericNodeKey) : std::nullopt;
  }

  // For each command anew: a node of ours that stays open would keep everybody, us included, from
  // having it exclusively.
  Status open(int flags, OpenedNode& node) const {
    const auto path = nodePath();
    if (!path) return status::kIOReturnNoDevice;
    // Without O_NONBLOCK an open waits for whoever has the node for himself.
    FileDescriptor opened(openNode_(path->c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | flags));
    if (!opened.isOpen()) return ioKitStatusOfErrno(errno);
    // A unit that is still there now was there when its node was opened: the node is not another's.
    if (nodePath() != path) return status::kIOReturnNoDevice;
    node = {std::make_shared<const FileDescriptor>(std::move(opened)), *path};
    return status::kOK;
  }

  SgOutcome execute(const OpenedNode& node, const SgCommand& command) const {
    return executeSgCommand(node.descriptor, node.path, command, log_, interrupted_);
  }

 private:
  Registry& registry_;
  ServiceHandle service_;
  const std::atomic<bool>* interrupted_;
  LogSink log_;
  SgSCSIServices::OpenNode openNode_;
};

/// Null while nobody has exclusive access. Shared between a device and its tasks.
using ExclusiveNode = std::shared_ptr<std::optional<OpenedNode>>;

class SgTask : public SCSITaskInterface {
 public:
  SgTask(std::shared_ptr<SgUnit> unit, ExclusiveNode node)
      : unit_(std::move(unit)), node_(std::move(node)) {}

  Status setCommandDescriptorBlock(std::span<const std::byte> block) override {
    // The fixed lengths of command blocks.
    constexpr std::array<std::size_t, 4> kLengths{6, 10, 12, 16};
    if (std::ranges::find(kLengths, block.size()) == kLengths.end())
      return status::kIOReturnBadArgument;
    block_.assign(block.begin(), block.end());
    return status::kOK;
  }

  Status setScatterGatherEntries(std::span<std::byte> data, std::uint64_t transferCount,
                                 Direction direction) override {
    if (transferCount > data.size() || transferCount > INT_MAX) return status::kIOReturnBadArgument;
    data_ = data.first(static_cast<std::size_t>(transferCount));
    direction_ = direction;
    return status::kOK;
  }

  Status setTimeoutDuration(std::chrono::milliseconds duration) override {
    if (duration <= std::chrono::milliseconds::zero()) return status::kIOReturnBadArgument;
    timeout_ = duration;
    return status::kOK;
  }

  /// A unit that did not answer is no failure of the call: the service response tells of it, and
  /// `taskStatus` stays as it is.
  Status executeTaskSync(std::span<std::byte> sense, std::uint8_t& taskStatus,
                         std::uint64_t& realised) override {
    realised = 0;
    response_ = SCSIServiceResponse::kServiceDeliveryOrTargetFailure;
    if (!*node_) return status::kIOReturnNotOpen;
    if (block_.empty()) return status::kIOReturnBadArgument;
    const SgOutcome outcome = unit_->execute(**node_, {block_, data_, direction_, timeout_, sense});
    if (outcome.failure() != status::kOK) return outcome.submitted;
    response_ = SCSIServiceResponse::kTaskComplete;
    taskStatus = outcome.taskStatus;
    realised = outcome.realised;
    return status::kOK;
  }

  Status getSCSIServiceResponse(SCSIServiceResponse& response) override {
    response = response_;
    return status::kOK;
  }

 private:
  std::shared_ptr<SgUnit> unit_;
  ExclusiveNode node_;
  std::vector<std::byte> block_;
  std::span<std::byte> data_;
  Direction direction_ = Direction::kNone;
  std::chrono::milliseconds timeout_ = std::chrono::seconds(6);
  SCSIServiceResponse response_ = SCSIServiceResponse::kRequestInProcess;
};

class SgTaskDevice : public SCSITaskDeviceInterface {
 public:
  explicit SgTaskDevice(std::shared_ptr<SgUnit> unit) : unit_(std::move(unit)) {}

  // O_EXCL on a node of the sg driver: no other process can open it meanwhile, so nothing comes
  // between two commands of a switch.
  Status obtainExclusiveAccess() override {
    // Twice is refused by the driver too, but only while it still has the unit.
    if (*node_) return status::kIOReturnExclusiveAccess;
    OpenedNode opened;
    const Status result = unit_->open(O_EXCL, opened);
    if (result == status::kOK) *node_ = std::move(opened);
    return result;
  }

  Status releaseExclusiveAccess() override {
    if (!*node_) return status::kIOReturnNotOpen;
    node_->reset();
    return status::kOK;
  }

  std::unique_ptr<SCSITaskInterface> createSCSITask() override {
    if (!*node_) return nullptr;
    return std::make_unique<SgTask>(unit_, node_);
  }

 private:
  std::shared_ptr<SgUnit> unit_;
  ExclusiveNode node_ = std::make_shared<std::optional<OpenedNode>>();
};

class SgMMCDevice : public MMCDeviceInterface {
 public:
  explicit SgMMCDevice(std::shared_ptr<SgUnit> unit) : unit_(std::move(unit)) {}

  Status modeSense10(bool llbaa, bool dbd, std::uint8_t pageControl, std::uint8_t page,
                     std::span<std::byte> buffer, std::uint8_t& taskStatus,
                     std::span<std::byte> sense) override {
    // The command has room for no longer one.
    if (buffer.size() > 0xFFFF) return status::kIOReturnBadArgument;
    const auto length = static_cast<unsigned>(buffer.size());
    const std::array<std::byte, 10> block{byte(0x5A),
                                          byte((llbaa ? 0x10U : 0U) | (dbd ? 0x08U : 0U)),
                                          byte((pageControl & 3U) << 6 | (page & 0x3FU)),
                                          byte(0),
                                          byte(0),
                                          byte(0),
                                          byte(0),
                                          byte(length >> 8),
                                          byte(length),
                                          byte(0)};
    OpenedNode node;
    if (const Status opened = unit_->open(0, node); opened != status::kOK) return opened;
    const SgOutcome outcome = sensePatiently(node, block, buffer, sense);
    if (outcome.failure() == status::kOK) taskStatus = outcome.taskStatus;
    return outcome.failure();
  }

  Status setTrayState(bool isOpen, TrayLock lock, std::span<std::byte> sense) override {
    // udev locks the tray of every optical unit that holds a medium, and may do so again between
    // two commands of ours: it looks at the medium whenever the kernel does.
    // More than once, and with an end.
    constexpr int kMostAttempts = 5;
    OpenedNode node;
    if (const Status opened = unit_->open(0, node); opened != status::kOK) return opened;
    const bool unlocks = isOpen && lock == TrayLock::kReleased;
    SenseArea given{};
    Status result = moveTray(node, isOpen, unlocks, given);
    for (int attempt = 1; attempt < kMostAttempts && unlocks && isRemovalPrevented(given);
         ++attempt)
      result = moveTray(node, isOpen, unlocks, given);
    giveSense(given, sense);
    return result;
  }

  std::shared_ptr<SCSITaskDeviceInterface> getSCSITaskDeviceInterface() override {
    return std::make_shared<SgTaskDevice>(unit_);
  }

 private:
  /// What has happened to the unit is told once, in place of the first answer after it.
  /// UNIT ATTENTION: a reset, a new medium, changed pages.
  SgOutcome sensePatiently(const OpenedNode& node, std::span<const std::byte> block,
                           std::span<std::byte> buffer, std::span<std::byte> sense) const {
    constexpr int kMostAttempts = 3;
    SgOutcome outcome;
    SenseArea given{};
    // Of a mode sense only: sending a mode select twice would switch a unit twice.
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
      given = {};
      outcome = unit_->execute(node, {.block = block,
                                      .data = buffer,
                                      .direction = Direction::kFromTargetToInitiator,
                                      .sense = given});
      if (headerOf(given).sense_key != SPC_SK_UNIT_ATTENTION) break;
    }
    giveSense(given, sense);
    return outcome;
  }

  Status moveTray(const OpenedNode& node, bool isOpen, bool unlocks, SenseArea& sense) const {
    // SPC-4, 6.15 with PREVENT 00; SBC-3, 5.25 with LOEJ, and START to load.
    const std::array<std::byte, 6> allowRemoval{byte(0x1E)};
    const std::array<std::byte, 6> startStop{byte(0x1B), byte(0), byte(0), byte(0),
                                             byte(isOpen ? 0x02 : 0x03)};
    // Whether the unit knows a lock at all is for the next command to tell, which its answer does
    // not keep from being sent.
    sense = {};
    if (unlocks) {
      const SgOutcome unlocked = unit_->execute(node, {.block = allowRemoval});
      if (unlocked.failure() != status::kOK) return unlocked.failure();
    }
    const SgOutcome outcome = unit_->execute(node, {.block = startStop, .sense = sense});
    if (outcome.failure() != status::kOK) return outcome.failure();
    return outcome.taskStatus == scsi::kGood ? status::kOK : status::kIOReturnError;
  }

  std::shared_ptr<SgUnit> unit_;
};

}  // namespace

SgSCSIServices::SgSCSIServices(Registry& registry, const std::atomic<bool>* interrupted,
                               LogSink log, OpenNode openNode)
    : registry_(registry),
      interrupted_(interrupted),
      log_(std::move(log)),
      openNode_(std::move(openNode)) {}

std::shared_ptr<MMCDeviceInterface> SgSCSIServices::createMMCDevice(ServiceHandle service,
                                                                    Status& failure) {
  auto unit = std::make_shared<SgUnit>(registry_, service, interrupted_, log_, openNode_);
  if (!unit->nodePath()) {
    failure = status::kIOReturnNoDevice;
    return nullptr;
  }
  failure = status::kOK;
  return std::make_shared<SgMMCDevice>(std::move(unit));
}

int SgSCSIServices::openDeviceNode(const char* path, int flags) {
  return ::open(path, flags);
}

}  // namespace tarvo
