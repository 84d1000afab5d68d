#include "platform/imagecapture/ptp/TransactionRunner.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "Utilities/Format.h"
#include "platform/imagecapture/ptp/BulkPipe.h"

namespace tarvo::ptp {

namespace {

/// Zero-length packets in a row that a device may put before a container.
constexpr int kMaximumEmptyPackets = 4;

/// Leaves no transfer in flight, also when a sink or a source raises.
class CancelOnExit {
 public:
  explicit CancelOnExit(BulkPipe& pipe) : pipe_(pipe) {}
  CancelOnExit(const CancelOnExit&) = delete;
  CancelOnExit& operator=(const CancelOnExit&) = delete;
  ~CancelOnExit() {
    if (armed_) pipe_.cancelAll();
  }
  void disarm() { armed_ = false; }

 private:
  BulkPipe& pipe_;
  bool armed_ = true;
};

/// Why a container is no answer to the transaction; empty when it is one.
std::string objection(const ContainerHeader& header, const Transaction& transaction,
                      std::uint32_t transactionID) {
  if (header.type != kDataBlock && header.type != kResponseBlock)
    return formatted("the device answered with a container of type %u", header.type);
  if (header.transactionID != transactionID)
    return formatted("the device answered transaction %u instead of %u", header.transactionID,
                     transactionID);
  if (header.type == kDataBlock && header.code != transaction.operation)
    return formatted("the device sent data of operation 0x%04x instead of 0x%04x", header.code,
                     transaction.operation);
  return {};
}

/// Whether a device may be silent for minutes before it answers and be well all the same: it
/// formats, writes what it was sent, deletes or copies whole folders, tests or resets itself.
bool takesLong(std::uint16_t operation) {
  constexpr auto kOperations = std::to_array<std::uint16_t>(
      {kDeleteObject, kSendObject, kFormatStore, kResetDevice, kSelfTest, kPowerDown, kMoveObject,
       kCopyObject, XTO_SEND_OBJECT_PART, XTO_CREATE_DATASET, XTO_UPDATE_DATASET});
  return std::ranges::find(kOperations, operation) != kOperations.end();
}

}  // namespace

TransactionRunner::TransactionRunner(BulkPipe& pipe, const Timeouts& timeouts)
    : pipe_(pipe),
      timeouts_(timeouts),
      // Once for the life of the connection, so that a transaction allocates nothing.
      scratch_(std::make_unique_for_overwrite<std::byte[]>(kScratchSize)) {}

Outcome TransactionRunner::run(Transaction& transaction, std::uint32_t transactionID) {
  ++pipe_.statistics().transactions;
  // For the transaction as a whole; payload that moves fills it up again.
  pipe_.startBudget(timeouts_.bulk);
  CancelOnExit guard(pipe_);
  isAsked_ = false;
  Outcome outcome = runPhases(transaction, transactionID);
  isAsked_ = false;
  if (outcome.done()) {
    // Only a whole transaction shows it: stale data may look like the beginning of one.
    inStep_ = true;
    guard.disarm();
  }
  return outcome;
}

Outcome TransactionRunner::runPhases(Transaction& transaction, std::uint32_t transactionID) {
  Outcome outcome = sendCommand(transaction, transactionID);
  if (outcome.done() && transaction.send != nullptr)
    outcome = DataOut(pipe_, scratch(), *transaction.send, timeouts_)
                  .run(transaction.operation, transactionID);
  return outcome.done() ? readAnswer(transaction, transactionID) : outcome;
}

Outcome TransactionRunner::sendCommand(const Transaction& transaction,
                                       std::uint32_t transactionID) {
  // A device takes a command as one transfer that ends short.
  const CommandBlock block = encodeCommand(transaction, transactionID);
  const auto bytes = std::span(block.bytes).first(block.size);
  const bool endsShort = block.size % pipe_.outPacketSize() != 0;
  // Command and read at once spare a round trip. Not before a device is known to be in step: it
  // could answer something old.
  if (inStep_ && transaction.send == nullptr && endsShort) return sendCommandAndAsk(bytes);
  // A device that is still sending to a killed process may take no command before it got rid of it.
  const auto limit =
      inStep_ || hasTime_ ? timeouts_.bulk : std::min(timeouts_.firstWord / 2, timeouts_.bulk);
  Outcome outcome = pipe_.write(bytes, limit);
  // With the small packets of a slow device a command can end with a full one.
  if (outcome.done() && !endsShort) outcome = pipe_.write({}, timeouts_.bulk);
  return outcome;
}

Outcome TransactionRunner::sendCommandAndAsk(std::span<const std::byte> command) {
  pipe_.submitOut(command);
  ask();
  return pipe_.nextOut(command.size(), timeouts_.bulk);
}

Outcome TransactionRunner::readAnswer(Transaction& transaction, std::uint32_t transactionID) {
  Incoming incoming;
  // A device that has swallowed the command as the data of another process says nothing at all.
  const bool impatient = !inStep_ && !hasTime_ && transaction.send == nullptr;
  const auto limit = impatient ? std::min(timeouts_.firstWord, timeouts_.bulk) : timeouts_.bulk;
  Outcome outcome = readContainer(transaction, transactionID, limit, incoming);
  if (outcome.ending == Ending::kTimedOut && takesLong(transaction.operation) &&
      timeouts_.slow > timeouts_.bulk) {
    // The user sees that the device works, and does not pull it out.
    if (timeouts_.waiting) timeouts_.waiting();
    isAsked_ = pipe_.isReading();  // The read that was waited for is still in flight.
    pipe_.startBudget(timeouts_.slow);
    outcome = readContainer(transaction, transactionID, timeouts_.slow, incoming);
  }
  if (!outcome.done()) return outcome;
  // A device sends no data with a refusal, so the response may come first.
  if (incoming.header.type == kDataBlock) return readData(transaction, transactionID, incoming);

  outcome = decodeResponse(incoming.bytes, transactionID, transaction);
  const bool lacksData = transaction.operation == kGetDeviceInfo &&
                         transaction.receive != nullptr &&
                         transaction.responseCode == static_cast<std::uint16_t>(status::kPTPOK);
  // Nothing but the id, 0 for both, tells it from the end of what another process has asked for.
  if (outcome.done() && lacksData && !inStep_)
    return broken("the device answered without the data that were asked for");
  return outcome;
}

Outcome TransactionRunner::readData(Transaction& transaction, std::uint32_t transactionID,
                                    Incoming incoming) {
  const ContainerHeader header = incoming.header;
  auto payload = incoming.bytes.subspan(kContainerHeaderSize);
  if (payload.empty()) {
    // Some devices send the header by itself: the short packet behind it is not the end. Where no
    // length is announced it may have been, and then the response is what comes next.
    incoming.endsShort = false;
    if (header.length == kUnknownLength) {
      Outcome outcome = readOnce(incoming, timeouts_.bulk);
      if (!outcome.done()) return outcome;
      payload = incoming.bytes;
      if (decodeResponse(payload, transactionID, transaction).done()) return {};
    }
  }

  // The last packet of the buffer is kept for it: its read is in flight while the data fill the
  // rest.
  const auto response = scratch().last(pipe_.inPacketSize());
  DataIn phase(pipe_, scratch().first(kScratchSize - response.size()), response,
               transaction.receive, timeouts_);
  Outcome outcome = phase.run(header, payload, incoming.endsShort);
  // Also after a failure: the caller learns how far it came.
  transaction.bytesReceived = phase.received();
  if (!outcome.done()) return outcome;
  // The response was in the same transfer as the last of the data.
  if (!phase.surplus().empty()) return decodeResponse(phase.surplus(), transactionID, transaction);
  if (phase.hasAskedResponse()) noteAsked(response);
  return readResponse(transaction, transactionID, timeouts_.bulk);
}

Outcome TransactionRunner::readResponse(Transaction& transaction, std::uint32_t transactionID,
                                        BulkPipe::Milliseconds limit) {
  Incoming incoming;
  Outcome outcome = readContainer(transaction, transactionID, limit, incoming);
  return outcome.done() ? decodeResponse(incoming.bytes, transactionID, transaction) : outcome;
}

Outcome TransactionRunner::readBehindStall(Transaction& transaction, std::uint32_t transactionID,
                                           std::uint8_t endpoint) {
  CancelOnExit guard(pipe_);
  // A stall of the IN endpoint before any data may be in place of the data phase, with the answer
  // behind it.
  const bool wholeAnswer = transaction.bytesReceived == 0 && (endpoint & 0x80) != 0;
  Outcome outcome = wholeAnswer ? readAnswer(transaction, transactionID)
                                : readResponse(transaction, transactionID, timeouts_.recovery);
  if (outcome.done()) {
    inStep_ = true;
    guard.disarm();
  }
  return outcome;
}

/// Reads until a container comes that belongs to the transaction. Once the device has been in step,
/// anything else is an error.
Outcome TransactionRunner::readContainer(const Transaction& transaction,
                                         std::uint32_t transactionID, BulkPipe::Milliseconds limit,
                                         Incoming& incoming) {
  std::string stale;
  std::optional<BulkPipe::Clock::time_point> staleDeadline;
  while (true) {
    Outcome outcome = readOnce(incoming, limit);
    // The device did say something, only never what was due: that is no silence.
    if (outcome.ending == Ending::kTimedOut && !stale.empty()) return broken(stale);
    if (!outcome.done()) return outcome;

    const auto header = decodeHeader(incoming.bytes);
    std::string wrong = header ? objection(*header, transaction, transactionID)
                               : "the device sent no container but " + inHex(incoming.bytes);
    if (wrong.empty()) {
      incoming.header = *header;
      return {};
    }
    const auto now = BulkPipe::Clock::now();
    // Passed over for a while where a killed process may have left something, and never after: an
    // error that is hidden is one transaction's answer given to another.
    if (!staleDeadline) staleDeadline = now + timeouts_.recovery;
    if (inStep_ || now > *staleDeadline) return broken(std::move(wrong));
    if (stale.empty()) stale = std::move(wrong);
    // Behind stale data the answer comes soon or not at all.
    limit = std::min(limit, timeouts_.recovery);
  }
}

void TransactionRunner::ask() {
  // No more than a slow device has sent within the budget. What it has been asked for is whole
  // packets, whatever their size.
  const auto room = scratch().first(std::min(kScratchSize, pipe_.inPieceSize()));
  pipe_.submitIn(room);
  noteAsked(room);
}

void TransactionRunner::noteAsked(std::span<std::byte> room) {
  asked_ = room;
  isAsked_ = true;
}

/// One read, zero-length packets passed over.
Outcome TransactionRunner::readOnce(Incoming& incoming, BulkPipe::Milliseconds limit) {
  std::size_t length = 0;
  for (int i = 0; i <= kMaximumEmptyPackets; ++i) {
    if (!isAsked_) ask();
    isAsked_ = false;
    Outcome outcome = pipe_.nextIn(length, limit);
    if (!outcome.done()) return outcome;
    incoming.bytes = asked_.first(length);
    incoming.endsShort = length < asked_.size();
    if (length > 0) return {};
  }
  return broken("the device sends nothing but empty packets");
}

namespace {

Outcome endedEarly(std::uint64_t announced, std::uint64_t came) {
  return broken(formatted("the device announced %llu bytes of data and sent %llu",
                          static_cast<unsigned long long>(announced),
                          static_cast<unsigned long long>(came)));
}

Outcome wentOn(std::uint64_t announced) {
  return broken(formatted("the device sent more than the %llu bytes of data it announced",
                          static_cast<unsigned long long>(announced)));
}

}  // namespace

DataIn::DataIn(BulkPipe& pipe, std::span<std::byte> scratch, std::span<std::byte> response,
               DataSink* sink, const Timeouts& timeouts)
    : pipe_(pipe),
      scratch_(scratch),
      response_(response),
      sink_(sink),
      timeouts_(timeouts),
      packet_(pipe.inPacketSize()) {}

Outcome DataIn::run(const ContainerHeader& header, std::span<const std::byte> first, bool ended) {
  // Without a length only a short packet ends the phase.
  if (header.length != kUnknownLength) end_ = header.length - kContainerHeaderSize;
  ended_ = ended;
  Outcome outcome = takeFirst(first);
  return outcome.done() ? stream() : outcome;
}

Outcome DataIn::takeFirst(std::span<const std::byte> payload) {
  // More than announced is a lie, except where the container ended with a full packet: without a
  // zero-length one the response is in the same transfer.
  if (end_ && payload.size() > *end_) {
    if ((kContainerHeaderSize + *end_) % packet_ != 0) return wentOn(*end_);
    // It is read as the response by the caller.
    surplus_ = payload.subspan(*end_);
    payload = payload.first(*end_);
  }
  // A short packet before the announced end: the rest never comes, and waiting for it would only
  // time out.
  if (end_ && ended_ && payload.size() < *end_) return endedEarly(*end_, payload.size());
  asked_ = payload.size();
  return copyToSink({}, payload);
}

Outcome DataIn::stream() {
  fill();
  while (!pieces_.empty()) {
    Outcome outcome = takePiece();
    if (!outcome.done()) return outcome;
    fill();
  }
  return {};
}

/// Keeps transfers in flight. Without an announced length only one: behind it the response comes.
/// Behind a piece in the scratch buffer none either, there is only one such buffer.
void DataIn::fill() {
  // Several, so that the device never waits for us between two transfers.
  const std::size_t most = end_ ? kTransfersInFlight : 1;
  while (pieces_.size() < most && !allAsked() && (pieces_.empty() || pieces_.back().direct)) {
    pieces_.push_back(nextPiece());
    // The whole buffer counts as asked for; a short packet ends the phase anyway.
    pipe_.submitIn(pieces_.back().buffer);
    asked_ += pieces_.back().buffer.size();
  }
  // Asked for before the data have been dealt with: the response comes while they are written.
  if (end_ && allAsked() && !pieces_.empty() && !responseAsked_) {
    responseAsked_ = true;
    pipe_.submitIn(response_);
  }
}

DataIn::Piece DataIn::nextPiece() {
  const std::uint64_t piece = pipe_.inPieceSize();
  // What is announced may be four gigabytes; no room for it is asked of the sink at once.
  const std::uint64_t left = end_ ? *end_ - asked_ : piece;
  const auto room = roomAt(asked_, std::min(left, piece));
  // A read of no whole packets could overflow.
  const std::size_t whole = room.size() / packet_ * packet_;
  if (whole > 0) return {room.first(whole), {}, true};
  // Packets that the room cannot take as a whole.
  const std::uint64_t rounded = (left + packet_ - 1) / packet_ * packet_;
  return {scratch_.first(std::min<std::uint64_t>(rounded, scratch_.size())), room, false};
}

Outcome DataIn::takePiece() {
  std::size_t length = 0;
  Outcome outcome = pipe_.nextIn(length, timeouts_.bulk);
  if (!outcome.done()) return outcome;
  // A copy, since what follows may ask for the next ones.
  const Piece piece = pieces_.front();
  pieces_.pop_front();

  ended_ = length < piece.buffer.size();
  // Reads are rounded up to whole packets, so a device can send more than is due.
  if (end_ && length > *end_ - received_) return wentOn(*end_);
  if (end_ && ended_ && length < *end_ - received_) return endedEarly(*end_, received_ + length);
  return piece.direct ? reportReceived(length) : copyToSink(piece.room, scratch_.first(length));
}

std::span<std::byte> DataIn::roomAt(std::uint64_t offset, std::size_t length) {
  // A sink that was full once stays so: bytes behind dropped ones would lie at a wrong offset.
  // Drained and dropped all the same: a device that is not listened to does not get to its
  // response.
  if (sink_ == nullptr || dropDeadline_ || length == 0) return {};
  const auto room = sink_->room(offset, length);
  return room.first(std::min(room.size(), length));
}

Outcome DataIn::copyToSink(std::span<std::byte> room, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    // A room that was asked for when the read was submitted comes first, for the sink may not give
    // it a second time.
    if (room.empty()) room = roomAt(received_, bytes.size());
    if (room.empty()) return drop(bytes.size());
    const std::size_t length = std::min(room.size(), bytes.size());
    std::memcpy(room.data(), bytes.data(), length);
    Outcome outcome = reportReceived(length);
    if (!outcome.done()) return outcome;
    bytes = bytes.subspan(length);
    room = {};
  }
  return {};
}

Outcome DataIn::reportReceived(std::size_t length) {
  if (length == 0) return {};
  const std::uint64_t offset = received_;
  received_ += length;
  // Only payload is progress: empty packets could go on for ever.
  pipe_.progressed();
  // The sink's word ends the transaction; the device is told by a cancel request.
  if (!sink_->received(offset, length)) return {Ending::kCancelled, "cancelled by the receiver"};
  return {};
}

Outcome DataIn::drop(std::size_t length) {
  received_ += length;
  pipe_.progressed();
  const auto now = BulkPipe::Clock::now();
  // Dropping is progress to the budget, so a device that never stops needs a bound of its own.
  if (!dropDeadline_) dropDeadline_ = now + timeouts_.bulk;
  if (now > *dropDeadline_) return broken("the device goes on sending more than was asked for");
  return {};
}

namespace {

Outcome sourceEnded() {
  return {Ending::kCancelled, "the data to send could not be read"};
}

}  // namespace

DataOut::DataOut(BulkPipe& pipe, std::span<std::byte> scratch, DataSource& source,
                 const Timeouts& timeouts)
    : pipe_(pipe), scratch_(scratch), source_(source), timeouts_(timeouts), size_(source.size()) {}

Outcome DataOut::run(std::uint16_t operation, std::uint32_t transactionID) {
  const std::uint64_t total = kContainerHeaderSize + size_;
  // Fits: the connection has refused what does not.
  encodeHeader({static_cast<std::uint32_t>(total), kDataBlock, operation, transactionID}, scratch_);
  // One transfer where all fits into it. Otherwise only a packet is filled up behind the header, so
  // that everything else goes out of the source's own memory.
  // Small commands and records are by far the most: one transfer costs one round trip on the bus.
  const std::size_t small = std::min(scratch_.size(), pipe_.outPieceSize());
  const std::size_t first = total <= small ? small : pipe_.outPacketSize();
  Outcome outcome = submitGathered(kContainerHeaderSize, first);
  while (outcome.done() && offset_ < size_) {
    if (sizes_.size() == kTransfersInFlight) outcome = takeOldest();
    if (outcome.done()) outcome = submitNext();
  }
  // A device knows the end of a container by a short packet (USB 2.0, 5.8.3).
  if (outcome.done() && total % pipe_.outPacketSize() == 0) submit({});
  return outcome.done() ? takeAll() : outcome;
}

Outcome DataOut::submitNext() {
  const std::uint64_t left = size_ - offset_;
  const std::size_t most = std::min<std::uint64_t>(left, pipe_.outPieceSize());
  auto bytes = source_.bytes(offset_, most);
  if (bytes.empty()) return sourceEnded();
  bytes = bytes.first(std::min(bytes.size(), most));
  // A packet that is not full would end the container early.
  // What is cut off here is asked of the source once more.
  if (bytes.size() < left) bytes = bytes.first(bytes.size() - bytes.size() % pipe_.outPacketSize());
  if (!bytes.empty()) {
    submit(bytes);
    offset_ += bytes.size();
    return {};
  }
  // Less than a packet at a time: collect it, once the scratch buffer is free.
  Outcome outcome = takeAll();
  return outcome.done() ? submitGathered(0, std::min(scratch_.size(), pipe_.outPieceSize()))
                        : outcome;
}

/// Sends up to `size` bytes of the scratch buffer, with payload behind its first `filled` ones.
Outcome DataOut::submitGathered(std::size_t filled, std::size_t size) {
  while (filled < size && offset_ < size_) {
    const std::size_t most = std::min<std::uint64_t>(size - filled, size_ - offset_);
    const auto bytes = source_.bytes(offset_, most);
    if (bytes.empty()) return sourceEnded();
    const std::size_t length = std::min(bytes.size(), most);
    std::memcpy(scratch_.data() + filled, bytes.data(), length);
    filled += length;
    offset_ += length;
  }
  submit(scratch_.first(filled));
  return {};
}

void DataOut::submit(std::span<const std::byte> bytes) {
  pipe_.submitOut(bytes);
  sizes_.push_back(bytes.size());
}

Outcome DataOut::takeOldest() {
  const std::size_t size = sizes_.front();
  sizes_.pop_front();
  Outcome outcome = pipe_.nextOut(size, timeouts_.bulk);
  // The header alone is none: a device may take it into a buffer and die.
  // An empty transfer is the mark of the end and moves nothing.
  if (outcome.done() && size > 0 && size_ > 0) pipe_.progressed();
  return outcome;
}

Outcome DataOut::takeAll() {
  Outcome outcome;
  while (outcome.done() && !sizes_.empty())
    outcome = takeOldest();
  return outcome;
}

}  // namespace tarvo::ptp
