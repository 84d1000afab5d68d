#include "platform/imagecapture/PTPMessages.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

// The record comes from a client's hands. Its counts are checked against what it really holds
// before anything is read or written by them.
bool isWellFormed(const PTPPassThroughRecord& record) {
  const PTPPassThroughPB& pb = record.pb();
  constexpr std::uint32_t kHighestCode = 0xFFFF;
  if (pb.commandCode > kHighestCode || pb.numOfInputParams > std::size(pb.params)) return false;
  // A client that closed the session would close it under every other one.
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

/// Counts what its target takes, which is less than what the device sends where the target is full.
class CountingSink : public ptp::DataSink {
 public:
  explicit CountingSink(ptp::DataSink& target) : target_(target) {}
  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    return target_.room(offset, length);
  }
  bool received(std::uint64_t offset, std::size_t length) override {
    taken_ = offset + length;
    return target_.received(offset, length);
  }
  std::uint32_t taken() const {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(taken_, UINT32_MAX));
  }

 private:
  ptp::DataSink& target_;
  std::uint64_t taken_ = 0;
};

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
  CountingSink sink(record.sink() ? *record.sink() : areaSink);
  if (pb.dataUsageMode == kDataToDevice)
    transaction.send = record.source() ? record.source() : &areaSource;
  if (pb.dataUsageMode == kDataFromDevice) transaction.receive = &sink;

  const Status result = channel.transact(transaction, why);
  if (pb.dataUsageMode == kDataFromDevice) pb.dataSize = sink.taken();
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
  if (result != status::kOK || transaction.responseCode == status::kPTPOK) return result;
  return transaction.responseCode;
}

}  // namespace tarvo
