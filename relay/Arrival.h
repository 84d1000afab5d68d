// What the Relay is started for: a device, by the three words that the agent gives.
//
//   tarvo-relay PTP -98566144 ""
//   tarvo-relay card 18874368 /media/user/TARVO_CARD
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarvo::relay {

struct Arrival {
  std::string type{};         ///< "PTP", "MSC" or "card"; empty: whatever is connected
  std::int32_t location = 0;  ///< of the USB device
  std::string path{};         ///< where the volume is mounted; empty for "PTP"

  friend bool operator==(const Arrival&, const Arrival&) = default;
};

/// What `tarvoctl --device` takes for it; empty where the only device is meant. A volume goes by
/// its name: two cards of a dock have one location.
std::string deviceArgument(const Arrival& arrival);

struct CommandLine {
  Arrival arrival{};
  bool isBatch = false;
  bool showsHelp = false;
  bool showsVersion = false;
  /// Why it makes no sense, a sentence; everything else is meaningless then.
  std::optional<std::string> mistake{};
};

/// `words` are those behind the program's name. Options stand before the three words or behind
/// them: a word in its place may begin with "-".
CommandLine readCommandLine(const std::vector<std::string>& words);

extern const char* const kHelp;

}  // namespace tarvo::relay
