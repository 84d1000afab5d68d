#include "simulator/ptp/PTPCamera.h"

#include <algorithm>
#include <random>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "simulator/ptp/PropertyOperations.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kInterruptPacket = 64;

constexpr InterfaceClass kStillImage = {ptp::kStillImageClass, ptp::kStillImageSubclass,
                                        ptp::kPTPProtocol};

}  // namespace

PTPCamera::PTPCamera(const DeviceDescription& description)
    : VirtualUSBDevice(description, kStillImage, {{kInterruptIn, 3, kInterruptPacket, 6}}),
      habits_(description.habits),
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
  } else if (strikes(Fault::kEndless)) {
    answers_.sendEndlessly();
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

std::vector<std::uint16_t> PTPCamera::operations() const {
  const std::lock_guard guard(lock());
  return operations_;
}

WireCounts PTPCamera::counts() const {
  const std::lock_guard guard(lock());
  return counts_;
}

std::optional<StoredObject> PTPCamera::object(std::uint32_t handle) const {
  const std::lock_guard guard(lock());
  return responder_.state().objects.object(handle);
}

std::shared_ptr<const Payload> PTPCamera::content(std::uint32_t handle) const {
  const auto found = object(handle);
  return found && !found->isFolder() ? ObjectStore::content(*found) : nullptr;
}

Bytes PTPCamera::bytes(std::uint32_t handle) const {
  const auto payload = content(handle);
  return payload ? allBytes(*payload) : Bytes();
}

std::vector<std::uint32_t> PTPCamera::handles(const ObjectFilter& filter) const {
  const std::lock_guard guard(lock());
  return responder_.state().objects.handles(filter);
}

std::uint64_t PTPCamera::freeSpace(std::uint32_t storage) const {
  const std::lock_guard guard(lock());
  const auto* store = responder_.state().objects.store(storage);
  return store == nullptr ? 0 : store->free;
}

Bytes PTPCamera::displayRequest() const {
  const std::lock_guard guard(lock());
  return responder_.state().displayRequest;
}

nlohmann::json PTPCamera::propertyValue(std::uint16_t code) const {
  const std::lock_guard guard(lock());
  for (const auto& property : responder_.state().description.properties) {
    if (property.code == code) return property.value;
  }
  return nullptr;
}

void PTPCamera::sendEvent(std::uint16_t code, const std::vector<std::uint32_t>& parameters) {
  {
    const std::lock_guard guard(lock());
    queueEvent({code, parameters});
  }
  tellActivity();
}

std::uint32_t PTPCamera::addObject(StoredObject object) {
  std::uint32_t handle = 0;
  {
    const std::lock_guard guard(lock());
    auto& objects = responder_.state().objects;
    if (object.storage == 0 && !objects.stores().empty()) {
      object.storage = objects.stores().front().description.id;
    }
    const auto folder = objects.object(object.parent);
    const bool placed = object.parent == 0 || (folder && folder->isFolder());
    if (objects.store(object.storage) == nullptr || !placed) return 0;
    handle = objects.add(std::move(object));
    queueEvent({kObjectAdded, {handle}});
  }
  tellActivity();
  return handle;
}

bool PTPCamera::removeObject(std::uint32_t handle) {
  {
    const std::lock_guard guard(lock());
    auto& state = responder_.state();
    const auto found = state.objects.object(handle);
    if (!found || state.objects.remove(handle).removed == 0) return false;
    state.datasets.forget(*found);
    queueEvent({kObjectRemoved, {handle}});
  }
  tellActivity();
  return true;
}

std::uint32_t PTPCamera::capture(std::uint32_t storage) {
  PTPReply made;
  {
    const std::lock_guard guard(lock());
    made = responder_.capturing().capture(storage);
    for (const auto& event : made.events)
      queueEvent(event);
  }
  tellActivity();
  return made.events.empty() ? 0 : made.events.front().parameters.front();
}

bool PTPCamera::changeProperty(std::uint16_t code, const nlohmann::json& value) {
  {
    const std::lock_guard guard(lock());
    auto* property = responder_.properties().property(code);
    if (property == nullptr) return false;
    property->value = value;
    queueEvent({kDevicePropChanged, {code}});
  }
  tellActivity();
  return true;
}

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
  made.pause = std::chrono::microseconds(faults_.amount(Fault::kTrickle).value_or(0));
  return made;
}

void DeviceAnswers::send(const PTPRequest& request, const PTPReply& reply) {
  const auto late = faults_.amount(Fault::kDelay).value_or(0);
  const auto when = std::chrono::steady_clock::now() + std::chrono::microseconds(late);
  if (reply.data) sendData(request, reply, when);
  // The device goes in the middle of the data, when the host has taken the first half.
  if (faults_.strikes(Fault::kVanish) || (reply.data && faults_.strikes(Fault::kStop))) return;
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
  if (const auto end = faults_.amount(Fault::kStop))
    sent = std::min<std::uint64_t>(sent, *end - std::min<std::uint64_t>(*end, header.size()));
  if (faults_.strikes(Fault::kSplitHeader)) {
    queue_.push(transfer(std::make_shared<BytesPayload>(std::move(header)), when));
    header = {};
  }
  auto whole = transfer(std::make_shared<JoinedPayload>(std::move(header), reply.data, sent), when);
  whole.thenGone = vanishes;
  whole.overflows = faults_.strikes(Fault::kBabble);
  queue_.push(std::move(whole));
}

void DeviceAnswers::sendEndlessly() {
  queue_.push(transfer(std::make_shared<PatternPayload>(0, UINT64_MAX / 2),
                       std::chrono::steady_clock::now()));
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
