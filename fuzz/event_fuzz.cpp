// Feeds the readers of containers and of events what a hostile device could send.
//
// The first byte of an input chooses the packet size of the interrupt endpoint, the rest is what
// comes: once as packets whose lengths are in it as well, once as one container on a bulk endpoint
// and as the answer to Get Device Status.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "fuzz/Require.h"
#include "platform/imagecapture/ptp/BulkPipe.h"

namespace {

namespace ptp = tarvo::ptp;
using Bytes = std::vector<std::byte>;

constexpr std::size_t kPacketSizes[] = {1, 8, 16, 24, 64, 512, 1024};

/// What the device left out stays 0.
void checkEvent(const ptp::Event& event) {
  require(event.parameterCount <= event.parameters.size());
  require(std::all_of(event.parameters.begin() + event.parameterCount, event.parameters.end(),
                      [](std::uint32_t parameter) { return parameter == 0; }));
}

/// Each packet is a length and that many bytes.
void checkPackets(std::span<const std::byte> bytes, std::size_t packetSize) {
  ptp::EventAssembler assembler(packetSize);
  std::size_t taken = 0;
  std::size_t eventBytes = 0;
  while (!bytes.empty()) {
    const std::size_t length = std::to_integer<std::size_t>(bytes.front()) % (packetSize + 1);
    bytes = bytes.subspan(1);
    // A copy of exact size, so that the sanitizer sees a read beyond it.
    const Bytes packet(bytes.begin(),
                       bytes.begin() + static_cast<std::ptrdiff_t>(std::min(length, bytes.size())));
    bytes = bytes.subspan(packet.size());
    taken += packet.size();
    for (const ptp::Event& event : assembler.take(packet)) {
      checkEvent(event);
      eventBytes += ptp::kContainerHeaderSize + std::size_t{4} * event.parameterCount;
    }
    require(eventBytes <= taken);
  }
}

void checkHeader(const Bytes& bytes) {
  const auto header = ptp::decodeHeader(bytes);
  if (!header) return;
  Bytes written(ptp::kContainerHeaderSize);
  ptp::encodeHeader(*header, written);
  require(std::equal(written.begin(), written.end(), bytes.begin()));
}

void checkResponse(const Bytes& bytes) {
  const auto header = ptp::decodeHeader(bytes);
  const std::uint32_t transactionID = header ? header->transactionID : 0;
  ptp::Transaction transaction;
  if (!ptp::decodeResponse(bytes, transactionID, transaction).done()) {
    require(transaction.responseParameterCount == 0);
    return;
  }
  // Some devices add bytes that make no parameter.
  require((bytes.size() - ptp::kContainerHeaderSize) / 4 == transaction.responseParameterCount);
  ptp::Transaction other;
  require(!ptp::decodeResponse(bytes, transactionID + 1, other).done());
}

void checkStatus(const Bytes& bytes) {
  const auto status = ptp::decodeDeviceStatus(bytes);
  require(status.has_value() == (bytes.size() >= 4));
  if (status) require(4 + 4 * status->haltedCount <= std::max<std::size_t>(bytes.size(), 4));
  require(!ptp::inHex(bytes).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto rest = std::as_bytes(std::span(data, size).subspan(1));
  checkPackets(rest, kPacketSizes[*data % std::size(kPacketSizes)]);
  const Bytes container(rest.begin(), rest.end());
  checkHeader(container);
  checkResponse(container);
  checkStatus(container);
  return 0;
}
