// A connection to a scripted device, with time-outs that make no test wait.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "platform/imagecapture/ptp/BulkConnection.h"
#include "tests/support/ScriptedUSBDevice.h"

namespace tarvo::ptp {

inline Timeouts shortTimeouts() {
  using std::chrono::milliseconds;
  return {.bulk = milliseconds(100),
          .control = milliseconds(50),
          .recovery = milliseconds(20),
          .takeOver = milliseconds(200),
          .stale = milliseconds(200)};
}

inline std::unique_ptr<BulkConnection> connectTo(test::USBScript& script,
                                                 TransactionIDs ids = TransactionIDs(),
                                                 const Timeouts& timeouts = shortTimeouts()) {
  return std::make_unique<BulkConnection>(std::make_unique<test::ScriptedUSBDevice>(script),
                                          timeouts, LogSink(), "the device", ids);
}

/// A transaction without parameters and data.
inline Status run(BulkConnection& connection, std::uint16_t operation) {
  Transaction transaction{.operation = operation};
  return connection.transact(transaction, nullptr);
}

/// A sink whose rooms are of a given size at most, and which checks the order of what it is told.
class PiecewiseSink : public DataSink {
 public:
  PiecewiseSink(std::size_t size, std::size_t most) : memory_(size), most_(most) {}
  /// Over memory that is there already.
  PiecewiseSink(test::Bytes memory, std::size_t most) : memory_(std::move(memory)), most_(most) {}

  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    inOrder_ = inOrder_ && offset >= filled_;
    if (offset >= memory_.size()) return {};
    return std::span(memory_).subspan(offset).first(
        std::min({length, most_, memory_.size() - offset}));
  }
  bool received(std::uint64_t offset, std::size_t length) override {
    inOrder_ = inOrder_ && offset == filled_ && length > 0;
    filled_ = offset + length;
    return filled_ < cancelAt;
  }

  const test::Bytes& memory() const { return memory_; }
  test::Bytes takeMemory() { return std::move(memory_); }
  std::uint64_t filled() const { return filled_; }
  bool inOrder() const { return inOrder_ && filled_ <= memory_.size(); }

  std::uint64_t cancelAt = UINT64_MAX;

 private:
  test::Bytes memory_;  // Of the exact size: the address sanitizer sees every byte beyond it.
  std::size_t most_;
  std::uint64_t filled_ = 0;
  bool inOrder_ = true;
};

/// A source that gives a limited number of bytes at a time, and none from `failAt` on.
class PiecewiseSource : public DataSource {
 public:
  PiecewiseSource(test::Bytes bytes, std::size_t most) : bytes_(std::move(bytes)), most_(most) {}

  std::uint64_t size() const override { return bytes_.size(); }
  test::Bytes takeBytes() { return std::move(bytes_); }
  std::span<const std::byte> bytes(std::uint64_t offset, std::size_t length) override {
    if (offset >= failAt) return {};
    return std::span(bytes_).subspan(offset).first(
        std::min({length, most_, bytes_.size() - offset}));
  }

  std::uint64_t failAt = UINT64_MAX;

 private:
  test::Bytes bytes_;
  std::size_t most_;
};

}  // namespace tarvo::ptp
