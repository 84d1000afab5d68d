#include "simulator/PTPCamera.h"

#include <algorithm>
#include <random>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Status.h"

namespace tarvo::simulator {
namespace {

using Clock = std::chrono::steady_clock;

/// Data containers from the host beyond this are not kept.
constexpr std::size_t kMaximumIncoming = std::size_t{64} * 1024 * 1024;
constexpr std::size_t kMaximumCommand = ptp::kContainerHeaderSize + 20;

/// USB still-image class: bulk in both directions and an interrupt endpoint for events.
InterfaceDescription stillImageInterface(UsbSpeed speed) {
  const std::uint16_t packet = speed == UsbSpeed::kHigh ? 512 : 64;
  InterfaceDescription interface;
  interface.interfaceClass = ptp::kStillImageClass;
  interface.interfaceSubclass = ptp::kStillImageSubclass;
  interface.interfaceProtocol = ptp::kPTPProtocol;
  interface.endpoints = {{PTPCamera::kBulkIn, 2, packet, 0},
                         {PTPCamera::kBulkOut, 2, packet, 0},
                         {PTPCamera::kInterruptIn, 3, 64, 6}};
  return interface;
}

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

/// A command, response or event container, which hold nothing but parameters.
Bytes container(std::uint16_t type, std::uint16_t code, std::uint32_t transactionID,
                const std::vector<std::uint32_t>& parameters) {
  const auto length = ptp::kContainerHeaderSize + 4 * parameters.size();
  ByteWriter writer;
  writer.raw(containerHeader(length, type, code, transactionID));
  for (auto parameter : parameters)
    writer.u32(parameter);
  return writer.take();
}

}  // namespace

PTPCamera::PTPCamera(const DeviceDescription& description)
    : VirtualUSBDevice(UsbDescriptors(description.usb, stillImageInterface(description.usb.speed))),
      faults_(description.faults),
      responder_(description),
      packetSize_(descriptors().endpoint(kBulkIn)->packetSize),
      bulk_(packetSize_),
      events_(64) {}

std::string PTPCamera::setFault(std::string_view name, std::string_view value) {
  const std::lock_guard guard(lock());
  return faults_.set(name, value);
}

void PTPCamera::sendEvent(std::uint16_t code, const std::vector<std::uint32_t>& parameters) {
  const std::lock_guard guard(lock());
  OutgoingTransfer transfer;
  transfer.payload = std::make_shared<BytesPayload>(
      container(ptp::kEventBlock, code, request_.transactionID, parameters));
  events_.push(std::move(transfer));
}

std::vector<std::uint16_t> PTPCamera::operations() const {
  const std::lock_guard guard(lock());
  return operations_;
}

WireCounts PTPCamera::counts() const {
  const std::lock_guard guard(lock());
  return counts_;
}

std::vector<std::string> PTPCamera::violations() const {
  const std::lock_guard guard(lock());
  return violations_;
}

void PTPCamera::violation(std::string text) {
  // A host that goes on and on must not fill the memory.
  if (violations_.size() < 100) violations_.push_back(std::move(text));
}

// Class requests.

std::optional<Bytes> PTPCamera::classRequest(const SetupPacket& setup,
                                             std::span<const std::byte> data) {
  switch (setup.request) {
    case ptp::kCancelRequest:
      if (data.size() != 6 || littleEndian(data, 0, 2) != ptp::kCancellationCode) {
        violation("malformed cancel request");
        return std::nullopt;
      }
      // No response follows: the host asks for the device status until it is OK again.
      bulk_.clear();
      expectsData_ = false;
      return Bytes{};
    case ptp::kDeviceResetRequest:
      // Back to the state after power-on, without a session.
      clearHalts();
      forgetEverything();
      return Bytes{};
    case ptp::kGetDeviceStatus:
      return deviceStatus();
    default:
      return std::nullopt;
  }
}

Bytes PTPCamera::deviceStatus() const {
  ByteWriter writer;
  writer.u16(static_cast<std::uint16_t>(4 + 4 * halted().size()));
  writer.u16(static_cast<std::uint16_t>(halted().empty() ? status::kPTPOK
                                                         : status::kPTPTransactionCancelled));
  for (auto endpoint : halted())
    writer.u32(endpoint);
  return writer.take();
}

void PTPCamera::forgetEverything() {
  bulk_.clear();
  events_.clear();
  incoming_.clear();
  expectsData_ = false;
  mayEndWithEmpty_ = false;
  responder_.forgetSession();
}

// From the host.

void PTPCamera::receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) {
  if (endpoint != kBulkOut) {
    halt(endpoint);
    return;
  }
  counts_.bytesFromHost += data.size();
  // A host may end an exact multiple of the packet size with an empty packet or not; both are
  // right.
  if (data.empty() && mayEndWithEmpty_) {
    mayEndWithEmpty_ = false;
  } else if (expectsData_) {
    receiveData(data, ends);
  } else {
    receiveCommand(data, ends);
  }
}

void PTPCamera::receiveCommand(std::span<const std::byte> data, bool ends) {
  mayEndWithEmpty_ = false;
  const auto type = littleEndian(data, 4, 2);
  const auto length = littleEndian(data, 0, 4);
  if (!ends || data.size() < ptp::kContainerHeaderSize || data.size() > kMaximumCommand ||
      length != data.size() || data.size() % 4 != 0 || type != ptp::kCommandBlock) {
    violation(formatted("a command was expected, got %zu bytes, type %u, claimed length %u",
                        data.size(), static_cast<unsigned>(type), static_cast<unsigned>(length)));
    return;
  }
  // Only a complaint: the answer goes on to the host, as a real device would send it.
  if (!bulk_.isEmpty()) violation("a command came before the last answer was taken");
  request_ = {};
  request_.operation = static_cast<std::uint16_t>(littleEndian(data, 6, 2));
  request_.transactionID = static_cast<std::uint32_t>(littleEndian(data, 8, 4));
  request_.parameterCount = static_cast<unsigned>((data.size() - ptp::kContainerHeaderSize) / 4);
  for (unsigned i = 0; i < request_.parameterCount; ++i) {
    request_.parameters[i] = static_cast<std::uint32_t>(
        littleEndian(data, ptp::kContainerHeaderSize + std::size_t{4} * i, 4));
  }
  checkTransactionID();
  ++counts_.transactions;
  operations_.push_back(request_.operation);
  incoming_.clear();
  expectsData_ = responder_.direction(request_.operation) == DataDirection::kToDevice;
  if (!expectsData_) run();
}

void PTPCamera::checkTransactionID() {
  // OpenSession itself has id 0, and the next operation 1, whatever came before.
  const bool opens = request_.operation == ptp::kOpenSession;
  const auto expected = opens || !responder_.hasSession() ? 0 : nextTransactionID_;
  if (request_.transactionID != expected) {
    violation(formatted("operation 0x%04X: transaction id %u was expected, got %u",
                        request_.operation, expected, request_.transactionID));
  }
  // Goes on from what came, so that one slip of the host is one complaint.
  nextTransactionID_ = opens ? 1 : request_.transactionID + 1;
}

void PTPCamera::receiveData(std::span<const std::byte> data, bool ends) {
  if (incoming_.size() + data.size() > kMaximumIncoming) {
    violation("a data container beyond 64 MiB");
    expectsData_ = false;
    halt(kBulkOut);
    return;
  }
  incoming_.insert(incoming_.end(), data.begin(), data.end());
  // Where no short packet ends the container, its claimed length does.
  const auto claimed = littleEndian(incoming_, 0, 4);
  if (!ends && (incoming_.size() < ptp::kContainerHeaderSize || incoming_.size() < claimed)) return;
  mayEndWithEmpty_ = !ends;
  expectsData_ = false;
  finishData();
}

void PTPCamera::finishData() {
  const auto claimed = littleEndian(incoming_, 0, 4);
  if (claimed != incoming_.size()) {
    violation(formatted("data container of operation 0x%04X: %u bytes claimed, %zu came",
                        request_.operation, static_cast<unsigned>(claimed), incoming_.size()));
  }
  // The product keeps off these lengths: transports have lost the packet that would end them.
  if (incoming_.size() % 64 == 0) {
    violation(formatted("data container of operation 0x%04X: its length %zu is a multiple of 64",
                        request_.operation, incoming_.size()));
  }
  if (littleEndian(incoming_, 4, 2) != ptp::kDataBlock ||
      littleEndian(incoming_, 6, 2) != request_.operation ||
      littleEndian(incoming_, 8, 4) != request_.transactionID) {
    violation(formatted("data container of operation 0x%04X: wrong type, code or transaction id",
                        request_.operation));
  }
  const auto header = std::min(ptp::kContainerHeaderSize, incoming_.size());
  request_.data.assign(incoming_.begin() + static_cast<std::ptrdiff_t>(header), incoming_.end());
  incoming_.clear();
  run();
}

// To the host.

void PTPCamera::run() {
  // The faults that replace an answer; those that spoil one are in sendData and sendResponse.
  if (strikes(Fault::kSilent)) return;
  if (strikes(Fault::kStall)) {
    halt(kBulkIn);
    return;
  }
  if (strikes(Fault::kGarbage)) {
    sendGarbage();
    return;
  }
  if (strikes(Fault::kRaise)) {
    PTPReply reply;
    reply.code = static_cast<std::uint16_t>(status::kPTPGeneralError);
    answer(reply);
    return;
  }
  answer(responder_.execute(request_));
}

void PTPCamera::answer(const PTPReply& reply) {
  const auto late = faults_.amount(Fault::kDelay).value_or(0);
  const auto when = Clock::now() + std::chrono::milliseconds(late);
  if (reply.data) sendData(reply, when);
  // With data the device goes in the middle of them, when the host has taken the first half.
  if (!strikes(Fault::kVanish)) {
    sendResponse(reply, when);
  } else if (!reply.data) {
    vanish();
  }
}

std::uint32_t PTPCamera::answerID() const {
  return strikes(Fault::kWrongTransactionID) ? request_.transactionID + 7 : request_.transactionID;
}

void PTPCamera::sendData(const PTPReply& reply, Clock::time_point when) {
  auto size = reply.data->size();
  if (request_.operation == ptp::kGetDeviceInfo) {
    size = std::min<std::uint64_t>(size, faults_.amount(Fault::kTruncate).value_or(size));
  }
  auto claimed = std::min<std::uint64_t>(size + ptp::kContainerHeaderSize, 0xFFFFFFFF);
  if (strikes(Fault::kLieShort)) claimed -= size / 2 + 1;
  if (strikes(Fault::kLieLong)) claimed += 1000;
  auto header = containerHeader(claimed, ptp::kDataBlock, request_.operation, answerID());
  if (strikes(Fault::kVanish)) {
    OutgoingTransfer part;
    part.payload = std::make_shared<JoinedPayload>(std::move(header), reply.data, size / 2);
    part.thenGone = true;
    part.notBefore = when;
    bulk_.push(std::move(part));
  } else if (strikes(Fault::kSplitHeader)) {
    push(std::make_shared<BytesPayload>(std::move(header)), when);
    push(std::make_shared<JoinedPayload>(Bytes{}, reply.data, size), when);
  } else {
    push(std::make_shared<JoinedPayload>(std::move(header), reply.data, size), when);
  }
}

void PTPCamera::sendResponse(const PTPReply& reply, Clock::time_point when) {
  push(std::make_shared<BytesPayload>(
           container(ptp::kResponseBlock, reply.code, answerID(), reply.parameters)),
       when);
}

void PTPCamera::sendGarbage() {
  // The same bytes at every run, so that a failure can be repeated.
  std::minstd_rand random(request_.operation);
  Bytes bytes(700);
  for (auto& byte : bytes)
    byte = static_cast<std::byte>(random());
  push(std::make_shared<BytesPayload>(std::move(bytes)), Clock::now());
}

void PTPCamera::push(std::shared_ptr<const Payload> payload, Clock::time_point when) {
  OutgoingTransfer transfer;
  transfer.payload = std::move(payload);
  transfer.zeroLengthPacket = !faults_.amount(Fault::kOmitZeroLengthPacket);
  transfer.notBefore = when;
  bulk_.push(std::move(transfer));
}

InResult PTPCamera::send(std::uint8_t endpoint, std::span<std::byte> room) {
  if (endpoint == kInterruptIn) return events_.fill(room);
  if (endpoint != kBulkIn) {
    halt(endpoint);
    return {InResult::State::kStalled, 0};
  }
  const auto result = bulk_.fill(room);
  counts_.bytesToHost += result.length;
  if (result.state == InResult::State::kGone) vanish();
  return result;
}

}  // namespace tarvo::simulator
