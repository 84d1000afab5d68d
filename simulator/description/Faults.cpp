#include "simulator/description/Faults.h"

#include <algorithm>
#include <vector>

#include "Utilities/PTPCodes.h"
#include "simulator/bytes/JsonNode.h"

namespace tarvo::simulator {
namespace {

enum class Takes { kNothing, kBytes, kCode, kTime };
enum class Of { kBoth, kPTP, kUnit };

struct Row {
  std::string_view name;
  std::string_view meaning;
  Fault fault;
  Takes takes;
  Of of = Of::kPTP;

  bool belongsTo(FaultTarget target) const {
    return of == Of::kBoth || (of == Of::kUnit) == (target == FaultTarget::kUnit);
  }
};

/// In the order of help(); any order would do.
constexpr Row kRows[] = {
    {"stall", "the bulk-in endpoint halts instead of an answer", Fault::kStall, Takes::kNothing,
     Of::kBoth},
    {"stall-out", "the bulk-out endpoint halts when the host's data arrive", Fault::kStallOut,
     Takes::kNothing, Of::kBoth},
    {"silent", "no answer", Fault::kSilent, Takes::kNothing, Of::kBoth},
    {"wrong-id", "another transaction's id", Fault::kWrongTransactionID, Takes::kNothing},
    {"garbage", "pseudo-random bytes instead of an answer", Fault::kGarbage, Takes::kNothing,
     Of::kBoth},
    {"truncate", "the data (of a PTP device without an operation: DeviceInfo) are cut to this size",
     Fault::kTruncate, Takes::kBytes, Of::kBoth},
    {"short", "a short packet ends the data half-way", Fault::kShort, Takes::kNothing, Of::kBoth},
    {"babble", "a packet larger than the host has room for", Fault::kBabble, Takes::kNothing,
     Of::kBoth},
    {"lie-short", "data container claims too few bytes", Fault::kLieShort, Takes::kNothing},
    {"lie-long", "data container claims too many bytes", Fault::kLieLong, Takes::kNothing},
    {"raise", "response General Error (without an operation: to 0x9009 and 0x920A)", Fault::kRaise,
     Takes::kNothing},
    {"respond", "that response code, and nothing is done", Fault::kRespond, Takes::kCode},
    {"vanish", "unplugged in the middle of the data", Fault::kVanish, Takes::kNothing, Of::kBoth},
    {"delay", "each answer comes late", Fault::kDelay, Takes::kTime, Of::kBoth},
    {"trickle", "each packet comes so much after the one before", Fault::kTrickle, Takes::kTime},
    {"stop", "the data container ends after so many bytes, and nothing follows", Fault::kStop,
     Takes::kBytes},
    {"endless", "bytes without an end instead of an answer", Fault::kEndless, Takes::kNothing},
    {"deaf", "nothing is answered on endpoint 0", Fault::kDeaf, Takes::kNothing},
    {"split-header", "container header and payload in separate packets", Fault::kSplitHeader,
     Takes::kNothing},
    {"no-zlp", "no zero-length packet after an exact multiple of the packet size",
     Fault::kOmitZeroLengthPacket, Takes::kNothing},
    {"sense", "check condition with this key, code and qualifier (0x052400)", Fault::kSense,
     Takes::kCode, Of::kUnit},
    {"status", "this SCSI status (0x08 busy), where the host's system can show it", Fault::kStatus,
     Takes::kCode, Of::kUnit},
    {"phase-error", "the status wrapper says phase error", Fault::kPhaseError, Takes::kNothing,
     Of::kUnit},
    {"wrong-tag", "the status wrapper carries another tag", Fault::kWrongTag, Takes::kNothing,
     Of::kUnit},
    {"wrong-signature", "the status wrapper has no signature", Fault::kWrongSignature,
     Takes::kNothing, Of::kUnit},
    {"mode-length", "the mode data length claims so many bytes", Fault::kModeLength, Takes::kCode,
     Of::kUnit},
    {"page-length", "the mode page claims so many bytes", Fault::kPageLength, Takes::kCode,
     Of::kUnit},
    {"vanish-command", "unplugged when the command arrives", Fault::kVanishCommand, Takes::kNothing,
     Of::kUnit},
    {"vanish-status", "unplugged instead of the status", Fault::kVanishStatus, Takes::kNothing,
     Of::kUnit},
};
static_assert(std::size(kRows) == kFaultCount);

constexpr std::uint32_t kLongestDelay = 2'000'000;  // milliseconds

std::string_view placeholder(Takes takes) {
  switch (takes) {
    case Takes::kBytes:
      return "=BYTES[,WHEN]";
    case Takes::kCode:
      return "=CODE[,WHEN]";
    case Takes::kTime:
      return "=MILLISECONDS[,WHEN]";
    case Takes::kNothing:
      return "[=WHEN]";
  }
  return "";
}

std::optional<std::uint32_t> number32(std::string_view text, std::uint32_t maximum) {
  const auto number = parseNumber(text, maximum);
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

/// A time in microseconds: "250us", or milliseconds with or without "ms".
std::optional<std::uint32_t> timeFrom(std::string_view text) {
  if (text.ends_with("us")) return number32(text.substr(0, text.size() - 2), kLongestDelay * 1000);
  if (text.ends_with("ms")) text.remove_suffix(2);
  const auto milliseconds = number32(text, kLongestDelay);
  if (!milliseconds) return std::nullopt;
  return *milliseconds * 1000;
}

std::optional<std::uint32_t> amountFrom(Takes takes, std::string_view text) {
  if (takes == Takes::kTime) return timeFrom(text);
  return number32(text, takes == Takes::kCode ? 0xFFFFFF : 0x7FFFFFFF);
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> list;
  while (!text.empty()) {
    const auto end = std::min(text.find(','), text.size());
    list.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return list;
}

}  // namespace

bool Faults::readWord(std::string_view word, Setting& setting) {
  if (word == "once") {
    setting.once = true;
    return true;
  }
  if (word.starts_with('@')) {
    word.remove_prefix(1);
    setting.once = !word.ends_with('+');
    if (!setting.once) word.remove_suffix(1);
    const auto number = number32(word, 0xFFFFFFFF);
    if (number.value_or(0) == 0) return false;
    setting.wait = *number - 1;
    return true;
  }
  const auto operation = number32(word, 0xFFFF);
  if (operation) setting.operation = static_cast<std::uint16_t>(*operation);
  return operation.has_value();
}

std::string Faults::set(std::string_view name, std::string_view value) {
  const auto* row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& candidate) {
    return candidate.name == name && candidate.belongsTo(target_);
  });
  if (row == std::end(kRows)) {
    return "unknown fault \"" + std::string(name) + "\"; the faults are:\n" + help(target_);
  }
  auto& slot = settings_[index(row->fault)];
  if (value == "off") {
    slot.reset();
    return {};
  }
  Setting setting;
  auto list = words(value);
  bool understood = true;
  if (row->takes != Takes::kNothing) {
    const auto amount = list.empty() ? std::nullopt : amountFrom(row->takes, list.front());
    understood = amount.has_value();
    setting.amount = amount.value_or(0);
    if (understood) list.erase(list.begin());
  }
  understood = understood && std::all_of(list.begin(), list.end(), [&](std::string_view word) {
                 return readWord(word, setting);
               });
  if (!understood) {
    return "the fault is written " + std::string(name) + std::string(placeholder(row->takes)) +
           ", or " + std::string(name) + "=off";
  }
  slot = setting;
  return {};
}

bool Faults::concerns(Fault fault, const Setting& setting, std::uint16_t operation) const {
  if (setting.operation) return *setting.operation == operation;
  // Alone, "raise" means the vendor queries: a camera that refuses everything is another fault.
  if (fault == Fault::kRaise) {
    return operation == ptp::XT_GET_DISPLAY_REQUEST_VERSION ||
           operation == ptp::XTO_GET_SUPPORTED_DATASETS;
  }
  return fault != Fault::kTruncate || target_ == FaultTarget::kUnit ||
         operation == ptp::kGetDeviceInfo;
}

void Faults::begin(std::uint16_t operation) {
  for (const auto& row : kRows) {
    auto& setting = settings_[index(row.fault)];
    auto& struck = struck_[index(row.fault)];
    struck.reset();
    if (!setting || !concerns(row.fault, *setting, operation)) continue;
    if (setting->wait > 0) {
      --setting->wait;
      continue;
    }
    struck = setting->amount;
    if (setting->once) setting.reset();
  }
}

std::string Faults::help(FaultTarget target) {
  std::string text;
  for (const auto& row : kRows) {
    if (!row.belongsTo(target)) continue;
    std::string form = std::string(row.name) + std::string(placeholder(row.takes));
    form.resize(std::max<std::size_t>(form.size() + 1, 28), ' ');
    text += "  " + form + std::string(row.meaning) + "\n";
  }
  return text +
         "WHEN is a list with commas: an operation code (without: every operation), @N (only the "
         "N-th\nsuch transaction from now on), @N+ (from that one on), once.\n";
}

}  // namespace tarvo::simulator
