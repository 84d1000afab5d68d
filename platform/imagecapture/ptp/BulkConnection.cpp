#include "platform/imagecapture/ptp/BulkConnection.h"

#include <algorithm>
#include <array>
#include <exception>
#include <thread>
#include <utility>

#include "Utilities/Format.h"
#include "platform/foundation/MainLoopGuard.h"

namespace tarvo::ptp {

namespace {

// Any number but 0 would do: a device has one session at a time over USB.
constexpr std::uint32_t kSessionID = 1;

/// The largest payload that a container header can announce.
constexpr std::uint64_t kMaximumPayload = kUnknownLength - 1 - kContainerHeaderSize;

/// A device ends its session when it is reset (ISO 15740, ResetDevice), and some do by themselves.
/// One that counts otherwise than we do, or has a session where it should have none, is in another
/// one than ours.
bool endsSession(const Transaction& transaction) {
  switch (transaction.responseCode) {
    case status::kPTPOK:
      return transaction.operation == kResetDevice;
    case status::kPTPSessionNotOpen:
    case status::kPTPInvalidTransactionID:
    case status::kPTPSessionAlreadyOpen:
      return true;
    default:
      return false;
  }
}

}  // namespace

BulkConnection::BulkConnection(std::unique_ptr<USBDevice> device, const Timeouts& timeouts,
                               LogSink log, std::string name, TransactionIDs ids)
    : device_(std::move(device)),
      timeouts_(timeouts),
      log_(std::move(log)),
      name_(std::move(name)),
      firstIDs_(ids),
      ids_(ids),
      pipe_(*device_, timeouts_),
      runner_(pipe_, timeouts_),
      recovery_(*device_, pipe_, runner_.scratch(), timeouts_) {}

// A destructor that may talk to the device: it is bounded by the time for one control request.
BulkConnection::~BulkConnection() {
  // A device that is silent would only cost another time-out.
  if (!timedOut_) closeQuietly(BulkPipe::Clock::now() + timeouts_.control);
  try {
    const auto& counts = pipe_.statistics();
    logTo(log_, LogLevel::kDebug,
          formatted("PTP: disconnected from %s after %llu transactions, %llu bytes sent, %llu "
                    "received",
                    name_.c_str(), static_cast<unsigned long long>(counts.transactions),
                    static_cast<unsigned long long>(counts.bytesSent),
                    static_cast<unsigned long long>(counts.bytesReceived)));
  } catch (const std::exception&) {
    // Nothing can be done about it while letting go.
  }
}

/// An open session left behind would make the next process take it over.
void BulkConnection::closeQuietly(BulkPipe::Clock::time_point deadline) noexcept {
  if (!sessionOpen_ || gone_ || recovery_.silent()) return;
  try {
    // A program that was told to end still leaves the camera without its session: that takes one
    // short transaction, and the next program starts clean.
    pipe_.ignoreInterruption();
    if (pipe_.isOver()) pipe_.leave();
    pipe_.setDeadline(deadline);
    Transaction close{.operation = kCloseSession};
    static_cast<void>(runner_.run(close, ids_.next()));
  } catch (const std::exception&) {
    // It is left to who comes next.
  }
  sessionOpen_ = false;
}

Status BulkConnection::openSession() {
  if (sessionOpen_) return status::kOK;
  Status response = 0;
  const auto begin = BulkPipe::Clock::now();
  Outcome outcome = sendOpenSession(response);
  // Over USB a device has one session, so an open one is that of a process that died with it.
  if (outcome.done() && response == status::kPTPSessionAlreadyOpen)
    outcome = takeOver(response, begin);
  if (!outcome.done()) {
    logTo(log_, LogLevel::kDebug,
          formatted("PTP: no session with %s: %s", name_.c_str(), outcome.why.c_str()));
    return outcome.status();
  }
  if (response != status::kPTPOK) return response;
  sessionOpen_ = true;
  // The device counts anew in a session too, and refuses an id that is out of turn.
  // ISO 15740 lets a session's ids begin at 1.
  ids_ = firstIDs_;
  return status::kOK;
}

Outcome BulkConnection::sendOpenSession(Status& response) {
  Transaction open{.operation = kOpenSession, .parameters = {kSessionID}, .parameterCount = 1};
  Outcome outcome = attempt(open, kNoTransactionID);
  response = open.responseCode;
  return outcome;
}

/// The session of a process that died is closed and opened anew, with a device reset where that
/// does not do; a device that keeps saying that it is open means ours.
Outcome BulkConnection::takeOver(Status& response, BulkPipe::Clock::time_point begin) {
  // Each step alone may wait for long; the caller is to wait for the whole of it once. A device
  // that was slow so far gets some time all the same.
  pipe_.setDeadline(
      std::max(begin + timeouts_.takeOver, BulkPipe::Clock::now() + timeouts_.takeOver / 2));
  Transaction close{.operation = kCloseSession};
  // With the first id of a session: what the dead process had counted to is not known.
  Outcome outcome = attempt(close, TransactionIDs(firstIDs_).next());
  if (outcome.done()) outcome = sendOpenSession(response);
  if (outcome.done() && response == status::kPTPSessionAlreadyOpen && recovery_.reset())
    outcome = sendOpenSession(response);
  if (outcome.done() && response == status::kPTPSessionAlreadyOpen) response = status::kPTPOK;
  pipe_.setDeadline(std::nullopt);
  return outcome;
}

Status BulkConnection::closeSession() {
  if (!sessionOpen_) return status::kOK;
  Transaction close{.operation = kCloseSession};
  // Through transact(), so that the id is the next of the session.
  const Status failure = transact(close, nullptr);
  // Interrupted: the destructor tries again.
  if (failure == status::kCancelled) return failure;
  sessionOpen_ = false;
  if (failure != status::kOK) return failure;
  return close.responseCode == status::kPTPOK ? status::kOK : close.responseCode;
}

Status BulkConnection::transact(Transaction& transaction, std::string* why) {
  // The caller may use a transaction twice; what the first run left must not pass for an answer.
  transaction.responseCode = 0;
  transaction.responseParameterCount = 0;
  transaction.bytesReceived = 0;
  // Refused before anything is sent: an id that was used up for it would be out of turn.
  if (transaction.parameterCount > kMaximumParameters ||
      (transaction.send != nullptr && transaction.send->size() > kMaximumPayload)) {
    if (why != nullptr) *why = "more parameters or data than a container holds";
    return status::kBadParameter;
  }
  Outcome outcome = refusal();
  // An id that was not sent must not be missing: the device counts, too.
  if (outcome.done()) outcome = attempt(transaction, sessionOpen_ ? ids_.next() : kNoTransactionID);
  if (endsSession(transaction)) sessionOpen_ = false;
  if (why != nullptr) *why = outcome.why;
  return outcome.status();
}

void BulkConnection::watchEvents(std::function<void(const Event&)> handler) {
  events_.reset();
  // A device without an interrupt endpoint has no events to wait for, and its connection is as
  // good.
  if (!handler || device_->endpoints().interruptIn == 0) return;
  events_ = std::make_unique<EventWatch>(*device_, std::move(handler), log_, name_);
}

Outcome BulkConnection::attempt(Transaction& transaction, std::uint32_t transactionID) {
  Outcome outcome = refusal();
  if (!outcome.done()) return outcome;
  const auto begin = BulkPipe::Clock::now();
  try {
    outcome = runOnce(transaction, transactionID);
    if (isWorthARestart(transaction, outcome))
      outcome = restart(transaction, transactionID, std::move(outcome), begin);
  } catch (...) {
    // A sink or a source has raised; the device is still in the middle of it.
    pipe_.endBudget();
    settleFailure({Ending::kCancelled, "the receiver or the sender raised"}, transactionID);
    throw;
  }
  if (!outcome.done()) settleFailure(outcome, transactionID);
  return outcome;
}

Outcome BulkConnection::runOnce(Transaction& transaction, std::uint32_t transactionID) {
  Outcome outcome = runner_.run(transaction, transactionID);
  // A stall is a device's way to refuse and no failure of the transport, so it is settled before
  // anything heavier.
  if (outcome.ending == Ending::kStalled)
    outcome = settleStall(transaction, transactionID, std::move(outcome));
  pipe_.endBudget();  // The steps of recovery have limits of their own.
  return outcome;
}

bool BulkConnection::isWorthARestart(const Transaction& transaction, const Outcome& outcome) const {
  if (recovery_.silent() || recovery_.gone()) return false;
  // Outside a session all ids are 0: what was taken for the answer to the transaction before may
  // have been meant for another process.
  const bool mayBeLate = transaction.operation == kOpenSession && outcome.ending == Ending::kBroken;
  if (runner_.isInStep() && !mayBeLate) return false;
  if (outcome.done() || outcome.ending == Ending::kGone || outcome.ending == Ending::kCancelled ||
      outcome.ending == Ending::kOutOfTime)
    return false;
  // What has gone to the sink, or out of the source, cannot be asked for a second time.
  return transaction.send == nullptr && transaction.bytesReceived == 0;
}

Outcome BulkConnection::restart(Transaction& transaction, std::uint32_t transactionID,
                                Outcome outcome, BulkPipe::Clock::time_point begin) {
  bool isLast = false;
  for (int i = 0; !isLast && isWorthARestart(transaction, outcome); ++i) {
    logTo(log_, LogLevel::kDebug,
          formatted("PTP: starting afresh with %s: %s", name_.c_str(), outcome.why.c_str()));
    const bool silent = outcome.ending == Ending::kTimedOut;
    // A device that says nothing may still be busy with what the killed process wanted of it.
    const auto silence = std::max(timeouts_.bulk, timeouts_.firstWord + timeouts_.takeOver);
    pipe_.setDeadline(begin + (silent ? silence : timeouts_.takeOver));
    // A device that speaks is first asked kindly.
    const bool kindly = !silent && i == 0;
    const bool idle = kindly ? recovery_.resynchronise(transactionID)
                             : recovery_.startAfresh(transactionID, i > 0);
    // A reset that nothing came of is not tried again.
    isLast = i > 0 || (!kindly && recovery_.wasReset());
    if (!kindly) runner_.giveTime();
    if (idle) outcome = runOnce(transaction, transactionID);
  }
  pipe_.setDeadline(std::nullopt);
  return outcome;
}

Outcome BulkConnection::refusal() const {
  if (gone_) return {Ending::kGone, "the device is gone"};
  if (pipe_.isInterrupted()) return {Ending::kCancelled, "interrupted"};
  // Each further transaction would hold the main loop as long as the first; the connection is of no
  // use any more.
  if (pipe_.isOver() || (timedOut_ && pipe_.isLeaving()))
    return {Ending::kOutOfTime, "the device has used up all of its time"};
  if (timedOut_) return {Ending::kTimedOut, "the device has not answered before"};
  return {};
}

/// A device stalls an endpoint to refuse a data phase; the response may follow.
Outcome BulkConnection::settleStall(Transaction& transaction, std::uint32_t transactionID,
                                    Outcome stall) {
  constexpr int kAttempts = 2;  // One for each bulk endpoint.
  Outcome outcome = stall;
  for (int i = 0; i < kAttempts && outcome.ending == Ending::kStalled; ++i) {
    // Both endpoints may be halted, and the response comes on the one that was not asked.
    recovery_.clearHalts(outcome.endpoint);
    outcome = runner_.readBehindStall(transaction, transactionID, outcome.endpoint);
  }
  pipe_.cancelAll();
  // The stall is what went wrong; that no response followed is not the device falling silent.
  if (outcome.ending == Ending::kTimedOut) return stall;
  return outcome;
}

void BulkConnection::settleFailure(const Outcome& failure, std::uint32_t transactionID) {
  const bool isLast = failure.ending == Ending::kTimedOut || failure.ending == Ending::kOutOfTime;
  // The caller has waited long enough: all steps together, and closing the session, get the time of
  // one.
  const auto deadline = BulkPipe::Clock::now() + timeouts_.recovery;
  if (isLast) pipe_.setDeadline(deadline);
  if (failure.ending == Ending::kOutOfTime) pipe_.leave();
  if (failure.ending != Ending::kGone) {
    recovery_.resynchronise(transactionID);
    if (recovery_.wasReset()) sessionOpen_ = false;
  }
  gone_ = gone_ || failure.ending == Ending::kGone || recovery_.gone();
  timedOut_ = isLast || recovery_.silent();
  if (isLast) closeQuietly(deadline);
  logTo(log_, LogLevel::kDebug,
        formatted("PTP: transaction %u with %s failed: %s", transactionID, name_.c_str(),
                  failure.why.c_str()));
}

struct EventWatch::State {
  std::function<void(const Event&)> handler;
  LogSink log;
  std::string name;
  EventAssembler assembler;
  bool isOver = false;

  void take(TransferResult result, std::span<const std::byte> packet) {
    if (result != TransferResult::kCompleted) {
      logTo(log, LogLevel::kDebug, formatted("PTP: no more events of %s", name.c_str()));
      return;
    }
    // One packet may end an event and hold the next ones whole.
    for (const Event& event : assembler.take(packet)) {
      // A handler may let the connection go, and this state is kept by the lambda alone.
      if (isOver) return;
      guardedEntry(log, "PTP event", [&] { handler(event); });
    }
  }
};

EventWatch::EventWatch(USBDevice& device, std::function<void(const Event&)> handler, LogSink log,
                       std::string name)
    : device_(device),
      state_(
          std::make_shared<State>(State{std::move(handler), std::move(log), std::move(name),
                                        EventAssembler(device.endpoints().interruptPacketSize)})) {
  device_.watchInterrupts(
      [state = state_](TransferResult result, std::span<const std::byte> packet) {
        state->take(result, packet);
      });
}

EventWatch::~EventWatch() {
  // Before the watch ends: it may deliver what has come already.
  state_->isOver = true;
  device_.watchInterrupts(nullptr);
}

namespace {

// bmRequestType of the class requests: class, interface, and the direction.
constexpr std::uint8_t kToInterface = 0x21;
constexpr std::uint8_t kFromInterface = 0xA1;

/// Steps into which the time for one piece of recovery is cut: between two looks at the device
/// status, and for a device to go on with stale data.
constexpr int kSteps = 10;

/// What USBDevice::resetPort() takes at most.
constexpr std::chrono::milliseconds kPortReset{500};

/// What is read at once of stale data. They are whole packets of every size, and fit the scratch
/// memory.
constexpr std::size_t kSmallRead = 16384;
constexpr std::size_t kLargeRead = 65536;

/// Whether the last packet of what came is the response to the transaction.
bool endsWithResponse(std::span<const std::byte> bytes, std::size_t packetSize,
                      std::uint32_t transactionID) {
  // Outside a session it may be the one to any other, and more may follow.
  if (transactionID == kNoTransactionID) return false;
  const auto last = bytes.last(bytes.size() % packetSize);
  Transaction ignored;
  return decodeResponse(last, transactionID, ignored).done();
}

/// The same, whichever transaction it is the response to.
bool endsWithAnyResponse(std::span<const std::byte> bytes, std::size_t packetSize) {
  const auto last = bytes.last(bytes.size() % packetSize);
  const auto header = decodeHeader(last);
  return header && header->type == kResponseBlock && header->length == last.size();
}

}  // namespace

Recovery::Recovery(USBDevice& device, BulkPipe& pipe, std::span<std::byte> scratch,
                   const Timeouts& timeouts)
    : device_(device), pipe_(pipe), scratch_(scratch), timeouts_(timeouts) {}

bool Recovery::cancelTransaction(std::uint32_t transactionID) {
  auto payload = encodeCancelRequest(transactionID);
  // USB still-image class, 5.2.1. The device may answer with a stall, which says that it knows no
  // such request.
  return request(kToInterface, kCancelRequest, payload).has_value();
}

void Recovery::clearHalts(std::uint8_t endpoint) {
  heard_ = false;
  const auto status = deviceStatus();
  // The host knows of this one by itself, whatever the device says or does not say.
  clearHalt(endpoint);
  if (!status) return;
  for (std::size_t i = 0; i < status->haltedCount; ++i)
    if (status->haltedEndpoints.at(i) != endpoint) clearHalt(status->haltedEndpoints.at(i));
}

bool Recovery::resynchronise(std::uint32_t transactionID) {
  // First our side: a read in flight would swallow what belongs to the next transaction.
  pipe_.cancelAll();
  heard_ = false;
  wasReset_ = false;
  const bool isCancelled = cancelTransaction(transactionID);
  const bool idle = awaitIdle();
  // The gentle way first, for a reset ends the session.
  // Too busy with sending to answer, it may be well once it got rid of that.
  const bool pauseEnds = isCancelled || silent_ || transactionID == kNoTransactionID;
  const bool hasEnded =
      (idle || silent_) && drain(transactionID, pauseEnds, timeouts_.stale) && !silent_;
  return !gone_ && (hasEnded || reset());
}

bool Recovery::startAfresh(std::uint32_t transactionID, bool always) {
  pipe_.cancelAll();
  heard_ = false;
  wasReset_ = false;
  const auto before = pipe_.statistics().bytesReceived;
  // A device that is busy with sending may not look at endpoint 0 before it got rid of some of it.
  const bool isQuiet = drain(transactionID, true, timeouts_.recovery);
  // It has come to the end by itself; some break down when nothing is cancelled.
  if (isQuiet && hasAnswered_ && !always) return !gone_;
  cancelTransaction(transactionID);
  const bool hasEnded = drain(transactionID, true, timeouts_.stale);
  const bool wasBusy = hasEnded && pipe_.statistics().bytesReceived > before;
  return !gone_ && ((wasBusy && !always) || reset());
}

bool Recovery::reset() {
  const bool wasAsked = request(kToInterface, kDeviceResetRequest, {}).has_value();
  wasReset_ = wasReset_ || wasAsked;
  // A device that does not know the class's reset is reset by its port, as if it had been plugged
  // in anew.
  const bool idle = wasAsked ? awaitIdle() : resetPort();
  // What it had sent before may lie in between.
  if (idle) drain(kNoTransactionID, true, timeouts_.stale);
  return idle && !gone_;
}

bool Recovery::resetPort() {
  // Not a device that has never said anything: it may be one that does not speak PTP at all, and
  // other interfaces of it belong to others. Nor where there is no time left for it.
  if (gone_ || pipe_.isOver(kPortReset) || pipe_.statistics().bytesReceived == 0) return false;
  const TransferResult result = device_.resetPort();
  gone_ = result == TransferResult::kNoDevice;
  wasReset_ = wasReset_ || result == TransferResult::kCompleted;
  return result == TransferResult::kCompleted;
}

bool Recovery::drain(std::uint32_t transactionID, bool pauseEnds, BulkPipe::Milliseconds most) {
  const auto begin = BulkPipe::Clock::now();
  auto now = begin;
  auto moved = begin;
  bool hasEnded = false;
  hasAnswered_ = false;
  Outcome outcome;
  while (!hasEnded && !gone_ && outcome.done() && now < moved + timeouts_.recovery &&
         now < begin + most) {
    std::size_t length = 0;
    const auto left = std::chrono::ceil<BulkPipe::Milliseconds>(moved + timeouts_.recovery - now);
    // One that was in the middle of sending may be slow to find more.
    const bool isShort = pauseEnds && moved == begin;
    // No more at once than a slow device sends within a pause.
    const auto room = scratch_.first(isShort ? kSmallRead : kLargeRead);
    outcome = pipe_.read(room, length, isShort ? timeouts_.recovery / kSteps : left);
    const auto asked = std::exchange(now, BulkPipe::Clock::now());
    if (length > 0) {
      moved = now;
      pipe_.extendDeadline(now - asked);
      silent_ = false;
      hasAnswered_ = endsWithAnyResponse(scratch_.first(length), pipe_.inPacketSize());
    }
    hasEnded = endsWithResponse(scratch_.first(length), pipe_.inPacketSize(), transactionID) ||
               (pauseEnds && outcome.ending == Ending::kTimedOut);
    gone_ = outcome.ending == Ending::kGone;
    // The data end at a stall, and the response stands behind it.
    if (outcome.ending == Ending::kStalled && clearHalt(outcome.endpoint)) outcome = {};
  }
  pipe_.cancelAll();
  return hasEnded;
}

/// Looks at the device status until it is OK. A device that does not know the request counts as
/// idle: there is no other way to ask.
bool Recovery::awaitIdle() {
  const auto deadline = BulkPipe::Clock::now() + timeouts_.recovery;
  while (!silent_ && !gone_) {
    const auto status = deviceStatus();
    // A device that refuses the request (stall) is believed to be ready; one that let it time out
    // is not.
    // Busy (0x2019) is what a device answers until it has dealt with the cancellation.
    if (!status || status->code == status::kPTPOK) return !silent_ && !gone_;
    for (std::size_t i = 0; i < status->haltedCount; ++i)
      clearHalt(status->haltedEndpoints.at(i));
    if (BulkPipe::Clock::now() >= deadline) break;
    // There is no event for it, so it is asked again; ten times at most.
    std::this_thread::sleep_for(pipe_.patience(timeouts_.recovery / kSteps));
  }
  return false;
}

std::optional<DeviceStatus> Recovery::deviceStatus() {
  std::array<std::byte, kDeviceStatusSize> data{};
  const auto length = request(kFromInterface, kGetDeviceStatus, data);
  if (!length) return std::nullopt;
  return decodeDeviceStatus(std::span(data).first(*length));
}

/// Bytes that moved; none when the request failed.
std::optional<std::size_t> Recovery::request(std::uint8_t type, std::uint8_t code,
                                             std::span<std::byte> data) {
  // Nothing is asked of a device twice that has not answered once.
  if (silent_ || gone_) return std::nullopt;
  const auto completion = device_.control({type, code, 0, device_.endpoints().interfaceNumber},
                                          data, pipe_.patience(timeouts_.recovery));
  // Once is enough: every further request would hold the caller as long.
  if (completion.result == TransferResult::kTimedOut) silent_ = true;
  if (completion.result == TransferResult::kNoDevice) gone_ = true;
  heard_ = heard_ || completion.result == TransferResult::kCompleted ||
           completion.result == TransferResult::kStalled;
  if (completion.result != TransferResult::kCompleted) return std::nullopt;
  return completion.length;
}

bool Recovery::clearHalt(std::uint8_t endpoint) {
  const auto& endpoints = device_.endpoints();
  // The device names these endpoints: only ours count.
  if (endpoint != endpoints.bulkIn && endpoint != endpoints.bulkOut) return false;
  // Ending a halt is a control request too: a device is known to answer before it is asked for it.
  if (!heard_) deviceStatus();
  if (!heard_ || silent_ || gone_ || pipe_.isOver()) return false;
  const TransferResult result = device_.clearHalt(endpoint);
  silent_ = result == TransferResult::kTimedOut;
  gone_ = result == TransferResult::kNoDevice;
  return result == TransferResult::kCompleted;
}

}  // namespace tarvo::ptp
