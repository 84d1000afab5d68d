#include "platform/imagecapture/ptp/BulkPipe.h"

#include <algorithm>

#include "Utilities/Format.h"

namespace tarvo::ptp {

namespace {

/// How long a wait that can be interrupted goes on without a look. A signal ends no wait that
/// begins just behind it, so the flag is looked at again and again while a transaction runs.
constexpr std::chrono::milliseconds kInterruptionInterval{50};

/// Parts of the budget after which it is looked whether anything has moved. A device that stops in
/// the middle is found out as many times as late as a part is long.
constexpr int kLooks = 8;

/// A transfer of less than this share of the budget may be four times as large.
constexpr int kFastShare = 32;
// Before the speed of the device is known: a read that is too large for a slow one would look like
// silence.
constexpr std::size_t kFirstPiece = std::size_t{1} << 14;
constexpr std::size_t kSmallestPiece = std::size_t{1} << 11;  ///< whole packets of every size
constexpr std::size_t kLargestPiece = std::size_t{1} << 21;
/// 4096 packets of a full-speed device are 256 KiB, which take about 0.2 s.
constexpr std::size_t kMostPackets = 4096;

Outcome outcomeOf(TransferResult result, std::uint8_t endpoint) {
  const bool in = (endpoint & 0x80) != 0;
  const char* doing = in ? "reading from" : "writing to";
  switch (result) {
    case TransferResult::kCompleted:
      return {};
    case TransferResult::kStalled:
      return {Ending::kStalled, formatted("the device stalled endpoint 0x%02x", endpoint),
              endpoint};
    case TransferResult::kTimedOut:
      return {Ending::kTimedOut, formatted("time-out %s the device", doing)};
    case TransferResult::kNoDevice:
      return {Ending::kGone, "the device is gone"};
    case TransferResult::kOverflow:
      return broken("the device sent more than a packet holds");
    case TransferResult::kNoMemory:
      return {Ending::kFailed,
              "the system has no memory for USB transfers left (see usbfs_memory_mb)"};
    // Nobody waits for what was cancelled, so it is as odd as any other failure.
    case TransferResult::kCancelled:
    case TransferResult::kError:
      break;
  }
  return {Ending::kFailed, formatted("bus error %s the device", doing)};
}

}  // namespace

BulkPipe::BulkPipe(USBDevice& device, const Timeouts& timeouts)
    : device_(device),
      interrupted_(timeouts.interrupted),
      leaving_(timeouts.leaving),
      in_{.endpoint = device.endpoints().bulkIn,
          .packet = device.endpoints().bulkInPacketSize,
          .counter = statistics_.bytesReceived,
          .piece = kFirstPiece},
      out_{.endpoint = device.endpoints().bulkOut,
           .packet = device.endpoints().bulkOutPacketSize,
           .counter = statistics_.bytesSent,
           .piece = kFirstPiece} {
  if (timeouts.whole) end_ = Clock::now() + *timeouts.whole - leaving_;
}

void BulkPipe::submitIn(std::span<std::byte> buffer) {
  submit(in_, buffer);
}

void BulkPipe::submitOut(std::span<const std::byte> bytes) {
  // The seam has one kind of buffer; an OUT transfer only reads it.
  submit(out_, {const_cast<std::byte*>(bytes.data()), bytes.size()});
}

void BulkPipe::submit(Direction& direction, std::span<std::byte> buffer) {
  direction.transfers.push_back({.buffer = buffer});
  startHeld(direction);
}

Outcome BulkPipe::nextIn(std::size_t& length, Milliseconds limit) {
  return next(in_, length, limit);
}

// A device takes a transfer as a whole or stalls; less without an error would leave a hole in the
// container.
Outcome BulkPipe::nextOut(std::size_t size, Milliseconds limit) {
  std::size_t length = 0;
  Outcome outcome = next(out_, length, limit);
  if (outcome.done() && length != size)
    return {Ending::kFailed, formatted("the device took %zu of %zu bytes", length, size)};
  return outcome;
}

Outcome BulkPipe::read(std::span<std::byte> buffer, std::size_t& length, Milliseconds limit) {
  submitIn(buffer);
  return nextIn(length, limit);
}

Outcome BulkPipe::write(std::span<const std::byte> bytes, Milliseconds limit) {
  submitOut(bytes);
  return nextOut(bytes.size(), limit);
}

void BulkPipe::cancelAll() {
  // The buffers belong to the caller again when this returns, so it waits for none of the results.
  device_.cancelAll();
  // As many as there are at most; how they have ended does not matter any more.
  for (std::size_t i = in_.transfers.size() + out_.transfers.size(); i > 0; --i)
    if (!device_.wait(Milliseconds{0})) break;
  in_.transfers.clear();
  out_.transfers.clear();
  starved_ = false;
}

void BulkPipe::startBudget(Milliseconds budget) {
  // A budget of time without progress, not of time: a film takes as long as it takes.
  budget_ = budget;
  progressed();
  in_.mostOfMemory = out_.mostOfMemory = SIZE_MAX;
}

BulkPipe::Milliseconds BulkPipe::patience(Milliseconds limit) {
  if (isInterrupted()) leave();
  const auto now = Clock::now();
  for (const auto& point : {deadline_, end_})
    if (point) limit = std::min(limit, std::chrono::duration_cast<Milliseconds>(*point - now));
  return std::max(limit, Milliseconds{0});
}

void BulkPipe::leave() {
  if (!isLeaving_) end_ = Clock::now() + leaving_;
  isLeaving_ = true;
}

void BulkPipe::ignoreInterruption() {
  if (isInterrupted()) leave();
  interrupted_ = nullptr;
}

std::optional<TransferCompletion> BulkPipe::waitInterruptibly(Milliseconds limit) {
  if (interrupted_ == nullptr) return device_.wait(limit);
  const auto deadline = Clock::now() + limit;
  std::optional<TransferCompletion> ended;
  // Without a budget it is recovery, which a signal hurries and does not cut short: it is what
  // leaves the device in order.
  while (!ended && !(budget_ && isInterrupted())) {
    const auto left = patience(std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()));
    ended = device_.wait(std::min(left, kInterruptionInterval));
    if (left == Milliseconds{0}) break;
  }
  return ended;
}

Outcome BulkPipe::next(Direction& direction, std::size_t& length, Milliseconds limit) {
  length = 0;
  Outcome outcome = awaitOldest(direction, limit);
  if (!outcome.done()) return outcome;
  const Transfer oldest = direction.transfers.front();
  direction.transfers.pop_front();
  length = oldest.moved;
  return outcomeOf(oldest.result, direction.endpoint);
}

// In the order of submission, whatever the order of the results: the bytes belong one behind the
// other.
Outcome BulkPipe::awaitOldest(Direction& direction, Milliseconds limit) {
  const Transfer& oldest = direction.transfers.front();
  Clock::duration left = patience(limit);
  // Also of what has ended: a device that sends without a pause would never let us go.
  while (!isOver()) {
    if (oldest.state == Transfer::State::kEnded) return {};
    // A packet moves as a whole or not at all, so there is nothing to look for in a single one.
    const bool looks = budget_ && oldest.part > direction.packet;
    // Rounded down, so that the waits together never exceed the budget. What has ended already is
    // still taken with no patience left.
    const auto all = std::chrono::floor<Milliseconds>(
        std::max(budget_ ? std::min(left, budgetLeft_) : left, Clock::duration{0}));
    const auto wait = looks ? std::min(all, *budget_ / kLooks + Milliseconds{1}) : all;
    const auto begin = Clock::now();
    const auto ended = waitInterruptibly(wait);
    const Clock::duration spent = ended ? Clock::now() - begin : wait;
    left -= spent;
    budgetLeft_ -= spent;
    if (ended) {
      if (!take(*ended)) return {Ending::kFailed, "a transfer ended that was not in flight"};
    } else if (budget_ && isInterrupted()) {
      return {Ending::kCancelled, "interrupted"};
    } else if (looks && lookForProgress()) {
      adaptPiece(direction, false);
      progressed();
      // It may have moved right after the look before.
      budgetLeft_ -= spent;
      left = patience(limit);
    } else if (wait == all && !isOver()) {
      return outcomeOf(TransferResult::kTimedOut, direction.endpoint);
    }
  }
  return {Ending::kOutOfTime, "the device is so slow that it has used up all of its time"};
}

bool BulkPipe::lookForProgress() {
  // Cancelled and not asked: a transfer reports how much it has moved only when it ends.
  const auto before = statistics_.bytesReceived + statistics_.bytesSent;
  looking_ = true;
  device_.cancelAll();
  while (const auto ended = device_.wait(Milliseconds{0}))
    if (!take(*ended)) break;
  looking_ = false;
  startHeld(in_);
  startHeld(out_);
  return statistics_.bytesReceived + statistics_.bytesSent > before;
}

bool BulkPipe::take(const TransferCompletion& completion) {
  for (Direction* direction : {&in_, &out_})
    for (Transfer& transfer : direction->transfers)
      if (transfer.state == Transfer::State::kInFlight && transfer.tag == completion.tag) {
        settle(*direction, transfer, completion);
        return true;
      }
  return false;
}

void BulkPipe::settle(Direction& direction, Transfer& transfer,
                      const TransferCompletion& completion) {
  // usbfs bounds the memory of all processes together (usbfs_memory_mb, 16 by default), so others
  // decide how much there is.
  if (completion.result == TransferResult::kNoMemory) return hold(direction, transfer);
  const std::size_t length = std::min(completion.length, transfer.part);
  transfer.moved += length;
  direction.counter += length;
  starved_ = false;
  const bool cancelled = looking_ && completion.result == TransferResult::kCancelled;
  const bool fully = completion.result == TransferResult::kCompleted && length == transfer.part;
  if (fully && transfer.part >= direction.piece) adaptPiece(direction, true);
  // A part may have ended by its own just when it was cancelled: with its last byte, or by a short
  // packet.
  const bool ended =
      !cancelled || (length > 0 && (transfer.left() == 0 || length % direction.packet != 0));
  if (!ended || (fully && transfer.left() > 0)) {
    transfer.state = Transfer::State::kHeld;
  } else {
    transfer.state = Transfer::State::kEnded;
    transfer.result = cancelled ? TransferResult::kCompleted : completion.result;
  }
  if (!looking_) startHeld(direction);
}

void BulkPipe::hold(Direction& direction, Transfer& transfer) {
  transfer.state = Transfer::State::kHeld;
  // What is in flight gives its memory back when it ends, and then this one is tried again as it
  // is.
  starved_ = anyInFlight();
  if (starved_) return;
  // It is others who have the memory: less of it has to do.
  if (transfer.part <= direction.packet) {
    transfer.state = Transfer::State::kEnded;
    transfer.result = TransferResult::kNoMemory;
    return;
  }
  const std::size_t packets = transfer.part / 2 / direction.packet;
  direction.mostOfMemory = std::max<std::size_t>(packets, 1) * direction.packet;
  direction.piece = std::max(std::min(direction.piece, direction.mostOfMemory), kSmallestPiece);
  startHeld(direction);
}

/// How long the last one has taken is what is missing of the budget, which payload has filled up
/// before.
void BulkPipe::adaptPiece(Direction& direction, bool grows) {
  if (!budget_) return;
  const auto spent = *budget_ - budgetLeft_;
  const std::size_t largest =
      std::min({direction.packet * kMostPackets, kLargestPiece, direction.mostOfMemory});
  // Up by four and down by two: a transfer that is too small costs little, one that is too large a
  // look.
  if (grows && spent < *budget_ / kFastShare)
    direction.piece = std::min(direction.piece * 4, largest);
  else if (!grows || spent > *budget_ / kLooks)
    direction.piece = std::max(direction.piece / 2, kSmallestPiece);
}

/// In order: nothing may come between the parts of a transfer, or before one that is still held.
void BulkPipe::startHeld(Direction& direction) {
  for (Transfer& transfer : direction.transfers) {
    if (transfer.state == Transfer::State::kHeld) {
      if (starved_) return;
      transfer.part = std::min(transfer.left(), direction.mostOfMemory);
      transfer.tag = newest_++;
      transfer.state = Transfer::State::kInFlight;
      device_.submit(direction.endpoint, transfer.buffer.subspan(transfer.moved, transfer.part),
                     transfer.tag);
    }
    // Only its first part is on the way.
    if (transfer.state == Transfer::State::kInFlight && transfer.part < transfer.left()) return;
  }
}

bool BulkPipe::anyInFlight() const {
  const auto inFlight = [](const Transfer& transfer) {
    return transfer.state == Transfer::State::kInFlight;
  };
  return std::ranges::any_of(in_.transfers, inFlight) ||
         std::ranges::any_of(out_.transfers, inFlight);
}

namespace {

void encodeUInt16(std::uint16_t value, std::span<std::byte> bytes) {
  bytes[0] = static_cast<std::byte>(value & 0xFF);
  bytes[1] = static_cast<std::byte>(value >> 8);
}

void encodeUInt32(std::uint32_t value, std::span<std::byte> bytes) {
  encodeUInt16(static_cast<std::uint16_t>(value & 0xFFFF), bytes);
  encodeUInt16(static_cast<std::uint16_t>(value >> 16), bytes.subspan(2));
}

}  // namespace

std::uint16_t decodeUInt16(std::span<const std::byte> bytes) {
  return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[0]) |
                                    std::to_integer<unsigned>(bytes[1]) << 8);
}

std::uint32_t decodeUInt32(std::span<const std::byte> bytes) {
  return decodeUInt16(bytes) | static_cast<std::uint32_t>(decodeUInt16(bytes.subspan(2))) << 16;
}

void encodeHeader(const ContainerHeader& header, std::span<std::byte> bytes) {
  encodeUInt32(header.length, bytes);
  encodeUInt16(header.type, bytes.subspan(4));
  encodeUInt16(header.code, bytes.subspan(6));
  encodeUInt32(header.transactionID, bytes.subspan(8));
}

std::optional<ContainerHeader> decodeHeader(std::span<const std::byte> bytes) {
  if (bytes.size() < kContainerHeaderSize) return std::nullopt;
  const ContainerHeader header{decodeUInt32(bytes), decodeUInt16(bytes.subspan(4)),
                               decodeUInt16(bytes.subspan(6)), decodeUInt32(bytes.subspan(8))};
  // 0xFFFFFFFF, for a length that is not known yet, passes: it is for the caller to know where that
  // may be.
  if (header.length < kContainerHeaderSize) return std::nullopt;
  return header;
}

CommandBlock encodeCommand(const Transaction& transaction, std::uint32_t transactionID) {
  // The caller has refused more than five already; the array must be safe by itself.
  const std::size_t count = std::min<std::size_t>(transaction.parameterCount, kMaximumParameters);
  CommandBlock block;
  block.size = kContainerHeaderSize + 4 * count;
  const std::span<std::byte> bytes(block.bytes);
  encodeHeader(
      {static_cast<std::uint32_t>(block.size), kCommandBlock, transaction.operation, transactionID},
      bytes);
  for (std::size_t i = 0; i < count; ++i)
    encodeUInt32(transaction.parameters.at(i), bytes.subspan(kContainerHeaderSize + 4 * i));
  return block;
}

Outcome decodeResponse(std::span<const std::byte> bytes, std::uint32_t transactionID,
                       Transaction& transaction) {
  const auto header = decodeHeader(bytes);
  if (!header || header->type != kResponseBlock)
    return broken("a response was due, the device sent " + inHex(bytes));
  // The only thing that tells an answer from one to the question before.
  if (header->transactionID != transactionID)
    return broken(formatted("the response is for transaction %u instead of %u",
                            header->transactionID, transactionID));
  // A response is one short transfer: its length is known to the byte, so any other is a lie. Some
  // devices add a byte to it that belongs to no parameter.
  if (header->length != bytes.size() || header->length > kMaximumBlockSize)
    return broken(
        formatted("the response says %u bytes and has %zu", header->length, bytes.size()));

  transaction.responseCode = header->code;
  transaction.responseParameterCount = (header->length - kContainerHeaderSize) / 4;
  for (std::size_t i = 0; i < transaction.responseParameterCount; ++i)
    transaction.responseParameters.at(i) =
        decodeUInt32(bytes.subspan(kContainerHeaderSize + 4 * i));
  return {};
}

std::array<std::byte, 6> encodeCancelRequest(std::uint32_t transactionID) {
  std::array<std::byte, 6> payload{};
  encodeUInt16(kCancellationCode, payload);
  encodeUInt32(transactionID, std::span(payload).subspan(2));
  return payload;
}

std::optional<DeviceStatus> decodeDeviceStatus(std::span<const std::byte> bytes) {
  // USB still-image class, Get Device Status: length, code, and what it has to say about it.
  if (bytes.size() < 4) return std::nullopt;
  DeviceStatus status;
  status.code = decodeUInt16(bytes.subspan(2));
  // The device's own length, as far as it is there.
  const std::size_t length = std::min<std::size_t>(decodeUInt16(bytes), bytes.size());
  // An endpoint is a number of four bytes of which the address is the lowest.
  for (std::size_t at = 4; at + 4 <= length && status.haltedCount < 4; at += 4)
    status.haltedEndpoints.at(status.haltedCount++) = std::to_integer<std::uint8_t>(bytes[at]);
  return status;
}

std::string inHex(std::span<const std::byte> bytes) {
  constexpr std::size_t kShown = 16;
  if (bytes.empty()) return "nothing";
  std::string text = formatted("%zu bytes:", bytes.size());
  for (std::byte value : bytes.first(std::min(bytes.size(), kShown)))
    text += formatted(" %02x", std::to_integer<unsigned>(value));
  if (bytes.size() > kShown) text += " ...";
  return text;
}

namespace {

constexpr std::size_t kMostParameters = std::tuple_size_v<decltype(Event::parameters)>;
constexpr std::size_t kLongestEvent = kContainerHeaderSize + 4 * kMostParameters;

Event decodeEvent(std::span<const std::byte> container) {
  Event event;
  event.code = decodeUInt16(container.subspan(6));
  event.transactionID = decodeUInt32(container.subspan(8));
  event.parameterCount = static_cast<unsigned>((container.size() - kContainerHeaderSize) / 4);
  for (unsigned i = 0; i < event.parameterCount; ++i)
    event.parameters.at(i) =
        decodeUInt32(container.subspan(kContainerHeaderSize + std::size_t{4} * i));
  return event;
}

}  // namespace

std::vector<Event> EventAssembler::take(std::span<const std::byte> packet) {
  pending_.insert(pending_.end(), packet.begin(), packet.end());
  std::vector<Event> events;
  while (true) {
    const auto length = frontLength();
    // Out of step: there is no mark to find the next beginning by, so what is there goes.
    if (!length) pending_.clear();
    if (!length || *length == 0) break;
    events.push_back(decodeEvent(std::span(pending_).first(*length)));
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(*length));
  }
  // A short packet ends an event (USB 2.0, 5.7.3); what is left of it never becomes one.
  if (packet.size() < packetSize_) pending_.clear();
  return events;
}

std::optional<std::size_t> EventAssembler::frontLength() const {
  // Looked at as soon as it is there: devices fill packets up with zeros, which are no beginning.
  const std::span<const std::byte> bytes(pending_);
  if (bytes.size() < 4) return 0;
  const std::size_t length = decodeUInt32(bytes);
  // A device that sends nonsense must not make us collect 4 GiB for one event.
  if (length < kContainerHeaderSize || length > kLongestEvent || length % 4 != 0)
    return std::nullopt;
  if (bytes.size() >= 6 && decodeUInt16(bytes.subspan(4)) != kEventBlock) return std::nullopt;
  return bytes.size() < length ? 0 : length;
}

}  // namespace tarvo::ptp
