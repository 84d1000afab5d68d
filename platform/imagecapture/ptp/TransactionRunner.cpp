#include "platform/imagecapture/ptp/TransactionRunner.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "Utilities/Format.h"
#include "platform/imagecapture/ptp/DataTransfers.h"

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

}  // namespace tarvo::ptp
