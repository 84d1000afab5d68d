#include "simulator/ptp/DeviceAnswers.h"

#include <algorithm>
#include <random>

#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

/// The 12 bytes before every container (USB still-image class). A length that does not fit 32
/// bits is claimed as 0xFFFFFFFF by the caller.
Bytes containerHeader(std::uint64_t length, std::uint16_t type, std::uint16_t code,
                      std::uint32_t transactionID) {
  ByteWriter writer;
  writer.u32(static_cast<std::uint32_t>(length));
  writer.u16(type);
  writer.u16(code);
  writer.u32(transactionID);
  return writer.take();
}

}  // namespace

Bytes parameterContainer(std::uint16_t type, std::uint16_t code, std::uint32_t transactionID,
                         const std::vector<std::uint32_t>& parameters) {
  const auto length = ptp::kContainerHeaderSize + 4 * parameters.size();
  ByteWriter writer;
  writer.raw(containerHeader(length, type, code, transactionID));
  for (auto parameter : parameters)
    writer.u32(parameter);
  return writer.take();
}

std::uint32_t DeviceAnswers::answerID(const PTPRequest& request) const {
  return request.transactionID + (faults_.strikes(Fault::kWrongTransactionID) ? 7 : 0);
}

OutgoingTransfer DeviceAnswers::transfer(std::shared_ptr<const Payload> payload, Time when) const {
  OutgoingTransfer made;
  made.payload = std::move(payload);
  made.zeroLengthPacket = !faults_.strikes(Fault::kOmitZeroLengthPacket);
  made.notBefore = when;
  return made;
}

void DeviceAnswers::send(const PTPRequest& request, const PTPReply& reply) {
  const auto late = faults_.amount(Fault::kDelay).value_or(0);
  const auto when = std::chrono::steady_clock::now() + std::chrono::microseconds(late);
  if (reply.data) sendData(request, reply, when);
  // The device goes in the middle of the data, when the host has taken the first half.
  if (faults_.strikes(Fault::kVanish)) return;
  queue_.push(transfer(std::make_shared<BytesPayload>(parameterContainer(
                           ptp::kResponseBlock, reply.code, answerID(request), reply.parameters)),
                       when));
}

void DeviceAnswers::sendData(const PTPRequest& request, const PTPReply& reply, Time when) {
  auto sent = reply.data->size();
  if (const auto cut = faults_.amount(Fault::kTruncate)) sent = std::min<std::uint64_t>(sent, *cut);
  auto claimed = std::min<std::uint64_t>(sent + ptp::kContainerHeaderSize, 0xFFFFFFFF);
  if (faults_.strikes(Fault::kLieShort)) claimed -= sent / 2 + 1;
  if (faults_.strikes(Fault::kLieLong)) claimed += 1000;
  const bool vanishes = faults_.strikes(Fault::kVanish);
  if (vanishes || faults_.strikes(Fault::kShort)) sent /= 2;
  auto header = containerHeader(claimed, ptp::kDataBlock, request.operation, answerID(request));
  if (faults_.strikes(Fault::kSplitHeader)) {
    queue_.push(transfer(std::make_shared<BytesPayload>(std::move(header)), when));
    header = {};
  }
  auto whole = transfer(std::make_shared<JoinedPayload>(std::move(header), reply.data, sent), when);
  whole.thenGone = vanishes;
  whole.overflows = faults_.strikes(Fault::kBabble);
  queue_.push(std::move(whole));
}

void DeviceAnswers::sendGarbage(const PTPRequest& request) {
  // The same bytes at every run, so that a failure can be repeated.
  std::minstd_rand random(request.operation);
  Bytes bytes(700);
  for (auto& byte : bytes)
    byte = static_cast<std::byte>(random());
  queue_.push(
      transfer(std::make_shared<BytesPayload>(std::move(bytes)), std::chrono::steady_clock::now()));
}

}  // namespace tarvo::simulator
