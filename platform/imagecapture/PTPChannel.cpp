#include "platform/imagecapture/PTPChannel.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <optional>
#include <span>
#include <string>

#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

namespace {

/// Whether the device has only refused a question for the session's sake, so that nothing is lost
/// by asking again: it wants one, or is in one that somebody else has left open, where it counts
/// otherwise. Nothing else is sent twice, for handles may mean other objects in another session.
bool isWorthAnotherSession(const ptp::Transaction& transaction) {
  const bool isRefused = transaction.responseCode == status::kPTPSessionNotOpen ||
                         transaction.responseCode == status::kPTPInvalidTransactionID ||
                         transaction.responseCode == status::kPTPSessionAlreadyOpen;
  const bool isQuestion = transaction.receive || transaction.operation == ptp::kGetNumObjects;
  return isRefused && isQuestion && transaction.bytesReceived == 0;
}

Status run(ptp::PTPConnection& connection, ptp::Transaction& transaction, bool inSession,
           std::string* why) {
  const Status session = inSession ? connection.openSession() : status::kOK;
  if (session == status::kOK) return connection.transact(transaction, why);
  // Positive values are response codes: the device has answered, and the record says so.
  transaction.responseCode = static_cast<std::uint16_t>(std::max(session, status::kOK));
  return std::min(session, status::kOK);
}

}  // namespace

Status PTPChannel::hold(std::string* why) {
  if (isGone_) {
    if (why) *why = statusText(status::kICADeviceGone);
    return status::kICADeviceGone;
  }
  // The interface is claimed by the first holder and let go by the last, so that nested work opens
  // one session and another process gets the camera in between.
  if (holders_ == 0) {
    Status failure = status::kIOError;
    connection_ = connector_.connect(address_, &failure, why);
    if (!connection_) return failure;
    if (events_) connection_->watchEvents(events_);
  }
  // Counted only on success: a failed attempt has nothing to release.
  ++holders_;
  return status::kOK;
}

void PTPChannel::release() {
  // The connection closes its session by itself when it goes.
  if (--holders_ == 0) connection_.reset();
}

void PTPChannel::deviceWent() {
  isGone_ = true;
  // Holders stay counted, so that each may still release.
  connection_.reset();
  events_ = nullptr;
}

void PTPChannel::watchEvents(EventHandler handler) {
  events_ = isGone_ ? nullptr : std::move(handler);
  if (connection_) connection_->watchEvents(events_);
}

Status PTPChannel::transact(ptp::Transaction& transaction, std::string* why) {
  // The caller holds the channel, so only an unplug can have taken the connection.
  if (!connection_) return status::kICADeviceGone;
  // Its second owner is a transaction that is running.
  // A progress callback may let the main loop run, and who is called then may want to talk to the
  // same device: the wire is in the middle of a container.
  if (connection_.use_count() > 1) {
    if (why) *why = statusText(status::kICATransactionRunning);
    return status::kICATransactionRunning;
  }
  // An unplug that is noticed meanwhile takes only ours.
  const auto connection = connection_;
  // GetDeviceInfo is the one operation that the standard allows outside a session (ISO 15740), and
  // asking it so disturbs no session that somebody else has.
  const bool inSession = transaction.operation != ptp::kGetDeviceInfo;
  Status result = run(*connection, transaction, inSession, why);
  // Once: a device that refuses again means it.
  if (result == status::kOK && isWorthAnotherSession(transaction))
    result = run(*connection, transaction, true, why);
  return result;
}

std::unique_ptr<PTPScope> PTPScope::open(std::shared_ptr<PTPChannel> channel, Status* failure,
                                         std::string* why) {
  const Status result = channel->hold(why);
  if (failure) *failure = result;
  if (result != status::kOK) return nullptr;
  return std::unique_ptr<PTPScope>(new PTPScope(std::move(channel)));
}

namespace {

// The record comes from a client's hands. Its counts are checked against what it really holds
// before anything is read or written by them.
bool isWellFormed(const PTPPassThroughRecord& record) {
  const PTPPassThroughPB& pb = record.pb();
  constexpr std::uint32_t kHighestCode = 0xFFFF;
  if (pb.commandCode > kHighestCode || pb.numOfInputParams > std::size(pb.params)) return false;
  // A client that closed the session would close it under every other one.
  // They belong to the channel, which counts who needs the session.
  if (pb.commandCode == ptp::kOpenSession || pb.commandCode == ptp::kCloseSession) return false;
  switch (pb.dataUsageMode) {
    case kNoData:
      return true;
    case kDataToDevice:
      // A container's length has 32 bits.
      if (record.source()) return record.source()->size() >> 32 == 0;
      return pb.dataSize <= record.data().size();
    case kDataFromDevice:
      return record.sink() || pb.dataSize <= record.data().size();
    default:
      return false;
  }
}

/// The part of the data area that counts; none where a sink or a source takes its place.
std::span<std::byte> areaOf(PTPPassThroughRecord& record) {
  const PTPPassThroughPB& pb = record.pb();
  const bool replaced =
      pb.dataUsageMode == kDataToDevice ? record.source() != nullptr : record.sink() != nullptr;
  return record.data().first(pb.dataUsageMode == kNoData || replaced ? 0 : pb.dataSize);
}

// Parameters that the device left out are cleared: the operation's own stood in their place.
void storeResponse(const ptp::Transaction& transaction, PTPPassThroughPB& pb) {
  pb.resultCode = transaction.responseCode;
  const std::size_t given = std::min<std::size_t>(transaction.responseParameterCount,
                                                  transaction.responseParameters.size());
  // The record holds four; a fifth that the device sent has no place in it.
  for (std::size_t i = 0; i < std::size(pb.params); ++i)
    pb.params[i] = i < given ? transaction.responseParameters[i] : 0;
}

// A PTP string: the number of UTF-16 units with the final zero, then the units, little-endian.
template <std::size_t kLength>
std::array<std::byte, 2 * kLength + 1> ptpString(const char (&ascii)[kLength]) {
  std::array<std::byte, 2 * kLength + 1> encoded{};
  encoded[0] = static_cast<std::byte>(kLength);
  for (std::size_t i = 0; i < kLength; ++i)
    encoded[1 + 2 * i] = static_cast<std::byte>(ascii[i]);
  return encoded;
}

}  // namespace

Status passThrough(PTPChannel& channel, PTPPassThroughRecord& record, std::string* why) {
  if (!isWellFormed(record)) return status::kBadParameter;
  PTPPassThroughPB& pb = record.pb();
  ptp::Transaction transaction;
  transaction.operation = static_cast<std::uint16_t>(pb.commandCode);
  transaction.parameterCount = pb.numOfInputParams;
  std::copy_n(pb.params, pb.numOfInputParams, transaction.parameters.begin());

  // No copy on the way: the transport works in the record's own data area, or where it is told.
  ptp::MemorySource areaSource(areaOf(record));
  ptp::MemorySink areaSink(areaOf(record));
  ptp::CountingSink sink(record.sink() ? *record.sink() : areaSink);
  if (pb.dataUsageMode == kDataToDevice)
    transaction.send = record.source() ? record.source() : &areaSource;
  if (pb.dataUsageMode == kDataFromDevice) transaction.receive = &sink;

  const Status result = channel.transact(transaction, why);
  if (pb.dataUsageMode == kDataFromDevice)
    pb.dataSize = static_cast<std::uint32_t>(std::min<std::uint64_t>(sink.count(), UINT32_MAX));
  if (result == status::kOK) storeResponse(transaction, pb);
  return result;
}

Status setClock(PTPChannel& channel, std::time_t now, std::string* why) {
  std::tm local{};
  ::localtime_r(&now, &local);
  // ISO 15740, 5.3.5.1: local time, no zone.
  char text[sizeof "YYYYMMDDThhmmss"] = {};
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%S", &local);
  const auto value = ptpString(text);
  ptp::MemorySource source(value);
  ptp::Transaction transaction;
  transaction.operation = ptp::kSetDevicePropValue;
  transaction.parameters[0] = ptp::kDateTime;
  transaction.parameterCount = 1;
  transaction.send = &source;
  const Status result = channel.transact(transaction, why);
  // A clock that the device does not let itself be set is no failure of the transport, but the
  // caller has no record to look into.
  if (result != status::kOK || transaction.responseCode == status::kPTPOK) return result;
  return transaction.responseCode;
}

PTPPassThroughRecord::PTPPassThroughRecord(std::size_t room, const char* failureReason)
    : room_(room) {
  // Cleared, so that whoever reads beyond what was received reads zeros.
  buffer_.reset(new (std::nothrow) std::byte[allocationSize()]());
  if (!buffer_) throw Exception(std::string(exception_name::kMalloc), failureReason);
  pb().dataSize = static_cast<std::uint32_t>(room);
}

}  // namespace tarvo
