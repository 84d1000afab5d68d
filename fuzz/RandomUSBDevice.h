// A USB device that answers everything from a string of bytes: how each transfer ends, how long it
// is, and what is in it. When the bytes are used up it is silent.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>

#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::test {

class RandomUSBDevice : public ptp::USBDevice {
 public:
  RandomUSBDevice(std::span<const std::uint8_t> bytes, std::uint16_t packetSize) : bytes_(bytes) {
    endpoints_.bulkIn = 0x81;
    endpoints_.bulkOut = 0x02;
    endpoints_.bulkInPacketSize = packetSize;
    endpoints_.bulkOutPacketSize = packetSize;
  }

  const ptp::StillImageEndpoints& endpoints() const override { return endpoints_; }

  ptp::TransferCompletion control(const ptp::ControlSetup& setup, std::span<std::byte> data,
                                  std::chrono::milliseconds) override {
    if ((setup.requestType & 0x80) == 0) return {0, nextResult(), data.size()};
    return {0, nextResult(), fill(data)};
  }

  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override {
    if (endpoint == endpoints_.bulkOut) rememberID(buffer);
    pending_.push_back({endpoint, buffer, tag});
  }

  std::optional<ptp::TransferCompletion> wait(std::chrono::milliseconds) override {
    if (!cancelled_.empty()) {
      const ptp::TransferCompletion cancelled = cancelled_.front();
      cancelled_.pop_front();
      return cancelled;
    }
    if (pending_.empty() || bytes_.empty()) return std::nullopt;
    const Pending transfer = takePending();
    const ptp::TransferResult result = nextResult();
    if (transfer.endpoint == endpoints_.bulkOut)
      return ptp::TransferCompletion{transfer.tag, result, transfer.buffer.size()};
    return ptp::TransferCompletion{transfer.tag, result, fill(transfer.buffer)};
  }

  /// Some of them in part.
  void cancelAll() override {
    for (const Pending& each : pending_) {
      const bool in = each.endpoint == endpoints_.bulkIn && !bytes_.empty();
      cancelled_.push_back({each.tag, ptp::TransferResult::kCancelled, in ? fill(each.buffer) : 0});
    }
    pending_.clear();
  }
  ptp::TransferResult clearHalt(std::uint8_t) override { return nextResult(); }
  ptp::TransferResult resetPort() override { return nextResult(); }
  void watchInterrupts(ptp::InterruptHandler) override {}

 private:
  struct Pending {
    std::uint8_t endpoint;
    std::span<std::byte> buffer;
    std::uint64_t tag;
  };

  /// The oldest one of either endpoint.
  Pending takePending() {
    auto taken = std::find_if(pending_.begin(), pending_.end(), [this](const Pending& each) {
      return each.endpoint != pending_.front().endpoint;
    });
    if (taken == pending_.end() || next() % 2 == 0) taken = pending_.begin();
    const Pending transfer = *taken;
    pending_.erase(taken);
    return transfer;
  }

  std::uint8_t next() {
    if (bytes_.empty()) return 0;
    const std::uint8_t value = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return value;
  }

  /// Mostly completed, so that a conversation gets somewhere.
  ptp::TransferResult nextResult() {
    constexpr std::array kRare = {ptp::TransferResult::kStalled,  ptp::TransferResult::kTimedOut,
                                  ptp::TransferResult::kNoDevice, ptp::TransferResult::kOverflow,
                                  ptp::TransferResult::kError,    ptp::TransferResult::kCancelled};
    const std::uint8_t value = next();
    return value < kRare.size() ? kRare.at(value) : ptp::TransferResult::kCompleted;
  }

  void rememberID(std::span<const std::byte> command) {
    if (command.size() >= 12) std::copy_n(command.begin() + 6, 6, codeAndID_.begin());
  }

  /// Either bytes as they come, or a container of the transaction in progress, so that what lies
  /// behind the checks of the header is reached as well; it tells the truth about its length or
  /// not.
  std::size_t fill(std::span<std::byte> buffer) {
    const unsigned form = next();
    const std::size_t length = lengthOf(form / 8, buffer.size());
    // The beginning and the end are touched, as far as anybody looks and as far as it may reach.
    constexpr std::size_t kLooked = 600;
    std::fill_n(buffer.begin(), std::min(length, kLooked), static_cast<std::byte>(form));
    if (length > 0) buffer[length - 1] = static_cast<std::byte>(form);
    if (form % 4 == 0 || length < 12) {
      for (std::size_t i = 0; i < std::min<std::size_t>(length, 16); ++i)
        buffer[i] = static_cast<std::byte>(next());
      return length;
    }
    const auto announced =
        form % 8 == 3 ? next() * 0x01010101U : static_cast<std::uint32_t>(length);
    const bool response = length <= 32 && next() % 4 != 0;
    std::memcpy(buffer.data(), &announced, 4);
    buffer[4] = static_cast<std::byte>(response ? 3 : 2);
    buffer[5] = std::byte{0};
    std::copy(codeAndID_.begin(), codeAndID_.end(), buffer.begin() + 6);
    return length;
  }

  /// Whole buffers, whole packets, small blocks, and odd lengths.
  std::size_t lengthOf(unsigned form, std::size_t size) {
    switch (form % 8) {
      case 0:
        return size;
      case 1:
        return std::min<std::size_t>(std::size_t{next()} * endpoints_.bulkInPacketSize, size);
      case 2:
        return std::min<std::size_t>(std::size_t{next()} * 257, size);
      default:
        return std::min<std::size_t>(12 + std::size_t{4} * (next() % 7), size);
    }
  }

  ptp::StillImageEndpoints endpoints_;
  std::span<const std::uint8_t> bytes_;
  std::deque<Pending> pending_;
  std::deque<ptp::TransferCompletion> cancelled_;
  std::array<std::byte, 6> codeAndID_{};
};

}  // namespace tarvo::test
