// How one step of the transport ended, with words for whoever has to explain it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "Utilities/Status.h"

namespace tarvo::ptp {

/// In the order in which callers care: only kDone means that the step has done its work.
enum class Ending {
  kDone,
  kStalled,    ///< a bulk endpoint is halted; `Outcome::endpoint` says which
  kTimedOut,   ///< no progress in the time allowed
  kOutOfTime,  ///< the time of the whole conversation is over
  kGone,       ///< unplugged
  kBroken,     ///< the device broke the protocol
  kCancelled,  ///< the sink or the source ended it
  kFailed,     ///< any other failure of the bus
};

/// `why` is a clause for a log line or a user, without a full stop, and never has text of the
/// device in it.
struct [[nodiscard]] Outcome {
  Ending ending = Ending::kDone;
  std::string why{};          ///< empty when done
  std::uint8_t endpoint = 0;  ///< the halted one, for kStalled only

  bool done() const { return ending == Ending::kDone; }

  /// The status that callers of the connection see.
  Status status() const {
    switch (ending) {
      case Ending::kDone:
        return status::kOK;
      case Ending::kTimedOut:
        return status::kICATimeout;
      case Ending::kOutOfTime:
        return status::kICAOutOfTime;
      case Ending::kGone:
        return status::kICADeviceGone;
      case Ending::kBroken:
        return status::kICAProtocolError;
      case Ending::kCancelled:
        return status::kCancelled;
      case Ending::kStalled:
      case Ending::kFailed:
        break;
    }
    return status::kIOError;
  }
};

/// The usual failure: the device did what the protocol forbids.
inline Outcome broken(std::string why) {
  return {Ending::kBroken, std::move(why)};
}

}  // namespace tarvo::ptp
