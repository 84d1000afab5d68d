#include "simulator/ptp/HostContainers.h"

#include <algorithm>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::size_t kMaximumCommand = ptp::kContainerHeaderSize + 20;
/// Claimed where the length does not fit 32 bits: only a short packet ends such a container.
constexpr std::uint64_t kUnknownLength = 0xFFFFFFFF;

}  // namespace

bool HostContainers::isCommand(std::span<const std::byte> bytes) {
  return bytes.size() >= ptp::kContainerHeaderSize && bytes.size() <= kMaximumCommand &&
         littleEndian(bytes, 0, 4) == bytes.size() &&
         littleEndian(bytes, 4, 2) == ptp::kCommandBlock;
}

std::optional<PTPRequest> HostContainers::command(std::span<const std::byte> bytes, bool ends) {
  mayEndWithEmpty_ = false;
  if (!ends || !isCommand(bytes) || bytes.size() % 4 != 0) {
    violations_.add(formatted("a command was expected, got %zu bytes, type %u, claimed length %u",
                              bytes.size(), static_cast<unsigned>(littleEndian(bytes, 4, 2)),
                              static_cast<unsigned>(littleEndian(bytes, 0, 4))));
    return std::nullopt;
  }
  PTPRequest request;
  request.operation = static_cast<std::uint16_t>(littleEndian(bytes, 6, 2));
  request.transactionID = static_cast<std::uint32_t>(littleEndian(bytes, 8, 4));
  request.parameterCount = static_cast<unsigned>((bytes.size() - ptp::kContainerHeaderSize) / 4);
  for (unsigned i = 0; i < request.parameterCount; ++i) {
    request.parameters[i] = static_cast<std::uint32_t>(
        littleEndian(bytes, ptp::kContainerHeaderSize + std::size_t{4} * i, 4));
  }
  return request;
}

void HostContainers::forgetData() {
  header_.clear();
  payload_ = Spool();
}

void HostContainers::append(std::span<const std::byte> bytes) {
  const auto missing = ptp::kContainerHeaderSize - header_.size();
  const auto head = bytes.first(std::min(missing, bytes.size()));
  header_.insert(header_.end(), head.begin(), head.end());
  payload_.append(bytes.subspan(head.size()));
}

bool HostContainers::data(std::span<const std::byte> bytes, bool ends, PTPRequest& request) {
  append(bytes);
  // Where no short packet ends the container, its claimed length does.
  const auto claimed = littleEndian(header_, 0, 4);
  const bool whole = header_.size() == ptp::kContainerHeaderSize && claimed != kUnknownLength &&
                     received() >= claimed;
  if (!ends && !whole) return false;
  mayEndWithEmpty_ = !ends;
  expectsData_ = false;
  checkData(request);
  request.data = payload_.finish();
  forgetData();
  return true;
}

void HostContainers::checkData(const PTPRequest& request) {
  const auto claimed = littleEndian(header_, 0, 4);
  const auto operation = request.operation;
  if (claimed != std::min(received(), kUnknownLength)) {
    violations_.add(formatted("data container of operation 0x%04X: %u bytes claimed, %llu came",
                              operation, static_cast<unsigned>(claimed),
                              static_cast<unsigned long long>(received())));
  }
  // The product keeps off these lengths: transports have lost the packet that would end them.
  if (received() % 64 == 0) {
    violations_.add(
        formatted("data container of operation 0x%04X: its length %llu is a multiple "
                  "of 64",
                  operation, static_cast<unsigned long long>(received())));
  }
  if (littleEndian(header_, 4, 2) != ptp::kDataBlock || littleEndian(header_, 6, 2) != operation ||
      littleEndian(header_, 8, 4) != request.transactionID) {
    violations_.add(formatted(
        "data container of operation 0x%04X: wrong type, code or transaction id", operation));
  }
}

bool HostContainers::isEndOfLast(std::span<const std::byte> bytes) {
  if (!bytes.empty() || !mayEndWithEmpty_) return false;
  mayEndWithEmpty_ = false;
  return true;
}

}  // namespace tarvo::simulator
