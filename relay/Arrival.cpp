#include "relay/Arrival.h"

#include <charconv>
#include <limits>

#include "Utilities/Printable.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo::relay {
namespace {

/// Signed, as the agent writes it; unsigned as it is read off elsewhere.
std::optional<std::int32_t> locationOf(const std::string& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  if (!isWhole || number < std::numeric_limits<std::int32_t>::min() ||
      number > std::numeric_limits<std::uint32_t>::max())
    return std::nullopt;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
}

bool readOption(const std::string& word, CommandLine& line) {
  if (word == "--batch") return line.isBatch = true;
  if (word == "--help" || word == "-h") return line.showsHelp = true;
  if (word == "--version") return line.showsVersion = true;
  return false;
}

std::optional<std::string> readArrival(const std::vector<std::string>& words, Arrival& arrival) {
  if (words.empty()) return std::nullopt;
  arrival.type = words[0];
  if (arrival.type != "PTP" && arrival.type != "MSC" && arrival.type != "card")
    return "'" + printable(arrival.type) + "' is no type of device; PTP, MSC and card are.";
  // A word that the agent does not know ends the list early.
  if (words.size() > 1 && !words[1].empty()) {
    const auto location = locationOf(words[1]);
    if (!location) return "'" + printable(words[1]) + "' is no USB location.";
    arrival.location = *location;
  }
  if (words.size() > 2) arrival.path = words[2];
  return std::nullopt;
}

}  // namespace

const char* const kHelp =
    "Usage: tarvo-relay [--batch] [TYPE LOCATION PATH]\n\n"
    "Shows what is new on a camera or a card, and imports it.\n\n"
    "  TYPE       PTP, MSC or card\n"
    "  LOCATION   USB location of the device, decimal; may be negative\n"
    "  PATH       where the volume is mounted; empty for PTP\n"
    "  --batch    imports at once and without a window, as 'tarvoctl import' does\n"
    "  --help     shows this\n"
    "  --version  shows the version\n";

std::string deviceArgument(const Arrival& arrival) {
  if (arrival.type.empty()) return {};
  const std::string volume = arrival.type == "PTP" ? "" : lastPathComponent(arrival.path);
  return volume.empty() ? std::to_string(arrival.location) : volume;
}

CommandLine readCommandLine(const std::vector<std::string>& words) {
  constexpr std::size_t kMostWords = 3;
  CommandLine line;
  std::vector<std::string> places;
  for (const auto& word : words) {
    const bool isBetween = !places.empty() && places.size() < kMostWords;
    if (!isBetween && readOption(word, line)) continue;
    if (places.size() == kMostWords || (places.empty() && word.starts_with('-'))) {
      line.mistake = "'" + printable(word) + "' makes no sense here.";
      return line;
    }
    places.push_back(word);
  }
  line.mistake = readArrival(places, line.arrival);
  return line;
}

}  // namespace tarvo::relay
