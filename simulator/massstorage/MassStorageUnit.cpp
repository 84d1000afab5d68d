#include "simulator/massstorage/MassStorageUnit.h"

#include <algorithm>

#include "Utilities/Format.h"
#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {
namespace {

/// Mass storage, transparent SCSI, bulk-only.
constexpr InterfaceClass kBulkOnly = {8, 6, 80};

bool looksLikeCommand(std::span<const std::byte> data) {
  return data.size() == bulkonly::kCommandWrapperSize &&
         littleEndian(data, 0, 4) == bulkonly::kCommandSignature;
}

}  // namespace

MassStorageUnit::MassStorageUnit(const DeviceDescription& description)
    : VirtualUSBDevice(description, kBulkOnly),
      type_(description.scsi.type),
      unit_(description, violations_),
      queue_(descriptors().endpoint(kBulkIn)->packetSize) {}

// Class requests.

std::optional<Bytes> MassStorageUnit::classRequest(const SetupPacket& setup,
                                                   std::span<const std::byte>) {
  if (setup.request == bulkonly::kGetMaxLUN && setup.fromDevice()) return Bytes(1);
  if (setup.request == bulkonly::kMassStorageReset && !setup.fromDevice()) {
    // Halted endpoints stay so: the host clears them (5.3.4).
    forgetEverything();
    return Bytes{};
  }
  return std::nullopt;
}

void MassStorageUnit::forgetEverything() {
  phase_ = Phase::kCommand;
  needsReset_ = haltsIn_ = goesInstead_ = false;
  queue_.clear();
  data_.clear();
  unit_.reset();
}

// From the host.

void MassStorageUnit::receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) {
  if (endpoint != kBulkOut || needsReset_) {
    halt(endpoint);
    return;
  }
  switch (phase_) {
    case Phase::kDataOut:
      receiveData(data, ends);
      break;
    case Phase::kRefused:
      halt(kBulkOut);
      beginStatus(status_);
      break;
    case Phase::kSilent:
      break;
    case Phase::kDataIn:
    case Phase::kStatus:
      violations_.add("a command came before the last status was taken");
      queue_.clear();
      haltsIn_ = goesInstead_ = false;
      [[fallthrough]];
    case Phase::kCommand:
      receiveCommand(data);
      break;
  }
}

/// Valid and meaningful (6.2).
bool MassStorageUnit::isValidWrapper(std::span<const std::byte> data) {
  if (!looksLikeCommand(data)) {
    violations_.add(formatted("a command wrapper was expected, %zu bytes came", data.size()));
    return false;
  }
  const auto flags = byteAt(data, 12);
  const auto unit = byteAt(data, 13);
  const auto length = byteAt(data, 14);
  const bool isMeaningful =
      (flags & 0x7F) == 0 && unit == 0 && length >= 1 && length <= bulkonly::kLongestBlock;
  if (!isMeaningful) {
    violations_.add(
        formatted("command wrapper with flags 0x%02X, unit %u, length %u", flags, unit, length));
  }
  return isMeaningful;
}

void MassStorageUnit::receiveCommand(std::span<const std::byte> data) {
  phase_ = Phase::kCommand;
  if (!isValidWrapper(data)) {
    // From now on both endpoints stall, whatever the host clears, until it resets (6.6.1).
    needsReset_ = true;
    return;
  }
  tag_ = static_cast<std::uint32_t>(littleEndian(data, 4, 4));
  expected_ = static_cast<std::uint32_t>(littleEndian(data, 8, 4));
  isToHost_ = (byteAt(data, 12) & 0x80) != 0;
  data_.clear();
  received_ = 0;
  moved_ = 0;
  wanted_ = 0;
  haltsIn_ = goesInstead_ = false;
  const auto block = data.subspan(bulkonly::kBlockOffset, byteAt(data, 14));
  commands_.push_back({Bytes(block.begin(), block.end()), {}});
  if (commands_.size() > kCommandsKept) commands_.pop_front();
  faults_.begin(byteAt(block, 0));
  run(block);
}

void MassStorageUnit::run(std::span<const std::byte> block) {
  if (strikes(Fault::kVanishCommand)) {
    vanish();
    return;
  }
  if (strikes(Fault::kSilent)) {
    phase_ = Phase::kSilent;
    return;
  }
  const auto spoilt = faults_.amount(Fault::kSense);
  ScsiReply reply;
  if (spoilt) {
    reply =
        unit_.fail({static_cast<std::uint8_t>(*spoilt >> 16),
                    static_cast<std::uint8_t>(*spoilt >> 8), static_cast<std::uint8_t>(*spoilt)});
  } else if (strikes(Fault::kStatus)) {
    reply = unit_.fail({});
  } else {
    reply = unit_.begin(block, faults_);
  }
  status_ = reply.isGood ? kPassed : kFailed;
  wanted_ = reply.expects;
  if (wanted_ > 0) {
    matchDataOut();
  } else if (reply.data) {
    matchDataIn(reply.data);
  } else {
    matchNoData();
  }
}

// What the host expects against what the unit does: the thirteen cases of 6.7.

// (1), (4), (9)
void MassStorageUnit::matchNoData() {
  if (expected_ > 0 && !isToHost_) {
    phase_ = Phase::kRefused;
    return;
  }
  haltsIn_ = expected_ > 0;
  beginStatus(status_);
}

// (2), (5), (6), (7), (10)
void MassStorageUnit::matchDataIn(std::shared_ptr<const Payload> data) {
  if (expected_ == 0 || !isToHost_) {
    disagree("data for the host, which expects none");
    return;
  }
  if (strikes(Fault::kStall)) {
    status_ = kFailed;
    matchNoData();
    return;
  }
  data = spoilt(std::move(data));
  const auto whole = data->size();
  OutgoingTransfer transfer;
  transfer.zeroLengthPacket = false;
  transfer.notBefore = answerTime();
  transfer.overflows = strikes(Fault::kBabble);
  transfer.thenGone = strikes(Fault::kVanish);
  moved_ = static_cast<std::uint32_t>(std::min<std::uint64_t>(whole, expected_));
  const auto sent = transfer.thenGone ? moved_ / 2 : moved_;
  transfer.payload = std::make_shared<PartPayload>(std::move(data), 0, sent);
  if (whole > expected_) {
    violations_.add(formatted("the host has room for %u of %llu bytes", expected_,
                              static_cast<unsigned long long>(whole)));
    status_ = kPhaseError;
  }
  // Fewer bytes end with a short packet; where there is none, the endpoint halts behind them.
  const auto packet = descriptors().endpoint(kBulkIn)->packetSize;
  haltsIn_ = moved_ < expected_ && moved_ % packet == 0;
  if (moved_ == 0) {
    beginStatus(status_);
    return;
  }
  phase_ = Phase::kDataIn;
  queue_.push(std::move(transfer));
}

// (3), (8), (11), (12), (13)
void MassStorageUnit::matchDataOut() {
  if (expected_ == 0 || isToHost_) {
    disagree("data from the host, which sends none");
    return;
  }
  phase_ = Phase::kDataOut;
}

void MassStorageUnit::disagree(const char* how) {
  violations_.add(formatted("command 0x%02X moves %s", byteAt(commands_.back().block, 0), how));
  status_ = kPhaseError;
  matchNoData();
}

void MassStorageUnit::receiveData(std::span<const std::byte> data, bool ends) {
  if (looksLikeCommand(data) && expected_ != bulkonly::kCommandWrapperSize) {
    violations_.add("data were expected, a command came");
    receiveCommand(data);
    return;
  }
  if (strikes(Fault::kVanish)) {
    vanish();
    return;
  }
  if (strikes(Fault::kStallOut)) {
    halt(kBulkOut);
    unit_.fail(sense::kTransferError);
    beginStatus(kFailed);
    return;
  }
  received_ += data.size();
  const auto room = std::min(wanted_ - std::min<std::uint64_t>(data_.size(), wanted_),
                             static_cast<std::uint64_t>(data.size()));
  data_.insert(data_.end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(room));
  if (received_ > expected_ || (ends && received_ < expected_)) {
    violations_.add(formatted("%u bytes of data were announced, %llu came", expected_,
                              static_cast<unsigned long long>(received_)));
  }
  if (ends || received_ >= expected_) finishData();
}

void MassStorageUnit::finishData() {
  auto& kept = commands_.back().data;
  kept = data_;
  kept.resize(std::min(kept.size(), kDataKept));
  moved_ = static_cast<std::uint32_t>(data_.size());
  if (data_.size() < wanted_) {
    violations_.add("the unit wants more data than the host sends");
    unit_.fail(sense::kTransferError);
    beginStatus(kPhaseError);
    return;
  }
  const auto reply = unit_.finish(data_);
  data_ = {};
  beginStatus(reply.isGood ? kPassed : kFailed);
}

// To the host.

/// As the faults want the data.
std::shared_ptr<const Payload> MassStorageUnit::spoilt(std::shared_ptr<const Payload> data) const {
  if (strikes(Fault::kGarbage)) return std::make_shared<PatternPayload>(tag_, data->size());
  auto size = data->size();
  if (const auto cut = faults_.amount(Fault::kTruncate)) size = std::min<std::uint64_t>(size, *cut);
  if (strikes(Fault::kShort)) size /= 2;
  return std::make_shared<PartPayload>(std::move(data), 0, size);
}

std::chrono::steady_clock::time_point MassStorageUnit::answerTime() const {
  const auto late = faults_.amount(Fault::kDelay);
  if (!late) return {};
  return std::chrono::steady_clock::now() + std::chrono::microseconds(*late);
}

void MassStorageUnit::beginStatus(Status status) {
  phase_ = Phase::kStatus;
  status_ = strikes(Fault::kPhaseError) ? kPhaseError : status;
  haltsIn_ = haltsIn_ || strikes(Fault::kStall);
  goesInstead_ = strikes(Fault::kVanish) || strikes(Fault::kVanishStatus);
  OutgoingTransfer transfer;
  transfer.payload = std::make_shared<BytesPayload>(statusWrapper());
  transfer.notBefore = answerTime();
  queue_.push(std::move(transfer));
}

Bytes MassStorageUnit::statusWrapper() const {
  ByteWriter writer;
  writer.u32(bulkonly::kStatusSignature ^ (strikes(Fault::kWrongSignature) ? 1 : 0));
  writer.u32(tag_ + (strikes(Fault::kWrongTag) ? 7 : 0));
  writer.u32(expected_ - std::min(moved_, expected_));
  writer.u8(status_);
  return writer.take();
}

InResult MassStorageUnit::send(std::uint8_t endpoint, std::span<std::byte> room) {
  if (endpoint != kBulkIn || needsReset_) {
    halt(endpoint);
    return {InResult::State::kStalled, 0};
  }
  if (phase_ == Phase::kDataIn) return sendData(room);
  if (phase_ == Phase::kStatus) return sendStatus(room);
  return {InResult::State::kWaiting, 0};
}

InResult MassStorageUnit::sendData(std::span<std::byte> room) {
  const auto result = queue_.fill(room);
  if (result.state == InResult::State::kGone) {
    vanish();
  } else if (queue_.isEmpty()) {
    beginStatus(status_);
  }
  return result;
}

InResult MassStorageUnit::sendStatus(std::span<std::byte> room) {
  if (haltsIn_) {
    haltsIn_ = false;
    halt(kBulkIn);
    return {InResult::State::kStalled, 0};
  }
  if (goesInstead_) {
    vanish();
    return {InResult::State::kGone, 0};
  }
  const auto result = queue_.fill(room);
  if (queue_.isEmpty()) {
    phase_ = Phase::kCommand;
    if (status_ == kPassed && unit_.powersDown()) vanish();
  }
  return result;
}

std::optional<std::chrono::steady_clock::time_point> MassStorageUnit::nextDue(
    std::uint8_t endpoint) const {
  return endpoint == kBulkIn ? queue_.due() : std::nullopt;
}

std::vector<UnitCommand> MassStorageUnit::commands() const {
  const std::lock_guard guard(lock());
  return {commands_.begin(), commands_.end()};
}

void MassStorageUnit::forgetCommands() {
  const std::lock_guard guard(lock());
  commands_.clear();
}

UnitState MassStorageUnit::state() const {
  const std::lock_guard guard(lock());
  return unit_.state();
}

bool MassStorageUnit::powersDown() const {
  const std::lock_guard guard(lock());
  return unit_.powersDown();
}

bool MassStorageUnit::returnsAsCamera() const {
  const std::lock_guard guard(lock());
  return unit_.returnsAsCamera();
}

std::optional<std::uint8_t> MassStorageUnit::reportedStatus() const {
  const std::lock_guard guard(lock());
  const auto status = faults_.amount(Fault::kStatus);
  if (!status) return std::nullopt;
  return static_cast<std::uint8_t>(*status);
}

}  // namespace tarvo::simulator
