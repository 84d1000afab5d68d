#include "simulator/ptp/PTPCamera.h"

#include <algorithm>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kInterruptPacket = 64;

/// USB still-image class: bulk in both directions and an interrupt endpoint for events.
InterfaceDescription stillImageInterface(UsbSpeed speed) {
  const std::uint16_t packet = speed == UsbSpeed::kHigh ? 512 : 64;
  InterfaceDescription interface;
  interface.interfaceClass = ptp::kStillImageClass;
  interface.interfaceSubclass = ptp::kStillImageSubclass;
  interface.interfaceProtocol = ptp::kPTPProtocol;
  interface.endpoints = {{PTPCamera::kBulkIn, 2, packet, 0},
                         {PTPCamera::kBulkOut, 2, packet, 0},
                         {PTPCamera::kInterruptIn, 3, kInterruptPacket, 6}};
  return interface;
}

}  // namespace

PTPCamera::PTPCamera(const DeviceDescription& description)
    : VirtualUSBDevice(UsbDescriptors(description.usb, stillImageInterface(description.usb.speed))),
      habits_(description.habits),
      faults_(description.faults),
      responder_(description),
      containers_(violations_),
      answers_(faults_, descriptors().endpoint(kBulkIn)->packetSize),
      events_(kInterruptPacket) {}

// Class requests.

std::optional<Bytes> PTPCamera::classRequest(const SetupPacket& setup,
                                             std::span<const std::byte> data) {
  if (habits_.noClassRequests) return std::nullopt;
  switch (setup.request) {
    case ptp::kCancelRequest:
      return cancel(data);
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

// No response follows: the host asks for the device status until it is OK again. The first time the
// device is still busy with it, as real ones are.
std::optional<Bytes> PTPCamera::cancel(std::span<const std::byte> data) {
  if (data.size() != 6 || littleEndian(data, 0, 2) != ptp::kCancellationCode) {
    violations_.add("malformed cancel request");
    return std::nullopt;
  }
  answers_.queue().clear();
  containers_.forget();
  busyAnswers_ = 1;
  return Bytes{};
}

Bytes PTPCamera::deviceStatus() {
  std::uint16_t code = halted().empty() ? kOK : kTransactionCancelled;
  if (busyAnswers_ > 0) {
    --busyAnswers_;
    code = kDeviceBusy;
  }
  ByteWriter writer;
  writer.u16(static_cast<std::uint16_t>(4 + 4 * halted().size()));
  writer.u16(code);
  for (auto endpoint : halted())
    writer.u32(endpoint);
  return writer.take();
}

void PTPCamera::forgetEverything() {
  answers_.queue().clear();
  events_.clear();
  containers_.forget();
  responder_.forgetSession();
  busyAnswers_ = 0;
}

// From the host.

void PTPCamera::receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) {
  if (endpoint != kBulkOut) {
    halt(endpoint);
    return;
  }
  counts_.bytesFromHost += data.size();
  if (containers_.isEndOfLast(data)) return;
  if (containers_.expectsData()) {
    receiveData(data, ends);
  } else {
    receiveCommand(data, ends);
  }
}

void PTPCamera::receiveCommand(std::span<const std::byte> data, bool ends) {
  const auto command = containers_.command(data, ends);
  if (!command) return;
  request_ = *command;
  // Only a complaint: the answer goes on to the host, as a real device would send it.
  if (!answers_.queue().isEmpty()) {
    violations_.add("a command came before the last answer was taken");
  }
  checkTransactionID();
  ++counts_.transactions;
  operations_.push_back(request_.operation);
  faults_.begin(request_.operation);
  if (responder_.direction(request_.operation) == DataDirection::kToDevice) {
    containers_.expectData();
  } else {
    run();
  }
}

void PTPCamera::checkTransactionID() {
  // OpenSession itself has id 0, and the next operation 1, whatever came before.
  const bool opens = request_.operation == ptp::kOpenSession;
  const auto expected = opens || !responder_.hasSession() ? 0 : nextTransactionID_;
  isOutOfTurn_ = request_.transactionID != expected && habits_.checksTransactionIDs;
  if (isOutOfTurn_) return;
  if (request_.transactionID != expected) {
    violations_.add(formatted("operation 0x%04X: transaction id %u was expected, got %u",
                              request_.operation, expected, request_.transactionID));
  }
  // Goes on from what came, so that one slip of the host is one complaint.
  nextTransactionID_ = opens ? 1 : request_.transactionID + 1;
}

void PTPCamera::receiveData(std::span<const std::byte> data, bool ends) {
  if (HostContainers::isCommand(data)) {
    violations_.add(
        formatted("data of operation 0x%04X were expected, a command came", request_.operation));
    containers_.forget();
    receiveCommand(data, ends);
  } else if (strikes(Fault::kStallOut)) {
    containers_.forget();
    halt(kBulkOut);
  } else if (strikes(Fault::kVanish)) {
    vanish();
  } else if (containers_.data(data, ends, request_)) {
    run();
  }
}

// To the host.

void PTPCamera::run() {
  // The faults that replace an answer; those that spoil one are in DeviceAnswers.
  if (strikes(Fault::kSilent)) return;
  if (strikes(Fault::kStall)) {
    halt(kBulkIn);
  } else if (isOutOfTurn_) {
    answer(refuse(kInvalidTransactionID));
  } else if (strikes(Fault::kGarbage)) {
    answers_.sendGarbage(request_);
  } else if (strikes(Fault::kRaise)) {
    answer(refuse(kGeneralError));
  } else if (const auto code = faults_.amount(Fault::kRespond)) {
    answer(refuse(static_cast<std::uint16_t>(*code)));
  } else if (const auto reply = responder_.execute(request_); reply.code != 0) {
    answer(reply);
  }
}

void PTPCamera::answer(const PTPReply& reply) {
  violations_.add(reply.complaints);
  answers_.send(request_, reply);
  for (const auto& event : reply.events)
    queueEvent(event);
  goesWhenTaken_ = reply.powersDown;
  if (strikes(Fault::kVanish) && !reply.data) vanish();
}

void PTPCamera::queueEvent(const PTPEvent& event) {
  OutgoingTransfer transfer;
  transfer.payload = std::make_shared<BytesPayload>(
      parameterContainer(ptp::kEventBlock, event.code, request_.transactionID, event.parameters));
  events_.push(std::move(transfer));
}

InResult PTPCamera::send(std::uint8_t endpoint, std::span<std::byte> room) {
  if (endpoint == kInterruptIn) return events_.fill(room);
  if (endpoint != kBulkIn) {
    halt(endpoint);
    return {InResult::State::kStalled, 0};
  }
  auto& queue = answers_.queue();
  const auto result = queue.fill(room);
  counts_.bytesToHost += result.length;
  if (result.state == InResult::State::kGone || (goesWhenTaken_ && queue.isEmpty())) vanish();
  return result;
}

std::optional<std::chrono::steady_clock::time_point> PTPCamera::nextDue(
    std::uint8_t endpoint) const {
  return endpoint == kBulkIn ? answers_.queue().due() : events_.due();
}

}  // namespace tarvo::simulator
