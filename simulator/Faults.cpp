#include "simulator/Faults.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"
#include "simulator/JsonNode.h"

namespace tarvo::simulator {
namespace {

enum class Takes { kOperation, kBytes, kMilliseconds, kNothing };

struct Row {
  std::string_view name;
  std::string_view meaning;
  Fault fault;
  Takes takes;
};

/// In the order of help(); any order would do.
constexpr Row kRows[] = {
    {"stall", "the bulk-in endpoint halts instead of an answer", Fault::kStall, Takes::kOperation},
    {"silent", "no answer", Fault::kSilent, Takes::kOperation},
    {"wrong-id", "another transaction's id", Fault::kWrongTransactionID, Takes::kOperation},
    {"garbage", "pseudo-random bytes instead of an answer", Fault::kGarbage, Takes::kOperation},
    {"truncate", "the DeviceInfo data set is cut to this size", Fault::kTruncate, Takes::kBytes},
    {"lie-short", "data container claims too few bytes", Fault::kLieShort, Takes::kOperation},
    {"lie-long", "data container claims too many bytes", Fault::kLieLong, Takes::kOperation},
    {"raise", "response General Error (without a value: to the vendor queries 0x9009 and 0x920A)",
     Fault::kRaise, Takes::kOperation},
    {"vanish", "unplugged in the middle of the answer", Fault::kVanish, Takes::kOperation},
    {"delay", "each answer comes late", Fault::kDelay, Takes::kMilliseconds},
    {"split-header", "container header and payload in separate packets", Fault::kSplitHeader,
     Takes::kNothing},
    {"no-zlp", "no zero-length packet after an exact multiple of the packet size",
     Fault::kOmitZeroLengthPacket, Takes::kNothing},
};
static_assert(std::size(kRows) == kFaultCount);

/// The value of a fault that belongs to every operation: beyond the 16 bits of a code.
constexpr std::uint32_t kEveryOperation = 0x10000;

std::string_view placeholder(Takes takes) {
  switch (takes) {
    case Takes::kOperation:
      return "[=OPERATION]";
    case Takes::kBytes:
      return "=BYTES";
    case Takes::kMilliseconds:
      return "=MILLISECONDS";
    case Takes::kNothing:
      return "";
  }
  return "";
}

/// The number to keep for `text`, or none when the fault does not take it.
std::optional<std::uint32_t> valueFor(const Row& row, std::string_view text) {
  if (text.empty()) {
    if (row.takes == Takes::kOperation || row.takes == Takes::kNothing) return kEveryOperation;
    return std::nullopt;
  }
  if (row.takes == Takes::kNothing) return std::nullopt;
  const auto number = parseNumber(text, row.takes == Takes::kOperation ? 0xFFFF : 0x7FFFFFFF);
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

}  // namespace

std::string Faults::set(std::string_view name, std::string_view value) {
  const auto* row = std::find_if(std::begin(kRows), std::end(kRows),
                                 [&](const Row& candidate) { return candidate.name == name; });
  if (row == std::end(kRows)) {
    return "unknown fault \"" + std::string(name) + "\"; the faults are:\n" + help();
  }
  auto& slot = values_[static_cast<std::size_t>(row->fault)];
  if (value == "off") {
    slot.reset();
    return {};
  }
  const auto number = valueFor(*row, value);
  if (!number) {
    return "the fault is written " + std::string(name) + std::string(placeholder(row->takes)) +
           ", or " + std::string(name) + "=off";
  }
  slot = number;
  return {};
}

bool Faults::strikes(Fault fault, std::uint16_t operation) const {
  const auto& value = at(fault);
  if (!value) return false;
  // "raise" alone means the vendor queries: a camera that refuses everything is another fault.
  if (*value != kEveryOperation) return *value == operation;
  if (fault != Fault::kRaise) return true;
  return operation == ptp::XT_GET_DISPLAY_REQUEST_VERSION ||
         operation == ptp::XTO_GET_SUPPORTED_DATASETS;
}

std::string Faults::help() {
  std::string text;
  for (const auto& row : kRows) {
    std::string form = std::string(row.name) + std::string(placeholder(row.takes));
    form.resize(std::max<std::size_t>(form.size() + 1, 26), ' ');
    text += "  " + form + std::string(row.meaning) + "\n";
  }
  return text;
}

}  // namespace tarvo::simulator
