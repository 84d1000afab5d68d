// A USB device that plays a script: it checks what the host sends and answers what the script says.
//
//   USBScript script;
//   script.out(wire::command(0x1001, 0)).in(wire::data(0x1001, 0, payload));
//   script.in(wire::response(0x2001, 0));
//   BulkConnection connection(std::make_unique<ScriptedUSBDevice>(script), ...);
//   ...
//   EXPECT_EQ(script.report(), "");
//
// Time does not pass: a wait for something that the script does not bring ends at once; a slow
// device moves in it what it would have moved. The two directions are independent, as on the wire:
// the host may write before it has read everything, but the device says nothing before it has heard
// what stands before it in the script.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Format.h"
#include "platform/imagecapture/ptp/USBDevice.h"
#include "tests/support/HexBytes.h"

namespace tarvo::test {

using Bytes = std::vector<std::byte>;

/// What goes over the wire, built by hand so that the product's own encoding is checked against it.
namespace wire {

inline void append(Bytes& bytes, std::uint64_t value, int size) {
  for (int i = 0; i < size; ++i)
    bytes.push_back(static_cast<std::byte>(value >> (8 * i) & 0xFF));
}

inline Bytes container(std::uint32_t length, int type, std::uint16_t code, std::uint32_t id) {
  Bytes bytes;
  append(bytes, length, 4);
  append(bytes, static_cast<std::uint64_t>(type), 2);
  append(bytes, code, 2);
  append(bytes, id, 4);
  return bytes;
}

inline Bytes block(int type, std::uint16_t code, std::uint32_t id,
                   std::initializer_list<std::uint32_t> parameters) {
  const auto length = static_cast<std::uint32_t>(12 + 4 * parameters.size());
  Bytes bytes = container(length, type, code, id);
  for (std::uint32_t parameter : parameters)
    append(bytes, parameter, 4);
  return bytes;
}

inline Bytes command(std::uint16_t operation, std::uint32_t id,
                     std::initializer_list<std::uint32_t> parameters = {}) {
  return block(1, operation, id, parameters);
}

inline Bytes response(std::uint16_t code, std::uint32_t id,
                      std::initializer_list<std::uint32_t> parameters = {}) {
  return block(3, code, id, parameters);
}

/// A data container that announces `announced` payload bytes, by default those that it holds.
inline Bytes data(std::uint16_t operation, std::uint32_t id, const Bytes& payload,
                  std::optional<std::uint32_t> announced = std::nullopt) {
  const auto length = announced.value_or(static_cast<std::uint32_t>(payload.size())) + 12;
  Bytes bytes = container(length, 2, operation, id);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

/// `size` bytes in which every place is recognised.
inline Bytes payload(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::byte>((i * 2654435761U) >> 16 & 0xFF);
  return bytes;
}

}  // namespace wire

class USBScript {
 public:
  enum class Kind { kOut, kIn, kControl, kClearHalt, kPortReset, kSilence, kVanish };
  struct Step {
    Kind kind = Kind::kSilence;
    Bytes bytes{};
    ptp::TransferResult result = ptp::TransferResult::kCompleted;
    ptp::ControlSetup setup{};
    std::uint8_t endpoint = 0;
    bool emptyPacket = false;  ///< IN: a zero-length packet follows the bytes
    bool inPieces = false;     ///< OUT: in as many transfers as the host likes
    std::size_t sent = 0;      ///< bytes that have gone
  };

  explicit USBScript(std::uint16_t packetSize = 512) {
    endpoints_.bulkIn = 0x81;
    endpoints_.bulkOut = 0x02;
    endpoints_.interruptIn = 0x83;
    endpoints_.bulkInPacketSize = packetSize;
    endpoints_.bulkOutPacketSize = packetSize;
    endpoints_.interruptPacketSize = 64;
  }

  /// The host writes exactly these bytes in one transfer, which ends with `result`.
  USBScript& out(Bytes bytes, ptp::TransferResult result = ptp::TransferResult::kCompleted) {
    return add({.kind = Kind::kOut, .bytes = std::move(bytes), .result = result});
  }
  /// The host writes these bytes in transfers of any size, and an empty packet behind a full one.
  USBScript& outInPieces(Bytes bytes) {
    return add({.kind = Kind::kOut, .bytes = std::move(bytes), .inPieces = true});
  }
  /// The device sends these bytes, then a zero-length packet where they end with a full one.
  USBScript& in(Bytes bytes) {
    const bool full = bytes.size() % endpoints_.bulkInPacketSize == 0;
    return add({.kind = Kind::kIn, .bytes = std::move(bytes), .emptyPacket = full});
  }
  /// The same from a device that leaves out the zero-length packet.
  USBScript& inUnterminated(Bytes bytes) {
    return add({.kind = Kind::kIn, .bytes = std::move(bytes)});
  }
  /// The device sends these bytes, and the transfer that they are in ends with `result`.
  USBScript& inEnds(ptp::TransferResult result, Bytes bytes = {}) {
    return add({.kind = Kind::kIn, .bytes = std::move(bytes), .result = result});
  }
  /// A class request on interface 0. For a read `bytes` is the answer, else what the host sends.
  USBScript& control(std::uint8_t type, std::uint8_t request, Bytes bytes,
                     ptp::TransferResult result = ptp::TransferResult::kCompleted) {
    return add({.kind = Kind::kControl,
                .bytes = std::move(bytes),
                .result = result,
                .setup = {type, request, 0, 0}});
  }
  USBScript& clearHalt(std::uint8_t endpoint) {
    return add({.kind = Kind::kClearHalt, .endpoint = endpoint});
  }
  USBScript& portReset(ptp::TransferResult result = ptp::TransferResult::kCompleted) {
    return add({.kind = Kind::kPortReset, .result = result});
  }
  /// The device takes nothing and says nothing any more.
  USBScript& silence() { return add({.kind = Kind::kSilence}); }
  USBScript& vanish() { return add({.kind = Kind::kVanish}); }

  /// Cancel request for a transaction.
  USBScript& cancelRequest(std::uint32_t id,
                           ptp::TransferResult result = ptp::TransferResult::kCompleted) {
    Bytes bytes;
    wire::append(bytes, 0x4001, 2);
    wire::append(bytes, id, 4);
    return control(0x21, 0x64, std::move(bytes), result);
  }
  /// Device status with the given code and halted endpoints.
  USBScript& deviceStatus(std::uint16_t code, std::initializer_list<std::uint32_t> halted = {}) {
    Bytes bytes;
    wire::append(bytes, 4 + 4 * halted.size(), 2);
    wire::append(bytes, code, 2);
    for (std::uint32_t endpoint : halted)
      wire::append(bytes, endpoint, 4);
    return control(0xA1, 0x67, std::move(bytes));
  }
  USBScript& deviceReset() { return control(0x21, 0x66, {}); }
  /// The usual way back into step.
  USBScript& recovery(std::uint32_t id) { return cancelRequest(id).deviceStatus(0x2001); }

  /// OpenSession, and any other command that is answered without parameters and data.
  USBScript& opens(std::uint16_t code = 0x2001) {
    return out(wire::command(0x1002, 0, {1})).in(wire::response(code, 0));
  }
  USBScript& answers(std::uint16_t operation, std::uint32_t id) {
    return out(wire::command(operation, id)).in(wire::response(0x2001, id));
  }

  bool readsFirst = false;         ///< of what has finished, the host is told of the reads first
  std::size_t bytesPerSecond = 0;  ///< that the device moves while the host waits; 0: at once
  std::size_t memory = SIZE_MAX;   ///< bytes of transfers that the system takes at a time

  /// What went wrong: traffic that was not expected, and steps that were not reached. Empty when
  /// all is well.
  std::string report() const {
    std::string text = mismatches_;
    for (const auto& step : steps_)
      if (step.kind != Kind::kSilence) text += "not reached: " + describe(step) + "\n";
    return text;
  }
  std::size_t mostInFlight() const { return mostInFlight_; }

  /// The device sends one packet on its interrupt endpoint, or that endpoint fails; false when
  /// nobody watches it. Stands for the main loop, so it is for use between the host's calls.
  bool interrupt(const Bytes& packet,
                 ptp::TransferResult result = ptp::TransferResult::kCompleted) {
    const auto handler = interrupts_;
    if (!handler) return false;
    if (result != ptp::TransferResult::kCompleted) interrupts_ = nullptr;
    handler(result, packet);
    return true;
  }

 private:
  friend class ScriptedUSBDevice;

  USBScript& add(Step step) {
    steps_.push_back(std::move(step));
    return *this;
  }

  static std::string describe(const Step& step) {
    constexpr const char* kNames[] = {"OUT",        "IN",      "request", "clear halt",
                                      "port reset", "silence", "unplug"};
    const std::size_t shown = std::min<std::size_t>(step.bytes.size(), 48);
    return formatted("%s %02x %02x %02x of %zu bytes %s", kNames[static_cast<int>(step.kind)],
                     step.setup.requestType, step.setup.request, step.endpoint, step.bytes.size(),
                     hexText(std::span(step.bytes).first(shown)).c_str());
  }

  /// The step that the host's next action must match: the device's own words may wait for later.
  std::deque<Step>::iterator nextOfHost() {
    return std::find_if(steps_.begin(), steps_.end(),
                        [](const Step& step) { return step.kind != Kind::kIn; });
  }

  void mismatch(const std::string& got) {
    const auto expected = nextOfHost();
    mismatches_ +=
        "expected: " + (expected == steps_.end() ? std::string("nothing") : describe(*expected)) +
        "\n     got: " + got + "\n";
  }

  ptp::StillImageEndpoints endpoints_;
  std::deque<Step> steps_;
  std::string mismatches_;
  std::size_t mostInFlight_ = 0;
  ptp::InterruptHandler interrupts_;
};

/// Plays a script, which outlives it.
class ScriptedUSBDevice : public ptp::USBDevice {
 public:
  explicit ScriptedUSBDevice(USBScript& script) : script_(script) {}
  ~ScriptedUSBDevice() override { script_.interrupts_ = nullptr; }

  const ptp::StillImageEndpoints& endpoints() const override { return script_.endpoints_; }

  ptp::TransferCompletion control(const ptp::ControlSetup& setup, std::span<std::byte> data,
                                  std::chrono::milliseconds) override {
    if (vanished()) return {0, ptp::TransferResult::kNoDevice, 0};
    const bool in = (setup.requestType & 0x80) != 0;
    const Bytes sent = in ? Bytes() : Bytes(data.begin(), data.end());
    const auto step = reach({.kind = USBScript::Kind::kControl, .bytes = sent, .setup = setup}, in);
    if (!step) return {0, ptp::TransferResult::kStalled, 0};
    const std::size_t length = std::min(step->bytes.size(), data.size());
    if (in) std::copy_n(step->bytes.begin(), length, data.begin());
    return {0, step->result, step->result == ptp::TransferResult::kCompleted ? length : 0};
  }

  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override {
    const bool read = endpoint == script_.endpoints_.bulkIn;
    if (read && (buffer.empty() || buffer.size() % script_.endpoints_.bulkInPacketSize != 0))
      script_.mismatch("IN of no whole packets, " + std::to_string(buffer.size()) + " bytes");
    if (buffer.size() > script_.memory - inFlight() || isHeldBack(read)) {
      done_.push_back({{tag, ptp::TransferResult::kNoMemory, 0}, read});
      return;
    }
    auto& queue = read ? in_ : out_;
    queue.push_back({buffer, tag, 0});
    script_.mostInFlight_ = std::max(script_.mostInFlight_, in_.size() + out_.size());
  }

  std::optional<ptp::TransferCompletion> wait(std::chrono::milliseconds timeout) override {
    if (done_.empty()) {
      movable_ = script_.bytesPerSecond == 0
                     ? SIZE_MAX
                     : movable_ + script_.bytesPerSecond * timeout.count() / 1000;
      play();
      // What the device has heard just now it may have answered just now.
      if (script_.readsFirst) play();
    }
    auto next = done_.begin();
    if (script_.readsFirst) next = std::find_if(next, done_.end(), [](auto& e) { return e.read; });
    if (next == done_.end()) next = done_.begin();
    if (next == done_.end()) return std::nullopt;
    const ptp::TransferCompletion completion = next->completion;
    done_.erase(next);
    return completion;
  }

  void cancelAll() override {
    for (auto* queue : {&in_, &out_})
      while (!queue->empty())
        finish(*queue, ptp::TransferResult::kCancelled);
  }

  ptp::TransferResult clearHalt(std::uint8_t endpoint) override {
    if (vanished()) return ptp::TransferResult::kNoDevice;
    const auto step = reach({.kind = USBScript::Kind::kClearHalt, .endpoint = endpoint});
    return step ? step->result : ptp::TransferResult::kError;
  }

  ptp::TransferResult resetPort() override {
    if (vanished()) return ptp::TransferResult::kNoDevice;
    const auto step = reach({.kind = USBScript::Kind::kPortReset});
    return step ? step->result : ptp::TransferResult::kError;
  }

  void watchInterrupts(ptp::InterruptHandler handler) override {
    script_.interrupts_ = std::move(handler);
  }

 private:
  struct Transfer {
    std::span<std::byte> buffer;
    std::uint64_t tag;
    std::size_t moved;
  };
  struct Done {
    ptp::TransferCompletion completion;
    bool read;
  };

  bool isHeldBack(bool read) const {
    return std::any_of(done_.begin(), done_.end(), [read](const Done& each) {
      return each.read == read && each.completion.result == ptp::TransferResult::kNoMemory;
    });
  }
  std::size_t inFlight() const {
    std::size_t bytes = 0;
    for (const auto* queue : {&in_, &out_})
      for (const Transfer& transfer : *queue)
        bytes += transfer.buffer.size();
    return bytes;
  }

  /// Takes the step that the host's action has to be; where it is another, that is a mismatch.
  std::optional<USBScript::Step> reach(const USBScript::Step& got, bool isRead = false) {
    const auto step = script_.nextOfHost();
    if (step == script_.steps_.end() || step->kind != got.kind || step->endpoint != got.endpoint ||
        step->setup.requestType != got.setup.requestType ||
        step->setup.request != got.setup.request || (!isRead && step->bytes != got.bytes)) {
      script_.mismatch(USBScript::describe(got));
      return std::nullopt;
    }
    auto reached = std::move(*step);
    script_.steps_.erase(step);
    return reached;
  }

  bool vanished() {
    auto& steps = script_.steps_;
    if (!steps.empty() && steps.front().kind == USBScript::Kind::kVanish) {
      steps.pop_front();
      gone_ = true;
    }
    return gone_;
  }

  void play() {
    while (!in_.empty() && !vanished() && fill(in_.front())) {
    }
    while (!out_.empty() && !vanished() && take(out_.front())) {
    }
    if (!vanished()) return;
    for (auto* queue : {&in_, &out_})
      while (!queue->empty())
        finish(*queue, ptp::TransferResult::kNoDevice);
  }

  void finish(std::deque<Transfer>& queue, ptp::TransferResult result) {
    done_.push_back({{queue.front().tag, result, queue.front().moved}, &queue == &in_});
    queue.pop_front();
  }

  /// Moves the packets that are due into one IN transfer; true when that ended it.
  bool fill(Transfer& transfer) {
    auto& steps = script_.steps_;
    const std::size_t packet = script_.endpoints_.bulkInPacketSize;
    while (!steps.empty() && steps.front().kind == USBScript::Kind::kIn) {
      auto& step = steps.front();
      const std::size_t length = std::min(packet, step.bytes.size() - step.sent);
      if (length > movable_) return false;
      movable_ -= length;
      std::copy_n(step.bytes.begin() + static_cast<std::ptrdiff_t>(step.sent), length,
                  transfer.buffer.begin() + static_cast<std::ptrdiff_t>(transfer.moved));
      step.sent += length;
      transfer.moved += length;
      const bool last = step.sent == step.bytes.size() && !(step.emptyPacket && length == packet);
      const auto result = last ? step.result : ptp::TransferResult::kCompleted;
      if (last) steps.pop_front();
      if (length == packet && transfer.moved < transfer.buffer.size() &&
          result == ptp::TransferResult::kCompleted)
        continue;
      finish(in_, result);
      return true;
    }
    return false;
  }

  /// Compares one OUT transfer with the script; true when that ended it.
  bool take(Transfer& transfer) {
    const auto step = script_.nextOfHost();
    if (step != script_.steps_.end() && step->kind == USBScript::Kind::kSilence) return false;
    if (step != script_.steps_.end() && step->inPieces) return takePiece(transfer, *step);
    const Bytes sent(transfer.buffer.begin(), transfer.buffer.end());
    const auto reached = reach({.kind = USBScript::Kind::kOut, .bytes = sent});
    const auto result = reached ? reached->result : ptp::TransferResult::kError;
    if (result == ptp::TransferResult::kCompleted) transfer.moved = sent.size();
    finish(out_, result);
    return true;
  }

  /// The same for one of many transfers: all of them but the last are whole packets.
  bool takePiece(Transfer& transfer, USBScript::Step& step) {
    const std::size_t packet = script_.endpoints_.bulkOutPacketSize;
    const std::size_t left = step.bytes.size() - step.sent;
    std::size_t length = transfer.buffer.size() - transfer.moved;
    const bool last = length % packet != 0 || length == 0;
    if (length > left || (last && length < left)) {
      script_.mismatch("OUT of " + std::to_string(length) + " bytes");
      finish(out_, ptp::TransferResult::kError);
      return true;
    }
    if (length > movable_) length = movable_ / packet * packet;
    const auto piece = transfer.buffer.subspan(transfer.moved, length);
    if (!std::equal(piece.begin(), piece.end(),
                    step.bytes.begin() + static_cast<std::ptrdiff_t>(step.sent)))
      script_.mismatch("other bytes than these at " + std::to_string(step.sent));
    movable_ -= length;
    step.sent += length;
    transfer.moved += length;
    if (transfer.moved < transfer.buffer.size()) return false;
    if (last) script_.steps_.erase(script_.nextOfHost());
    finish(out_, ptp::TransferResult::kCompleted);
    return true;
  }

  USBScript& script_;
  std::deque<Transfer> in_;
  std::deque<Transfer> out_;
  std::deque<Done> done_;
  std::size_t movable_ = 0;  ///< bytes, in the time that has passed
  bool gone_ = false;
};

}  // namespace tarvo::test
