// Where the payload of a PTP data phase goes to and comes from, without a copy on the way.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tarvo::ptp {

/// Takes the payload of a data phase from the device.
/// It may let the main loop run, but a transaction with the same device is refused meanwhile. The
/// transport asks for room piece by piece, in order, may have several pieces in flight, and says
/// how much of them was filled, in order.
class DataSink {
 public:
  virtual ~DataSink() = default;
  /// Room for payload bytes from `offset` on: at most `length` bytes, fewer where the sink ends,
  /// none when it is full (what comes then is drained and dropped). Stays valid until it was
  /// reported with received() or the transaction has ended. The end of a room that holds no whole
  /// packet may stay unused; it is then asked for again.
  virtual std::span<std::byte> room(std::uint64_t offset, std::size_t length) = 0;
  /// Payload bytes offset .. offset+length-1 have arrived in the room given for them. False ends
  /// the data phase: the transaction is cancelled.
  virtual bool received(std::uint64_t offset, std::size_t length) = 0;
};

/// Gives the payload of a data phase to the device. As for a sink, no other transaction with it can
/// be run meanwhile.
class DataSource {
 public:
  virtual ~DataSource() = default;
  /// Payload size in bytes; what the container header announces.
  virtual std::uint64_t size() const = 0;
  /// Bytes from `offset` on: at least one and at most `length`; none is a read failure, which
  /// cancels the transaction. Stays valid until the next call but `kMaximumInFlight`.
  virtual std::span<const std::byte> bytes(std::uint64_t offset, std::size_t length) = 0;

  /// How many pieces the transport may still be sending while it asks for the next one.
  static constexpr int kMaximumInFlight = 4;
};

/// A sink over memory of the caller's.
/// What does not fit is dropped, as DataSink::room() says.
class MemorySink : public DataSink {
 public:
  explicit MemorySink(std::span<std::byte> memory) : memory_(memory) {}
  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    if (offset >= memory_.size()) return {};
    return memory_.subspan(offset, std::min<std::uint64_t>(length, memory_.size() - offset));
  }
  bool received(std::uint64_t offset, std::size_t length) override {
    filled_ = offset + length;
    return true;
  }
  /// Bytes that have arrived, from the beginning on.
  std::uint64_t filled() const { return filled_; }

 private:
  std::span<std::byte> memory_;
  std::uint64_t filled_ = 0;
};

/// Hands on to another sink, which is lent, and counts what that one takes: less than what the
/// device sends where it is full. Ends at `limit` bytes; what comes beyond is dropped.
class CountingSink : public DataSink {
 public:
  static constexpr std::uint64_t kUnlimited = UINT64_MAX;

  explicit CountingSink(DataSink& target, std::uint64_t limit = kUnlimited)
      : target_(target), limit_(limit) {}
  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    if (offset >= limit_) return {};
    return target_.room(offset, std::min<std::uint64_t>(length, limit_ - offset));
  }
  bool received(std::uint64_t offset, std::size_t length) override {
    count_ = offset + length;
    return target_.received(offset, length);
  }
  std::uint64_t count() const { return count_; }

 private:
  DataSink& target_;
  std::uint64_t limit_;
  std::uint64_t count_ = 0;
};

/// A source over memory of the caller's.
class MemorySource : public DataSource {
 public:
  explicit MemorySource(std::span<const std::byte> memory) : memory_(memory) {}
  std::uint64_t size() const override { return memory_.size(); }
  std::span<const std::byte> bytes(std::uint64_t offset, std::size_t length) override {
    if (offset >= memory_.size()) return {};
    return memory_.subspan(offset, std::min<std::uint64_t>(length, memory_.size() - offset));
  }

 private:
  std::span<const std::byte> memory_;
};

}  // namespace tarvo::ptp
