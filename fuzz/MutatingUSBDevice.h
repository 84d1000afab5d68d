// A USB device between the transport and another one, that changes what it answers by a script:
// how many answers pass first, and then what is done to one.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <utility>

#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::test {

/// The bytes of an input, taken from the front; zeros once they are used up.
class ByteScript {
 public:
  explicit ByteScript(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  bool isUsedUp() const { return rest_.empty(); }
  std::uint8_t next() {
    if (rest_.empty()) return 0;
    const std::uint8_t value = rest_.front();
    rest_ = rest_.subspan(1);
    return value;
  }
  /// Mostly small, so that it falls into headers and the beginnings of data sets.
  std::size_t nextOffset() {
    const std::size_t low = next();
    return low < 224 ? low : (low - 224) * 256 + next();
  }

 private:
  std::span<const std::uint8_t> rest_;
};

/// Outlives the device, so that the connections of several commands are one script.
class Mutations {
 public:
  explicit Mutations(ByteScript& script) : script_(script) { pass_ = script_.next() % kMostPassed; }

  /// Changes an answer of `length` bytes at the front of `buffer`, where one is due.
  void apply(std::span<std::byte> buffer, ptp::TransferResult& result, std::size_t& length) {
    if (pass_ > 0) {
      --pass_;
      return;
    }
    if (script_.isUsedUp()) return;
    const unsigned kind = script_.next();
    change(kind, buffer, result, length);
    if ((kind & kHonestBit) != 0) tellLength(buffer.first(length));
    pass_ = script_.next() % kMostPassed;
  }

 private:
  static constexpr unsigned kMostPassed = 48;
  static constexpr unsigned kHonestBit = 0x80;  ///< the container says the length that it then has
  static constexpr std::size_t kHeader = 12;

  void change(unsigned kind, std::span<std::byte> buffer, ptp::TransferResult& result,
              std::size_t& length) {
    constexpr std::array kResults = {
        ptp::TransferResult::kStalled,  ptp::TransferResult::kTimedOut,
        ptp::TransferResult::kNoDevice, ptp::TransferResult::kOverflow,
        ptp::TransferResult::kError,    ptp::TransferResult::kCancelled};
    switch (kind % 8) {
      case 0:
        result = kResults.at(script_.next() % kResults.size());
        return;
      case 1:
        length = std::min(script_.nextOffset(), length);
        return;
      case 2:
        lengthen(buffer, length);
        return;
      case 3:
      case 4:
        return overwrite(buffer.first(length));
      case 5:
        return replacePayload(buffer, length);
      default:
        return setByte(buffer.first(length));
    }
  }

  void lengthen(std::span<std::byte> buffer, std::size_t& length) {
    const std::size_t longer = std::min(length + script_.nextOffset(), buffer.size());
    const auto filler = static_cast<std::byte>(script_.next());
    std::ranges::fill(buffer.subspan(length, longer - length), filler);
    length = longer;
  }

  void setByte(std::span<std::byte> answer) {
    const std::size_t at = script_.nextOffset();
    const auto value = static_cast<std::byte>(script_.next());
    if (at < answer.size()) answer[at] = value;
  }

  /// A number that readers stumble over, where a count or a size may stand.
  void overwrite(std::span<std::byte> answer) {
    constexpr std::array<std::uint32_t, 12> kNumbers = {
        0,          1,          2,          11,         12,         0xFF,
        0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFFE, 0x01000000, 0x00020001};
    const std::size_t at = script_.nextOffset();
    const std::uint32_t value = kNumbers.at(script_.next() % kNumbers.size());
    if (at + sizeof value <= answer.size()) std::memcpy(&answer[at], &value, sizeof value);
  }

  void replacePayload(std::span<std::byte> buffer, std::size_t& length) {
    const std::size_t wanted = kHeader + script_.next();
    if (length < kHeader) return;
    length = std::min(wanted, buffer.size());
    for (auto& each : buffer.subspan(kHeader, length - kHeader))
      each = static_cast<std::byte>(script_.next());
  }

  static void tellLength(std::span<std::byte> answer) {
    const auto length = static_cast<std::uint32_t>(answer.size());
    if (answer.size() >= sizeof length) std::memcpy(answer.data(), &length, sizeof length);
  }

  ByteScript& script_;
  unsigned pass_ = 0;  ///< answers until the next change
};

class MutatingUSBDevice : public ptp::USBDevice {
 public:
  /// `mutations` is lent and outlives this.
  MutatingUSBDevice(std::unique_ptr<ptp::USBDevice> device, Mutations& mutations)
      : device_(std::move(device)), mutations_(mutations) {}

  const ptp::StillImageEndpoints& endpoints() const override { return device_->endpoints(); }

  ptp::TransferCompletion control(const ptp::ControlSetup& setup, std::span<std::byte> data,
                                  std::chrono::milliseconds timeout) override {
    auto done = device_->control(setup, data, timeout);
    if ((setup.requestType & 0x80) != 0) mutations_.apply(data, done.result, done.length);
    return done;
  }

  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override {
    if ((endpoint & 0x80) != 0) rooms_[tag] = buffer;
    device_->submit(endpoint, buffer, tag);
  }

  std::optional<ptp::TransferCompletion> wait(std::chrono::milliseconds timeout) override {
    auto done = device_->wait(timeout);
    if (!done) return done;
    const auto room = rooms_.extract(done->tag);
    if (!room.empty()) mutations_.apply(room.mapped(), done->result, done->length);
    return done;
  }

  void cancelAll() override {
    rooms_.clear();
    device_->cancelAll();
  }
  ptp::TransferResult clearHalt(std::uint8_t endpoint) override {
    return device_->clearHalt(endpoint);
  }
  ptp::TransferResult resetPort() override { return device_->resetPort(); }
  void watchInterrupts(ptp::InterruptHandler handler) override {
    device_->watchInterrupts(std::move(handler));
  }

 private:
  std::unique_ptr<ptp::USBDevice> device_;
  Mutations& mutations_;
  std::map<std::uint64_t, std::span<std::byte>> rooms_;  ///< of the IN transfers in flight, by tag
};

}  // namespace tarvo::test
